// Self-check of a keloecg report, for tests and measurements only: never
// part of a report. Put inside a <script> right after <head> of a copy of
// the report (tests/tools/report_browser_test.cpp, bench/long-recording.sh,
// tools/report/bench-report.sh); it collects script errors from the start,
// and once the page has loaded it reads what the report drew through its
// handle (window.keloReport) and writes the result as JSON into
// <pre id="kelo-selftest" hidden>. With #bench in the URL it also times the
// redraws behind paging and zooming.
(function () {
  "use strict";
  const errors = [];
  window.addEventListener("error", (e) => errors.push(String(e.message || e)));
  window.addEventListener("unhandledrejection", (e) => errors.push(String(e.reason)));

  function write(result) {
    let out = document.getElementById("kelo-selftest");
    if (!out) {
      out = document.createElement("pre");
      out.id = "kelo-selftest";
      out.hidden = true;
      document.body.append(out);
    }
    out.textContent = JSON.stringify(result);
  }

  const stats = (xs) => {
    const s = xs.slice().sort((a, b) => a - b);
    return { median: +s[s.length >> 1].toFixed(2), max: +s[s.length - 1].toFixed(2), steps: s.length };
  };

  // Redraw times while paging through the excerpt at several widths and
  // while zooming from the whole excerpt to one second, each step one
  // synchronous redraw of everything a view change touches.
  function bench(r) {
    const parts = { ecg: [], overview: [], segment: [] }, result = {}, all = [];
    const time = (a, b) => {
      const [e, o, s] = r.showTimed(a, b);
      parts.ecg.push(e); parts.overview.push(o); parts.segment.push(s);
      return e + o + s;
    };
    const { xMin, xMax } = r, whole = xMax - xMin;
    for (const [name, span] of [["10 s", 10], ["1 min", 60], ["10 min", 600], ["1 h", 3600], ["whole excerpt", whole]]) {
      if (span > whole) continue;
      const times = [];
      for (let k = 0; k < 40; k++) { const a = xMin + (whole - span) * k / 39; times.push(time(a, a + span)); }
      result["page, " + name + " in view"] = stats(times);
      all.push(...times);
    }
    const zoom = [];
    for (let k = 0; k < 40; k++) {
      const span = whole * Math.pow(Math.pow(1 / whole, 1 / 39), k), mid = (xMin + xMax) / 2;
      zoom.push(time(mid - span / 2, mid + span / 2));
    }
    result["zoom from the whole excerpt to 1 s"] = stats(zoom);
    all.push(...zoom);
    result.all = stats(all);
    result.parts = { ecg: stats(parts.ecg), overview: stats(parts.overview), segment: stats(parts.segment) };
    return result;
  }

  window.addEventListener("load", () => {
    const r = window.keloReport;
    const result = { ready: false, errors };
    if (r) {
      // Until everything is laid out, from the start of navigation.
      void document.body.offsetHeight;
      result.loadMs = +performance.now().toFixed(1);
      result.marks = r.marks;
      result.plots = r.plots.length;
      result.beatMarkers = r.beats;
      result.view = r.view();
      result.viewMarkers = r.markersDrawn();
      result.selectedSegment = r.selectedSegment();
      result.chunksDecoded = r.chunksDecoded();
      result.markersDrawn = r.markersOverWhole();
      result.unlikeAverage = r.unlikeAverage;
      result.addedBeats = r.addedBeats;
      result.rrRemoved = r.rrRemoved;
      result.referenceMarkers = r.referenceMarkers;
      result.samples = r.samples;
      result.segments = r.segments;
      result.hours = r.hours;
      result.ready = true;
      if (location.hash.indexOf("bench") >= 0) result.bench = bench(r);
    }
    write(result);
  });
})();
