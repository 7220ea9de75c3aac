// Internal side of the dynamic array records: initialisation, growth,
// release, shape helpers, element views and an owning RAII handle.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <type_traits>

#include "keloecgsolver/emx_array.h"

namespace kelo {

template <class Rec>
using emx_element_t = std::remove_pointer_t<decltype(Rec::data)>;

template <class Rec>
concept EmxRecord = std::is_same_v<Rec, emxArray_real_T> ||
                    std::is_same_v<Rec, emxArray_int32_T> ||
                    std::is_same_v<Rec, emxArray_boolean_T>;

// New empty record of numDimensions extents, all 0, with no buffer; stored
// through *out. Throws std::bad_alloc (leaving *out alone) when memory runs
// out, as does every allocating helper here: the exported function that was
// called turns it into its failure result (runtime/boundary.hpp).
void m_emxInit_real_T(emxArray_real_T** out, int32_t numDimensions);
void m_emxInit_int32_T(emxArray_int32_T** out, int32_t numDimensions);
void m_emxInit_boolean_T(emxArray_boolean_T** out, int32_t numDimensions);

// Frees the record (and its buffer if it owns it) and nulls *p; NULL is a
// no-op.
void m_emxFree_real_T(emxArray_real_T** p);
void m_emxFree_int32_T(emxArray_int32_T** p);
void m_emxFree_boolean_T(emxArray_boolean_T** p);

// Makes allocatedSize at least the product of the current extents, keeping
// the first oldNumel elements. Capacity starts at 16 and doubles; the new
// buffer is zero-filled and always owned. On failure the record keeps its
// old buffer and capacity.
void m_emxEnsureCapacity(void* record, int32_t oldNumel, int32_t elementSize);

template <EmxRecord Rec>
void m_emxEnsureCapacity(Rec* record, int32_t oldNumel) {
  m_emxEnsureCapacity(static_cast<void*>(record), oldNumel,
                      static_cast<int32_t>(sizeof(emx_element_t<Rec>)));
}

inline void emx_init(emxArray_real_T** p, int32_t d) { m_emxInit_real_T(p, d); }
inline void emx_init(emxArray_int32_T** p, int32_t d) { m_emxInit_int32_T(p, d); }
inline void emx_init(emxArray_boolean_T** p, int32_t d) { m_emxInit_boolean_T(p, d); }
inline void emx_free(emxArray_real_T** p) { m_emxFree_real_T(p); }
inline void emx_free(emxArray_int32_T** p) { m_emxFree_int32_T(p); }
inline void emx_free(emxArray_boolean_T** p) { m_emxFree_boolean_T(p); }

// Product of the extents (1 for zero dimensions), clamped at 0 for
// negative extents.
template <EmxRecord Rec>
int32_t numel(const Rec* r) {
  if (r == nullptr || r->size == nullptr) return 0;
  int64_t n = 1;
  for (int32_t d = 0; d < r->numDimensions; ++d) {
    if (r->size[d] <= 0) return 0;
    n *= r->size[d];
    if (n > INT32_MAX) return INT32_MAX;
  }
  return static_cast<int32_t>(n);
}

// 0 when any extent is 0, else the largest extent.
template <EmxRecord Rec>
int32_t vector_length(const Rec* r) {
  if (r == nullptr || r->size == nullptr || r->numDimensions < 1) return 0;
  int32_t len = 0;
  for (int32_t d = 0; d < r->numDimensions; ++d) {
    if (r->size[d] <= 0) return 0;
    if (r->size[d] > len) len = r->size[d];
  }
  return len;
}

// Elements of a record as a span (bounded by both the extents and the
// buffer's capacity, so a malformed record cannot be read past its end).
template <EmxRecord Rec>
std::span<emx_element_t<Rec>> elements(Rec* r) {
  if (r == nullptr || r->data == nullptr) return {};
  int32_t n = numel(r);
  if (n > r->allocatedSize) n = r->allocatedSize < 0 ? 0 : r->allocatedSize;
  return {r->data, static_cast<std::size_t>(n)};
}

template <EmxRecord Rec>
std::span<const emx_element_t<Rec>> elements(const Rec* r) {
  return elements(const_cast<Rec*>(r));
}

// Writes new extents (missing trailing extents become 1) and grows the
// buffer, keeping the old elements. Returns false, changing nothing, when
// the record cannot take the shape (NULL or fewer dimensions than given).
template <EmxRecord Rec>
bool resize(Rec* r, std::initializer_list<int32_t> extents) {
  if (r == nullptr || r->size == nullptr ||
      r->numDimensions < static_cast<int32_t>(extents.size()))
    return false;
  const int32_t old = numel(r);
  int32_t d = 0;
  for (int32_t e : extents) r->size[d++] = e < 0 ? 0 : e;
  for (; d < r->numDimensions; ++d) r->size[d] = 1;
  m_emxEnsureCapacity(r, old);
  return true;
}

// Every extent 0: the failure result of a routine that could not fill the
// record. Never allocates.
template <EmxRecord Rec>
void empty(Rec* r) noexcept {
  if (r == nullptr || r->size == nullptr) return;
  for (int32_t d = 0; d < r->numDimensions; ++d) r->size[d] = 0;
}

// n elements laid out as a column ([n] or [n, 1, ...]).
template <EmxRecord Rec>
bool resize_column(Rec* r, int32_t n) { return resize(r, {n}); }

// n elements laid out as a row ([n] for a 1-D record, else [1, n, ...]).
template <EmxRecord Rec>
bool resize_row(Rec* r, int32_t n) {
  if (r != nullptr && r->numDimensions == 1) return resize(r, {n});
  return resize(r, {1, n});
}

// Owning handle of a record made with m_emxInit_*: frees it on scope exit.
template <EmxRecord Rec>
class Emx {
 public:
  explicit Emx(int32_t numDimensions = 1) { emx_init(&rec_, numDimensions); }
  ~Emx() { emx_free(&rec_); }
  Emx(Emx&& other) noexcept : rec_(other.rec_) { other.rec_ = nullptr; }
  Emx(const Emx&) = delete;
  Emx& operator=(const Emx&) = delete;
  Emx& operator=(Emx&&) = delete;

  Rec* get() const { return rec_; }
  // Hands the record over to the caller, who frees it.
  Rec* release() {
    Rec* r = rec_;
    rec_ = nullptr;
    return r;
  }
  Rec* operator->() const { return rec_; }
  operator Rec*() const { return rec_; }
  auto span() const { return elements(rec_); }

 private:
  Rec* rec_ = nullptr;
};

using EmxReal = Emx<emxArray_real_T>;
using EmxInt32 = Emx<emxArray_int32_T>;
using EmxBool = Emx<emxArray_boolean_T>;

}  // namespace kelo
