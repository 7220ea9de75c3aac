// Dynamic array records: creation, growth rule, ownership of wrappers.
#include <gtest/gtest.h>

#include <vector>

#include "keloecgsolver/emx_array.h"
#include "runtime/emx.hpp"

namespace {

// Sets the first extent to n and grows the record the way the analysis code
// does: new extents first, then the growth with the old element count.
template <class Rec>
void grow_to(Rec* r, int32_t n) {
  const int32_t old = kelo::numel(r);
  r->size[0] = n;
  for (int32_t d = 1; d < r->numDimensions; ++d) r->size[d] = 1;
  kelo::m_emxEnsureCapacity(r, old);
}

TEST(EmxArray, CapacityStartsAtSixteenAndDoubles) {
  emxArray_real_T* a = emxCreate_real_T(0, 0);
  EXPECT_EQ(a->size[0], 0);
  EXPECT_EQ(a->size[1], 0);
  EXPECT_EQ(a->allocatedSize, 0);
  EXPECT_TRUE(a->canFreeData);
  const std::vector<std::pair<int32_t, int32_t>> steps = {
      {1, 16}, {16, 16}, {17, 32}, {65, 128}, {3, 128}, {1000, 1024}};
  for (auto [n, capacity] : steps) {
    grow_to(a, n);
    EXPECT_EQ(a->allocatedSize, capacity) << "after growing to " << n;
  }
  emxDestroyArray_real_T(a);

  kelo::EmxReal empty(1);
  grow_to(empty.get(), 5000);
  EXPECT_EQ(empty->allocatedSize, 8192);
  emxArray_real_T* hundred = emxCreate_real_T(100, 1);
  grow_to(hundred, 150);
  EXPECT_EQ(hundred->allocatedSize, 200);
  emxDestroyArray_real_T(hundred);
}

TEST(EmxArray, GrowthKeepsOldElementsAndZeroFillsTheRest) {
  emxArray_int32_T* a = emxCreate_int32_T(3, 1);
  a->data[0] = 7;
  a->data[1] = -8;
  a->data[2] = 9;
  grow_to(a, 40);
  ASSERT_EQ(a->allocatedSize, 64);
  EXPECT_EQ(a->data[1], -8);
  EXPECT_EQ(a->data[2], 9);
  for (int k = 3; k < 64; ++k) ASSERT_EQ(a->data[k], 0) << k;
  emxDestroyArray_int32_T(a);
}

TEST(EmxArray, WrappersNeverReleaseTheCallersBuffer) {
  double buffer[4] = {1.5, 2.5, 3.5, 4.5};
  emxArray_real_T* w = emxCreateWrapper_real_T(buffer, 4, 1);
  EXPECT_FALSE(w->canFreeData);
  grow_to(w, 3);  // within capacity: nothing changes, not even ownership
  EXPECT_EQ(w->data, buffer);
  EXPECT_FALSE(w->canFreeData);
  grow_to(w, 5);  // growth copies into a fresh owned buffer
  EXPECT_NE(w->data, buffer);
  EXPECT_TRUE(w->canFreeData);
  EXPECT_EQ(w->allocatedSize, 16);
  EXPECT_EQ(w->data[2], 3.5);
  EXPECT_EQ(w->data[4], 0.0);
  w->data[0] = -1.0;
  EXPECT_EQ(buffer[0], 1.5);
  // Destroying frees only the new buffer; the sanitizer build catches a
  // free of the stack buffer.
  emxDestroyArray_real_T(w);

  std::vector<int32_t> mine = {1, 2, 3, 4, 5, 6};
  const int32_t extents[3] = {1, 2, 3};
  emxArray_int32_T* nd = emxCreateWrapperND_int32_T(mine.data(), 3, extents);
  EXPECT_EQ(nd->allocatedSize, 6);
  EXPECT_EQ(nd->size[2], 3);
  emxDestroyArray_int32_T(nd);
  EXPECT_EQ(mine[5], 6);
}

TEST(EmxArray, CreatorsInitAndFree) {
  const int32_t extents[3] = {2, 3, 4};
  emxArray_real_T* a = emxCreateND_real_T(3, extents);
  EXPECT_EQ(a->size[2], 4);
  EXPECT_EQ(a->allocatedSize, 24);
  for (int k = 0; k < 24; ++k) ASSERT_EQ(a->data[k], 0.0);
  emxDestroyArray_real_T(a);

  emxArray_boolean_T* m = nullptr;
  kelo::m_emxInit_boolean_T(&m, 2);
  EXPECT_EQ(m->data, nullptr);
  EXPECT_EQ(m->size[0], 0);
  EXPECT_EQ(m->size[1], 0);
  kelo::m_emxFree_boolean_T(&m);
  EXPECT_EQ(m, nullptr);
  kelo::m_emxFree_boolean_T(&m);  // a second free through the same pointer is a no-op
  emxDestroyArray_real_T(nullptr);
}

TEST(EmxArray, ViewsStayInsideTheBufferOfAMalformedRecord) {
  double buffer[3] = {1, 2, 3};
  emxArray_real_T* w = emxCreateWrapper_real_T(buffer, 3, 1);
  w->size[0] = 1000;  // extents claim more than the buffer holds
  EXPECT_EQ(kelo::elements(w).size(), 3u);
  w->size[0] = -4;
  EXPECT_EQ(kelo::elements(w).size(), 0u);
  emxDestroyArray_real_T(w);
}

}  // namespace
