/* Export and linkage macros of libkeloecgsolver. */
#ifndef KELOECGSOLVER_EXPORT_H
#define KELOECGSOLVER_EXPORT_H

/* KELO_API marks every symbol that belongs to the library's public C ABI.
   The library is compiled with hidden visibility, so anything without this
   mark stays inside the shared object. */
#if defined(__GNUC__)
#define KELO_API __attribute__((visibility("default")))
#else
#define KELO_API
#endif

#ifdef __cplusplus
#define KELO_EXTERN_C_BEGIN extern "C" {
#define KELO_EXTERN_C_END }
#else
#define KELO_EXTERN_C_BEGIN
#define KELO_EXTERN_C_END
#endif

#endif
