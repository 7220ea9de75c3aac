// Every allocation of a run can fail. For each exported routine that takes
// memory, for the Java bridge's analysis methods and for keloecg, a run on
// a short input is repeated once for every allocation it makes, with that
// allocation failing: the result must be either the normal one (the routine
// could do without that memory) or the routine's documented failure result,
// no exception may come out, and nothing allocated during the call may be
// left over. In the address-sanitizer build every memory access on those
// failure paths is checked too.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <string>

#include "commands.hpp"
#include "errors.hpp"
#include "memory_reserve.hpp"
#include "support/fake_jni.hpp"
#include "tests/faults/alloc_injection.hpp"
#include "tests/faults/entry_points.hpp"

namespace {

namespace alloc = kelo::test::alloc;
namespace fs = std::filesystem;
using kelo::test::Call;
using kelo::test::EntryPoint;

// Runs the call armed: counting allocations only, or making each fail once.
struct Armed {
  bool sweep = false;
  long allocations = 0;
  std::string escaped;

  Call call() {
    return [this](const std::function<void()>& f) {
      alloc::forget();
      if (sweep) {
        alloc::arm_sweep();
      } else {
        alloc::arm();
      }
      try {
        f();
      } catch (const std::exception& e) {
        escaped = e.what();
      } catch (...) {
        escaped = "an exception of an unknown type";
      }
      allocations = alloc::disarm();
    };
  }
};

// Standard output goes to a file of the process's own while keloecg runs:
// a sweep's children then write their output out of their parent's way.
fs::path captured() { return fs::temp_directory_path() / ("kelo_sweep_" + std::to_string(::getpid()) + ".out"); }

void capture_stdout() {
  std::fflush(stdout);
  const int fd = ::open(captured().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  ::dup2(fd, STDOUT_FILENO);
  ::close(fd);
}

// A child goes on from what its parent printed so far (what the parent
// still holds in its buffer, the child holds too).
void capture_stdout_in_child() {
  const fs::path parent = fs::temp_directory_path() / ("kelo_sweep_" + std::to_string(::getppid()) + ".out");
  fs::copy_file(parent, captured(), fs::copy_options::overwrite_existing);
  const int fd = ::open(captured().c_str(), O_WRONLY | O_APPEND);
  ::dup2(fd, STDOUT_FILENO);
  ::close(fd);
}

// keloecg in the test process, printing JSON: the outcome is what it
// printed, or "error" for the errors that main() reports with exit status
// 2, after which nothing may have been printed.
std::string keloecg_outcome(const Call& call, bool hrv) {
  keloecg::CommonOptions o;
  o.json = true;
  o.analysis.duration_s = hrv ? 180.0 : 15.0;
  bool failed = false;
  keloecg::keep_memory_reserve();
  const int terminal = ::dup(STDOUT_FILENO);
  capture_stdout();
  alloc::on_fork(capture_stdout_in_child);
  call([&] {
    try {
      if (hrv) {
        keloecg::command_hrv(o, "");
      } else {
        keloecg::command_qrs(o, "");
      }
    } catch (const keloecg::InputError&) {
      failed = true;
    } catch (const std::bad_alloc&) {
      failed = true;
    }
  });
  std::fflush(stdout);
  ::dup2(terminal, STDOUT_FILENO);
  ::close(terminal);
  std::ifstream in(captured());
  std::stringstream text;
  text << in.rdbuf();
  fs::remove(captured());
  if (!failed) return text.str();
  return text.str().empty() ? "error" : "error, after printing " + text.str();
}

const std::vector<EntryPoint>& entries() {
  static const std::vector<EntryPoint> table = [] {
    std::vector<EntryPoint> t = kelo::test::entry_points();
    t.push_back({"keloecg qrs", [](const Call& call) { return keloecg_outcome(call, false); },
                 kelo::test::is("error")});
    t.push_back({"keloecg hrv", [](const Call& call) { return keloecg_outcome(call, true); },
                 kelo::test::is("error")});
    return t;
  }();
  return table;
}

class AllocationSweep : public testing::TestWithParam<std::size_t> {
 protected:
  static void SetUpTestSuite() {
    kelo::test::FakeJavaHooks::enter = alloc::pause;
    kelo::test::FakeJavaHooks::leave = alloc::resume;
  }
};

// What a run with one allocation failing gave: "result" (the normal one),
// "failure" (the documented failure result) or what went wrong.
std::string verdict(const EntryPoint& e, const Armed& armed, const std::string& outcome,
                    const std::string& expected) {
  if (!armed.escaped.empty()) return "an exception came out: " + armed.escaped;
  if (alloc::outstanding() != 0) {
    return "leaks, among others, allocation " + std::to_string(alloc::first_outstanding());
  }
  if (e.failed(outcome)) return "failure";
  if (outcome == expected) return "result";
  const auto at = static_cast<std::size_t>(
      std::mismatch(outcome.begin(), outcome.end(), expected.begin(), expected.end()).first - outcome.begin());
  const std::size_t from = at > 80 ? at - 80 : 0;
  return "gives, from character " + std::to_string(at) + ": " + outcome.substr(from, 300) +
         "\ninstead of: " + expected.substr(from, 300);
}

TEST_P(AllocationSweep, EveryFailingAllocationGivesTheResultOrTheFailureResult) {
  const EntryPoint& e = entries()[GetParam()];
  Armed reference;
  const std::string expected = e.run(reference.call());
  ASSERT_EQ(reference.escaped, "");
  ASSERT_FALSE(e.failed(expected)) << "the normal result reads as a failure: " << expected.substr(0, 200);

  Armed sweep;
  sweep.sweep = true;
  const std::string outcome = e.run(sweep.call());
  if (alloc::failed_allocation() != 0) alloc::report(verdict(e, sweep, outcome, expected));  // a child ends here

  const auto children = alloc::children();
  EXPECT_EQ(static_cast<long>(children.size()), reference.allocations);
  long failures = 0;
  for (const auto& child : children) {
    const std::string which = "allocation " + std::to_string(child.allocation) + " of " +
                              std::to_string(reference.allocations) + " failing: ";
    ASSERT_TRUE(WIFEXITED(child.status) && WEXITSTATUS(child.status) == 0)
        << which << "the process died (status " << child.status << ")";
    ASSERT_TRUE(child.verdict == "failure" || child.verdict == "result") << which << child.verdict;
    failures += child.verdict == "failure" ? 1 : 0;
  }
  // Every routine here but the in-place sort (which sorts without its
  // buffer when it gets none) has allocations it cannot do without.
  if (e.name != "m_refp1_sort") {
    EXPECT_GT(failures, 0) << reference.allocations << " allocations";
  }
  RecordProperty("allocations", static_cast<int>(reference.allocations));
}

INSTANTIATE_TEST_SUITE_P(, AllocationSweep, testing::Range<std::size_t>(0, entries().size()),
                         [](const testing::TestParamInfo<std::size_t>& i) {
                           std::string name = entries()[i.param].name;
                           for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                           return name;
                         });

}  // namespace
