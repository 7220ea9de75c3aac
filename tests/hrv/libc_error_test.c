/* A C program that uses the C library's error() (GNU <error.h>) together
   with this library, linked after the C library so that the C library's
   error() comes first in the symbol lookup. The umbrella header must not
   clash with <error.h>, the program's error() must reach the C library, and
   the library's own diagnostics must stay inside the library. */
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
  return address != NULL && dladdr(address, &info) != 0 && strstr(info.dli_fname, "keloecgsolver") != NULL;
}

int main(void) {
  float yy[21] = {0}, x[5] = {0, 0, 1, 2, 3}, y[5] = {0, 1, 2, 1, 2}, wk1[129], wk2[129], prob = 0.0f;
  unsigned long nout = 1, jmax = 0;
  void* self = dlopen(KELO_LIBRARY_SONAME, RTLD_NOW | RTLD_NOLOAD);
  void (*own_error)(const char*) = NULL;

  check(dlsym(RTLD_DEFAULT, "error") != NULL && !in_this_library(dlsym(RTLD_DEFAULT, "error")),
        "precondition: the first error() in the lookup order is the C library's");
  error(0, 0, "this line is expected (the C library's error)");
  check(error_message_count == 1, "the program's error() reaches the C library");

  /* Each call raises a diagnostic inside the library; reaching the C
     library's error() would count a message or end the process. */
  spread(1.0f, yy, 20, 5.5f, 11);                                    /* factorial table too small */
  fasper(x, y, 4, 4.0f, 2.0f, wk1, wk2, 128, &nout, &jmax, &prob);  /* workspaces too small */
  check(nout == 0 && error_message_count == 1, "the library's diagnostics stay inside it");

  /* The library's own error(), reached through its handle, does nothing. */
  check(self != NULL, "the library is loaded");
  if (self != NULL) {
    *(void**)(&own_error) = dlsym(self, "error");
    check(in_this_library(*(void**)(&own_error)), "the library exports its own error()");
    if (own_error != NULL) own_error("ignored");
    check(error_message_count == 1, "the library's error() reports nothing");
    dlclose(self);
  }
  if (failures == 0) printf("the C library's error() and the library's error() stay apart\n");
  return failures == 0 ? 0 : 1;
}
