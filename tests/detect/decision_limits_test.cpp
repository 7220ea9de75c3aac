// The detector's decision limits through its C entry point (and the same
// through the reference detector), on recordings of plain beats S every 200
// samples and one odd beat S + tD (support/spanned_beats.hpp), whose
// correlation with the template (S) is 1 / sqrt(1 + t^2): each limit with a
// case just inside and one just outside. The odd beat is found by the
// correlation pass (listed in place), by the search-back (listed after all
// beats of the pass), or not at all.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <tuple>

#include "detect/detect_support.hpp"
#include "keloecgsolver/kernels.h"
#include "reference/detector.hpp"
#include "support/spanned_beats.hpp"

namespace {

using namespace kelo::test;

enum class Found { No, InThePass, BySearchBack };

struct Case {
  const char* why;
  I plain;             // 1-based centres of the plain beats
  int32_t odd;         // centre of the odd beat
  double correlation;  // with the template
  double scale;
  Found found;
};

// Plain beats every 200 samples from 200 on, without `skip`, the one after
// 1000 moved to 1000 + `after1000` (and the rest with it), up to 3900.
I plain_beats(int32_t skip = 0, int32_t after1000 = 200) {
  I r;
  for (int32_t p = 200, q = p; q < 3900; p += 200, q = p <= 1000 ? p : p + after1000 - 200)
    if (p != skip) r.push_back(q);
  return r;
}

TEST(DetectorLimits, CorrelationPassSearchBackAndGaps) {
  const SpannedShapes shapes = spanned_shapes(33);
  for (const Case& c : std::vector<Case>{
           {"correlation just above 0.6 in its own region", plain_beats(), 1070, 0.605, 1.0, Found::InThePass},
           {"just below 0.6, and no long interval", plain_beats(), 1070, 0.595, 1.0, Found::No},
           {"in the middle of a long interval, just above 0.4", plain_beats(1200), 1200, 0.405, 1.0,
            Found::BySearchBack},
           {"just below 0.4", plain_beats(1200), 1200, 0.395, 1.0, Found::No},
           {"feature 1.0095 times half the threshold", plain_beats(1200), 1200, 0.5, 0.2198, Found::BySearchBack},
           {"feature 0.9900 times half the threshold", plain_beats(1200), 1200, 0.5, 0.2183, Found::No},
           {"an interval of 361 after one of 200", plain_beats(0, 361), 1180, 0.5, 1.0, Found::BySearchBack},
           {"15 after its middle, 1180.5 rounded up", plain_beats(0, 361), 1196, 0.5, 1.0, Found::BySearchBack},
           {"exactly 1.8 times 200", plain_beats(0, 360), 1180, 0.5, 1.0, Found::No}}) {
    const double t = std::sqrt(1.0 / (c.correlation * c.correlation) - 1.0);
    V x(4000, 0.0), odd(4000, 0.0);
    for (int32_t p : c.plain) add_spanned_beat(x, shapes, p, 0.0);
    add_spanned_beat(x, shapes, c.odd, t, c.scale);
    add_spanned_beat(odd, shapes, c.odd, t, c.scale);
    const V window(odd.begin() + c.odd - 17, odd.begin() + c.odd + 16);
    ASSERT_NEAR(m_corr_emlc(column(shapes.s), column(window)), c.correlation, 2e-4) << c.why;

    const DetectorResult d = run_detector(x, 200);
    if (c.scale != 1.0) {  // the odd beat's share of the search-back's energy limit
      const double ratio = d.feature[c.odd - 1] / (d.threshold[c.odd - 1] / 2);
      ASSERT_NEAR(ratio, c.found == Found::No ? 0.99 : 1.0095, 5e-4) << c.why;
    }
    I want = c.plain;
    if (c.found == Found::InThePass) want.insert(std::upper_bound(want.begin(), want.end(), c.odd), c.odd);
    if (c.found == Found::BySearchBack) want.push_back(c.odd);
    V copy = x;
    for (const V& rpeaks : {d.rpeaks, kelo::ref::analyze(copy, 200.0).rpeaks}) {
      I got;
      for (double v : rpeaks)
        if (v > 0) got.push_back(static_cast<int32_t>(v));
      EXPECT_EQ(got, want) << c.why;
    }
  }
}

}  // namespace
