// The entry-point runs shared by the allocation-failure sweep and the
// two-thread matrix (see entry_points.hpp).
#include "tests/faults/entry_points.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "keloecgsolver/keloecgsolver.h"
#include "support/fake_jni.hpp"
#include "support/synthetic_ecg.hpp"

extern "C" {
jobject Java_com_kelo_kelosolver_NativeKELOecgSolver_runQRSDetection(JNIEnv*, jobject, jdoubleArray, jint,
                                                                     jint, jdouble, jint);
jobject Java_com_kelo_kelosolver_NativeKELOecgSolver_runHRV(JNIEnv*, jobject, jdoubleArray, jint, jint,
                                                            jdouble, jint);
jobject Java_com_kelo_kelosolver_NativeKELOecgSolver_detectBeats(JNIEnv*, jobject, jdoubleArray, jint, jint);
}

namespace kelo::test {

std::string exact(double v) {
  if (std::isnan(v)) return "NaN";
  char b[40];
  std::snprintf(b, sizeof b, "%a", v);
  return b;
}

std::function<bool(const std::string&)> is(std::string failure) {
  return [failure](const std::string& s) { return s == failure; };
}

std::function<bool(const std::string&)> is_any(std::vector<std::string> failures) {
  return [failures](const std::string& s) { return std::find(failures.begin(), failures.end(), s) != failures.end(); };
}

namespace {

using V = std::vector<double>;
using I = std::vector<int32_t>;

// ---- outcomes as text ------------------------------------------------------------


template <class T>
std::string list(const T* p, std::size_t n) {
  std::string s = "{";
  for (std::size_t i = 0; i < n; ++i) s += (i ? "," : "") + exact(static_cast<double>(p[i]));
  return s + "}";
}
template <class T>
std::string list(const std::vector<T>& v) { return list(v.data(), v.size()); }

template <class Rec>
std::string rec(const Rec* r) {
  if (r == nullptr) return "null";
  std::string s = "[";
  std::size_t n = r->numDimensions > 0 ? 1 : 0;
  for (int32_t d = 0; d < r->numDimensions; ++d) {
    s += (d ? "x" : "") + std::to_string(r->size[d]);
    n *= static_cast<std::size_t>(std::max(r->size[d], 0));
  }
  return s + "]" + list(r->data, n);
}

// ---- records: inputs as caller-owned wrappers, outputs made by the library ----------

template <class Rec, class T>
struct Wrapper {  // a record on the stack around a vector: allocates nothing
  std::vector<T> data;
  int32_t size[2];
  Rec r;
  explicit Wrapper(std::vector<T> v, bool row = false)
      : data(std::move(v)),
        size{row ? 1 : static_cast<int32_t>(data.size()), row ? static_cast<int32_t>(data.size()) : 1},
        r{data.data(), size, static_cast<int32_t>(data.size()), 2, false} {}
  Rec* get() { return &r; }
};
using RealIn = Wrapper<emxArray_real_T, double>;
using IntIn = Wrapper<emxArray_int32_T, int32_t>;

struct BoolIn {
  std::vector<char> flags;
  int32_t size[2];
  emxArray_boolean_T r;
  explicit BoolIn(std::vector<char> v)
      : flags(std::move(v)),
        size{static_cast<int32_t>(flags.size()), 1},
        r{reinterpret_cast<bool*>(flags.data()), size, static_cast<int32_t>(flags.size()), 2, false} {}
};

struct RealOut {
  emxArray_real_T* r = emxCreate_real_T(0, 0);
  ~RealOut() { emxDestroyArray_real_T(r); }
};
struct IntOut {
  emxArray_int32_T* r = emxCreate_int32_T(0, 0);
  ~IntOut() { emxDestroyArray_int32_T(r); }
};
constexpr const char* kEmpty = "[0x0]{}";

// ---- inputs --------------------------------------------------------------------------

const V& ecg15() {  // 15 s at 200 Hz
  static const V x = kelo::test::synthetic_ecg(kelo::test::regular_beats(90, 165, 18), 3000, {.noiseMv = 0.02});
  return x;
}

const V& ecg180() {  // 3 minutes at 200 Hz, the shortest HRV recording
  static const V x = [] {
    std::vector<kelo::test::Beat> beats;
    for (int64_t p = 100, i = 0; p < 35800; p += 150 + 12 * (i++ % 5)) beats.push_back({p});
    return kelo::test::synthetic_ecg(beats, 36000, {.noiseMv = 0.02, .seed = 7});
  }();
  return x;
}

I beats180() {  // 1-based positions, ascending
  I b;
  for (int32_t p = 101, i = 0; p < 35800; p += 150 + 12 * (i++ % 5)) b.push_back(p);
  return b;
}

template <std::size_t N, class T>
std::vector<T> fixed(std::vector<T> v) {
  v.resize(N, T{});
  return v;
}

std::string bridge_failure(const char* cls, std::size_t beats, const std::vector<std::string>& fields,
                           const std::vector<std::string>& arrays) {
  kelo::test::JavaResult r{cls, {{"error", 8}, {"hr", 0}}, {}};
  for (const auto& f : fields) r.numbers[f] = 0;
  for (const auto& a : arrays) r.arrays[a] = std::vector<jint>(beats, -1);
  r.arrays["qualities"] = {-1};
  std::string s = r.className;
  for (const auto& [k, v] : r.numbers) s += " " + k + "=" + exact(v);
  for (const auto& [k, v] : r.arrays) s += " " + k + "=" + list(v);
  return s;
}

std::string bridge_outcome(jobject sealed) {
  const auto r = FakeJava::unseal(sealed);
  if (!r) return "null";
  std::string s = r->className;
  for (const auto& [k, v] : r->numbers) s += " " + k + "=" + exact(v);
  for (const auto& [k, v] : r->arrays) s += " " + k + "=" + list(v);
  return s;
}

const std::vector<std::string> kHrvFields = {"nn_rr", "avnn", "sdnn", "sdann", "sdnnidx", "rmssd", "pnn50",
                                             "tot_pwr", "ulf_pwr", "vlf_pwr", "lf_pwr", "hf_pwr", "lf_hf"};

}  // namespace

const std::vector<EntryPoint>& entry_points() {
  static const std::vector<EntryPoint> table = {
      // ---- array records ----
      {"emxCreate_real_T",
       [](const Call& armed) {
         emxArray_real_T* r = nullptr;
         armed([&] { r = emxCreate_real_T(40, 3); });
         const std::string s = rec(r);
         emxDestroyArray_real_T(r);
         return s;
       },
       is("null")},
      {"emxCreateND_int32_T",
       [](const Call& armed) {
         const int32_t size[3] = {2, 3, 4};
         emxArray_int32_T* r = nullptr;
         armed([&] { r = emxCreateND_int32_T(3, size); });
         const std::string s = rec(r);
         emxDestroyArray_int32_T(r);
         return s;
       },
       is("null")},
      {"emxCreateWrapper_real_T",
       [](const Call& armed) {
         V buf(20, 1.5);
         emxArray_real_T* r = nullptr;
         armed([&] { r = emxCreateWrapper_real_T(buf.data(), 4, 5); });
         const std::string s = rec(r);
         emxDestroyArray_real_T(r);
         return s;
       },
       is("null")},
      {"emxCreateWrapperND_int32_T",
       [](const Call& armed) {
         I buf(6, 3);
         const int32_t size[2] = {2, 3};
         emxArray_int32_T* r = nullptr;
         armed([&] { r = emxCreateWrapperND_int32_T(buf.data(), 2, size); });
         const std::string s = rec(r);
         emxDestroyArray_int32_T(r);
         return s;
       },
       is("null")},
      // ---- kernels ----
      {"m_median",
       [](const Call& armed) {
         RealIn x({4, 1, 3, 9, 2, 8});
         double m = 0;
         armed([&] { m = m_median(x.get()); });
         return exact(m);
       },
       is("NaN")},
      {"m_b_median",
       [](const Call& armed) {
         RealIn x({4, 1, 3, 9, 2, 8});
         x.size[0] = 3;
         x.size[1] = 2;
         RealOut y;
         armed([&] { m_b_median(x.get(), y.r); });
         return rec(y.r);
       },
       is(kEmpty)},
      {"m_power",
       [](const Call& armed) {
         RealIn x({1, -2, 3});
         RealOut y;
         armed([&] { m_power(x.get(), y.r); });
         return rec(y.r);
       },
       is(kEmpty)},
      {"m_repmat",
       [](const Call& armed) {
         RealOut y;
         armed([&] { m_repmat(2.5, 7, y.r); });
         return rec(y.r);
       },
       is(kEmpty)},
      {"m_unique",
       [](const Call& armed) {
         RealIn x({3, 1, 3, NAN, 2, 1});
         RealOut b;
         armed([&] { m_unique(x.get(), b.r); });
         return rec(b.r);
       },
       is(kEmpty)},
      {"m_smooth_emlc",
       [](const Call& armed) {
         RealIn x({1, 5, 2, 8, 3, 9, 4});
         RealOut y;
         armed([&] { m_smooth_emlc(x.get(), 3, y.r); });
         return rec(y.r);
       },
       is(kEmpty)},
      {"m_find",
       [](const Call& armed) {
         BoolIn mask({0, 1, 1, 0, 1});
         RealOut idx;
         armed([&] { m_find(&mask.r, idx.r); });
         return rec(idx.r);
       },
       is(kEmpty)},
      {"m_b_eml_li_find",
       [](const Call& armed) {
         BoolIn mask({1, 0, 1});
         IntOut idx;
         armed([&] { m_b_eml_li_find(&mask.r, idx.r); });
         return rec(idx.r);
       },
       is(kEmpty)},
      {"m_diff m_b_filter m_filter m_abs",
       [](const Call& armed) {
         RealIn x({1, 4, -2, 8, 5});
         RealOut d, lo, hi, a;
         armed([&] {
           m_diff(x.get(), d.r);
           m_b_filter(x.get(), lo.r);
           m_filter(x.get(), hi.r);
           m_abs(x.get(), a.r);
         });
         return rec(d.r) + rec(lo.r) + rec(hi.r) + rec(a.r);
       },
       // The four run one after the other: those after the failing one
       // still give their results.
       [](const std::string& s) { return s.find(kEmpty) != std::string::npos; }},
      {"m_gradientIEM",
       [](const Call& armed) {
         RealIn x(V(ecg15().begin(), ecg15().begin() + 40));
         RealOut g, gs;
         armed([&] { m_gradientIEM(x.get(), g.r, gs.r); });
         return rec(g.r) + rec(gs.r);
       },
       is(std::string(kEmpty) + kEmpty)},
      {"m_refp1_sort",  // sorts in place without a buffer: never fails
       [](const Call& armed) {
         IntIn x({5, 3, 9, 1, 3, 7, 2, 8, 6, 4, 0, 11, 10, 12, 15, 14, 13, 16});
         armed([&] { m_refp1_sort(x.get()); });
         return list(x.data);
       },
       [](const std::string&) { return false; }},
      // ---- detection and heart rate ----
      {"m_analyze_ecg_offline_r",
       [](const Call& armed) {
         RealIn ecg(ecg15());
         RealOut peaks, feature, threshold;
         armed([&] { m_analyze_ecg_offline_r(ecg.get(), 200, peaks.r, feature.r, threshold.r); });
         return rec(peaks.r) + rec(feature.r) + rec(threshold.r);
       },
       is(std::string(kEmpty) + kEmpty + kEmpty)},
      {"detectWaves",
       [](const Call& armed) {
         RealIn ecg(ecg15());
         IntOut peaks, windows;
         int32_t grade = -7;
         armed([&] { detectWaves(ecg.get(), 5.0, 200, 5, peaks.r, &grade, windows.r); });
         return std::to_string(grade) + rec(peaks.r) + rec(windows.r);
       },
       is(std::string("0") + kEmpty + kEmpty)},
      {"calcHRvar",
       [](const Call& armed) {
         IntIn beats({100, 260, 410, 580, 740});
         double hr = 0;
         armed([&] { hr = calcHRvar(beats.get(), 5, 200); });
         return exact(hr);
       },
       is("NaN")},
      // ---- HRV ----
      {"calcHrv",
       [](const Call& armed) {
         const I b = beats180();
         V time(7, 5.0), freq(6, 5.0);
         int32_t status = -7;
         armed([&] { calcHrv(b.data(), static_cast<int32_t>(b.size() - 1), 200, time.data(), freq.data(), &status); });
         return std::to_string(status) + list(freq) + list(time);
       },
       // Status 8 and the frequency results untouched; the time results are
       // complete or untouched.
       [](const std::string& s) { return s.rfind("8" + list(V(6, 5.0)), 0) == 0; }},
      {"calcStatNN",
       [](const Call& armed) {
         const V t{0, 0.8, 1.6, 2.5, 3.3}, rr{0.8, 0.8, 0.9, 0.8, 0.85};
         const std::string ann = "NNNNN";
         V out(7, 5.0);
         armed([&] { calcStatNN(t.data(), rr.data(), ann.data(), 5, out.data()); });
         return list(out);
       },
       is(list(V(7, NAN)))},
      {"calcHrvTime",
       [](const Call& armed) {
         const V t{0, 0.8, 1.6, 2.5, 3.3}, rr{0.8, 0.8, 0.9, 0.8, 0.85};
         const std::string ann = "NNNNN";
         V out(7, 5.0);
         int32_t status = -7;
         armed([&] { calcHrvTime(t.data(), rr.data(), ann.data(), 5, out.data(), &status); });
         return std::to_string(status) + list(out);
       },
       is("8" + list(V(7, NAN)))},
      {"calcLomb",
       [](const Call& armed) {
         const V t{0, 0.8, 1.6, 2.5, 3.3, 4.1}, rr{0.8, 0.8, 0.9, 0.8, 0.85, 0.8};
         V freq(12, 0.0), amp(12, 0.0);
         armed([&] { calcLomb(t.data(), rr.data(), 6, freq.data(), amp.data(), 12); });
         return list(freq) + list(amp);
       },
       is(list(V(12, 0.0)) + list(V(12, 0.0)))},
      {"calcHrvFreq",
       [](const Call& armed) {
         V t, rr;
         for (int i = 0; i < 40; ++i) {
           rr.push_back(0.8 + 0.05 * (i % 3));
           t.push_back(i == 0 ? 0.0 : t.back() + (rr[i - 1] + rr[i]) / 2);
         }
         V out(6, 5.0);
         int32_t status = -7;
         armed([&] { calcHrvFreq(t.data(), rr.data(), 40, out.data(), &status); });
         return std::to_string(status) + list(out);
       },
       is("8" + list(V(6, 5.0)))},
      // ---- checks and classification ----
      {"checkQuality",
       [](const Call& armed) {
         const V ecg = fixed<KELO_CHECK_LENGTH>(ecg180());
         const I b = fixed<KELO_CHECK_LENGTH>(beats180());
         int32_t grade = -7;
         armed([&] { grade = checkQuality(ecg.data(), 36000, 5.0, b.data(), 200); });
         return std::to_string(grade);
       },
       is("0")},
      {"checkRR",
       [](const Call& armed) {
         I b = fixed<KELO_CHECK_LENGTH>(I{0, 200, 400, 600, 800, 1000, 1200, 1230, 1400, 1600});
         I classes(KELO_CHECK_LENGTH, 0), clean(KELO_CHECK_LENGTH, 9);
         int32_t count = -7;
         armed([&] { checkRR(b.data(), 10, classes.data(), clean.data(), &count); });
         return std::to_string(count) + list(clean.data(), 12) + list(classes.data(), 12);
       },
       is("-1" + list(I(12, 9)) + list(I(12, 0)))},
      {"checkRRvar",
       [](const Call& armed) {
         IntIn b({0, 200, 400, 600, 800, 1000, 1200, 1230, 1400, 1600});
         IntIn classes(I(10, 0));
         int32_t n = 10;
         armed([&] { checkRRvar(b.get(), &n, classes.get()); });
         return std::to_string(n) + list(b.data) + list(classes.data);
       },
       is("-1" + list(I{0, 200, 400, 600, 800, 1000, 1200, 1230, 1400, 1600}) + list(I(10, 0)))},
      {"classifyQRS",
       [](const Call& armed) {
         const V ecg = fixed<KELO_CLASSIFY_LENGTH>(ecg180());
         const I b = beats180();
         I classes(KELO_CLASSIFY_LENGTH, 9);
         armed([&] { classifyQRS(ecg.data(), b.data(), static_cast<int32_t>(b.size()), classes.data()); });
         return list(classes.data(), 40);
       },
       is(list(I(40, -1)))},
      {"classifyQRSvar",
       [](const Call& armed) {
         RealIn ecg(ecg15());
         IntIn b({91, 256, 421, 586, 751, 916});
         IntOut classes;
         armed([&] { classifyQRSvar(ecg.get(), b.get(), 6, 200, classes.r); });
         return rec(classes.r).substr(0, 40);
       },
       is(kEmpty)},
      {"refineQrsDetection",
       [](const Call& armed) {
         const V ecg = fixed<KELO_REFINE_LENGTH>(ecg180());
         I b = beats180();
         b.erase(b.begin() + 20);  // a missed beat to find
         const auto n = static_cast<int32_t>(b.size());
         const I in = fixed<KELO_REFINE_LENGTH>(b);
         I out(KELO_REFINE_LENGTH, 9);
         int32_t count = -7;
         armed([&] { refineQrsDetection(ecg.data(), in.data(), n, 200, out.data(), &count); });
         return std::to_string(count) + list(out.data(), 40);
       },
       is("-1" + list(I(40, 9)))},
      // ---- the Java bridge, in a fake Java environment ----
      {"runQRSDetection",
       [](const Call& armed) {
         FakeJava java;
         const jdoubleArray ecg = java.doubles(ecg15());
         jobject sealed = nullptr;
         armed([&] {
           sealed = Java_com_kelo_kelosolver_NativeKELOecgSolver_runQRSDetection(java.env(), nullptr, ecg, 200, 0,
                                                                                 5.0, 5);
         });
         return bridge_outcome(sealed);
       },
       [](const std::string& s) {
         return s == "null" || s == bridge_failure("com/kelo/kelosolver/KELOecgQrsResults", 100, {},
                                                   {"rpeaks", "qrs_onsets", "qrs_offsets"});
       }},
      {"runHRV",
       [](const Call& armed) {
         FakeJava java;
         const jdoubleArray ecg = java.doubles(ecg180());
         jobject sealed = nullptr;
         armed([&] {
           sealed = Java_com_kelo_kelosolver_NativeKELOecgSolver_runHRV(java.env(), nullptr, ecg, 200, 0, 5.0, 10);
         });
         return bridge_outcome(sealed);
       },
       [](const std::string& s) {
         return s == "null" ||
                s == bridge_failure("com/kelo/kelosolver/KELOecgResults", 740, kHrvFields, {"rpeaks", "ppeaks", "tpeaks"});
       }},
      {"detectBeats",
       [](const Call& armed) {
         FakeJava java;
         const jdoubleArray ecg = java.doubles(ecg15());
         jobject sealed = nullptr;
         armed([&] { sealed = Java_com_kelo_kelosolver_NativeKELOecgSolver_detectBeats(java.env(), nullptr, ecg, 200, 0); });
         return bridge_outcome(sealed);
       },
       is_any({"null", "com/kelo/kelosolver/KELOecgBeats error=" + exact(8) + " labels={} rpeaks={}"})},
      // ---- labelled beats ----
      {"kelo_detectBeats",
       [](const Call& armed) {
         RealIn ecg(ecg15());
         IntOut positions, labels;
         int32_t status = 99;
         armed([&] { status = kelo_detectBeats(ecg.get(), 200, positions.r, labels.r); });
         return std::to_string(status) + rec(positions.r) + rec(labels.r);
       },
       is("-3[0x1]{}[0x1]{}")},
  };
  return table;
}

}  // namespace kelo::test
