#include "report.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <stdexcept>

#include "keloecgsolver/version.h"
#include "output.hpp"
#include "report_assets.hpp"

namespace keloecg {

std::string base64(const void* data, std::size_t size) {
  static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto* in = static_cast<const unsigned char*>(data);
  std::string out;
  out.reserve((size + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 2 < size; i += 3) {
    const unsigned v = (in[i] << 16) | (in[i + 1] << 8) | in[i + 2];
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += kAlphabet[v & 63];
  }
  if (i < size) {
    const unsigned v = (in[i] << 16) | (i + 1 < size ? in[i + 1] << 8 : 0);
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += i + 1 < size ? kAlphabet[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

std::string fill_template(std::string_view tmpl, const std::vector<std::pair<std::string, std::string_view>>& values) {
  std::string out;
  out.reserve(tmpl.size());
  std::size_t pos = 0;
  for (const auto& [name, value] : values) {
    const std::string marker = "{{" + name + "}}";
    std::size_t at = tmpl.find(marker, pos);
    if (at == std::string_view::npos) throw std::logic_error("report template lacks " + marker);
    std::size_t end = at + marker.size();
    // A placeholder written as a comment keeps the template valid CSS/JS.
    if (at >= 2 && tmpl.substr(at - 2, 2) == "/*" && tmpl.substr(end, 2) == "*/") {
      at -= 2;
      end += 2;
    }
    out.append(tmpl.substr(pos, at - pos));
    out.append(value);
    pos = end;
  }
  out.append(tmpl.substr(pos));
  return out;
}

namespace {

std::string html_escape(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

// JSON inside a <script> element must not contain "</".
std::string script_safe(std::string json) {
  for (std::size_t at = json.find("</"); at != std::string::npos; at = json.find("</", at + 3)) {
    json.replace(at, 2, "<\\/");
  }
  return json;
}

std::string now_text() {
  const std::time_t t = std::time(nullptr);
  std::tm local{};
  localtime_r(&t, &local);
  char buf[64];
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M", &local);
  return buf;
}

}  // namespace

std::string difference_code(std::span<const double> samples, double step) {
  std::string out;
  out.reserve(samples.size() + samples.size() / 8);
  // Values are held within +-2^30 steps, so that every difference fits
  // 32 bits.
  constexpr double kLargest = 1073741823.0;
  std::int64_t previous = 0;
  for (double x : samples) {
    const auto v = static_cast<std::int64_t>(std::clamp(std::round(x / step), -kLargest, kLargest));
    const std::int64_t d = v - previous;
    previous = v;
    if (d >= -127 && d <= 127) {
      out += static_cast<char>(static_cast<std::int8_t>(d));
    } else {
      const auto w = static_cast<std::uint32_t>(static_cast<std::int32_t>(d));
      out += static_cast<char>(-128);
      for (int b = 0; b < 4; ++b) out += static_cast<char>(w >> (8 * b) & 0xFF);
    }
  }
  return out;
}

namespace {

constexpr double kStepMv = 0.001;          // 1 uV
constexpr std::int64_t kChunk = std::int64_t{60} * 200;  // one minute
constexpr std::int64_t kEnvelope = 200;    // one second

template <typename T>
std::string typed_base64(const std::vector<T>& v) {
  return base64(v.data(), v.size() * sizeof(T));
}

// The excerpt's samples: the chunks' base64 one after the other (the text
// of their own script element) and where each starts in it; the envelope.
struct EcgData {
  std::string text;
  Json json = Json::object();
};

EcgData ecg_data(const Prepared& p, const Excerpt& e) {
  const auto x = p.excerpt(e);
  EcgData out;
  Json offsets = Json::array();
  for (std::int64_t from = 0; from < e.length; from += kChunk) {
    offsets.push_back(out.text.size());
    const auto n = static_cast<std::size_t>(std::min(kChunk, e.length - from));
    const std::string code = difference_code(x.subspan(static_cast<std::size_t>(from), n), kStepMv);
    out.text += base64(code.data(), code.size());
  }
  offsets.push_back(out.text.size());
  std::vector<std::int32_t> envelope;
  for (std::int64_t from = 0; from < e.length; from += kEnvelope) {
    const auto part = x.subspan(static_cast<std::size_t>(from), static_cast<std::size_t>(std::min(kEnvelope, e.length - from)));
    const auto [lo, hi] = std::minmax_element(part.begin(), part.end());
    envelope.push_back(static_cast<std::int32_t>(std::clamp(std::round(*lo / kStepMv), -2147483648.0, 2147483647.0)));
    envelope.push_back(static_cast<std::int32_t>(std::clamp(std::round(*hi / kStepMv), -2147483648.0, 2147483647.0)));
  }
  out.json = json_object({{"fs", kAnalysisRate},
                          {"start", e.start},
                          {"length", e.length},
                          {"step_mv", kStepMv},
                          {"chunk", kChunk},
                          {"offsets", std::move(offsets)},
                          {"envelope_per", kEnvelope},
                          {"envelope", typed_base64(envelope)}});
  return out;
}

Json periodogram_json(const Periodogram& pg) {
  if (pg.amplitude.size() < 2) return nullptr;
  const std::vector<float> amp(pg.amplitude.begin(), pg.amplitude.end());
  return json_object({{"df", pg.frequency_hz.front()}, {"amp", typed_base64(amp)}});
}

// The beats unlike the average beat (classification) and the beats of
// implausibly short intervals (RR check), and with reference beats, what
// matched.
void beat_data(const QrsResult& q, const BeatReview& review, const Validation* validation, Json& data) {
  std::vector<std::int32_t> samples(q.r_peaks.begin(), q.r_peaks.end());
  data["beats"] = json_object({{"sample", typed_base64(samples)}, {"count", samples.size()}});
  if (!q.labels.empty()) {
    const std::vector<std::uint8_t> labels(q.labels.begin(), q.labels.end());
    data["beats"]["label"] = typed_base64(labels);
  }
  std::vector<std::uint8_t> classes(review.classes.begin(), review.classes.end());
  data["review"] = json_object({{"classes", typed_base64(classes)}, {"rr_removed", review.rr_removed}});
  if (!validation) {
    data["validation"] = nullptr;
    data["reference"] = nullptr;
    data["detection_matched"] = nullptr;
    return;
  }
  data["validation"] = validation_json(*validation);
  std::vector<std::int32_t> ms;
  std::string symbols;
  std::vector<std::uint8_t> matched, detected;
  for (std::size_t i = 0; i < validation->reference_s.size(); ++i) {
    ms.push_back(static_cast<std::int32_t>(std::llround(validation->reference_s[i] * 1e3)));
    symbols += validation->reference_symbols[i].empty() ? '?' : validation->reference_symbols[i][0];
    matched.push_back(validation->match.reference_match[i] >= 0);
  }
  for (auto m : validation->match.detection_match) detected.push_back(m >= 0);
  data["reference"] = json_object(
      {{"ms", typed_base64(ms)}, {"symbols", symbols}, {"matched", typed_base64(matched)}, {"count", ms.size()}});
  data["detection_matched"] = typed_base64(detected);
}

}  // namespace

std::string render_report(const Prepared& p, const AnalysisSettings& s, const HrvResult& hrv,
                          const BeatReview& review, const Validation* validation) {
  const QrsResult& q = hrv.qrs;
  Json data = Json::object();
  const std::string lead = p.recording.lead_name().empty() ? "" : ", lead " + p.recording.lead_name();
  data["title"] = "ECG report: " + p.recording.name + lead;
  data["generated"] = now_text();
  data["version"] = KELOECGSOLVER_VERSION_STRING;
  data["recording"] = recording_json(p);
  data["settings"] = settings_json(s);
  Json qrs = qrs_json(p, q);
  // The beats travel as typed arrays.
  qrs["r_peaks"] = json_object({{"count", q.r_peaks.size()}});
  if (!q.labels.empty()) qrs["r_peaks"]["label_counts"] = label_counts_json(q.labels);
  data["qrs"] = std::move(qrs);
  data["hrv"] = hrv_json(hrv);
  beat_data(q, review, validation, data);
  data["periodogram"] = hrv.whole.spectrum ? periodogram_json(hrv.periodogram) : Json(nullptr);
  Json segments = Json::array();
  for (std::size_t k = 0; k < hrv.segment_periodograms.size(); ++k) {
    segments.push_back(hrv.segments[k].spectrum ? periodogram_json(hrv.segment_periodograms[k]) : Json(nullptr));
  }
  data["segment_periodograms"] = std::move(segments);
  EcgData ecg = ecg_data(p, q.excerpt);
  data["ecg"] = std::move(ecg.json);

  const std::string title = html_escape(data["title"].get<std::string>());
  const std::string json = script_safe(data.dump());
  return fill_template(assets::template_html, {{"TITLE", title},
                                               {"UPLOT_CSS", assets::uplot_css},
                                               {"REPORT_CSS", assets::report_css},
                                               {"DATA_JSON", json},
                                               {"ECG_BASE64", ecg.text},
                                               {"UPLOT_LICENSE", assets::uplot_license},
                                               {"UPLOT_JS", assets::uplot_js},
                                               {"REPORT_JS", assets::report_js}});
}

}  // namespace keloecg
