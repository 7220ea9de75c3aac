// Dynamic array records: creation, growth rule, ownership of wrappers.
#include <gtest/gtest.h>

#include <vector>

#include "keloecgsolver/emx_array.h"
#include "runtime/emx.hpp"

namespace {

using kelo::m_emxEnsureCapacity;

// Sets the extents of a 1-D real record to n and grows it the way the
// analysis code does: new extents first, old element count passed along.
void grow_to(emxArray_real_T* r, int32_t n) {
  const int32_t old = kelo::numel(r);
  r->size[0] = n;
  if (r->numDimensions > 1) r->size[1] = 1;
  m_emxEnsureCapacity(r, old);
}

TEST(EmxArray, CreateZeroByZeroThenGrowToSixteen) {
  emxArray_real_T* a = emxCreate_real_T(0, 0);
  ASSERT_EQ(a->numDimensions, 2);
  EXPECT_EQ(a->size[0], 0);
  EXPECT_EQ(a->size[1], 0);
  EXPECT_EQ(a->allocatedSize, 0);
  EXPECT_TRUE(a->canFreeData);
  grow_to(a, 1);
  EXPECT_EQ(a->allocatedSize, 16);
  EXPECT_TRUE(a->canFreeData);
  emxDestroyArray_real_T(a);
}

TEST(EmxArray, CapacitiesDoubleFromSixteen) {
  kelo::EmxReal a(1);
  const std::vector<std::pair<int32_t, int32_t>> steps = {
      {1, 16}, {16, 16}, {17, 32}, {33, 64}, {64, 64}, {65, 128}, {1000, 1024}};
  for (auto [n, capacity] : steps) {
    grow_to(a, n);
    EXPECT_EQ(a->allocatedSize, capacity) << "after growing to " << n;
  }
  // Growing never shrinks.
  grow_to(a, 3);
  EXPECT_EQ(a->allocatedSize, 1024);
}

TEST(EmxArray, GrowthFromExistingCapacities) {
  emxArray_real_T* a = emxCreate_real_T(100, 1);
  grow_to(a, 150);
  EXPECT_EQ(a->allocatedSize, 200);
  emxDestroyArray_real_T(a);

  kelo::EmxReal b(1);
  grow_to(b, 5000);
  EXPECT_EQ(b->allocatedSize, 8192);

  emxArray_real_T* c = emxCreate_real_T(20, 1);
  grow_to(c, 21);
  EXPECT_EQ(c->allocatedSize, 40);
  grow_to(c, 41);
  EXPECT_EQ(c->allocatedSize, 80);
  emxDestroyArray_real_T(c);
}

TEST(EmxArray, GrowthKeepsOldElementsAndZeroFillsTheRest) {
  emxArray_int32_T* a = emxCreate_int32_T(3, 1);
  a->data[0] = 7;
  a->data[1] = -8;
  a->data[2] = 9;
  const int32_t old = kelo::numel(a);
  a->size[0] = 40;
  m_emxEnsureCapacity(a, old);
  ASSERT_EQ(a->allocatedSize, 64);
  EXPECT_EQ(a->data[0], 7);
  EXPECT_EQ(a->data[1], -8);
  EXPECT_EQ(a->data[2], 9);
  for (int k = 3; k < 64; ++k) ASSERT_EQ(a->data[k], 0) << k;
  emxDestroyArray_int32_T(a);
}

TEST(EmxArray, GrowthWithinCapacityChangesNothingNotEvenOwnership) {
  double buffer[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  emxArray_real_T* w = emxCreateWrapper_real_T(buffer, 10, 1);
  grow_to(w, 6);
  EXPECT_EQ(w->data, buffer);
  EXPECT_EQ(w->allocatedSize, 10);
  EXPECT_FALSE(w->canFreeData);
  emxDestroyArray_real_T(w);
}

TEST(EmxArray, GrowingAWrapperCopiesAndLeavesTheCallersBufferAlone) {
  double buffer[4] = {1.5, 2.5, 3.5, 4.5};
  emxArray_real_T* w = emxCreateWrapper_real_T(buffer, 4, 1);
  EXPECT_FALSE(w->canFreeData);
  grow_to(w, 5);
  EXPECT_NE(w->data, buffer);
  EXPECT_TRUE(w->canFreeData);
  EXPECT_EQ(w->allocatedSize, 16);
  EXPECT_EQ(w->data[0], 1.5);
  EXPECT_EQ(w->data[3], 4.5);
  EXPECT_EQ(w->data[4], 0.0);
  w->data[0] = -1.0;
  EXPECT_EQ(buffer[0], 1.5);
  // Destroying frees only the new buffer (the sanitizer build catches a
  // free of the stack buffer).
  emxDestroyArray_real_T(w);
  EXPECT_EQ(buffer[3], 4.5);
}

TEST(EmxArray, DestroyingAWrapperNeverFreesTheCallersBuffer) {
  std::vector<int32_t> mine = {1, 2, 3, 4, 5, 6};
  const int32_t extents[3] = {1, 2, 3};
  emxArray_int32_T* w = emxCreateWrapperND_int32_T(mine.data(), 3, extents);
  EXPECT_EQ(w->numDimensions, 3);
  EXPECT_EQ(w->allocatedSize, 6);
  EXPECT_EQ(w->size[2], 3);
  emxDestroyArray_int32_T(w);
  EXPECT_EQ(mine[5], 6);
}

TEST(EmxArray, CreateNDCopiesExtentsAndZeroFills) {
  const int32_t extents[3] = {2, 3, 4};
  emxArray_real_T* a = emxCreateND_real_T(3, extents);
  ASSERT_EQ(a->numDimensions, 3);
  EXPECT_EQ(a->size[0], 2);
  EXPECT_EQ(a->size[1], 3);
  EXPECT_EQ(a->size[2], 4);
  EXPECT_EQ(a->allocatedSize, 24);
  EXPECT_TRUE(a->canFreeData);
  for (int k = 0; k < 24; ++k) ASSERT_EQ(a->data[k], 0.0);
  emxDestroyArray_real_T(a);

  emxArray_int32_T* b = emxCreate_int32_T(3, 2);
  b->data[1 + 1 * 3] = 42;  // element (2, 2), column-major
  EXPECT_EQ(kelo::elements(b)[4], 42);
  emxDestroyArray_int32_T(b);
}

TEST(EmxArray, InitFreeAndRaiiHandle) {
  emxArray_boolean_T* m = nullptr;
  kelo::m_emxInit_boolean_T(&m, 2);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(m->data, nullptr);
  EXPECT_EQ(m->size[0], 0);
  EXPECT_EQ(m->size[1], 0);
  EXPECT_EQ(m->allocatedSize, 0);
  EXPECT_TRUE(m->canFreeData);
  kelo::m_emxFree_boolean_T(&m);
  EXPECT_EQ(m, nullptr);
  kelo::m_emxFree_boolean_T(&m);  // second free through the same pointer: no-op
  emxDestroyArray_real_T(nullptr);

  kelo::EmxReal row(2);
  ASSERT_TRUE(kelo::resize_row(row.get(), 5));
  EXPECT_EQ(row->size[0], 1);
  EXPECT_EQ(row->size[1], 5);
  EXPECT_EQ(row.span().size(), 5u);
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
