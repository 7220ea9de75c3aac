// The library's exported routines that take memory, and the Java bridge's
// analysis methods (in a fake Java environment), each as a run on a fixed
// short input: a table shared by the allocation-failure sweep and the
// two-thread matrix. A run builds its inputs, makes the one call under test
// through `call` (which the sweep arms and the matrix just runs) and
// returns its outputs as text, exactly (doubles in hexadecimal).
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kelo::test {

using Call = std::function<void(const std::function<void()>&)>;

struct EntryPoint {
  std::string name;
  std::function<std::string(const Call&)> run;
  // Whether an outcome is the routine's documented result for running out
  // of memory.
  std::function<bool(const std::string&)> failed;
};

const std::vector<EntryPoint>& entry_points();

// The outcome's text for a double: exact, "NaN" for any NaN.
std::string exact(double v);

// An outcome that is exactly `failure`.
std::function<bool(const std::string&)> is(std::string failure);

}  // namespace kelo::test
