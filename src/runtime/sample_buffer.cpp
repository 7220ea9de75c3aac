#include "runtime/sample_buffer.hpp"

#include <cstdlib>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace kelo {

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

}  // namespace

SampleBuffer::SampleBuffer(std::size_t count) : count_(count) {
  const std::size_t bytes = count * sizeof(double);
  if (count > SIZE_MAX / sizeof(double)) throw std::bad_alloc();
  void* p = nullptr;
  if (bytes >= 2 * kHugePage) {
    // Whole huge pages, aligned to them, so that every page can be one.
    const std::size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    p = std::aligned_alloc(kHugePage, rounded);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    if (p != nullptr) madvise(p, rounded, MADV_HUGEPAGE);  // advice only: failure changes nothing
#endif
  } else {
    p = std::malloc(bytes > 0 ? bytes : 1);
  }
  if (p == nullptr) throw std::bad_alloc();
  data_.reset(static_cast<double*>(p));
}

void SampleBuffer::Free::operator()(double* p) const noexcept { std::free(p); }

}  // namespace kelo
