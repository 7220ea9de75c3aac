// A buffer of doubles for per-sample work arrays: uninitialised, and for
// long recordings backed by huge pages where the system offers them (one
// page fault per 2 MiB instead of per 4 KiB, which a 24-hour recording's
// hundreds of megabytes feel).
#pragma once

#include <cstddef>
#include <memory>
#include <span>

namespace kelo {

class SampleBuffer {
 public:
  // Throws std::bad_alloc when the memory is not there.
  explicit SampleBuffer(std::size_t count);
  std::span<double> span() const { return {data_.get(), count_}; }

 private:
  struct Free {
    void operator()(double* p) const noexcept;
  };
  std::unique_ptr<double[], Free> data_;
  std::size_t count_;
};

}  // namespace kelo
