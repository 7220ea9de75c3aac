// The C boundary of the library. No C++ exception may leave an exported
// function: a caller in C, or a Java virtual machine behind JNI, has no way
// to catch it and would be ended. Every exported function that can fail
// (in practice: run out of memory, reported inside as std::bad_alloc) runs
// its body through guarded(), which turns any exception into the function's
// documented failure result.
//
// Entry points also call one another (detectWaves runs the detector, the
// Java bridge runs detectWaves and the HRV driver). Only the outermost one
// catches: an inner entry point lets the exception travel on, so that the
// failure is reported by the function the caller actually called, in that
// function's own terms, instead of being turned halfway into a plausible
// but wrong partial result (an empty beat list, say).
#pragma once

#include <utility>

namespace kelo {

namespace boundary_detail {

// Exported calls in progress on this thread. Initial-exec TLS takes a few
// bytes of the static TLS block, so that the first call on a new thread
// never allocates (dynamic TLS would, and the C library ends the process
// when that allocation fails).
inline int& depth() noexcept {
  static thread_local int calls __attribute__((tls_model("initial-exec"))) = 0;
  return calls;
}

class Level {
 public:
  Level() noexcept { ++depth(); }
  ~Level() { --depth(); }
  Level(const Level&) = delete;
  Level& operator=(const Level&) = delete;
  static bool outermost() noexcept { return depth() == 1; }
};

}  // namespace boundary_detail

// Runs body() and returns its result. If body throws and this is the
// outermost exported call on the thread, runs failure() instead (it must not
// throw) and returns its result; in a nested call the exception goes on to
// the outer entry point. failure() typically empties output records, stores
// a status or returns NaN.
template <class Body, class Failure>
decltype(auto) guarded(Body&& body, Failure&& failure) {
  const boundary_detail::Level level;
  if (!boundary_detail::Level::outermost()) return std::forward<Body>(body)();
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    return std::forward<Failure>(failure)();
  }
}

}  // namespace kelo
