/* Diagnostic hooks of the Lomb periodogram code: error() and help().

   This header is NOT included by "keloecgsolver/keloecgsolver.h" or
   "keloecgsolver/hrv.h". The GNU C library declares a different error()
   in <error.h> (void error(int status, int errnum, const char *format, ...),
   which ends the process when status is not 0); a translation unit cannot
   see both declarations, so include this header only where you need the
   library's own hooks and not <error.h>.

   Both names are exported by the shared library. Inside the library every
   diagnostic goes to an internal routine bound at link time, never through
   the exported name, so the C library's error() (or any other definition
   that comes first in a program's symbol lookup) is never reached by the
   library itself. A program that links both the C library and this library
   gets, for its own calls of error(), whichever definition comes first in
   its symbol lookup order. */
#ifndef KELOECGSOLVER_HRV_DIAGNOSTICS_H
#define KELOECGSOLVER_HRV_DIAGNOSTICS_H

#include "keloecgsolver/export.h"

KELO_EXTERN_C_BEGIN

/* Receives the periodogram code's diagnostics ("insufficient memory",
   "workspaces too small\n", "factorial table too small"). Reports nothing
   and returns at once; the routine that called it then returns without
   touching memory it cannot use. */
KELO_API void error(const char* message);

/* Usage text of the periodogram code: prints nothing and returns. */
KELO_API void help(void);

KELO_EXTERN_C_END

#endif
