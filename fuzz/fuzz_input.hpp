// What every fuzz target shares: reading the fuzzer's bytes as parameters
// and samples, and a check that stops the run with a message when an
// output breaks a promise of the routine.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "keloecgsolver/emx_array.h"

// Aborts (the fuzzer then saves the input) when cond does not hold.
#define FUZZ_CHECK(cond)                                                             \
  do {                                                                               \
    if (!(cond)) {                                                                   \
      std::fprintf(stderr, "%s:%d: broken invariant: %s\n", __FILE__, __LINE__, #cond); \
      std::abort();                                                                  \
    }                                                                                \
  } while (0)

namespace kelo::fuzz {

// Bytes taken from the front; past the end every read gives zeros.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : p_(data), left_(size) {}

  std::uint8_t byte() {
    if (left_ == 0) return 0;
    --left_;
    return *p_++;
  }
  std::uint16_t u16() { return static_cast<std::uint16_t>(byte() | byte() << 8); }
  std::size_t left() const { return left_; }

  // One of the given values, chosen by the next byte.
  template <class T, std::size_t N>
  T pick(const T (&values)[N]) {
    return values[byte() % N];
  }

  // The rest as little-endian 16-bit samples in units of 1/200 mV (the
  // resolution of the bundled recording), at most `limit` of them.
  std::vector<double> samples(std::size_t limit) {
    std::vector<double> x;
    while (left_ >= 2 && x.size() < limit) x.push_back(static_cast<std::int16_t>(u16()) / 200.0);
    return x;
  }

 private:
  const std::uint8_t* p_;
  std::size_t left_;
};

// A column record around caller-owned data (allocates nothing).
template <class Rec, class T>
struct Column {
  std::vector<T> data;
  std::int32_t size[2];
  Rec rec;
  explicit Column(std::vector<T> v)
      : data(std::move(v)),
        size{static_cast<std::int32_t>(data.size()), 1},
        rec{data.data(), size, static_cast<std::int32_t>(data.size()), 2, false} {}
};

// 1-based positions within n samples, strictly ascending, at most one per
// sample: a gap of at least one sample per byte pair.
inline std::vector<std::int32_t> ascending(Input& in, std::size_t count, std::int32_t first, std::int32_t spread) {
  std::vector<std::int32_t> out;
  out.reserve(count + 1);  // never a null pointer: an empty list is still a list
  std::int64_t at = first;
  for (std::size_t i = 0; i < count && in.left() > 0; ++i) {
    at += 1 + in.u16() % spread;
    if (at > INT32_MAX) break;
    out.push_back(static_cast<std::int32_t>(at));
  }
  return out;
}

}  // namespace kelo::fuzz
