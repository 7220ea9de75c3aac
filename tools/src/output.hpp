// Results as JSON, CSV and text for people. Every figure is given with the
// span of the recording it covers.
#pragma once

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "analysis.hpp"

namespace keloecg {

// Objects are made with Json::object() before keys are added, never from
// a braced list of pairs: when memory runs out, nlohmann/json 3.11 leaves a
// null value that a new key turns into an object broken (it crashes
// destroying it), and a braced list leaks the object it was building.
using Json = nlohmann::ordered_json;

// An object from (key, value) pairs, built key by key.
inline Json json_object(std::initializer_list<std::pair<const char*, Json>> members) {
  Json j = Json::object();
  for (const auto& [key, value] : members) j[key] = value;
  return j;
}

Json recording_json(const Prepared& p);
Json settings_json(const AnalysisSettings& s);
Json span_json(const Excerpt& e);
Json qrs_json(const Prepared& p, const QrsResult& q);
Json hrv_json(const HrvResult& h);  // the HRV part only (the R peaks are in qrs_json)
Json figures_json(const HrvFigures& f);
Json counts_json(const MatchCounts& c);
Json classes_json(const ClassCounts& c);
Json label_counts_json(const std::vector<int>& labels);  // beats per label name
Json validation_json(const Validation& v);

// The document of one recording as `keloecg qrs|hrv --json` prints it and
// `keloecg batch` writes it.
Json document(const Prepared& p, const AnalysisSettings& s, const QrsResult* qrs, const HrvResult* hrv,
              const Validation* validation);

// Text for people. Notes about the recording are not part of it (they go
// to standard error).
std::string recording_text(const Prepared& p);
std::string qrs_text(const Prepared& p, const QrsResult& q, bool beats_listed);
std::string beats_text(const Prepared& p, const QrsResult& q);
std::string hrv_text(const HrvResult& h);
// One row per record and, with several, a total row.
std::string validation_text(const std::vector<Validation>& rows);

// CSV. Column names carry their unit.
// One row per R peak with the excerpt's figures beside it (one row with
// empty beat columns when there is none).
std::string beats_csv(const Prepared& p, const QrsResult& q);
// One row per span: the whole excerpt, and for the long-term analysis the
// mean of the 5-minute segments, every hour and every segment.
std::string hrv_csv(const HrvResult& h);
// The summary columns of the batch summary, one row per recording.
std::vector<std::string> summary_header();
std::vector<std::string> summary_row(const std::string& file, const Prepared* p, const QrsResult* qrs,
                                     const HrvResult* hrv, const Validation* validation,
                                     const std::string& error);
std::string validation_csv(const std::vector<Validation>& rows);
std::string csv_line(const std::vector<std::string>& fields);

// Numbers as the text and CSV outputs show them ("" for NaN in CSV).
std::string number(double v, int significant = 6);

// Names of the HRV figures with their unit, as CSV columns ("sdnn_s").
std::string time_column(std::size_t i);
std::string freq_column(std::size_t i);

}  // namespace keloecg
