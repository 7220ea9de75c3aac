// Running the real keloecg program from a test and reading what it wrote.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "fixtures.hpp"

namespace kelo::test {

struct Run {
  int exit_code = -1;
  std::string out;
  std::string err;

  nlohmann::json json() const { return nlohmann::json::parse(out); }
  // Lines of standard error.
  std::vector<std::string> err_lines() const {
    std::vector<std::string> lines;
    std::istringstream in(err);
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    return lines;
  }
};

inline std::string shell_quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

// Runs a command line (program and arguments, quoted here) and captures
// its output; the program's own temporary folder holds the captures.
inline Run run_command(const std::vector<std::string>& argv) {
  TempDir capture;
  std::string cmd;
  for (const auto& a : argv) cmd += shell_quote(a) + " ";
  cmd += "> " + shell_quote((capture / "out").string()) + " 2> " + shell_quote((capture / "err").string());
  const int status = std::system(cmd.c_str());
  Run r;
  r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.out = read_file(capture / "out");
  r.err = read_file(capture / "err");
  return r;
}

inline Run keloecg(std::vector<std::string> args) {
  args.insert(args.begin(), KELOECG_PROGRAM);
  return run_command(args);
}

}  // namespace kelo::test
