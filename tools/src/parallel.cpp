#include "parallel.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace keloecg {

ProgressBar::ProgressBar(std::size_t total, bool enabled)
    : total_(total), bar_(enabled && ::isatty(STDERR_FILENO) == 1), lines_(enabled && !bar_) {
  if (bar_) draw("");
}

ProgressBar::~ProgressBar() {
  if (bar_) std::fputs("\r\033[K", stderr);
}

void ProgressBar::done(const std::string& name, bool ok) {
  std::lock_guard guard(mutex_);
  ++finished_;
  failed_ += ok ? 0 : 1;
  if (bar_) draw(name);
  if (lines_) {
    std::fprintf(stderr, "keloecg: %zu/%zu %s %s\n", finished_, total_, name.c_str(), ok ? "done" : "failed");
    std::fflush(stderr);
  }
}

void ProgressBar::draw(const std::string& name) {
  constexpr std::size_t kWidth = 30;
  const std::size_t filled = total_ ? finished_ * kWidth / total_ : kWidth;
  std::string bar(filled, '#');
  bar.resize(kWidth, '.');
  std::fprintf(stderr, "\r\033[K[%s] %zu/%zu", bar.c_str(), finished_, total_);
  if (failed_) std::fprintf(stderr, ", %zu failed", failed_);
  if (!name.empty()) std::fprintf(stderr, "  %s", name.c_str());
  std::fflush(stderr);
}

void run_parallel(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& job) {
  std::atomic<std::size_t> next{0};
  auto worker = [&] {
    for (std::size_t i = next++; i < count; i = next++) job(i);
  };
  const unsigned n = std::max(1u, std::min<unsigned>(threads, static_cast<unsigned>(count)));
  std::vector<std::thread> pool;
  for (unsigned t = 1; t < n; ++t) pool.emplace_back(worker);
  worker();
  for (auto& t : pool) t.join();
}

unsigned default_jobs() { return std::max(1u, std::thread::hardware_concurrency()); }

}  // namespace keloecg
