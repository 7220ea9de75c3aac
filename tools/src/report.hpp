// The self-contained HTML report: ECG with the detected beats and window
// grades, RR tachogram, Lomb periodogram with the four bands and a table of
// every figure. Plots are drawn by uPlot, inlined with the data.
#pragma once

#include <string>

#include "analysis.hpp"

namespace keloecg {

// hrv must have been computed with its periodogram (when HRV ran);
// review belongs to hrv.qrs. validation may be null.
std::string render_report(const Prepared& p, const AnalysisSettings& s, const HrvResult& hrv,
                          const BeatReview& review, const Validation* validation);

// Standard base64 (RFC 4648) with padding.
std::string base64(const void* data, std::size_t size);

// Fills a template: each "{{NAME}}" or "/*{{NAME}}*/" placeholder once, in
// order of appearance; inserted text is never searched again.
std::string fill_template(std::string_view tmpl,
                          const std::vector<std::pair<std::string, std::string_view>>& values);

}  // namespace keloecg
