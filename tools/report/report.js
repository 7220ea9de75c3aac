// The report page: reads the analysis from #kelo-data and draws it with
// uPlot. Everything runs from this one file; nothing is fetched.
(function () {
  "use strict";
  const t0 = performance.now();
  const D = JSON.parse(document.getElementById("kelo-data").textContent);
  const FS = D.ecg.fs;
  const COLORS = {
    ecg: "#1d2433", beat: "#1f4fa3", fp: "#d92d20", fn: "#f79009", ref: "#12b76a", odd: "#9e44c9", rr: "#7a271a",
    wide: "#e04f16", premature: "#0e9384", unknown: "#667085",
    grade: { 0: "rgba(18,183,106,0.55)", 3: "rgba(138,148,166,0.75)", 5: "rgba(217,45,32,0.7)", 6: "rgba(247,144,9,0.75)" },
    tint: { 3: "rgba(138,148,166,0.10)", 5: "rgba(217,45,32,0.08)", 6: "rgba(247,144,9,0.09)" },
    band: ["rgba(138,148,166,0.16)", "rgba(46,144,250,0.12)", "rgba(18,183,106,0.13)", "rgba(247,144,9,0.14)"],
  };
  const GRADE_TEXT = { 0: "usable", 3: "too few beats", 5: "clipped", 6: "irregular" };

  // ---- formatting ----------------------------------------------------
  const el = (tag, attrs, ...kids) => {
    const e = document.createElement(tag);
    for (const [k, v] of Object.entries(attrs || {})) {
      if (k === "class") e.className = v; else if (k === "style") e.style.cssText = v; else e.setAttribute(k, v);
    }
    for (const k of kids) if (k != null) e.append(k);
    return e;
  };
  const num = (v, digits = 4) => (v == null || !isFinite(v)) ? "–" : Number(v).toPrecision(digits).replace(/\.?0+(e|$)/, "$1");
  const fixed = (v, d) => (v == null || !isFinite(v)) ? "–" : Number(v).toFixed(d);
  const clock = (s) => {
    const neg = s < 0; s = Math.abs(s);
    const m = Math.floor(s / 60), r = s - 60 * m;
    return (neg ? "-" : "") + m + ":" + (r < 10 ? "0" : "") + r.toFixed(r % 1 ? 1 : 0);
  };

  // ---- decoding -------------------------------------------------------
  function base64ToFloat32(b64) {
    const bin = atob(b64);
    const bytes = new Uint8Array(bin.length);
    for (let i = 0; i < bin.length; i++) bytes[i] = bin.charCodeAt(i);
    return new Float32Array(bytes.buffer);
  }
  const ecgY = base64ToFloat32(D.ecg.f32);
  const N = ecgY.length;
  const start = D.ecg.start_sample;
  const ecgX = new Float64Array(N);
  for (let i = 0; i < N; i++) ecgX[i] = (start + i) / FS;
  const xMin = ecgX[0], xMax = ecgX[N - 1];

  const peaks = D.qrs.r_peaks.sample_200hz;          // whole-recording samples
  const peakT = peaks.map((s) => s / FS);
  const peakV = peaks.map((s) => ecgY[Math.min(N - 1, Math.max(0, s - start))]);
  const peakOk = D.detection_matched;                 // null without references
  const ref = D.reference;                            // null without references
  const review = D.review;                            // beat classes and the RR check
  const rrRemoved = new Set(review.rr_removed);
  // With all beats, the label of each (normal, wide, premature, unknown).
  const labels = D.qrs.r_peaks.label || null;
  // Marker colour of each beat: a false detection (with references) first,
  // then the label a beat of the second pass carries, then a shape unlike
  // the average beat, else the plain beat colour.
  const FP = 2, ODD = 1, BEAT = 0, WIDE = 3, PREMATURE = 4, UNKNOWN = 5;
  const LABEL_KIND = { wide: WIDE, premature: PREMATURE, unknown: UNKNOWN };
  const peakKind = peaks.map((_, i) => (peakOk && !peakOk[i]) ? FP
    : (labels && LABEL_KIND[labels[i]]) || (review.classes[i] === 0 ? ODD : BEAT));

  // A robust, fixed vertical range: the trace does not jump while moving.
  function robustRange(y) {
    const step = Math.max(1, Math.floor(y.length / 20000));
    const s = [];
    for (let i = 0; i < y.length; i += step) s.push(y[i]);
    s.sort((a, b) => a - b);
    const lo = s[Math.floor(0.001 * (s.length - 1))], hi = s[Math.ceil(0.999 * (s.length - 1))];
    const span = Math.max(hi - lo, 0.2);
    return [lo - 0.15 * span, hi + 0.3 * span];
  }
  const yRange = robustRange(ecgY);

  // ---- header, cards, notes --------------------------------------------
  const rec = D.recording;
  document.getElementById("title").textContent = D.title;
  document.getElementById("subtitle").textContent =
    rec.path + " · " + rec.format + " · " + num(rec.sampling_rate_hz, 6) + " Hz" +
    (rec.resampled_to_200hz ? " (resampled to 200 Hz)" : "") + " · lead " + rec.lead.index +
    (rec.lead.name ? " " + rec.lead.name : "") + " · " + clock(rec.duration_s);
  document.getElementById("generated").textContent = "keloecg " + D.version + " · " + D.generated;
  document.getElementById("footer").textContent =
    "Excerpt " + clock(D.qrs.excerpt.start_s) + " to " + clock(D.qrs.excerpt.start_s + D.qrs.excerpt.duration_s) +
    " of the recording, analysed at 200 Hz. Sample numbers are 0-based in the whole recording.";

  const hrv = D.hrv;
  const statusClass = (s) => s === 0 ? "ok" : (s === 5 || s === 6 || s === 4) ? "warn" : "bad";
  const windows = D.qrs.window_grades;
  const usable = windows.filter((g) => g === 0).length;
  const cards = [
    ["Heart rate", D.qrs.heart_rate_bpm != null ? fixed(D.qrs.heart_rate_bpm, 0) : "–", "bpm", "median RR", ""],
    ["R peaks", String(peaks.length), "", clock(D.qrs.excerpt.duration_s) + " analysed", ""],
    ["Status", String(hrv ? hrv.status : D.qrs.status), "", hrv ? hrv.status_text : D.qrs.status_text, statusClass(hrv ? hrv.status : D.qrs.status)],
    ["Grade", D.qrs.excerpt_grade_text, "", "whole excerpt", D.qrs.excerpt_grade === 1 ? "ok" : "warn"],
    ["Windows", usable + "/" + windows.length, "", "usable · " + D.qrs.window_s + " s each", usable === windows.length ? "ok" : "warn"],
  ];
  if (hrv && hrv.computed) {
    cards.push(["SDNN", fixed(hrv.time_domain.sdnn * 1e3, 1), "ms", "SD of NN intervals", ""]);
    cards.push(["RMSSD", fixed(hrv.time_domain.rmssd * 1e3, 1), "ms", "successive differences", ""]);
    cards.push(["LF/HF", num(hrv.frequency_domain.lf_hf, 3), "", "Lomb band powers", ""]);
  }
  if (D.validation) {
    cards.push(["F1", fixed(100 * D.validation.f1, 2), "%", "vs reference beats", D.validation.f1 > 0.99 ? "ok" : "warn"]);
  }
  const cardBox = document.getElementById("cards");
  for (const [label, value, unit, hint, cls] of cards) {
    cardBox.append(el("div", { class: "card " + cls }, el("div", { class: "label" }, label),
      el("div", { class: "value" }, value, unit ? el("small", {}, unit) : null), el("div", { class: "hint" }, hint)));
  }
  const notes = document.getElementById("notes");
  const addNote = (text) => notes.append(el("div", { class: "note" }, text));
  for (const w of rec.warnings) addNote(w);
  if (D.qrs.excerpt.capped_to_10_minutes) addNote("HRV is computed over 3 to 10 minutes: this report shows the first 10 minutes of the excerpt.");
  if (!D.qrs.clipping_tested) addNote("The full scale of this recording is unknown, so clipping was not tested (give --full-scale).");
  if (hrv && !hrv.computed) addNote("HRV not computed: " + hrv.not_computed + ".");

  // ---- shared plot helpers ----------------------------------------------
  const plots = [];
  const widthOf = (id) => Math.max(300, document.getElementById(id).clientWidth);
  const axisFont = "12px system-ui, sans-serif";
  const axis = (extra) => Object.assign({ font: axisFont, stroke: "#667085", grid: { stroke: "#eef0f3", width: 1 }, ticks: { stroke: "#e4e7ec", width: 1 } }, extra);
  const timeAxis = axis({ values: (u, splits) => splits.map((v) => clock(v)) });

  // Window w (0-based) covers samples w*L .. (w+1)*L-1 of the excerpt; one
  // window covers the whole excerpt.
  const L = D.qrs.window_s * FS;
  const windowSpan = (w) => windows.length === 1
    ? [xMin, xMax + 1 / FS]
    : [(start + w * L) / FS, (start + (w + 1) * L) / FS];

  // ---- ECG ---------------------------------------------------------------
  let markersDrawn = 0;
  let overview = null, tach = null;  // follow the ECG's view once made
  function drawWindows(u) {
    const ctx = u.ctx, { left, top, width, height } = u.bbox;
    const x0 = u.scales.x.min, x1 = u.scales.x.max;
    const strip = Math.round(6 * devicePixelRatio);
    ctx.save();
    for (let w = 0; w < windows.length; w++) {
      const [a, b] = windowSpan(w);
      if (b < x0 || a > x1) continue;
      const pa = Math.max(left, u.valToPos(a, "x", true)), pb = Math.min(left + width, u.valToPos(b, "x", true));
      const g = windows[w];
      if (COLORS.tint[g]) { ctx.fillStyle = COLORS.tint[g]; ctx.fillRect(pa, top, pb - pa, height); }
      ctx.fillStyle = COLORS.grade[g] || "#999";
      ctx.fillRect(pa, top, Math.max(1, pb - pa - devicePixelRatio), strip);
    }
    ctx.restore();
  }
  function lowerBound(arr, v) {
    let lo = 0, hi = arr.length;
    while (lo < hi) { const mid = (lo + hi) >> 1; if (arr[mid] < v) lo = mid + 1; else hi = mid; }
    return lo;
  }
  function drawMarkers(u) {
    const ctx = u.ctx, { top, height } = u.bbox, dpr = devicePixelRatio;
    const x0 = u.scales.x.min, x1 = u.scales.x.max;
    const size = 5 * dpr, lift = 7 * dpr;
    let drawn = 0;
    const first = lowerBound(peakT, x0);
    const markerY = (i) => Math.min(Math.max(u.valToPos(peakV[i], "y", true) - lift, top + size + 8 * dpr), top + height);
    ctx.save();
    for (const [kind, colour] of [[BEAT, COLORS.beat], [ODD, COLORS.odd], [WIDE, COLORS.wide],
      [PREMATURE, COLORS.premature], [UNKNOWN, COLORS.unknown], [FP, COLORS.fp]]) {  // one path per colour
      ctx.fillStyle = colour;
      ctx.beginPath();
      for (let i = first; i < peakT.length && peakT[i] <= x1; i++) {
        if (peakKind[i] !== kind) continue;
        const px = u.valToPos(peakT[i], "x", true), py = markerY(i);
        ctx.moveTo(px - size, py - size * 1.4); ctx.lineTo(px + size, py - size * 1.4); ctx.lineTo(px, py); ctx.closePath();
        drawn++;
      }
      ctx.fill();
    }
    if (rrRemoved.size) {  // a cross above the beats the RR check removes
      ctx.strokeStyle = COLORS.rr; ctx.lineWidth = 1.5 * dpr;
      ctx.beginPath();
      for (let i = first; i < peakT.length && peakT[i] <= x1; i++) {
        if (!rrRemoved.has(i)) continue;
        const px = u.valToPos(peakT[i], "x", true), py = markerY(i) - size * 2.6;
        ctx.moveTo(px - size, py - size); ctx.lineTo(px + size, py + size);
        ctx.moveTo(px + size, py - size); ctx.lineTo(px - size, py + size);
      }
      ctx.stroke();
    }
    if (ref) {  // reference beats as ticks along the bottom; missed ones taller
      const base = top + height;
      for (let i = lowerBound(ref.time_s, x0); i < ref.time_s.length && ref.time_s[i] <= x1; i++) {
        const px = u.valToPos(ref.time_s[i], "x", true);
        const missed = !ref.matched[i];
        ctx.fillStyle = missed ? COLORS.fn : COLORS.ref;
        ctx.fillRect(px - dpr, base - (missed ? 16 : 8) * dpr, 2 * dpr, (missed ? 16 : 8) * dpr);
        if (u.scales.x.max - u.scales.x.min < 40) {
          ctx.font = (10 * dpr) + "px system-ui, sans-serif";
          ctx.fillText(ref.symbols[i], px + 3 * dpr, base - 3 * dpr);
        }
      }
    }
    ctx.restore();
    markersDrawn = drawn;
  }

  const ecg = new uPlot({
    width: widthOf("ecg"), height: 330,
    scales: { x: { time: false }, y: { range: () => yRange } },
    series: [{ label: "time", value: (u, v) => v == null ? "–" : clock(v) },
      { label: "ECG", stroke: COLORS.ecg, width: 1, points: { show: false }, value: (u, v) => v == null ? "–" : v.toFixed(3) + " mV" }],
    axes: [timeAxis, axis({ label: "mV", labelSize: 18, size: 48 })],
    cursor: { drag: { x: true, y: false, setScale: true }, points: { show: false } },
    legend: { show: true, live: true },
    hooks: { drawClear: [drawWindows], draw: [drawMarkers], setScale: [(u, key) => { if (key === "x") onView(); }] },
  }, [ecgX, ecgY], document.getElementById("ecg"));
  plots.push(ecg);
  // Open on the first 20 seconds: beats are visible one by one.
  ecg.batch(() => ecg.setScale("x", { min: xMin, max: Math.min(xMax, xMin + 20) }));

  // Overview: min/max envelope of the whole excerpt in buckets.
  const buckets = Math.min(N, 1600);
  const ovX = new Float64Array(buckets), ovLo = new Float32Array(buckets), ovHi = new Float32Array(buckets);
  for (let b = 0; b < buckets; b++) {
    const i0 = Math.floor(b * N / buckets), i1 = Math.max(i0 + 1, Math.floor((b + 1) * N / buckets));
    let lo = Infinity, hi = -Infinity;
    for (let i = i0; i < i1; i++) { const v = ecgY[i]; if (v < lo) lo = v; if (v > hi) hi = v; }
    ovX[b] = ecgX[i0]; ovLo[b] = lo; ovHi[b] = hi;
  }
  let overviewClick = true;
  overview = new uPlot({
    width: widthOf("overview"), height: 70,
    scales: { x: { time: false, min: xMin, max: xMax }, y: { range: () => yRange } },
    series: [{}, { stroke: "#98a2b3", width: 1 }, { stroke: "#98a2b3", width: 1 }],
    bands: [{ series: [2, 1], fill: "rgba(152,162,179,0.35)" }],
    axes: [axis({ size: 24, values: (u, s) => s.map(clock) }), { show: false, size: 48 }],
    legend: { show: false },
    cursor: { drag: { x: true, y: false, setScale: false }, points: { show: false }, y: false },
    hooks: {
      drawClear: [drawWindows],
      draw: [(u) => {
        const ctx = u.ctx, { top, height } = u.bbox;
        const a = u.valToPos(ecg.scales.x.min, "x", true), b = u.valToPos(ecg.scales.x.max, "x", true);
        ctx.save();
        ctx.fillStyle = "rgba(31,79,163,0.14)"; ctx.fillRect(a, top, Math.max(2, b - a), height);
        ctx.strokeStyle = "rgba(31,79,163,0.9)"; ctx.lineWidth = devicePixelRatio; ctx.strokeRect(a, top, Math.max(2, b - a), height);
        ctx.restore();
      }],
      setSelect: [(u) => {
        if (u.select.width > 2) {
          setView(u.posToVal(u.select.left, "x"), u.posToVal(u.select.left + u.select.width, "x"));
          overviewClick = false;
        }
        u.setSelect({ left: 0, width: 0, top: 0, height: 0 }, false);
      }],
    },
  }, [ovX, ovLo, ovHi], document.getElementById("overview"));
  plots.push(overview);
  overview.over.addEventListener("mousedown", () => { overviewClick = true; });
  overview.over.addEventListener("click", (e) => {
    if (!overviewClick) return;
    const rect = overview.over.getBoundingClientRect();
    centreOn(overview.posToVal(e.clientX - rect.left, "x"));
  });

  // View changes are applied once per animation frame, so wheel and key
  // bursts never queue up redraws.
  let pending = null;
  function setView(a, b) {
    const full = xMax - xMin;
    let span = Math.min(Math.max(b - a, 1), full);
    a = Math.max(xMin, Math.min(a, xMax - span));
    pending = [a, a + span];
    requestAnimationFrame(() => {
      if (!pending) return;
      const [lo, hi] = pending; pending = null;
      ecg.setScale("x", { min: lo, max: hi });
    });
  }
  const view = () => [ecg.scales.x.min, ecg.scales.x.max];
  function centreOn(t, span) {
    const [a, b] = view(); span = span || (b - a);
    setView(t - span / 2, t + span / 2);
  }
  function onView() {
    if (overview) overview.redraw(false);
    if (tach) tach.redraw(false);
    const span = ecg.scales.x.max - ecg.scales.x.min;
    for (const b of document.querySelectorAll(".toolbar [data-span]")) {
      const s = +b.dataset.span;
      b.classList.toggle("active", s === 0 ? span >= xMax - xMin - 1e-6 : Math.abs(span - s) < 1e-6);
    }
  }
  for (const b of document.querySelectorAll(".toolbar button")) {
    b.addEventListener("click", () => {
      const [a, c] = view(), mid = (a + c) / 2, span = c - a;
      if (b.dataset.span !== undefined) { const s = +b.dataset.span || (xMax - xMin); setView(mid - s / 2, mid + s / 2); }
      if (b.dataset.pan !== undefined) setView(a + 0.5 * span * b.dataset.pan, c + 0.5 * span * b.dataset.pan);
      if (b.dataset.zoom !== undefined) { const s = span * b.dataset.zoom; setView(mid - s / 2, mid + s / 2); }
    });
  }
  ecg.over.addEventListener("wheel", (e) => {
    e.preventDefault();
    const [a, b] = pending || view();
    const span = b - a;
    if (e.shiftKey || Math.abs(e.deltaX) > Math.abs(e.deltaY)) {
      const d = (e.shiftKey ? e.deltaY : e.deltaX) || e.deltaY;
      setView(a + Math.sign(d) * 0.15 * span, b + Math.sign(d) * 0.15 * span);
      return;
    }
    const rect = ecg.over.getBoundingClientRect();
    const t = ecg.posToVal(e.clientX - rect.left, "x");
    const f = e.deltaY < 0 ? 0.8 : 1.25;
    setView(t - (t - a) * f, t + (b - t) * f);
  }, { passive: false });
  document.addEventListener("keydown", (e) => {
    if (e.target.closest && e.target.closest("input, textarea")) return;
    const [a, b] = view(), span = b - a, mid = (a + b) / 2;
    if (e.key === "ArrowLeft") setView(a - 0.5 * span, b - 0.5 * span);
    else if (e.key === "ArrowRight") setView(a + 0.5 * span, b + 0.5 * span);
    else if (e.key === "+" || e.key === "=") setView(mid - span / 4, mid + span / 4);
    else if (e.key === "-") setView(mid - span, mid + span);
    else return;
    e.preventDefault();
  });

  // Legend of the ECG overlays.
  const legend = document.getElementById("ecg-legend");
  const tri = (c) => el("span", { class: "tri", style: "border-top: 9px solid " + c });
  const sw = (c) => el("span", { class: "sw", style: "background:" + c });
  legend.append(el("span", {}, tri(COLORS.beat), peakOk ? "detected beat, matched" : "detected R peak"));
  if (peakKind.includes(ODD)) legend.append(el("span", {}, tri(COLORS.odd), "shape unlike the average beat"));
  if (peakKind.includes(WIDE)) legend.append(el("span", {}, tri(COLORS.wide), "added beat: wide or unlike the average"));
  if (peakKind.includes(PREMATURE)) legend.append(el("span", {}, tri(COLORS.premature), "added beat: premature"));
  if (peakKind.includes(UNKNOWN)) legend.append(el("span", {}, tri(COLORS.unknown), "added beat: unknown"));
  if (peakOk) legend.append(el("span", {}, tri(COLORS.fp), "false detection"));
  if (rrRemoved.size) legend.append(el("span", {}, el("b", { style: "color:" + COLORS.rr + ";margin-right:0.35rem" }, "×"), "extra beat by the RR check"));
  if (ref) {
    legend.append(el("span", {}, sw(COLORS.ref), "reference beat"));
    legend.append(el("span", {}, sw(COLORS.fn), "missed reference beat"));
  }
  for (const g of [0, 3, 5, 6]) {
    if (windows.includes(g)) legend.append(el("span", {}, sw(COLORS.grade[g]), "window " + GRADE_TEXT[g]));
  }

  // ---- tachogram -----------------------------------------------------------
  if (peaks.length > 1) {
    const tx = new Float64Array(peaks.length - 1), ty = new Float64Array(peaks.length - 1);
    for (let i = 1; i < peaks.length; i++) { tx[i - 1] = peakT[i]; ty[i - 1] = (peaks[i] - peaks[i - 1]) / FS * 1e3; }
    tach = new uPlot({
      width: widthOf("tachogram"), height: 260,
      scales: { x: { time: false, min: xMin, max: xMax } },
      series: [{ label: "time", value: (u, v) => v == null ? "–" : clock(v) },
        { label: "RR", stroke: COLORS.beat, width: 1, points: { show: peaks.length < 1500, size: 4, fill: COLORS.beat },
          value: (u, v) => v == null ? "–" : v.toFixed(0) + " ms" }],
      axes: [timeAxis, axis({ label: "RR (ms)", labelSize: 18, size: 52 })],
      cursor: { drag: { x: false, y: false }, points: { size: 7 } },
      hooks: {
        draw: [(u) => {
          const ctx = u.ctx, { top, height } = u.bbox;
          const a = u.valToPos(ecg.scales.x.min, "x", true), b = u.valToPos(ecg.scales.x.max, "x", true);
          ctx.save(); ctx.fillStyle = "rgba(31,79,163,0.10)"; ctx.fillRect(a, top, Math.max(2, b - a), height); ctx.restore();
        }],
      },
    }, [tx, ty], document.getElementById("tachogram"));
    tach.over.addEventListener("click", () => { const i = tach.cursor.idx; if (i != null) centreOn(tx[i], 10); });
    plots.push(tach);
  } else {
    document.getElementById("tachogram").append(el("p", { class: "muted" }, "Fewer than two R peaks: no intervals."));
  }

  // ---- periodogram -----------------------------------------------------------
  const BANDS = [["ULF", 0, 0.0033, "ulf_pwr"], ["VLF", 0.0033, 0.04, "vlf_pwr"], ["LF", 0.04, 0.15, "lf_pwr"], ["HF", 0.15, 0.4, "hf_pwr"]];
  const pg = D.periodogram;
  if (pg && pg.frequency_hz.length > 1) {
    const px = Float64Array.from(pg.frequency_hz), py = Float64Array.from(pg.amplitude, (a) => a * a * 1e6);
    const bandHook = (u) => {
      const ctx = u.ctx, { top, height } = u.bbox, dpr = devicePixelRatio;
      ctx.save();
      BANDS.forEach(([name, lo, hi], k) => {
        const a = u.valToPos(lo, "x", true), b = u.valToPos(hi, "x", true);
        ctx.fillStyle = COLORS.band[k]; ctx.fillRect(a, top, b - a, height);
        ctx.fillStyle = "#475467"; ctx.font = (11 * dpr) + "px system-ui, sans-serif";
        if (b - a > 22 * dpr) ctx.fillText(name, a + 4 * dpr, top + 13 * dpr);
      });
      ctx.restore();
    };
    plots.push(new uPlot({
      width: widthOf("periodogram"), height: 260,
      scales: { x: { time: false, min: 0, max: 0.4 } },
      series: [{ label: "frequency", value: (u, v) => v == null ? "–" : v.toFixed(4) + " Hz" },
        { label: "power", stroke: "#344054", width: 1.2, fill: "rgba(52,64,84,0.08)", points: { show: false },
          value: (u, v) => v == null ? "–" : num(v, 3) + " ms²" }],
      axes: [axis({ label: "Hz", labelSize: 18, values: (u, s) => s.map((v) => v.toFixed(2)) }),
        axis({ label: "amplitude² (ms²)", labelSize: 18, size: 60, values: (u, s) => s.map((v) => num(v, 3)) })],
      cursor: { drag: { x: true, y: false } },
      hooks: { drawClear: [bandHook] },
    }, [px, py], document.getElementById("periodogram")));
    const bl = document.getElementById("band-legend");
    BANDS.forEach(([name, lo, hi, key], k) => {
      const v = hrv.frequency_domain[key];
      bl.append(el("span", {}, sw(COLORS.band[k].replace(/[\d.]+\)$/, "0.6)")), name + " " + lo + "–" + hi + " Hz: " + num(v * 1e6, 4) + " ms²"));
    });
  } else {
    document.getElementById("periodogram").append(el("p", { class: "muted" }, "No periodogram: HRV was not computed."));
  }

  // ---- table of all figures ----------------------------------------------------
  const rows = [];
  const section = (name) => rows.push(["section", name]);
  const row = (key, label, value, unit, extra) => rows.push([key, label, value, unit || "", extra || ""]);
  section("Recording");
  row("", "file", rec.path);
  row("", "record", rec.name);
  row("", "format", rec.format);
  row("", "lead", rec.lead.index + (rec.lead.name ? " (" + rec.lead.name + ")" : "") + " of " + rec.leads.length);
  row("", "sampling rate", num(rec.sampling_rate_hz, 6), "Hz", rec.resampled_to_200hz ? "resampled to 200 Hz" : "");
  row("", "duration", clock(rec.duration_s), "", rec.samples + " samples");
  row("", "full scale", rec.full_scale != null ? num(rec.full_scale, 4) : "unknown", rec.full_scale != null ? rec.units : "", rec.full_scale_source || "");
  section("R-peak detection");
  const q = D.qrs;
  row("", "excerpt", clock(q.excerpt.start_s) + " – " + clock(q.excerpt.start_s + q.excerpt.duration_s), "", q.excerpt.samples_200hz + " samples at 200 Hz");
  row("error", "status", String(q.status), "", q.status_text);
  row("hr", "heart rate", q.heart_rate_bpm != null ? fixed(q.heart_rate_bpm, 0) : "–", "bpm",
    q.rejected_heart_rate_bpm != null ? "computed " + num(q.rejected_heart_rate_bpm) + " bpm lies outside 30–220" : "median RR interval");
  row("rpeaks", "R peaks", String(q.r_peaks.count), "", labels ? "every beat" : "the normal-shaped beats (--beats normal)");
  if (labels) {
    const c = q.r_peaks.label_counts;
    row("", "beats by label", c.normal + " normal", "", c.wide + " wide, " + c.premature + " premature, " + c.unknown +
      " unknown (added to the normal-shaped beats)");
  }
  row("", "unlike the average beat", String(review.classes.filter((c) => c === 0).length), "",
    "beat classification: QRS correlation with the average beat below 0.7");
  row("", "extra beats by the RR check", String(rrRemoved.size), "", "both beats of an implausibly short RR interval, unless normal in shape");
  row("", "excerpt grade", String(q.excerpt_grade), "", q.excerpt_grade_text + (q.clipping_tested ? "" : " (clipping not tested)"));
  const gradeCounts = {};
  for (const g of windows) gradeCounts[g] = (gradeCounts[g] || 0) + 1;
  row("qualities", "windows", String(windows.length), "", Object.entries(gradeCounts).map(([g, n]) => n + " " + GRADE_TEXT[g]).join(", ") + " · " + q.window_s + " s each");
  if (hrv) {
    section("HRV, time domain");
    row("error", "HRV status", String(hrv.status), "", hrv.status_text + (hrv.computed ? "" : " · " + hrv.not_computed));
    if (hrv.intervals != null) {
      row("", "NN intervals", String(hrv.intervals - hrv.excluded_intervals), "", "of " + hrv.intervals +
        " RR intervals; " + hrv.excluded_intervals + " left out next to a beat not labelled normal");
    }
    const TL = { nn_rr: "NN/RR ratio", avnn: "mean NN interval", sdnn: "SD of NN intervals", sdann: "SD of 5-minute means",
      sdnnidx: "mean of 5-minute SDs", rmssd: "RMS of successive differences", pnn50: "successive differences > 50 ms" };
    for (const [k, label] of Object.entries(TL)) {
      const v = hrv.time_domain[k], u = hrv.units[k];
      const note = k === "sdann" && v === 0 ? "not formed: needs two 5-minute segments"
        : v == null ? "" : u === "s" ? fixed(v * 1e3, 1) + " ms" : u === "fraction" ? fixed(v * 100, 2) + " %" : "";
      row(k, label, v == null ? "–" : num(v, 6), u === "fraction" ? "" : u, note);
    }
    section("HRV, frequency domain (Lomb periodogram)");
    const FL = { tot_pwr: "total power, 0–0.4 Hz", ulf_pwr: "ULF power, 0–0.0033 Hz", vlf_pwr: "VLF power, 0.0033–0.04 Hz",
      lf_pwr: "LF power, 0.04–0.15 Hz", hf_pwr: "HF power, 0.15–0.4 Hz", lf_hf: "LF/HF ratio" };
    for (const [k, label] of Object.entries(FL)) {
      const v = hrv.frequency_domain[k], u = hrv.units[k];
      row(k, label, v == null ? "–" : num(v, 6), u === "ratio" ? "" : "s²", v == null || u === "ratio" ? "" : num(v * 1e6, 5) + " ms²");
    }
  }
  if (D.validation) {
    const v = D.validation;
    section("Comparison with reference beats (match within 150 ms)");
    row("", "annotations", v.annotations);
    row("", "reference beats", String(v.reference_beats));
    row("", "true positives", String(v.tp));
    row("", "false negatives", String(v.fn), "", "missed reference beats");
    row("", "false positives", String(v.fp), "", "detections without a reference beat");
    row("", "sensitivity", fixed(100 * v.sensitivity, 2), "%");
    row("", "positive predictivity", fixed(100 * v.positive_predictivity, 2), "%");
    row("", "F1", fixed(100 * v.f1, 2), "%");
    row("", "mean timing error", fixed(v.mean_abs_offset_ms, 1), "ms", "of matched beats");
  }
  const table = el("table", { class: "figures" });
  table.append(el("thead", {}, el("tr", {}, el("th", {}, "field"), el("th", {}, "figure"), el("th", {}, "value"), el("th", {}, "unit"), el("th", {}, ""))));
  const tbody = el("tbody");
  for (const r of rows) {
    if (r[0] === "section") { tbody.append(el("tr", {}, el("th", { class: "section", colspan: "5" }, r[1]))); continue; }
    tbody.append(el("tr", {}, el("td", { class: "key" }, r[0]), el("td", {}, r[1]), el("td", { class: "num" }, r[2]), el("td", {}, r[3]), el("td", { class: "muted" }, r[4])));
  }
  table.append(tbody);
  document.getElementById("figures").append(table);

  // ---- resizing ---------------------------------------------------------------
  let resizeQueued = false;
  window.addEventListener("resize", () => {
    if (resizeQueued) return;
    resizeQueued = true;
    requestAnimationFrame(() => {
      resizeQueued = false;
      for (const u of plots) u.setSize({ width: widthOf(u.root.parentElement.id), height: u.height });
    });
  });
  onView();

  // A handle for scripts that examine the page (the browser test and
  // tools/report/bench-report.sh add tools/report/selftest.js to a copy of
  // the report; reports themselves carry no test code).
  window.keloReport = {
    plots, ecg, overview, tach, setView, view, xMin, xMax,
    samples: N,  // decoded from the page's data
    markersDrawn: () => markersDrawn,
    addedBeats: peakKind.filter((k) => k >= WIDE).length,  // marked by their labels
    buildMs: +(performance.now() - t0).toFixed(1),
  };
})();
