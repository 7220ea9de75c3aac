#include "interrupt.hpp"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>

namespace keloecg {

namespace {

// A signal handler can reach only static storage: the number of the signal
// that came (0: none). A lock-free atomic is safe to touch from a handler.
std::atomic<int> g_signal{0};
static_assert(std::atomic<int>::is_always_lock_free);

struct sigaction g_previous_int, g_previous_term;

extern "C" void on_stop_signal(int sig) {
  g_signal.store(sig, std::memory_order_relaxed);
  std::signal(sig, SIG_DFL);
  // write(2) is async-signal-safe; its result changes nothing here.
  static constexpr char kMessage[] =
      "\nkeloecg: interrupted: finishing the recordings under way, then writing the summary "
      "(interrupt again to stop at once)\n";
  [[maybe_unused]] const auto n = ::write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
}

}  // namespace

StopOnSignal::StopOnSignal() {
  g_signal.store(0, std::memory_order_relaxed);
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_handler = on_stop_signal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;  // reads and writes under way carry on
  sigaction(SIGINT, &action, &g_previous_int);
  sigaction(SIGTERM, &action, &g_previous_term);
}

StopOnSignal::~StopOnSignal() {
  sigaction(SIGINT, &g_previous_int, nullptr);
  sigaction(SIGTERM, &g_previous_term, nullptr);
}

bool StopOnSignal::requested() { return g_signal.load(std::memory_order_relaxed) != 0; }

int StopOnSignal::exit_status() {
  const int sig = g_signal.load(std::memory_order_relaxed);
  return sig == 0 ? 0 : 128 + sig;
}

}  // namespace keloecg
