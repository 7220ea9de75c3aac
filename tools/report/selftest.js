// Self-check of a keloecg report, for tests and measurements only: never
// part of a report. Put inside a <script> right after <head> of a copy of
// the report (tests/tools/report_browser_test.cpp, bench-report.sh); it
// collects script errors from the start, and once the page has loaded it
// checks what the report drew and writes the result as JSON into
// <pre id="kelo-selftest" hidden>. With #bench in the URL it also times the
// redraws behind zooming and moving.
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

  // Markers drawn with the whole excerpt in view (batch() redraws at once
  // instead of in a microtask); the view is restored afterwards.
  function countMarkers(r) {
    const saved = r.view();
    r.ecg.batch(() => r.ecg.setScale("x", { min: r.xMin, max: r.xMax }));
    const all = r.markersDrawn();
    r.ecg.batch(() => r.ecg.setScale("x", { min: saved[0], max: saved[1] }));
    return all;
  }

  // Redraw times while moving and zooming, without waiting for frames: each
  // step redraws the ECG, the overview and the tachogram once.
  function bench(r) {
    const time = (fn) => {
      const a = performance.now();
      r.ecg.batch(fn);
      r.overview.batch(() => {});
      if (r.tach) r.tach.batch(() => {});
      return performance.now() - a;
    };
    const stats = (xs) => {
      const s = xs.slice().sort((a, b) => a - b);
      return { median: +s[s.length >> 1].toFixed(2), max: +s[s.length - 1].toFixed(2), steps: s.length };
    };
    const { xMin, xMax } = r;
    const result = {};
    const spans = { "10 s": 10, "1 min": 60, "whole excerpt": xMax - xMin };
    for (const [name, span] of Object.entries(spans)) {
      const times = [];
      for (let k = 0; k < 40; k++) {
        const a = xMin + (xMax - xMin - span) * k / 39;
        times.push(time(() => r.ecg.setScale("x", { min: a, max: a + span })));
      }
      result["pan, " + name + " in view"] = stats(times);
    }
    const zoom = [];
    for (let k = 0; k < 40; k++) {
      const span = (xMax - xMin) * Math.pow(0.85, k), mid = (xMin + xMax) / 2;
      zoom.push(time(() => r.ecg.setScale("x", { min: mid - span / 2, max: mid + span / 2 })));
    }
    result["zoom from whole excerpt to 1 s"] = stats(zoom);
    return result;
  }

  window.addEventListener("load", () => {
    const r = window.keloReport;
    const result = { ready: false, errors };
    if (r) {
      const D = JSON.parse(document.getElementById("kelo-data").textContent);
      result.plots = r.plots.length;
      result.beatMarkers = D.qrs.r_peaks.sample_200hz.length;
      result.unlikeAverage = D.review.classes.filter((c) => c === 0).length;
      result.addedBeats = r.addedBeats;
      result.rrRemoved = new Set(D.review.rr_removed).size;
      result.markersDrawn = countMarkers(r);
      result.referenceMarkers = D.reference ? D.reference.time_s.length : 0;
      result.samples = r.samples;
      result.buildMs = r.buildMs;
      result.ready = true;
      if (location.hash.indexOf("bench") >= 0) result.bench = bench(r);
    }
    write(result);
  });
})();
