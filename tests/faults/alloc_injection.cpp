// The process-wide allocator of the allocation-failure tests (see
// alloc_injection.hpp). This file is compiled without sanitizer
// instrumentation: its functions run before the address sanitizer has set
// itself up, and they hand every block on to the sanitizer's own allocator,
// which still checks every use of it.
#include "tests/faults/alloc_injection.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

namespace {

using MallocFn = void* (*)(std::size_t);
using CallocFn = void* (*)(std::size_t, std::size_t);
using ReallocFn = void* (*)(void*, std::size_t);
using FreeFn = void (*)(void*);
using MemalignFn = int (*)(void**, std::size_t, std::size_t);
using AlignedAllocFn = void* (*)(std::size_t, std::size_t);

MallocFn real_malloc = nullptr;
CallocFn real_calloc = nullptr;
ReallocFn real_realloc = nullptr;
FreeFn real_free = nullptr;
MemalignFn real_posix_memalign = nullptr;
AlignedAllocFn real_aligned_alloc = nullptr;

// dlsym itself may allocate while the real functions are being looked up:
// those few blocks come from here and are never freed.
alignas(16) char g_boot[8192];
std::size_t g_boot_used = 0;
bool g_resolving = false;

void* boot_alloc(std::size_t n) {
  n = (n + 15) & ~std::size_t{15};
  if (g_boot_used + n > sizeof g_boot) std::abort();
  void* p = g_boot + g_boot_used;
  g_boot_used += n;
  return p;  // static storage: already zero
}

bool from_boot(const void* p) {
  return p >= static_cast<const void*>(g_boot) && p < static_cast<const void*>(g_boot + sizeof g_boot);
}

bool resolve() {
  if (real_free != nullptr) return true;
  if (g_resolving) return false;
  g_resolving = true;
  real_malloc = reinterpret_cast<MallocFn>(dlsym(RTLD_NEXT, "malloc"));
  real_calloc = reinterpret_cast<CallocFn>(dlsym(RTLD_NEXT, "calloc"));
  real_realloc = reinterpret_cast<ReallocFn>(dlsym(RTLD_NEXT, "realloc"));
  real_posix_memalign = reinterpret_cast<MemalignFn>(dlsym(RTLD_NEXT, "posix_memalign"));
  real_aligned_alloc = reinterpret_cast<AlignedAllocFn>(dlsym(RTLD_NEXT, "aligned_alloc"));
  real_free = reinterpret_cast<FreeFn>(dlsym(RTLD_NEXT, "free"));
  g_resolving = false;
  return real_free != nullptr;
}

// ---- counting and failing -------------------------------------------------------

std::atomic<bool> g_armed{false};
std::atomic<long> g_count{0};
bool g_sweep = false;      // fork at every allocation
long g_failed = 0;         // in a child: the allocation that failed
int g_report_fd = -1;      // in a child: where the verdict goes
void (*g_on_fork)() = nullptr;
thread_local int t_paused = 0;

// ---- blocks allocated while armed: an open-addressing set of addresses ---------

constexpr std::size_t kSlots = std::size_t{1} << 20;
constexpr std::uintptr_t kTombstone = 1;
std::uintptr_t g_slots[kSlots];
long g_numbers[kSlots];  // the allocation number of each block
std::size_t g_live = 0;
std::size_t g_used = 0;  // live entries and tombstones
std::atomic_flag g_lock = ATOMIC_FLAG_INIT;

struct Lock {
  Lock() {
    while (g_lock.test_and_set(std::memory_order_acquire)) {
    }
  }
  ~Lock() { g_lock.clear(std::memory_order_release); }
};

std::size_t slot_of(std::uintptr_t p) { return (p >> 4) * 0x9E3779B97F4A7C15ULL >> 44; }

void remember(void* ptr, long number) {
  const auto p = reinterpret_cast<std::uintptr_t>(ptr);
  const Lock lock;
  if (g_used + 1 >= kSlots / 2) {
    std::fputs("alloc_injection: too many blocks to keep track of\n", stderr);
    std::abort();
  }
  for (std::size_t i = slot_of(p);; i = (i + 1) % kSlots) {
    if (g_slots[i] == 0 || g_slots[i] == kTombstone) {
      if (g_slots[i] == 0) ++g_used;
      g_slots[i] = p;
      g_numbers[i] = number;
      ++g_live;
      return;
    }
  }
}

void release(void* ptr) {
  const auto p = reinterpret_cast<std::uintptr_t>(ptr);
  const Lock lock;
  if (g_live == 0) return;
  for (std::size_t i = slot_of(p); g_slots[i] != 0; i = (i + 1) % kSlots) {
    if (g_slots[i] == p) {
      g_slots[i] = kTombstone;
      --g_live;
      return;
    }
  }
}

struct ChildRecord {
  long allocation;
  int status;
  char* verdict;  // malloc'd, or null
};
ChildRecord* g_children = nullptr;  // grown with realloc (paused)
std::size_t g_child_count = 0;

// A child shares the open file descriptions of its parent, and with them
// their offsets: reading on in the child would move the parent's position
// in a file it is reading. The child gets files of its own instead, at the
// same positions.
void own_open_files(int keep) {
  for (int fd = 3; fd < 1024; ++fd) {
    struct stat st;
    if (fd == keep || ::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) continue;
    const int flags = ::fcntl(fd, F_GETFL);
    const off_t at = ::lseek(fd, 0, SEEK_CUR);
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    const int fresh = ::open(self.c_str(), flags & (O_ACCMODE | O_APPEND));
    if (fresh < 0) continue;
    ::lseek(fresh, at, SEEK_SET);
    ::dup2(fresh, fd);
    ::close(fresh);
  }
}

// Forks for allocation n. Returns true in the child, where the allocation is
// to fail; the parent collects the child's verdict and its exit status.
bool fork_for(long n) {
  ++t_paused;
  int fds[2];
  if (::pipe(fds) != 0) std::abort();
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid < 0) std::abort();
  if (pid == 0) {
    ::close(fds[0]);
    own_open_files(fds[1]);
    g_report_fd = fds[1];
    g_failed = n;
    if (g_on_fork != nullptr) g_on_fork();
    --t_paused;
    return true;
  }
  ::close(fds[1]);
  std::string verdict;
  char buf[4096];
  for (ssize_t got; (got = ::read(fds[0], buf, sizeof buf)) != 0;) {
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) break;
    verdict.append(buf, static_cast<std::size_t>(got));
  }
  ::close(fds[0]);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  g_children = static_cast<ChildRecord*>(std::realloc(g_children, (g_child_count + 1) * sizeof(ChildRecord)));
  g_children[g_child_count++] = {n, status, strdup(verdict.c_str())};
  --t_paused;
  return false;
}

// Whether this allocation is to fail; counts it while armed.
bool should_fail() {
  if (!g_armed.load(std::memory_order_relaxed) || t_paused > 0) return false;
  const long n = g_count.fetch_add(1, std::memory_order_relaxed) + 1;
  return g_sweep && g_failed == 0 && fork_for(n);
}

void* keep(void* p) {
  if (p != nullptr && g_armed.load(std::memory_order_relaxed) && t_paused == 0) remember(p, g_count.load());
  return p;
}

}  // namespace

namespace kelo::test::alloc {

void arm() {
  g_sweep = false;
  g_count.store(0);
  g_armed.store(true);
}

void arm_sweep() {
  for (std::size_t i = 0; i < g_child_count; ++i) std::free(g_children[i].verdict);
  g_child_count = 0;
  g_count.store(0);
  g_sweep = true;
  g_armed.store(true);
}

long disarm() {
  g_armed.store(false);
  g_sweep = false;
  return g_count.load();
}

long failed_allocation() { return g_failed; }

void on_fork(void (*child)()) { g_on_fork = child; }

void report(const std::string& verdict) {
  const char* p = verdict.data();
  std::size_t left = verdict.size();
  while (left > 0) {
    const ssize_t put = ::write(g_report_fd, p, left);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) break;
    p += put;
    left -= static_cast<std::size_t>(put);
  }
  ::_exit(0);
}

std::vector<Child> children() {
  std::vector<Child> out;
  for (std::size_t i = 0; i < g_child_count; ++i)
    out.push_back({g_children[i].allocation, g_children[i].status, g_children[i].verdict});
  return out;
}

std::size_t outstanding() {
  const Lock lock;
  return g_live;
}

long first_outstanding() {
  const Lock lock;
  long first = 0;
  for (std::size_t i = 0; i < kSlots; ++i) {
    if (g_slots[i] > kTombstone && (first == 0 || g_numbers[i] < first)) first = g_numbers[i];
  }
  return first;
}

void forget() {
  const Lock lock;
  std::memset(g_slots, 0, sizeof g_slots);
  g_live = 0;
  g_used = 0;
}

void pause() { ++t_paused; }
void resume() { --t_paused; }

}  // namespace kelo::test::alloc

extern "C" {

void* malloc(std::size_t n) {
  if (!resolve()) return boot_alloc(n);
  if (should_fail()) return nullptr;
  return keep(real_malloc(n));
}

void* calloc(std::size_t count, std::size_t size) {
  if (!resolve()) return boot_alloc(count * size);
  if (should_fail()) return nullptr;
  return keep(real_calloc(count, size));
}

void* realloc(void* old, std::size_t n) {
  if (!resolve()) return boot_alloc(n);
  if (from_boot(old)) {
    void* p = malloc(n);
    const auto room = static_cast<std::size_t>(g_boot + sizeof g_boot - static_cast<char*>(old));
    if (p != nullptr) std::memcpy(p, old, std::min(n, room));
    return p;
  }
  if (should_fail()) return nullptr;
  void* p = real_realloc(old, n);
  if (old != nullptr && (p != nullptr || n == 0)) release(old);
  return keep(p);
}

void free(void* p) {
  if (p == nullptr || from_boot(p)) return;
  release(p);
  if (resolve()) real_free(p);
}

int posix_memalign(void** out, std::size_t alignment, std::size_t n) {
  if (!resolve()) return ENOMEM;
  if (should_fail()) return ENOMEM;
  const int rc = real_posix_memalign(out, alignment, n);
  if (rc == 0) keep(*out);
  return rc;
}

void* aligned_alloc(std::size_t alignment, std::size_t n) {
  if (!resolve()) return nullptr;
  if (should_fail()) return nullptr;
  return keep(real_aligned_alloc(alignment, n));
}

}  // extern "C"

// As the standard operator new: a failed allocation calls the installed
// new-handler and tries again, or throws std::bad_alloc without one.
void* operator new(std::size_t n) {
  for (;;) {
    if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) throw std::bad_alloc();
    handler();
  }
}
void* operator new[](std::size_t n) { return operator new(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
  try {
    return operator new(n);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t n, const std::nothrow_t& tag) noexcept { return operator new(n, tag); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
