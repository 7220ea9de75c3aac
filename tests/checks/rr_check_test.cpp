// RR checks: the worked examples, the sweep that steps over the beat moved
// into place, class 1 never marked, the three-iteration limit, the three
// variants agreeing, and bad counts and pointers.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <vector>

#include "keloecgsolver/checks.h"
#include "keloecgsolver/lifecycle.h"
#include "support/emx_builders.hpp"

namespace {

constexpr int32_t kLong = KELO_CHECK_LENGTH;
constexpr int32_t kShort = KELO_CHECK_SHORT_LENGTH;

struct Cleaned {
  std::vector<int32_t> beats;    // the first count positions
  std::vector<int32_t> classes;  // their classes
  int32_t count;
  bool operator==(const Cleaned&) const = default;
};

void PrintTo(const Cleaned& c, std::ostream* os) {
  *os << "count " << c.count << ", beats " << testing::PrintToString(c.beats) << ", classes "
      << testing::PrintToString(c.classes);
}

using FixedCheck = void (*)(const int32_t*, int32_t, int32_t*, int32_t*, int32_t*);

template <int32_t Length>
Cleaned run_fixed(FixedCheck check, const std::vector<int32_t>& beats, const std::vector<int32_t>& classes,
                  std::optional<int32_t> n = std::nullopt) {
  std::vector<int32_t> in(Length, 0), cls(Length, 0), out(Length, -1);
  std::copy(beats.begin(), beats.end(), in.begin());
  std::copy(classes.begin(), classes.end(), cls.begin());
  int32_t count = -99;
  check(in.data(), n.value_or(static_cast<int32_t>(beats.size())), cls.data(), out.data(), &count);
  const auto kept = static_cast<std::size_t>(std::clamp(count, 0, Length));
  return {{out.begin(), out.begin() + kept}, {cls.begin(), cls.begin() + kept}, count};
}

Cleaned check_long(const std::vector<int32_t>& beats, const std::vector<int32_t>& classes) {
  checkRR_initialize();
  return run_fixed<kLong>(checkRR, beats, classes);
}

Cleaned check_short(const std::vector<int32_t>& beats, const std::vector<int32_t>& classes) {
  checkRRshort_initialize();
  return run_fixed<kShort>(checkRRshort, beats, classes);
}

Cleaned check_var(const std::vector<int32_t>& beats, const std::vector<int32_t>& classes) {
  auto b = kelo::test::int_column(beats);
  auto c = kelo::test::int_column(classes);
  int32_t n = static_cast<int32_t>(beats.size());
  checkRRvar_initialize();
  checkRRvar(b, &n, c);
  EXPECT_EQ(b->size[0], static_cast<int32_t>(beats.size())) << "extents unchanged";
  auto bv = kelo::test::values(b), cv = kelo::test::values(c);
  const auto kept = static_cast<std::size_t>(std::max(n, 0));
  return {{bv.begin(), bv.begin() + kept}, {cv.begin(), cv.begin() + kept}, n};
}

// Runs all three variants and expects the same answer from each.
Cleaned check_all(const std::vector<int32_t>& beats, const std::vector<int32_t>& classes) {
  const Cleaned l = check_long(beats, classes);
  EXPECT_EQ(check_short(beats, classes), l);
  EXPECT_EQ(check_var(beats, classes), l);
  return l;
}

std::vector<int32_t> zeros(std::size_t n) { return std::vector<int32_t>(n, 0); }

TEST(CheckRR, ExtraBeatLeavesItsPartnerMarked) {
  // Interval 30 is flagged; 1200 and 1230 are marked, the sweep removes
  // 1200 and steps over 1230, which moved into its place. The second
  // iteration finds the spread small (sd 16 against median 200) and stops.
  const std::vector<int32_t> beats{0, 200, 400, 600, 800, 1000, 1200, 1230, 1400, 1600};
  const Cleaned r = check_all(beats, zeros(10));
  EXPECT_EQ(r.count, 9);
  EXPECT_EQ(r.beats, (std::vector<int32_t>{0, 200, 400, 600, 800, 1000, 1230, 1400, 1600}));
  EXPECT_EQ(r.classes, (std::vector<int32_t>{0, 0, 0, 0, 0, 0, 5, 0, 0}));
}

TEST(CheckRR, ClassOneIsNeverMarked) {
  const std::vector<int32_t> beats{0, 200, 400, 600, 800, 1000, 1200, 1230, 1400, 1600};
  std::vector<int32_t> both(10, 0);
  both[6] = both[7] = 1;
  EXPECT_EQ(check_all(beats, both), (Cleaned{beats, both, 10})) << "no mark, no change";

  std::vector<int32_t> first(10, 0);
  first[6] = 1;  // only 1230 is marked, and removed
  const Cleaned r = check_all(beats, first);
  EXPECT_EQ(r.beats, (std::vector<int32_t>{0, 200, 400, 600, 800, 1000, 1200, 1400, 1600}));
  EXPECT_EQ(r.classes, (std::vector<int32_t>{0, 0, 0, 0, 0, 0, 1, 0, 0}));
}

TEST(CheckRR, NothingToRemove) {
  // Regular beats: sd 0, not above a tenth of the median.
  std::vector<int32_t> regular;
  for (int32_t k = 0; k < 40; ++k) regular.push_back(100 + 170 * k);
  EXPECT_EQ(check_all(regular, std::vector<int32_t>(40, 3)), (Cleaned{regular, std::vector<int32_t>(40, 3), 40}));
  // Interval 30 at the very end: mean 181.1 - 2 * sd 56.7 = 67.8 > 30, yet
  // the last interval is not tested.
  const std::vector<int32_t> beats{0, 200, 400, 600, 800, 1000, 1200, 1400, 1600, 1630};
  EXPECT_EQ(check_all(beats, zeros(10)), (Cleaned{beats, zeros(10), 10}));
}

TEST(CheckRR, PremarkedBeatGoesWithTheFirstSweep) {
  std::vector<int32_t> classes(10, 0);
  classes[2] = 5;
  // A sweep only runs for a flagged interval; the first removes 400 and
  // 1200 and steps over the beats moved into their places.
  const Cleaned r = check_all({0, 200, 400, 600, 800, 1000, 1200, 1230, 1400, 1600}, classes);
  EXPECT_EQ(r.beats, (std::vector<int32_t>{0, 200, 600, 800, 1000, 1230, 1400, 1600}));
  EXPECT_EQ(r.classes, (std::vector<int32_t>{0, 0, 0, 0, 0, 5, 0, 0}));
  // Without any short interval nothing is swept.
  const std::vector<int32_t> regular{0, 200, 400, 600, 800, 1000, 1200, 1400, 1600};
  std::vector<int32_t> marked(9, 0);
  marked[2] = 5;
  EXPECT_EQ(check_all(regular, marked), (Cleaned{regular, marked, 9}));
}

TEST(CheckRR, StopsAfterThreeIterations) {
  // A burst of extra beats after 600 loses one beat per iteration; a fourth
  // iteration would still remove 653.
  std::vector<int32_t> beats{0, 200, 400, 600, 608, 610, 653};
  for (int32_t p = 800; p <= 2200; p += 200) beats.push_back(p);
  const Cleaned r = check_all(beats, zeros(beats.size()));
  EXPECT_EQ(r.count, 12);
  EXPECT_EQ(r.beats, (std::vector<int32_t>{0, 200, 400, 653, 800, 1000, 1200, 1400, 1600, 1800, 2000, 2200}));
  EXPECT_EQ(r.classes, (std::vector<int32_t>{0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(CheckRR, VariantsAgreeOnNoisyRhythms) {
  std::mt19937 rng(2024);
  std::uniform_int_distribution<int32_t> rr(150, 230), extra(5, 60), cls(0, 3);
  std::bernoulli_distribution spurious(0.08);
  for (int trial = 0; trial < 60; ++trial) {
    std::vector<int32_t> beats{40};
    while (beats.size() < 120) {
      beats.push_back(beats.back() + (spurious(rng) ? extra(rng) : rr(rng)));
    }
    std::vector<int32_t> classes(beats.size());
    for (auto& c : classes) c = cls(rng) == 3 ? 1 : 0;
    const Cleaned r = check_all(beats, classes);
    EXPECT_LE(r.count, 120);
    EXPECT_TRUE(std::is_sorted(r.beats.begin(), r.beats.end()));
  }
}

TEST(CheckRR, BadCountsAndPointers) {
  const std::vector<int32_t> beats{0, 30, 400};
  for (int32_t n : {-4, 0, 1, 2}) {
    EXPECT_EQ(run_fixed<kLong>(checkRR, beats, zeros(3), n).count, n);
    EXPECT_EQ(run_fixed<kShort>(checkRRshort, beats, zeros(3), n).count, n);
    auto b = kelo::test::int_column(beats), c = kelo::test::int_column(zeros(3));
    int32_t count = n;
    checkRRvar(b, &count, c);
    EXPECT_EQ(count, n);
    EXPECT_EQ(kelo::test::values(b), beats);
  }
  // A full short list, intervals alternating 150 and 250 (sd 50), with one
  // doublet: an n beyond the array counts as the array.
  std::vector<int32_t> full(kShort);
  for (int32_t k = 1; k < kShort; ++k) full[k] = full[k - 1] + (k % 2 == 0 ? 150 : 250);
  full[1500] = full[1499] + 20;
  EXPECT_EQ(run_fixed<kShort>(checkRRshort, full, zeros(kShort), kShort + 500).count, kShort - 1);
  // The record variant lowers *n to what both records hold.
  auto b = kelo::test::int_column({0, 200, 400, 600}), c = kelo::test::int_column({0, 0, 0});
  int32_t n = 4;
  checkRRvar(b, &n, c);
  EXPECT_EQ(n, 3);
  checkRRvar(b, nullptr, c);
  // NULL pointers: nothing is written.
  std::vector<int32_t> out(kShort, 7);
  int32_t count = 42;
  checkRRshort(nullptr, 10, full.data(), out.data(), &count);
  checkRRshort(full.data(), 10, full.data(), out.data(), nullptr);
  EXPECT_EQ(count, 42);
  EXPECT_EQ(out[0], 7);
}

}  // namespace
