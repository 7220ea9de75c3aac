// Development harness of the labelled beats: runs the second pass on 200 Hz
// float32 recordings (REC.f32 with REC.beats.txt, as the data folder's
// converter writes them) and scores every beat against the reference beats,
// EC57 style (150 ms window, from a start time on), with the sensitivity
// per reference beat class. Tuning constants can be overridden:
//   score_beats [--from S] [--normal] [--dump] [--markdown] [--set NAME=VALUE]... REC.f32...
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "beat_match.hpp"
#include "beats.hpp"
#include "detect/detector.hpp"
#include "detect/labelled_beats.hpp"
#include "keloecgsolver/rt_nonfinite.h"

namespace {

using kelo::beats::Beat;
using kelo::beats::Label;

constexpr double kFs = 200.0;
const char* const kClasses = "NSVFQ";

struct Record {
  std::string name;
  std::vector<double> samples;
  std::vector<double> refTime;
  std::vector<std::string> refSymbol;
};

Record load(const std::string& path) {
  Record r;
  std::string stem = path.substr(0, path.rfind('.'));
  r.name = stem.substr(stem.rfind('/') + 1);
  std::ifstream f(path, std::ios::binary);
  float v;
  while (f.read(reinterpret_cast<char*>(&v), sizeof v)) r.samples.push_back(v);
  std::ifstream b(stem + ".beats.txt");
  long sample;
  std::string sym;
  while (b >> sample >> sym) {
    r.refTime.push_back(static_cast<double>(sample) / kFs);
    r.refSymbol.push_back(sym);
  }
  return r;
}

struct Score {
  std::string name;
  keloecg::MatchCounts counts;
  long classRefs[5] = {}, classHits[5] = {};
  long labelCount[5] = {}, labelTrue[5] = {};
  long confusion[5][5] = {};  // [reference class][label]
  std::string dump;
};

Score score(const Record& r, const kelo::beats::Tuning& t, double from, bool normalOnly, bool dump) {
  std::vector<Beat> beats = kelo::beats::labelled_beats(r.samples, kFs, t);
  Score s;
  s.name = r.name;
  std::vector<double> ref, det;
  std::vector<std::string> sym;
  std::vector<Label> lab;
  for (std::size_t i = 0; i < r.refTime.size(); ++i)
    if (r.refTime[i] >= from) ref.push_back(r.refTime[i]), sym.push_back(r.refSymbol[i]);
  for (const Beat& b : beats) {
    if (normalOnly && b.label != Label::Normal) continue;
    const double time = static_cast<double>(b.index) / kFs;
    if (time >= from) det.push_back(time), lab.push_back(b.label);
  }
  const keloecg::MatchResult m = keloecg::match_beats(ref, det);
  s.counts = m.counts;
  std::ostringstream out;
  for (std::size_t i = 0; i < ref.size(); ++i) {
    const int c = static_cast<int>(keloecg::beat_class(sym[i]));
    ++s.classRefs[c];
    if (m.reference_match[i] >= 0) {
      ++s.classHits[c];
      ++s.confusion[c][static_cast<int>(lab[static_cast<std::size_t>(m.reference_match[i])])];
    } else if (dump) {
      out << r.name << " FN " << ref[i] << " " << sym[i] << "\n";
    }
  }
  for (std::size_t j = 0; j < det.size(); ++j) {
    const int l = static_cast<int>(lab[j]);
    ++s.labelCount[l];
    if (m.detection_match[j] >= 0) ++s.labelTrue[l];
    else if (dump) out << r.name << " FP " << det[j] << " label " << l << "\n";
  }
  s.dump = out.str();
  return s;
}

void set(kelo::beats::Tuning& t, const std::string& kv) {
  const auto eq = kv.find('=');
  const std::string k = kv.substr(0, eq);
  const double v = std::atof(kv.substr(eq + 1).c_str());
  std::map<std::string, double*> fields = {
      {"neighbours", &t.neighbours},         {"refractory", &t.refractory},
      {"searchThreshold", &t.searchThreshold}, {"minAmplitude", &t.minAmplitude},
      {"minSlope", &t.minSlope},             {"surround", &t.surround},
      {"standOut", &t.standOut},             {"gapRatio", &t.gapRatio},
      {"strictProduct", &t.strictProduct},   {"strictStandOut", &t.strictStandOut},
      {"tWaveZone", &t.tWaveZone},           {"tWaveZoneRR", &t.tWaveZoneRR},
      {"tWaveSlope", &t.tWaveSlope},         {"tWaveAmplitude", &t.tWaveAmplitude},
      {"runSimilarity", &t.runSimilarity},   {"wideRatio", &t.wideRatio},
      {"unlikeCorrelation", &t.unlikeCorrelation}, {"prematureRatio", &t.prematureRatio}};
  auto it = fields.find(k);
  if (it == fields.end()) {
    std::fprintf(stderr, "unknown constant %s\n", k.c_str());
    std::exit(2);
  }
  *it->second = v;
}

double percent(long num, long den) { return den == 0 ? std::nan("") : 100.0 * static_cast<double>(num) / static_cast<double>(den); }

void print_row(const Score& s, bool markdown) {
  const auto& c = s.counts;
  const long extra = s.labelCount[2] + s.labelCount[3] + s.labelCount[4];
  const long extraTrue = s.labelTrue[2] + s.labelTrue[3] + s.labelTrue[4];
  if (markdown) {
    std::printf("| %s | %ld | %ld | %ld | %ld | %.2f | %.2f | %.2f |", s.name.c_str(), static_cast<long>(c.references()),
                static_cast<long>(c.true_positives), static_cast<long>(c.false_negatives),
                static_cast<long>(c.false_positives), 100 * c.sensitivity(), 100 * c.positive_predictivity(),
                100 * c.f1());
    for (int k = 0; k < 5; ++k) {
      if (s.classRefs[k] == 0) std::printf(" - |");
      else std::printf(" %.2f (%ld) |", percent(s.classHits[k], s.classRefs[k]), s.classRefs[k]);
    }
    std::printf(" %ld / %ld |\n", extraTrue, extra);
    return;
  }
  std::printf("%-8s %6ld %6ld %5ld %5ld %7.2f %7.2f %7.2f", s.name.c_str(), static_cast<long>(c.references()),
              static_cast<long>(c.true_positives), static_cast<long>(c.false_negatives),
              static_cast<long>(c.false_positives), 100 * c.sensitivity(), 100 * c.positive_predictivity(),
              100 * c.f1());
  for (int k = 0; k < 5; ++k) {
    if (s.classRefs[k] == 0) std::printf("  %c      -", kClasses[k]);
    else std::printf("  %c %6.2f", kClasses[k], percent(s.classHits[k], s.classRefs[k]));
  }
  std::printf("  extra %ld/%ld\n", extraTrue, extra);
}

// Writes the centred ECG, the envelope, the threshold and the beats of
// start .. end seconds as CSV (for plots).
void curves(const Record& r, const kelo::beats::Tuning& t, double start, double end, const std::string& out) {
  std::vector<double> ecg = r.samples;
  const kelo::detect::Detection d = kelo::detect::analyze(ecg, kFs);
  std::vector<Beat> beats = kelo::beats::labelled_beats(r.samples, kFs, t);
  std::ofstream f(out);
  f << "k,ecg,feature,threshold,label,ref\n";
  std::size_t b = 0, q = 0;
  for (std::size_t k = 0; k < ecg.size(); ++k) {
    const double time = static_cast<double>(k) / kFs;
    int label = 0;
    while (b < beats.size() && beats[b].index < static_cast<int64_t>(k)) ++b;
    if (b < beats.size() && beats[b].index == static_cast<int64_t>(k)) label = static_cast<int>(beats[b].label);
    std::string ref;
    while (q < r.refTime.size() && std::lround(r.refTime[q] * kFs) < static_cast<long>(k)) ++q;
    if (q < r.refTime.size() && std::lround(r.refTime[q] * kFs) == static_cast<long>(k)) ref = r.refSymbol[q];
    if (time < start || time > end) continue;
    f << k << "," << ecg[k] << "," << d.feature[k] << "," << d.threshold[k] << "," << label << "," << ref << "\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  rt_InitInfAndNaN(8U);
  kelo::beats::Tuning t;
  double from = 300.0;
  bool normalOnly = false, dump = false, markdown = false;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--from" && i + 1 < argc) from = std::atof(argv[++i]);
    else if (a == "--set" && i + 1 < argc) set(t, argv[++i]);
    else if (a == "--normal") normalOnly = true;
    else if (a == "--dump") dump = true;
    else if (a == "--markdown") markdown = true;
    else if (a == "--curves" && i + 4 < argc) {
      curves(load(argv[i + 1]), t, std::atof(argv[i + 2]), std::atof(argv[i + 3]), argv[i + 4]);
      return 0;
    }
    else files.push_back(a);
  }
  std::vector<Score> scores(files.size());
  std::vector<std::thread> workers;
  const unsigned jobs = 2;
  for (unsigned w = 0; w < jobs; ++w)
    workers.emplace_back([&, w] {
      for (std::size_t i = w; i < files.size(); i += jobs) scores[i] = score(load(files[i]), t, from, normalOnly, dump);
    });
  for (auto& w : workers) w.join();
  Score total;
  total.name = markdown ? "**total**" : "total";
  if (markdown) {
    std::printf("| record | reference beats | TP | FN | FP | Se %% | +P %% | F1 %% | Se N %% | Se S %% | Se V %% | Se F %% | Se Q %% | second pass: true / all |\n");
    std::printf("| --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: |\n");
  } else {
    std::printf("%-8s %6s %6s %5s %5s %7s %7s %7s\n", "record", "ref", "TP", "FN", "FP", "Se", "+P", "F1");
  }
  for (const Score& s : scores) {
    print_row(s, markdown);
    std::fputs(s.dump.c_str(), stdout);
    total.counts += s.counts;
    for (int k = 0; k < 5; ++k) {
      total.classRefs[k] += s.classRefs[k];
      total.classHits[k] += s.classHits[k];
      total.labelCount[k] += s.labelCount[k];
      total.labelTrue[k] += s.labelTrue[k];
      for (int l = 0; l < 5; ++l) total.confusion[k][l] += s.confusion[k][l];
    }
  }
  print_row(total, markdown);
  if (markdown) return 0;
  std::printf("labels: ");
  const char* names[5] = {"", "normal", "wide", "premature", "unknown"};
  for (int l = 1; l < 5; ++l) std::printf("%s %ld/%ld  ", names[l], total.labelTrue[l], total.labelCount[l]);
  std::printf("\nmatched reference class x label:\n");
  for (int k = 0; k < 5; ++k) {
    std::printf("  %c:", kClasses[k]);
    for (int l = 1; l < 5; ++l) std::printf(" %s %ld", names[l], total.confusion[k][l]);
    std::printf("\n");
  }
}
