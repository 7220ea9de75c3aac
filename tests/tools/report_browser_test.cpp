// The report opened in a real headless Chromium: it loads without script
// errors and its ECG plot holds one marker per detected beat. A screenshot
// and the page are kept in artifacts/ of the build folder.
#include <gtest/gtest.h>

#include "run_program.hpp"

namespace {

using kelo::test::keloecg;
using kelo::test::TempDir;
using nlohmann::json;
namespace fs = std::filesystem;

const fs::path kArtifacts = fs::current_path() / "artifacts";

std::string chromium() {
  for (const char* name : {"chromium", "chromium-browser", "google-chrome"}) {
    const auto r = kelo::test::run_command({"sh", "-c", std::string("command -v ") + name});
    if (r.exit_code == 0 && !r.out.empty()) return r.out.substr(0, r.out.find('\n'));
  }
  return "";
}

// Runs the browser on a page with its own profile folder (tests may run
// side by side).
kelo::test::Run browse(const std::vector<std::string>& args, const std::string& url) {
  TempDir profile;
  std::vector<std::string> argv = {chromium(), "--headless", "--no-sandbox", "--disable-gpu",
                                   "--no-first-run", "--user-data-dir=" + profile.path().string(),
                                   "--window-size=1400,2400", "--hide-scrollbars"};
  argv.insert(argv.end(), args.begin(), args.end());
  argv.push_back(url);
  return kelo::test::run_command(argv);
}

// The self-check of a report (tools/report/selftest.js, which reports do
// not carry), run in a copy of the page and read from the DOM the browser
// leaves.
json selftest(const fs::path& page) {
  std::string html = kelo::test::read_file(page);
  const auto head = html.find("<head>");
  EXPECT_NE(head, std::string::npos);
  if (head == std::string::npos) return json();
  html.insert(head + 6, "\n<script>\n" + kelo::test::read_file(KELO_REPORT_SELFTEST) + "</script>");
  const fs::path checked = page.parent_path() / (page.stem().string() + "-selftest.html");
  kelo::test::write_text(checked, html);
  const auto r = browse({"--dump-dom"}, "file://" + checked.string());
  EXPECT_EQ(r.exit_code, 0) << r.err;
  const std::string open = "<pre id=\"kelo-selftest\" hidden=\"\">";
  const auto at = r.out.find(open), from = at + open.size();
  return at == std::string::npos ? json() : json::parse(r.out.substr(from, r.out.find("</pre>", from) - from), nullptr, false);
}

// Writes a report with keloecg and returns the page's self-check, which
// must have finished without script errors.
json report(std::vector<std::string> args, const fs::path& page) {
  args.insert(args.begin(), "report");
  args.insert(args.end(), {"-o", page.string()});
  const auto made = keloecg(args);
  EXPECT_EQ(made.exit_code, 0) << made.err;
  EXPECT_NE(made.out.find(page.string()), std::string::npos);
  json st = selftest(page);
  EXPECT_TRUE(st.is_object()) << "the page did not finish its script";
  EXPECT_EQ(st["errors"], json::array());
  return st;
}

TEST(ReportInBrowser, BundledRecordingLoadsWithEveryBeatMarked) {
  ASSERT_FALSE(chromium().empty()) << "chromium is not installed (scripts/install-deps installs it)";
  fs::create_directories(kArtifacts);
  const fs::path page = kArtifacts / "report-bundled.html";
  json st = report({}, page);
  const auto html = kelo::test::read_file(page);
  EXPECT_LT(html.size(), 1u << 20);
  EXPECT_NE(html.find("uPlot"), std::string::npos);
  EXPECT_EQ(html.find("<script src"), std::string::npos);  // nothing fetched
  EXPECT_EQ(html.find("<link"), std::string::npos);
  EXPECT_EQ(html.find("kelo-selftest"), std::string::npos);  // no test code shipped

  const auto hrv = keloecg({"hrv", "--json"});
  ASSERT_EQ(hrv.exit_code, 0);
  const auto beats = hrv.json()["qrs"]["r_peaks"]["count"].get<int>();
  const auto normal = hrv.json()["qrs"]["r_peaks"]["label_counts"]["normal"].get<int>();
  EXPECT_EQ(st["ready"], true);
  EXPECT_EQ(st["plots"], 4);  // ECG, overview, tachogram, periodogram
  EXPECT_EQ(st["beatMarkers"], beats);
  EXPECT_EQ(st["markersDrawn"], beats);
  EXPECT_EQ(st["referenceMarkers"], 371);
  EXPECT_EQ(st["samples"], 60000);
  EXPECT_EQ(st["unlikeAverage"], 0);  // 5 minutes of normal beats
  EXPECT_EQ(st["rrRemoved"], 0);
  EXPECT_EQ(st["addedBeats"], beats - normal);  // marked by their labels

  const fs::path shot = kArtifacts / "report-bundled.png";
  fs::remove(shot);
  const auto r = browse({"--screenshot=" + shot.string()}, "file://" + page.string());
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_GT(fs::exists(shot) ? fs::file_size(shot) : 0u, 50000u);
}

TEST(ReportInBrowser, ShortRecordingWithoutHrvStillRenders) {
  ASSERT_FALSE(chromium().empty());
  TempDir dir;
  // 40 s of the bundled recording: beats, but too short for HRV.
  const auto all = kelo::test::read_file(fs::path(KELO_DATA_DIR) / "mitdb100-5min.f32");
  kelo::test::write_text(dir / "short.f32", all.substr(0, 40 * 200 * 4));
  json st = report({"--fs", "200", (dir / "short.f32").string()}, dir / "short.html");
  EXPECT_EQ(st["plots"], 3);  // no periodogram
  EXPECT_EQ(st["markersDrawn"], st["beatMarkers"]);
  EXPECT_GT(st["beatMarkers"].get<int>(), 40);
  EXPECT_EQ(st["referenceMarkers"], 0);
}

}  // namespace
