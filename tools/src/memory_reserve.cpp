#include "memory_reserve.hpp"

#include <atomic>
#include <cstdlib>
#include <new>

namespace keloecg {

namespace {

// Enough to destroy the largest result document of a 24-hour recording.
constexpr std::size_t kReserveBytes = std::size_t{8} << 20;

std::atomic<void*> g_reserve{nullptr};
thread_local bool t_ran_out = false;
thread_local int t_scopes = 0;

void on_out_of_memory() {
  if (t_scopes == 0) throw std::bad_alloc();
  if (void* reserve = g_reserve.exchange(nullptr)) {
    std::free(reserve);
    t_ran_out = true;
    return;  // operator new tries again
  }
  throw std::bad_alloc();
}

}  // namespace

void keep_memory_reserve() {
  t_ran_out = false;
  if (g_reserve.load() == nullptr) {
    if (void* fresh = std::malloc(kReserveBytes)) {
      if (void* old = g_reserve.exchange(fresh)) std::free(old);
    }
  }
  std::set_new_handler(on_out_of_memory);
}

void check_memory() {
  if (t_ran_out) throw std::bad_alloc();
}

ReserveScope::ReserveScope() { ++t_scopes; }
ReserveScope::~ReserveScope() { --t_scopes; }

}  // namespace keloecg
