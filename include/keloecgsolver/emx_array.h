/* Dynamic array records: the growable, column-major arrays that cross the
   library's entry points, and the functions that create and release them. */
#ifndef KELOECGSOLVER_EMX_ARRAY_H
#define KELOECGSOLVER_EMX_ARRAY_H

#include <stdbool.h>
#include <stdint.h>

#include "keloecgsolver/export.h"

KELO_EXTERN_C_BEGIN

/* The three record types share one layout and differ only in the element
   type. Elements are stored column-major: element (r, c) of a 2-D array is
   data[r + c * size[0]]. The number of elements is the product of the
   numDimensions entries of size.

   data          element buffer (may be NULL for an array that never held data)
   size          numDimensions extents, owned by the record
   allocatedSize number of elements data has room for
   numDimensions fixed when the record is made
   canFreeData   true when the record owns data (false for wrappers until they
                 are grown, which gives them a fresh buffer of their own) */
typedef struct emxArray_real_T {
  double* data;
  int32_t* size;
  int32_t allocatedSize;
  int32_t numDimensions;
  bool canFreeData;
} emxArray_real_T;

typedef struct emxArray_int32_T {
  int32_t* data;
  int32_t* size;
  int32_t allocatedSize;
  int32_t numDimensions;
  bool canFreeData;
} emxArray_int32_T;

typedef struct emxArray_boolean_T {
  bool* data;
  int32_t* size;
  int32_t allocatedSize;
  int32_t numDimensions;
  bool canFreeData;
} emxArray_boolean_T;

/* New rows x cols array with an owned, zero-filled buffer.
   Preconditions: rows, cols >= 0 and rows * cols fits in int32. A negative
   extent counts as 0 elements for the buffer. Every creator below returns
   NULL, with nothing left allocated, when memory runs out. */
KELO_API emxArray_real_T* emxCreate_real_T(int32_t rows, int32_t cols);
KELO_API emxArray_int32_T* emxCreate_int32_T(int32_t rows, int32_t cols);

/* New array of numDimensions extents copied from size[0 .. numDimensions-1],
   with an owned, zero-filled buffer. size must point to numDimensions
   values (it is not read when numDimensions <= 0). */
KELO_API emxArray_real_T* emxCreateND_real_T(int32_t numDimensions, const int32_t* size);
KELO_API emxArray_int32_T* emxCreateND_int32_T(int32_t numDimensions, const int32_t* size);

/* New 2-D record around caller-owned memory of at least rows * cols
   elements. Nothing is copied and the caller keeps ownership: destroying
   the record never frees data. */
KELO_API emxArray_real_T* emxCreateWrapper_real_T(double* data, int32_t rows, int32_t cols);
KELO_API emxArray_int32_T* emxCreateWrapper_int32_T(int32_t* data, int32_t rows, int32_t cols);

/* As the 2-D wrappers, with numDimensions extents copied from size. */
KELO_API emxArray_real_T* emxCreateWrapperND_real_T(double* data, int32_t numDimensions,
                                                    const int32_t* size);
KELO_API emxArray_int32_T* emxCreateWrapperND_int32_T(int32_t* data, int32_t numDimensions,
                                                      const int32_t* size);

/* Release a record: its buffer (only if it owns it), its size array and the
   record itself. NULL is accepted and ignored. */
KELO_API void emxDestroyArray_real_T(emxArray_real_T* emxArray);
KELO_API void emxDestroyArray_int32_T(emxArray_int32_T* emxArray);

KELO_EXTERN_C_END

#endif
