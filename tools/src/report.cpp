#include "report.hpp"

#include <ctime>
#include <stdexcept>

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

std::string render_report(const Prepared& p, const AnalysisSettings& s, const HrvResult& hrv,
                          const BeatReview& review, const Validation* validation) {
  const QrsResult& q = hrv.qrs;
  Json data;
  const std::string lead = p.recording.lead_name().empty() ? "" : ", lead " + p.recording.lead_name();
  data["title"] = "ECG report: " + p.recording.name + lead;
  data["generated"] = now_text();
  data["version"] = KELO_VERSION;
  data["recording"] = recording_json(p);
  data["settings"] = settings_json(s);
  data["qrs"] = qrs_json(p, q);
  data["hrv"] = hrv_json(hrv);
  data["review"] = {{"classes", review.classes}, {"rr_removed", review.rr_removed}};

  // The excerpt at 200 Hz as float32: exact for display, a third of the
  // size of decimal text.
  const auto excerpt = p.excerpt(q.excerpt);
  std::vector<float> samples(excerpt.begin(), excerpt.end());
  data["ecg"] = {{"fs", kAnalysisRate},
                 {"start_sample", q.excerpt.start},
                 {"f32", base64(samples.data(), samples.size() * sizeof(float))}};
  if (hrv.whole.spectrum) {
    data["periodogram"] = {{"frequency_hz", hrv.periodogram.frequency_hz}, {"amplitude", hrv.periodogram.amplitude}};
  } else {
    data["periodogram"] = nullptr;
  }
  if (validation) {
    data["validation"] = validation_json(*validation);
    Json matched = Json::array();
    for (auto m : validation->match.reference_match) matched.push_back(m >= 0);
    data["reference"] = {{"time_s", validation->reference_s},
                         {"symbols", validation->reference_symbols},
                         {"matched", std::move(matched)}};
    Json detected = Json::array();
    for (auto m : validation->match.detection_match) detected.push_back(m >= 0);
    data["detection_matched"] = std::move(detected);
  } else {
    data["validation"] = nullptr;
    data["reference"] = nullptr;
    data["detection_matched"] = nullptr;
  }

  const std::string title = html_escape(data["title"].get<std::string>());
  const std::string json = script_safe(data.dump());
  return fill_template(assets::template_html, {{"TITLE", title},
                                               {"UPLOT_CSS", assets::uplot_css},
                                               {"REPORT_CSS", assets::report_css},
                                               {"DATA_JSON", json},
                                               {"UPLOT_LICENSE", assets::uplot_license},
                                               {"UPLOT_JS", assets::uplot_js},
                                               {"REPORT_JS", assets::report_js}});
}

}  // namespace keloecg
