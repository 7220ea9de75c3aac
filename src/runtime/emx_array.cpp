// Dynamic array records: creation, growth and release.
//
// Buffers are obtained with calloc and released with free because callers
// of the C ABI free what the library hands them (and vice versa). Inside the
// library a failed allocation throws std::bad_alloc, which the exported
// function that was called turns into its failure result; the exported
// creators return NULL.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"

namespace kelo {
namespace {

// Header shared by the three record types.
struct EmxCommon {
  void* data;
  int32_t* size;
  int32_t allocatedSize;
  int32_t numDimensions;
  bool canFreeData;
};
static_assert(sizeof(EmxCommon) == sizeof(emxArray_real_T));
static_assert(offsetof(EmxCommon, canFreeData) == offsetof(emxArray_boolean_T, canFreeData));

struct FreeDeleter {
  void operator()(void* p) const noexcept { std::free(p); }
};

template <EmxRecord Rec>
void init_record(Rec** out, int32_t numDimensions) {
  const int32_t dims = numDimensions < 0 ? 0 : numDimensions;
  std::unique_ptr<Rec, FreeDeleter> r(static_cast<Rec*>(std::malloc(sizeof(Rec))));
  if (r == nullptr) throw std::bad_alloc();
  r->data = nullptr;
  r->numDimensions = dims;
  // At least one slot so that a zero-dimensional record still has a valid
  // (if unused) size pointer.
  r->size = static_cast<int32_t*>(std::calloc(static_cast<std::size_t>(dims > 0 ? dims : 1),
                                              sizeof(int32_t)));
  if (r->size == nullptr) throw std::bad_alloc();
  r->allocatedSize = 0;
  r->canFreeData = true;
  *out = r.release();
}

template <EmxRecord Rec>
void free_record(Rec** p) {
  if (p == nullptr || *p == nullptr) return;
  Rec* r = *p;
  if (r->data != nullptr && r->canFreeData) std::free(r->data);
  std::free(r->size);
  std::free(r);
  *p = nullptr;
}

// Element count of the given extents, as a non-negative buffer length.
int32_t extent_product(int32_t numDimensions, const int32_t* extents) {
  int64_t n = 1;
  for (int32_t d = 0; d < numDimensions; ++d) {
    if (extents[d] <= 0) return 0;
    n = std::min<int64_t>(n * extents[d], INT32_MAX);
  }
  return static_cast<int32_t>(n);
}

// The exported creators: NULL, with nothing left allocated, when memory
// runs out.
template <EmxRecord Rec>
Rec* create(int32_t numDimensions, const int32_t* extents) {
  return guarded(
      [&] {
        Emx<Rec> r(numDimensions);
        for (int32_t d = 0; d < r->numDimensions; ++d) r->size[d] = extents[d];
        const int32_t n = extent_product(r->numDimensions, r->size);
        r->data = static_cast<emx_element_t<Rec>*>(
            std::calloc(static_cast<std::size_t>(n), sizeof(emx_element_t<Rec>)));
        if (r->data == nullptr && n > 0) throw std::bad_alloc();
        r->allocatedSize = n;
        return r.release();
      },
      [] { return static_cast<Rec*>(nullptr); });
}

template <EmxRecord Rec>
Rec* create_wrapper(emx_element_t<Rec>* data, int32_t numDimensions, const int32_t* extents) {
  return guarded(
      [&] {
        Rec* r = nullptr;
        init_record(&r, numDimensions);
        for (int32_t d = 0; d < r->numDimensions; ++d) r->size[d] = extents[d];
        r->data = data;
        r->allocatedSize = extent_product(r->numDimensions, r->size);
        r->canFreeData = false;
        return r;
      },
      [] { return static_cast<Rec*>(nullptr); });
}

}  // namespace

void m_emxInit_real_T(emxArray_real_T** out, int32_t d) { init_record(out, d); }
void m_emxInit_int32_T(emxArray_int32_T** out, int32_t d) { init_record(out, d); }
void m_emxInit_boolean_T(emxArray_boolean_T** out, int32_t d) { init_record(out, d); }
void m_emxFree_real_T(emxArray_real_T** p) { free_record(p); }
void m_emxFree_int32_T(emxArray_int32_T** p) { free_record(p); }
void m_emxFree_boolean_T(emxArray_boolean_T** p) { free_record(p); }

void m_emxEnsureCapacity(void* record, int32_t oldNumel, int32_t elementSize) {
  auto* r = static_cast<EmxCommon*>(record);
  if (r == nullptr) return;
  const int32_t newNumel = extent_product(r->numDimensions, r->size);
  if (r->allocatedSize >= newNumel) return;

  // Capacity starts at 16 and doubles. Doubling is done in 64 bits and
  // capped at the int32 range instead of overflowing.
  int64_t capacity = r->allocatedSize < 16 ? 16 : r->allocatedSize;
  while (capacity < newNumel) capacity = std::min<int64_t>(capacity * 2, INT32_MAX);

  void* fresh = std::calloc(static_cast<std::size_t>(capacity), static_cast<std::size_t>(elementSize));
  // The record keeps its old buffer, so views of it stay bounded by what
  // exists; the call that wanted the room fails as a whole.
  if (fresh == nullptr) throw std::bad_alloc();
  if (r->data != nullptr) {
    // Never copy more than the old buffer holds, whatever the caller claims.
    const int32_t keep = std::clamp(oldNumel, 0, std::max(r->allocatedSize, 0));
    std::memcpy(fresh, r->data, static_cast<std::size_t>(keep) * static_cast<std::size_t>(elementSize));
    if (r->canFreeData) std::free(r->data);
  }
  r->data = fresh;
  r->allocatedSize = static_cast<int32_t>(capacity);
  r->canFreeData = true;
}

}  // namespace kelo

using namespace kelo;

extern "C" {

KELO_API emxArray_real_T* emxCreate_real_T(int32_t rows, int32_t cols) {
  const int32_t extents[2] = {rows, cols};
  return create<emxArray_real_T>(2, extents);
}

KELO_API emxArray_int32_T* emxCreate_int32_T(int32_t rows, int32_t cols) {
  const int32_t extents[2] = {rows, cols};
  return create<emxArray_int32_T>(2, extents);
}

KELO_API emxArray_real_T* emxCreateND_real_T(int32_t numDimensions, const int32_t* size) {
  return create<emxArray_real_T>(size == nullptr ? 0 : numDimensions, size);
}

KELO_API emxArray_int32_T* emxCreateND_int32_T(int32_t numDimensions, const int32_t* size) {
  return create<emxArray_int32_T>(size == nullptr ? 0 : numDimensions, size);
}

KELO_API emxArray_real_T* emxCreateWrapper_real_T(double* data, int32_t rows, int32_t cols) {
  const int32_t extents[2] = {rows, cols};
  return create_wrapper<emxArray_real_T>(data, 2, extents);
}

KELO_API emxArray_int32_T* emxCreateWrapper_int32_T(int32_t* data, int32_t rows, int32_t cols) {
  const int32_t extents[2] = {rows, cols};
  return create_wrapper<emxArray_int32_T>(data, 2, extents);
}

KELO_API emxArray_real_T* emxCreateWrapperND_real_T(double* data, int32_t numDimensions,
                                                    const int32_t* size) {
  return create_wrapper<emxArray_real_T>(data, size == nullptr ? 0 : numDimensions, size);
}

KELO_API emxArray_int32_T* emxCreateWrapperND_int32_T(int32_t* data, int32_t numDimensions,
                                                      const int32_t* size) {
  return create_wrapper<emxArray_int32_T>(data, size == nullptr ? 0 : numDimensions, size);
}

KELO_API void emxDestroyArray_real_T(emxArray_real_T* emxArray) { m_emxFree_real_T(&emxArray); }
KELO_API void emxDestroyArray_int32_T(emxArray_int32_T* emxArray) { m_emxFree_int32_T(&emxArray); }

}  // extern "C"
