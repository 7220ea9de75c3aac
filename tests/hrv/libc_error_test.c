/* A C program that uses the C library's error() (GNU <error.h>) together
   with this library. The umbrella header must not clash with <error.h>, the
   program's own error() calls must reach the C library, and the library's
   diagnostics must stay inside the library even though the C library's
   error() comes first in this program's symbol lookup (it is linked first). */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <error.h>
#include <stdio.h>
#include <string.h>

#include "keloecgsolver/keloecgsolver.h"

static int failures = 0;

static void check(int ok, const char* what) {
  if (!ok) {
    printf("FAILED: %s\n", what);
    ++failures;
  }
}

static int in_this_library(void* address) {
  Dl_info info;
  return dladdr(address, &info) != 0 && strstr(info.dli_fname, "keloecgsolver") != NULL;
}

int main(void) {
  void* first_error = dlsym(RTLD_DEFAULT, "error");
  float yy[21] = {0};
  float x[5] = {0, 0, 1, 2, 3}, y[5] = {0, 1, 2, 1, 2}, wk1[129], wk2[129];
  unsigned long nout = 0, jmax = 0;
  float prob = 0.0f;
  int32_t beats[] = {0, 160, 310, 480, 645, 800, 960, 1118, 1280};
  double timeResults[7], freqResults[6];
  int32_t status = -1;
  void* self;
  void (*own_error)(const char*) = NULL;

  check(first_error != NULL && !in_this_library(first_error),
        "precondition: the first error() in the lookup order is not the library's");

  error(0, 0, "this line is expected (the C library's error)");
  check(error_message_count == 1, "the program's error() reaches the C library");

  /* Each of these raises a diagnostic inside the library. Reaching the C
     library's error() would count a message, or end the process. */
  spread(1.0f, yy, 20, 5.5f, 11);                                    /* factorial table too small */
  fasper(x, y, 4, 4.0f, 2.0f, wk1, wk2, 128, &nout, &jmax, &prob);  /* workspaces too small */
  check(nout == 0, "fasper gives up on a workspace that is too small");
  calcHrv(beats, 8, 200, timeResults, freqResults, &status);
  check(status == 0 && timeResults[0] == 7.0 / 8.0, "calcHrv runs");
  check(error_message_count == 1, "the library's diagnostics never reach the C library's error()");

  /* The library's own error(), reached through its own handle, does nothing. */
  self = dlopen("libkeloecgsolver.so", RTLD_NOW | RTLD_NOLOAD);
  check(self != NULL, "the library can be opened again");
  if (self != NULL) {
    *(void**)(&own_error) = dlsym(self, "error");
    check(own_error != NULL && in_this_library(*(void**)(&own_error)), "the library exports error");
    if (own_error != NULL) own_error("ignored");
    check(error_message_count == 1, "the library's error() reports nothing");
    dlclose(self);
  }

  if (failures == 0) printf("libc error() and the library's error() stay apart\n");
  return failures == 0 ? 0 : 1;
}
