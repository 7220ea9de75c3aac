// Diagnostic hooks and placeholders of the periodogram code.
//
// The library reaches its diagnostic sink through the hidden report(); the
// exported error() is only a thin wrapper for outside callers. So whatever
// definition of "error" a process sees first (the C library has one that
// can end the process), the library's own diagnostics never leave it.
#include <cstring>

#include "hrv/hrv_internal.hpp"
#include "keloecgsolver/hrv.h"
#include "keloecgsolver/hrv_diagnostics.h"

namespace kelo::hrv {

// Diagnostics are not reported: the routines that raise them return
// without results, and callers see that in their own outputs (status 4 at
// the driver level).
void report(const char* message) { static_cast<void>(message); }

}  // namespace kelo::hrv

extern "C" {

KELO_API void* Ptr = nullptr;
KELO_API void* Ptr1 = nullptr;

KELO_API void error(const char* message) { kelo::hrv::report(message); }

KELO_API void help(void) {}

KELO_API const char* prog_name(const char* s) {
  if (s == nullptr) return nullptr;
  const char* slash = std::strrchr(s, '/');
  return slash != nullptr ? slash + 1 : s;
}

}  // extern "C"
