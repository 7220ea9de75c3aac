// The RR checks against their plain form (src/reference), whole arrays
// compared (the places beyond the final count included, which keep what
// the shifts leave there): on the bundled recordings' beat lists with extra
// detections, and on generated lists built to make the sweeps meet marked
// beats next to each other, beats marked on entry, protected beats and the
// place just beyond the count.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "hrv/hrv_support.hpp"
#include "keloecgsolver/checks.h"
#include "reference/routines.hpp"
#include "support/emx_builders.hpp"

namespace {

using Ints = std::vector<int32_t>;
constexpr int32_t kLong = KELO_CHECK_LENGTH;
constexpr int32_t kShort = KELO_CHECK_SHORT_LENGTH;

struct List {
  std::string name;
  Ints beats, classes;
};

// Every `every`-th beat (from `phase`) gets `extra` further detections a
// few samples after it.
Ints with_extras(const Ints& beats, int every, int phase, int extra) {
  Ints out;
  for (std::size_t k = 0; k < beats.size(); ++k) {
    out.push_back(beats[k]);
    if (static_cast<int>(k) % every == phase)
      for (int e = 1; e <= extra && k + 1 < beats.size(); ++e) out.push_back(beats[k] + 9 * e);
  }
  return out;
}

std::vector<List> lists() {
  std::vector<List> out;
  for (const char* r : {"100", "119", "203"}) {
    const Ints b = kelo::test::read_beats(std::string("detect/") + r + ".beats.txt");
    out.push_back({std::string("record ") + r, with_extras(b, 9, 4, 1), {}});
    out.push_back({std::string("record ") + r + " bursts", with_extras(b, 13, 2, 3), {}});
  }
  // A sweep that removes the last but one beat, the last one marked on
  // entry: the last slides into its place, and the place after the new
  // count is read (a 5: the count drops again, without a shift).
  const Ints tail{0, 200, 400, 600, 800, 1000, 1200, 1400, 1600, 1630, 1830};
  out.push_back({"place beyond the count", tail, {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 5}});
  // Random lists: short intervals often, classes 1 and 5 often (short
  // lists), or long lists with few of either.
  std::mt19937 rng(7);
  for (int trial = 0; trial < 300; ++trial) {
    const bool dense = trial < 250;
    const int n = dense ? 2 + trial % 40 : trial < 290 ? 200 + trial * 7 : 4000 + trial * 20;
    std::uniform_int_distribution<int32_t> normal(150, 250), shortOne(1, 40), draw(0, 9);
    Ints b, c;
    int32_t p = 0;
    for (int k = 0; k < n; ++k) {
      b.push_back(p += draw(rng) < (dense ? 3 : 1) ? shortOne(rng) : normal(rng));
      const int32_t d = draw(rng);
      c.push_back(d < (dense ? 2 : 1) ? 1 : d < (dense ? 4 : 2) ? 5 : d);
    }
    out.push_back({"generated " + std::to_string(trial), b, c});
  }
  return out;
}

template <int32_t Length>
void expect_fixed_same(const List& l, void (*fast)(const int32_t*, int32_t, int32_t*, int32_t*, int32_t*),
                       void (*plain)(const int32_t*, int32_t, int32_t*, int32_t*, int32_t*)) {
  Ints in(Length, 0), cls(Length, 0);
  const auto n = static_cast<int32_t>(std::min<std::size_t>(l.beats.size(), Length));
  std::copy_n(l.beats.begin(), n, in.begin());
  std::copy_n(l.classes.begin(), std::min<std::size_t>(l.classes.size(), Length), cls.begin());
  Ints fastCls = cls, plainCls = cls, fastOut(Length, -1), plainOut(Length, -1);
  int32_t fastCount = -7, plainCount = -7;
  fast(in.data(), n, fastCls.data(), fastOut.data(), &fastCount);
  plain(in.data(), n, plainCls.data(), plainOut.data(), &plainCount);
  EXPECT_EQ(fastCount, plainCount) << l.name << ", length " << Length;
  EXPECT_EQ(fastOut, plainOut) << l.name << ", length " << Length;
  EXPECT_EQ(fastCls, plainCls) << l.name << ", length " << Length;
}

TEST(ChecksFastPaths, RrChecksMatchThePlainSweepsArrayForArray) {
  for (const List& l : lists()) {
    expect_fixed_same<kLong>(l, checkRR, kelo::ref::check_rr);
    expect_fixed_same<kShort>(l, checkRRshort, kelo::ref::check_rr_short);
    Ints classes = l.classes;
    classes.resize(l.beats.size(), 0);
    auto fastBeats = kelo::test::int_column(l.beats), fastCls = kelo::test::int_column(classes);
    auto plainBeats = kelo::test::int_column(l.beats), plainCls = kelo::test::int_column(classes);
    int32_t fastN = static_cast<int32_t>(l.beats.size()), plainN = fastN;
    checkRRvar(fastBeats, &fastN, fastCls);
    kelo::ref::check_rr_var(plainBeats, &plainN, plainCls);
    EXPECT_EQ(fastN, plainN) << l.name;
    EXPECT_EQ(kelo::test::values(fastBeats), kelo::test::values(plainBeats)) << l.name;
    EXPECT_EQ(kelo::test::values(fastCls), kelo::test::values(plainCls)) << l.name;
  }
}

}  // namespace
