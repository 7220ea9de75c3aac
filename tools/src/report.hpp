// The HTML report: one self-contained file over the whole excerpt. An
// overview of all of it (heart-rate trend, grade timeline, where the beats
// unlike the average beat are, the ECG's envelope) from which any moment
// opens at full resolution with its beats; the tachogram and periodogram
// of the whole excerpt and of the selected 5-minute segment; the hourly
// and segment tables and every figure. Plots of the tachograms and
// periodograms are drawn by uPlot, the ECG by the page's own canvas code;
// both are inlined with the data, so the page needs nothing else.
//
// The ECG travels at 200 Hz in steps of 1 uV, in chunks of one minute, each
// a difference code (one byte per sample while successive samples differ
// by at most 127 steps, five bytes otherwise) in base64: a day of ECG is
// about 27 MB, and the page decodes a chunk only when it is shown, so that
// it opens as fast for a day as for ten minutes. An envelope (lowest and
// highest sample of every second) draws the wide views.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "analysis.hpp"

namespace keloecg {

// hrv must have been computed with its periodograms (when HRV ran); review
// belongs to hrv.qrs. validation may be null.
std::string render_report(const Prepared& p, const AnalysisSettings& s, const HrvResult& hrv,
                          const BeatReview& review, const Validation* validation);

// Standard base64 (RFC 4648) with padding.
std::string base64(const void* data, std::size_t size);

// The difference code of the report's ECG chunks: samples as whole steps
// (held within +-2^30), each the difference from the one before (the first
// from 0) in one signed byte, or the byte -128 and the difference as a
// 32-bit little-endian integer.
std::string difference_code(std::span<const double> samples, double step);

// Fills a template: each "{{NAME}}" or "/*{{NAME}}*/" placeholder once, in
// order of appearance; inserted text is never searched again.
std::string fill_template(std::string_view tmpl,
                          const std::vector<std::pair<std::string, std::string_view>>& values);

}  // namespace keloecg
