// The report opened in a real headless Chromium: it loads without script
// errors, marks every detected beat, and opens any moment at full
// resolution with its beats. Screenshots and the pages are kept in
// artifacts/ of the build folder: the bundled recording, and the two-hour
// MIT-BIH recording's overview and a zoomed moment.
#include <gtest/gtest.h>

#include "run_program.hpp"

namespace {

using kelo::test::keloecg;
using kelo::test::TempDir;
using nlohmann::json;
namespace fs = std::filesystem;

const fs::path kArtifacts = fs::current_path() / "artifacts";
const std::string kTwoHours = (fs::path(KELO_TOOLS_TEST_DATA) / "mitdb-2h.hea").string();

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
// leaves; `fragment` (#...) is added to the address.
json selftest(const fs::path& page, const std::string& fragment = "") {
  std::string html = kelo::test::read_file(page);
  const auto head = html.find("<head>");
  EXPECT_NE(head, std::string::npos);
  if (head == std::string::npos) return json();
  html.insert(head + 6, "\n<script>\n" + kelo::test::read_file(KELO_REPORT_SELFTEST) + "</script>");
  const fs::path checked = page.parent_path() / (page.stem().string() + "-selftest.html");
  kelo::test::write_text(checked, html);
  const auto r = browse({"--dump-dom"}, "file://" + checked.string() + fragment);
  EXPECT_EQ(r.exit_code, 0) << r.err;
  const std::string open = "<pre id=\"kelo-selftest\" hidden=\"\">";
  const auto at = r.out.find(open), from = at + open.size();
  json st = at == std::string::npos ? json() : json::parse(r.out.substr(from, r.out.find("</pre>", from) - from), nullptr, false);
  EXPECT_TRUE(st.is_object()) << "the page did not finish its script";
  EXPECT_EQ(st["errors"], json::array());
  return st;
}

// Writes a report with keloecg (which says where it wrote it).
void report(std::vector<std::string> args, const fs::path& page) {
  args.insert(args.begin(), "report");
  args.insert(args.end(), {"-o", page.string()});
  const auto made = keloecg(args);
  EXPECT_EQ(made.exit_code, 0) << made.err;
  EXPECT_NE(made.out.find(page.string()), std::string::npos);
}

void screenshot(const std::string& url, const fs::path& shot) {
  fs::remove(shot);
  const auto r = browse({"--screenshot=" + shot.string()}, url);
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_GT(fs::exists(shot) ? fs::file_size(shot) : 0u, 50000u) << shot;
}

TEST(ReportInBrowser, BundledRecordingLoadsWithEveryBeatMarked) {
  ASSERT_FALSE(chromium().empty()) << "chromium is not installed (scripts/install-deps installs it)";
  fs::create_directories(kArtifacts);
  const fs::path page = kArtifacts / "report-bundled.html";
  report({}, page);
  const json st = selftest(page);
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
  EXPECT_EQ(st["plots"], 2);  // tachogram and periodogram of the excerpt; no 5-minute segments
  EXPECT_EQ(st["segments"], 0);
  EXPECT_EQ(st["beatMarkers"], beats);
  EXPECT_EQ(st["markersDrawn"], beats);
  EXPECT_EQ(st["referenceMarkers"], 371);
  EXPECT_EQ(st["samples"], 60000);
  EXPECT_EQ(st["unlikeAverage"], 0);  // 5 minutes of normal beats
  EXPECT_EQ(st["rrRemoved"], 0);
  EXPECT_EQ(st["addedBeats"], beats - normal);  // marked by their labels
  screenshot("file://" + page.string(), kArtifacts / "report-bundled.png");
}

// Two hours: the overview of the whole, every beat marked, the hourly and
// segment tables, and a moment opened from the address at full resolution
// with its beats (and with it the 5-minute segment that holds it).
TEST(ReportInBrowser, TwoHoursOverviewAndAZoomedMoment) {
  ASSERT_FALSE(chromium().empty());
  fs::create_directories(kArtifacts);
  const fs::path page = kArtifacts / "report-2h.html";
  report({kTwoHours}, page);
  const auto qrs = keloecg({"qrs", "--json", kTwoHours});
  ASSERT_EQ(qrs.exit_code, 0);
  const auto peaks = qrs.json()["qrs"]["r_peaks"]["sample_200hz"].get<std::vector<long>>();

  const json st = selftest(page);
  EXPECT_EQ(st["beatMarkers"], peaks.size());
  EXPECT_EQ(st["markersDrawn"], peaks.size());
  EXPECT_EQ(st["samples"], 1444445);
  EXPECT_EQ(std::pair(st["segments"], st["hours"]), std::pair(json(24), json(2)));
  EXPECT_EQ(st["plots"], 4);  // tachogram and periodogram of the whole and of the selected segment
  EXPECT_EQ(st["unlikeAverage"].get<int>() > 400, true);  // record 119's ventricular beats
  EXPECT_LE(st["chunksDecoded"], 2);  // only the minute in view is decoded
  screenshot("file://" + page.string(), kArtifacts / "report-2h-overview.png");

  // 1:30:00, in record 119's bigeminy.
  const std::string moment = "file://" + page.string() + "#t=5400&span=10";
  const json at = selftest(page, "#t=5400&span=10");
  EXPECT_EQ(at["view"], json::array({5400, 5410}));
  const auto in_view = std::count_if(peaks.begin(), peaks.end(), [](long s) { return s >= 5400 * 200 && s <= 5410 * 200; });
  EXPECT_EQ(at["viewMarkers"], in_view);
  EXPECT_GE(in_view, 10);
  EXPECT_EQ(at["selectedSegment"], 18);  // 1:30:00 to 1:35:00
  screenshot(moment, kArtifacts / "report-2h-moment.png");
}

TEST(ReportInBrowser, ShortRecordingWithoutHrvStillRenders) {
  ASSERT_FALSE(chromium().empty());
  TempDir dir;
  // 40 s of the bundled recording: beats, but too short for HRV.
  const auto all = kelo::test::read_file(fs::path(KELO_DATA_DIR) / "mitdb100-5min.f32");
  kelo::test::write_text(dir / "short.f32", all.substr(0, 40 * 200 * 4));
  report({"--fs", "200", (dir / "short.f32").string()}, dir / "short.html");
  const json st = selftest(dir / "short.html");
  EXPECT_EQ(st["plots"], 1);  // the tachogram; no periodogram
  EXPECT_EQ(st["markersDrawn"], st["beatMarkers"]);
  EXPECT_GT(st["beatMarkers"].get<int>(), 40);
  EXPECT_EQ(st["referenceMarkers"], 0);
}

}  // namespace
