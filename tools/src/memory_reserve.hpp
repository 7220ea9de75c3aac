// Running out of memory gracefully. Most of keloecg is plain C++ whose
// destructors never allocate: there a failed allocation throws
// std::bad_alloc, which unwinds cleanly and is reported as "out of memory".
// nlohmann/json is different: it allocates while it destroys a value, and
// an allocation that fails inside a destructor ends the program. Code that
// builds JSON therefore runs in a ReserveScope: the first allocation that
// fails there releases a reserve held for the purpose and is tried again,
// marking the thread, and the program stops at the next check_memory()
// with std::bad_alloc, with memory to unwind.
#pragma once

namespace keloecg {

// Takes the reserve again if it was spent (when the memory is there),
// clears this thread's mark and installs the handler. Called when the
// program starts and before each recording of a batch.
void keep_memory_reserve();

// Throws std::bad_alloc if memory ran out on this thread since the last
// keep_memory_reserve(). Called before results are written.
void check_memory();

// While one exists on a thread, a failed allocation there may be served
// from the reserve.
class ReserveScope {
 public:
  ReserveScope();
  ~ReserveScope();
  ReserveScope(const ReserveScope&) = delete;
  ReserveScope& operator=(const ReserveScope&) = delete;
};

}  // namespace keloecg
