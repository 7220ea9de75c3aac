// Errors of the keloecg program. An InputError is a problem with what the
// user gave us (a file, an option): it is printed as one line that names the
// file and the problem, and the program exits with status 2.
#pragma once

#include <stdexcept>
#include <string>

namespace keloecg {

class InputError : public std::runtime_error {
 public:
  InputError(std::string file, std::string problem)
      : std::runtime_error(file.empty() ? problem : file + ": " + problem),
        file_(std::move(file)),
        problem_(std::move(problem)) {}

  const std::string& file() const { return file_; }
  const std::string& problem() const { return problem_; }

 private:
  std::string file_;
  std::string problem_;
};

// Exit status of every input or usage error.
inline constexpr int kInputErrorExit = 2;

}  // namespace keloecg
