// Heap bytes in use and their peak, for the benchmarks' bytes-per-sample
// figures. Every allocation of the benchmark program is counted: operator
// new and delete are replaced, and malloc, calloc, realloc and free of the
// library's objects are routed through here by the linker (--wrap).
#pragma once

#include <cstddef>

namespace kelo::bench {

struct HeapUse {
  std::size_t current;
  std::size_t peak;
};

HeapUse heap_use();

// Starts a new peak measurement from the bytes in use now.
void reset_heap_peak();

}  // namespace kelo::bench
