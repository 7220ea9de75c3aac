// Counting allocator behind alloc_meter.hpp. Each block carries a header
// just before the pointer handed out: its size, and the distance back to
// the start of what the system allocated (16 bytes, which keeps malloc's
// alignment, or the alignment asked of aligned_alloc). The counters are
// atomics: the benchmarks run on one thread, but the library may not know.
#include "alloc_meter.hpp"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

extern "C" {
void* __real_aligned_alloc(std::size_t, std::size_t);
void* __real_malloc(std::size_t);
void* __real_calloc(std::size_t, std::size_t);
void* __real_realloc(void*, std::size_t);
void __real_free(void*);
}

namespace {

constexpr std::size_t kHeader = 16;
std::atomic<std::size_t> current{0};
std::atomic<std::size_t> peak{0};

void note(std::size_t added) {
  const std::size_t now = current.fetch_add(added) + added;
  std::size_t seen = peak.load();
  while (now > seen && !peak.compare_exchange_weak(seen, now)) {
  }
}

void* tag(void* block, std::size_t size, std::size_t offset = kHeader) {
  if (block == nullptr) return nullptr;
  char* user = static_cast<char*>(block) + offset;
  std::memcpy(user - 16, &size, sizeof size);
  std::memcpy(user - 8, &offset, sizeof offset);
  note(size);
  return user;
}

// The size of the block at p; p becomes the start of the system's block.
std::size_t untag(void*& p) {
  char* user = static_cast<char*>(p);
  std::size_t size, offset;
  std::memcpy(&size, user - 16, sizeof size);
  std::memcpy(&offset, user - 8, sizeof offset);
  p = user - offset;
  current.fetch_sub(size);
  return size;
}

}  // namespace

extern "C" {

void* __wrap_malloc(std::size_t size) { return tag(__real_malloc(size + kHeader), size); }

void* __wrap_calloc(std::size_t count, std::size_t size) {
  if (size != 0 && count > (SIZE_MAX - kHeader) / size) return nullptr;
  return tag(__real_calloc(1, count * size + kHeader), count * size);
}

void* __wrap_aligned_alloc(std::size_t alignment, std::size_t size) {
  const std::size_t offset = alignment < kHeader ? kHeader : alignment;
  return tag(__real_aligned_alloc(offset, size + offset), size, offset);
}

void __wrap_free(void* p) {
  if (p == nullptr) return;
  untag(p);
  __real_free(p);
}

void* __wrap_realloc(void* p, std::size_t size) {
  if (p == nullptr) return __wrap_malloc(size);
  char* user = static_cast<char*>(p);
  std::size_t offset;
  std::memcpy(&offset, user - 8, sizeof offset);
  if (offset != kHeader) {  // an aligned block: move it by hand
    void* moved = __wrap_malloc(size);
    if (moved == nullptr) return nullptr;
    std::size_t old;
    std::memcpy(&old, user - 16, sizeof old);
    std::memcpy(moved, p, old < size ? old : size);
    __wrap_free(p);
    return moved;
  }
  const std::size_t old = untag(p);
  void* block = __real_realloc(p, size + kHeader);
  if (block == nullptr) {  // the old block stays
    note(old);
    return nullptr;
  }
  return tag(block, size);
}

}  // extern "C"

void* operator new(std::size_t size) {
  if (void* p = __wrap_malloc(size)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return __wrap_malloc(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return __wrap_malloc(size); }
void operator delete(void* p) noexcept { __wrap_free(p); }
void operator delete[](void* p) noexcept { __wrap_free(p); }
void operator delete(void* p, std::size_t) noexcept { __wrap_free(p); }
void operator delete[](void* p, std::size_t) noexcept { __wrap_free(p); }

namespace kelo::bench {

HeapUse heap_use() { return {current.load(), peak.load()}; }

void reset_heap_peak() { peak.store(current.load()); }

}  // namespace kelo::bench
