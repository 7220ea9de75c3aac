// Every entry point may run on several threads at once. For every pair of
// entry points (each one with itself included), two threads build their
// inputs, start their calls together and must each get exactly the result
// of the call made alone. The thread-sanitizer build checks that the two
// calls share nothing without synchronisation.
#include <gtest/gtest.h>

#include <latch>
#include <thread>

#include "tests/faults/entry_points.hpp"

namespace {

using kelo::test::Call;

TEST(ThreadMatrix, EveryPairOfEntryPointsOnTwoThreadsGivesTheResultsOfEachAlone) {
  const auto& entries = kelo::test::entry_points();
  const Call direct = [](const std::function<void()>& f) { f(); };
  std::vector<std::string> alone;
  for (const auto& e : entries) alone.push_back(e.run(direct));

  for (std::size_t i = 0; i < entries.size(); ++i) {
    for (std::size_t j = i; j < entries.size(); ++j) {
      std::latch start(2);
      const Call together = [&start](const std::function<void()>& f) {
        start.arrive_and_wait();
        f();
      };
      std::string a, b;
      std::thread first([&] { a = entries[i].run(together); });
      std::thread second([&] { b = entries[j].run(together); });
      first.join();
      second.join();
      const std::string pair = entries[i].name + " with " + entries[j].name;
      EXPECT_EQ(a, alone[i]) << pair;
      EXPECT_EQ(b, alone[j]) << pair;
    }
  }
}

}  // namespace
