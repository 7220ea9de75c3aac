// Stopping a long run cleanly on Ctrl-C (SIGINT) or SIGTERM.
#pragma once

namespace keloecg {

// While one exists, the first SIGINT or SIGTERM does not end the program: it
// is recorded, a line on standard error says that the work under way is
// being finished, and the run asks requested() before it starts more. The
// signal's default action is back in place at once, so a second one ends
// the program as usual. The destructor restores the previous handlers.
class StopOnSignal {
 public:
  StopOnSignal();
  ~StopOnSignal();
  StopOnSignal(const StopOnSignal&) = delete;
  StopOnSignal& operator=(const StopOnSignal&) = delete;

  // Whether a signal came while one existed; safe from any thread.
  static bool requested();
  // The exit status a shell expects of a program the signal stopped
  // (128 + its number), or 0 if none came.
  static int exit_status();
};

}  // namespace keloecg
