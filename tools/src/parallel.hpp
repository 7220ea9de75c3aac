// Running one job per input on several threads, with a progress bar on a
// terminal.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace keloecg {

// Progress on standard error: a one-line bar redrawn in place on a
// terminal, otherwise one line per finished job (for logs). Safe to call
// from several threads.
class ProgressBar {
 public:
  ProgressBar(std::size_t total, bool enabled);
  ~ProgressBar();
  void done(const std::string& name, bool ok);

 private:
  void draw(const std::string& name);
  std::mutex mutex_;
  std::size_t total_, finished_ = 0, failed_ = 0;
  bool bar_;    // on a terminal
  bool lines_;  // elsewhere
};

// Calls job(i) for i in [0, count) on `threads` threads (at least one);
// each index exactly once. job must not throw.
void run_parallel(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& job);

// The number of threads to use by default: one per core.
unsigned default_jobs();

}  // namespace keloecg
