// The report page: reads the analysis from #kelo-data and the ECG from
// #kelo-ecg and draws them. Everything runs from this one file; nothing is
// fetched.
//
// The ECG is kept as it came, in one-minute chunks of difference code, and
// a chunk is decoded only when a view needs it (a small cache keeps the
// recent ones), so the page opens as fast for a day as for ten minutes.
// Views wider than 30 minutes are drawn from the per-second envelope.
(function () {
  "use strict";
  // Milestones of building the page (ms from the script's start).
  const scriptStart = performance.now(), marks = {};
  const mark = (name) => { marks[name] = +(performance.now() - scriptStart).toFixed(1); };
  const D = JSON.parse(document.getElementById("kelo-data").textContent);
  const ECG_TEXT = document.getElementById("kelo-ecg").textContent;
  const E = D.ecg, FS = E.fs, START = E.start, N = E.length;
  const xMin = START / FS, xMax = (START + N) / FS;  // the excerpt, in seconds of the recording
  const COLORS = {
    ecg: "#1d2433", beat: "#1f4fa3", fp: "#d92d20", fn: "#f79009", ref: "#12b76a", odd: "#9e44c9", rr: "#7a271a",
    wide: "#e04f16", premature: "#0e9384", unknown: "#667085",
    hr: "#b42318", grid: "#eef0f3", axis: "#667085", view: "rgba(31,79,163,0.14)", viewLine: "rgba(31,79,163,0.9)",
    grade: { 0: "rgba(18,183,106,0.55)", 3: "rgba(138,148,166,0.75)", 5: "rgba(217,45,32,0.7)", 6: "rgba(247,144,9,0.75)" },
    tint: { 3: "rgba(138,148,166,0.10)", 5: "rgba(217,45,32,0.08)", 6: "rgba(247,144,9,0.09)" },
    band: ["rgba(138,148,166,0.16)", "rgba(46,144,250,0.12)", "rgba(18,183,106,0.13)", "rgba(247,144,9,0.14)"],
  };
  const GRADE_TEXT = { 0: "usable", 3: "too few beats", 5: "clipped", 6: "irregular" };
  const FONT = "12px system-ui, sans-serif";

  // ---- formatting ----------------------------------------------------------
  const el = (tag, attrs, ...kids) => {
    const e = document.createElement(tag);
    for (const [k, v] of Object.entries(attrs || {})) {
      if (k === "class") e.className = v; else if (k === "style") e.style.cssText = v; else e.setAttribute(k, v);
    }
    for (const k of kids) if (k != null) e.append(k);
    return e;
  };
  const num = (v, digits = 4) => {
    if (v == null || !isFinite(v)) return "–";
    if (Math.abs(v) >= Math.pow(10, digits) && Math.abs(v) < 1e9) return Number(v).toFixed(0);
    return Number(v).toPrecision(digits).replace(/\.?0+(e|$)/, "$1");
  };
  const fixed = (v, d) => (v == null || !isFinite(v)) ? "–" : Number(v).toFixed(d);
  // m:ss or h:mm:ss, with a tenth of a second when it is not whole.
  const clock = (s, tenths) => {
    const neg = s < 0; s = Math.abs(s);
    const h = Math.floor(s / 3600), m = Math.floor((s % 3600) / 60), r = s - 3600 * h - 60 * m;
    const sec = (tenths === false || Math.abs(r - Math.round(r)) < 1e-6) ? String(Math.round(r)).padStart(2, "0")
      : (Math.floor(r * 10) / 10).toFixed(1).padStart(4, "0");
    return (neg ? "-" : "") + (h ? h + ":" + String(m).padStart(2, "0") : String(m)) + ":" + sec;
  };
  const spanText = (a, b) => clock(a) + " to " + clock(b);

  // ---- decoding --------------------------------------------------------------
  function bytes(b64) {
    const bin = atob(b64);
    const out = new Uint8Array(bin.length);
    for (let i = 0; i < bin.length; i++) out[i] = bin.charCodeAt(i);
    return out;
  }
  const typed = (b64, Type) => {
    if (!b64) return new Type(0);
    const u = bytes(b64);
    return new Type(u.buffer, 0, u.byteLength / Type.BYTES_PER_ELEMENT);
  };

  // Chunk k of the ECG in mV (decoded on first use; the 240 most recently
  // used are kept).
  const CHUNKS = E.offsets.length - 1;
  const decoded = new Array(CHUNKS), usedAt = new Float64Array(CHUNKS);
  let chunksDecoded = 0, inCache = 0, clockTick = 0;
  function chunk(k) {
    usedAt[k] = ++clockTick;
    if (decoded[k]) return decoded[k];
    const code = bytes(ECG_TEXT.slice(E.offsets[k], E.offsets[k + 1]));
    const n = Math.min(E.chunk, N - k * E.chunk);
    const c = new Float32Array(n);
    let v = 0, p = 0;
    for (let i = 0; i < n; i++) {
      let d = code[p++];
      if (d === 128) { d = code[p] | code[p + 1] << 8 | code[p + 2] << 16 | code[p + 3] << 24; p += 4; }
      else if (d > 127) d -= 256;
      v += d;
      c[i] = v * E.step_mv;
    }
    if (++inCache > 240) {
      let oldest = -1;
      for (let j = 0; j < CHUNKS; j++) if (decoded[j] && j !== k && (oldest < 0 || usedAt[j] < usedAt[oldest])) oldest = j;
      decoded[oldest] = undefined;
      inCache--;
    }
    chunksDecoded++;
    return (decoded[k] = c);
  }
  const sampleAt = (i) => { const k = Math.floor(i / E.chunk); return chunk(k)[i - k * E.chunk]; };
  // Calls fn(samples, from, to, offset) for the pieces of chunks that hold
  // samples i0 .. i1 - 1 (offset: the excerpt index of samples[0]).
  function eachPiece(i0, i1, fn) {
    for (let k = Math.floor(i0 / E.chunk); k * E.chunk < i1; k++) {
      const base = k * E.chunk, c = chunk(k);
      fn(c, Math.max(0, i0 - base), Math.min(c.length, i1 - base), base);
    }
  }
  mark("data");
  const envelope = typed(E.envelope, Int32Array);  // lowest and highest step of every second
  const SECONDS = envelope.length / 2;

  // A fixed vertical range that the trace does not leave often: it does not
  // jump while moving.
  const yRange = (() => {
    const lo = [], hi = [];
    const step = Math.max(1, Math.floor(SECONDS / 20000));
    for (let s = 0; s < SECONDS; s += step) { lo.push(envelope[2 * s]); hi.push(envelope[2 * s + 1]); }
    lo.sort((a, b) => a - b); hi.sort((a, b) => a - b);
    const a = lo[Math.floor(0.02 * (lo.length - 1))] * E.step_mv, b = hi[Math.ceil(0.98 * (hi.length - 1))] * E.step_mv;
    const span = Math.max(b - a, 0.5);
    return [a - 0.15 * span, b + 0.3 * span];
  })();

  // ---- beats -------------------------------------------------------------------
  // Each beat is a record: its sample (200 Hz, whole recording), its time
  // and its marker kind; labels, when the analysis gives them, go beside.
  const beatS = typed(D.beats.sample, Int32Array);
  const BEATS = beatS.length;
  const beatT = Float64Array.from(beatS, (s) => s / FS);
  const classes = typed(D.review.classes, Uint8Array);
  const rrRemoved = new Set(D.review.rr_removed);
  const detMatched = D.detection_matched ? typed(D.detection_matched, Uint8Array) : null;
  // With all beats, the label of each (1 normal, 2 wide, 3 premature,
  // 4 unknown); null with the normal-shaped beats alone.
  const labels = D.beats.label ? typed(D.beats.label, Uint8Array) : null;
  // Marker kind of each beat: a false detection (with references) first,
  // then the label of a beat that is not normal, then a shape unlike the
  // average beat, else the plain beat.
  const BEAT = 0, ODD = 1, FP = 2, WIDE = 3, PREMATURE = 4, UNKNOWN = 5;
  const LABEL_KIND = { 2: WIDE, 3: PREMATURE, 4: UNKNOWN };
  const beatKind = new Uint8Array(BEATS);
  for (let i = 0; i < BEATS; i++) {
    beatKind[i] = (detMatched && !detMatched[i]) ? FP : (labels && LABEL_KIND[labels[i]]) || (classes[i] === 0 ? ODD : BEAT);
  }
  const KINDS = [[BEAT, COLORS.beat], [ODD, COLORS.odd], [WIDE, COLORS.wide], [PREMATURE, COLORS.premature],
    [UNKNOWN, COLORS.unknown], [FP, COLORS.fp]];
  const kindCount = new Array(KINDS.length).fill(0);
  for (let i = 0; i < BEATS; i++) kindCount[beatKind[i]]++;
  const ref = D.reference && {
    t: Float64Array.from(typed(D.reference.ms, Int32Array), (ms) => ms / 1000),
    symbols: D.reference.symbols, matched: typed(D.reference.matched, Uint8Array),
  };
  function lowerBound(arr, v) {
    let lo = 0, hi = arr.length;
    while (lo < hi) { const mid = (lo + hi) >> 1; if (arr[mid] < v) lo = mid + 1; else hi = mid; }
    return lo;
  }

  mark("beats");
  // ---- header, cards, notes ------------------------------------------------------
  const rec = D.recording, q = D.qrs, hrv = D.hrv;
  const segs = (hrv && hrv.five_minute_segments) ? hrv.five_minute_segments.segments : [];
  const hours = (hrv && hrv.hours) || [];
  document.getElementById("title").textContent = D.title;
  document.getElementById("subtitle").textContent =
    rec.path + " · " + rec.format + " · " + num(rec.sampling_rate_hz, 6) + " Hz" +
    (rec.resampled_to_200hz ? " (resampled to 200 Hz)" : "") + " · lead " + rec.lead.index +
    (rec.lead.name ? " " + rec.lead.name : "") + " · " + clock(rec.duration_s);
  document.getElementById("generated").textContent = "keloecg " + D.version + " · " + D.generated;
  document.getElementById("footer").textContent =
    "Excerpt " + spanText(xMin, xMax) + " of the recording, analysed at 200 Hz (" +
    (q.detection.segments > 1 ? "detected in " + q.detection.segments + " overlapping segments of " + clock(q.detection.segment_s)
      : "detected in one pass") + "). Sample numbers are 0-based in the whole recording.";
  document.getElementById("overview-span").textContent = spanText(xMin, xMax) + " · " + clock(xMax - xMin);

  const statusClass = (s) => s === 0 ? "ok" : (s === 5 || s === 6 || s === 4) ? "warn" : "bad";
  const windows = q.window_grades;
  const usable = windows.filter((g) => g === 0).length;
  const over = "over " + clock(xMax - xMin);
  const cards = [
    ["Heart rate", q.heart_rate_bpm != null ? fixed(q.heart_rate_bpm, 0) : "–", "bpm", "median RR, " + over, ""],
    ["R peaks", String(BEATS), "", over, ""],
    ["Status", String(hrv ? hrv.status : q.status), "", hrv ? hrv.status_text : q.status_text, statusClass(hrv ? hrv.status : q.status)],
    ["Grade", q.excerpt_grade_text, "", "whole excerpt", q.excerpt_grade === 1 ? "ok" : "warn"],
    ["Windows", usable + "/" + windows.length, "", "usable · " + q.window_s + " s each", usable === windows.length ? "ok" : "warn"],
  ];
  if (hrv && hrv.computed) {
    const where = hrv.analysis === "long-term" ? "whole excerpt" : "bridge's 3-10 min";
    cards.push(["SDNN", fixed(hrv.time_domain.sdnn * 1e3, 1), "ms", where, ""]);
    cards.push(["RMSSD", fixed(hrv.time_domain.rmssd * 1e3, 1), "ms", where, ""]);
    cards.push(["LF/HF", num(hrv.frequency_domain.lf_hf, 3), "", where, ""]);
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
  if (q.excerpt.capped_to_10_minutes) addNote("--short: the Java bridge's HRV over 3 to 10 minutes; this report shows the first 10 minutes of the excerpt.");
  if (!q.clipping_tested) addNote("The full scale of this recording is unknown, so clipping was not tested (give --full-scale).");
  if (hrv && !hrv.computed) addNote("HRV not computed: " + hrv.not_computed + ".");

  // ---- canvases ------------------------------------------------------------------
  // A canvas sized to its box at the screen's pixel density; drawing is in
  // CSS pixels.
  function fitCanvas(canvas) {
    const dpr = window.devicePixelRatio || 1;
    const w = Math.max(300, canvas.clientWidth), h = canvas.clientHeight;
    if (canvas.width !== Math.round(w * dpr) || canvas.height !== Math.round(h * dpr)) {
      canvas.width = Math.round(w * dpr); canvas.height = Math.round(h * dpr);
    }
    const ctx = canvas.getContext("2d");
    ctx.setTransform(dpr, 0, 0, dpr, 0, 0);
    return { ctx, w, h };
  }
  // Tick spacing of a time axis: the smallest nice step at least `px` apart.
  function timeStep(span, width, px) {
    const steps = [0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, 86400];
    for (const s of steps) if (s / span * width >= px) return s;
    return steps[steps.length - 1] * Math.ceil(span / steps[steps.length - 1] / (width / px));
  }
  function timeAxis(ctx, x0, x1, left, width, y, height) {
    const step = timeStep(x1 - x0, width, 90);
    ctx.fillStyle = COLORS.axis; ctx.strokeStyle = COLORS.grid; ctx.font = FONT; ctx.textAlign = "center";
    ctx.beginPath();
    for (let t = Math.ceil(x0 / step) * step; t <= x1; t += step) {
      const x = Math.round(left + (t - x0) / (x1 - x0) * width) + 0.5;
      ctx.moveTo(x, y - height); ctx.lineTo(x, y);
      const label = clock(t, step < 1), half = ctx.measureText(label).width / 2;
      if (x - half >= left - 8 && x + half <= left + width + 8) ctx.fillText(label, x, y + 14);
    }
    ctx.stroke();
  }
  // Grade of every window as runs of one grade (a day has 8640 windows).
  const L = q.window_s * FS;
  const windowSpan = (w) => windows.length === 1 ? [xMin, xMax] : [(START + w * L) / FS, (START + (w + 1) * L) / FS];
  function gradeRuns(x0, x1) {
    const runs = [];
    const w0 = windows.length === 1 ? 0 : Math.max(0, Math.floor((x0 - xMin) * FS / L));
    for (let w = w0; w < windows.length; w++) {
      const [a, b] = windowSpan(w);
      if (a > x1) break;
      const last = runs[runs.length - 1];
      if (last && last.g === windows[w] && Math.abs(last.b - a) < 1e-9) last.b = b; else runs.push({ g: windows[w], a, b });
    }
    return runs;
  }

  // ---- the view --------------------------------------------------------------------
  let view = [xMin, Math.min(xMax, xMin + 20)];
  const ecgCanvas = document.getElementById("ecg");
  const ECG_PAD = { left: 52, right: 10, top: 14, bottom: 24 };
  let markersDrawn = 0;
  let drag = null;  // [t at mouse down, current t] while dragging on the trace

  // The trace between x0 and x1: samples one by one when few enough, the
  // lowest and highest sample of each pixel column from the decoded
  // samples up to 30 minutes, from the envelope beyond.
  function drawTrace(ctx, x0, x1, left, top, width, height) {
    const y = (v) => top + (yRange[1] - v) / (yRange[1] - yRange[0]) * height;
    const i0 = Math.max(0, Math.floor(x0 * FS - START)), i1 = Math.min(N - 1, Math.ceil(x1 * FS - START));
    const perPixel = (i1 - i0) / width;
    ctx.strokeStyle = COLORS.ecg; ctx.lineWidth = 1;
    ctx.beginPath();
    if (perPixel <= 2) {
      let first = true;
      eachPiece(i0, i1 + 1, (c, a, b, base) => {
        for (let j = a; j < b; j++) {
          const px = left + ((base + j + START) / FS - x0) / (x1 - x0) * width, py = y(c[j]);
          if (first) { ctx.moveTo(px, py); first = false; } else ctx.lineTo(px, py);
        }
      });
    } else if (i1 - i0 <= 30 * 60 * FS) {
      // Lowest and highest sample of each pixel column.
      const lo = new Float32Array(width).fill(Infinity), hi = new Float32Array(width).fill(-Infinity);
      eachPiece(i0, i1 + 1, (c, a, b, base) => {
        for (let j = a; j < b; j++) {
          const col = Math.min(width - 1, Math.floor((base + j - i0) / perPixel)), v = c[j];
          if (v < lo[col]) lo[col] = v;
          if (v > hi[col]) hi[col] = v;
        }
      });
      for (let col = 0; col < width; col++) {
        if (lo[col] <= hi[col]) { ctx.moveTo(left + col + 0.5, y(hi[col])); ctx.lineTo(left + col + 0.5, y(lo[col]) + 0.5); }
      }
    } else {
      drawEnvelope(ctx, x0, x1, left, width, y);
    }
    ctx.stroke();
  }
  function drawEnvelope(ctx, x0, x1, left, width, y) {
    for (let c = 0; c < width; c++) {
      const s0 = Math.max(0, Math.floor(x0 + (x1 - x0) * c / width - xMin));
      const s1 = Math.min(SECONDS, Math.max(s0 + 1, Math.ceil(x0 + (x1 - x0) * (c + 1) / width - xMin)));
      let lo = Infinity, hi = -Infinity;
      for (let s = s0; s < s1; s++) { if (envelope[2 * s] < lo) lo = envelope[2 * s]; if (envelope[2 * s + 1] > hi) hi = envelope[2 * s + 1]; }
      if (lo <= hi) { ctx.moveTo(left + c + 0.5, y(hi * E.step_mv)); ctx.lineTo(left + c + 0.5, y(lo * E.step_mv) + 0.5); }
    }
  }
  // Markers of the beats in view: a triangle over each R peak while they
  // can be told apart, else a tick along the top; a cross over the beats
  // the RR check removes; reference beats along the bottom.
  function drawBeats(ctx, x0, x1, left, top, width, height) {
    const X = (t) => left + (t - x0) / (x1 - x0) * width;
    const y = (v) => top + (yRange[1] - v) / (yRange[1] - yRange[0]) * height;
    const first = lowerBound(beatT, x0), last = lowerBound(beatT, x1 + 1e-9);
    const few = last - first <= width / 6 && (x1 - x0) <= 30 * 60;
    // Many beats: one tick per pixel column and kind.
    const marked = few ? null : KINDS.map(() => new Uint8Array(width + 1));
    let drawn = 0;
    for (const [kind, colour] of KINDS) {
      ctx.fillStyle = colour;
      ctx.beginPath();
      for (let i = first; i < last; i++) {
        if (beatKind[i] !== kind) continue;
        const px = X(beatT[i]);
        drawn++;
        if (few) {
          const py = Math.min(Math.max(y(sampleAt(beatS[i] - START)) - 7, top + 13), top + height);
          ctx.moveTo(px - 5, py - 7); ctx.lineTo(px + 5, py - 7); ctx.lineTo(px, py); ctx.closePath();
        } else {
          const col = Math.max(0, Math.min(width, Math.round(px - left)));
          if (marked[kind][col]) continue;
          marked[kind][col] = 1;
          ctx.rect(left + col - 0.5, top + (kind === BEAT ? 0 : 8), 1, 7);
        }
      }
      ctx.fill();
    }
    if (rrRemoved.size && few) {
      ctx.strokeStyle = COLORS.rr; ctx.lineWidth = 1.5;
      ctx.beginPath();
      for (let i = first; i < last; i++) {
        if (!rrRemoved.has(i)) continue;
        const px = X(beatT[i]), py = top + 6;
        ctx.moveTo(px - 4, py - 4); ctx.lineTo(px + 4, py + 4); ctx.moveTo(px + 4, py - 4); ctx.lineTo(px - 4, py + 4);
      }
      ctx.stroke();
    }
    if (ref) {
      const base = top + height;
      for (let i = lowerBound(ref.t, x0); i < ref.t.length && ref.t[i] <= x1; i++) {
        const missed = !ref.matched[i];
        ctx.fillStyle = missed ? COLORS.fn : COLORS.ref;
        ctx.fillRect(X(ref.t[i]) - 1, base - (missed ? 16 : 8), 2, missed ? 16 : 8);
        if (x1 - x0 < 40) { ctx.font = "10px system-ui, sans-serif"; ctx.fillText(ref.symbols[i], X(ref.t[i]) + 3, base - 3); }
      }
    }
    return drawn;
  }
  function drawEcg() {
    const { ctx, w, h } = fitCanvas(ecgCanvas);
    const [x0, x1] = view;
    const left = ECG_PAD.left, top = ECG_PAD.top, width = w - ECG_PAD.left - ECG_PAD.right, height = h - ECG_PAD.top - ECG_PAD.bottom;
    ctx.clearRect(0, 0, w, h);
    ctx.save();
    ctx.beginPath(); ctx.rect(left, 0, width, h); ctx.clip();
    for (const r of gradeRuns(x0, x1)) {
      const a = Math.max(left, left + (r.a - x0) / (x1 - x0) * width), b = Math.min(left + width, left + (r.b - x0) / (x1 - x0) * width);
      if (COLORS.tint[r.g]) { ctx.fillStyle = COLORS.tint[r.g]; ctx.fillRect(a, top, b - a, height); }
      ctx.fillStyle = COLORS.grade[r.g] || "#999";
      ctx.fillRect(a, 0, Math.max(1, b - a - 1), 5);
    }
    timeAxis(ctx, x0, x1, left, width, top + height, height);
    drawTrace(ctx, x0, x1, left, top, width, height);
    markersDrawn = drawBeats(ctx, x0, x1, left, top, width, height);
    if (drag) {
      const a = left + (Math.min(drag[0], drag[1]) - x0) / (x1 - x0) * width, b = left + (Math.max(drag[0], drag[1]) - x0) / (x1 - x0) * width;
      ctx.fillStyle = COLORS.view; ctx.fillRect(a, top, b - a, height);
    }
    ctx.restore();
    // Amplitude axis.
    ctx.fillStyle = COLORS.axis; ctx.font = FONT; ctx.textAlign = "right";
    const yStep = [0.1, 0.2, 0.5, 1, 2, 5].find((s) => s / (yRange[1] - yRange[0]) * height >= 30) || 10;
    for (let v = Math.ceil(yRange[0] / yStep) * yStep; v <= yRange[1]; v += yStep) {
      ctx.fillText(num(v, 3), left - 6, top + (yRange[1] - v) / (yRange[1] - yRange[0]) * height + 4);
    }
    ctx.save(); ctx.translate(12, top + height / 2); ctx.rotate(-Math.PI / 2); ctx.textAlign = "center"; ctx.fillText("mV", 0, 0); ctx.restore();
    document.getElementById("view-span").textContent = spanText(x0, x1) + " · " + clock(x1 - x0) + " in view";
  }

  // ---- overview ------------------------------------------------------------------------
  // Heart-rate trend, grade timeline, where the beats unlike the average
  // beat are (and, with references, false and missed detections) and the
  // ECG's envelope, over the whole excerpt: drawn once into a buffer, the
  // view marked over it on every change.
  const ovCanvas = document.getElementById("overview");
  const OV = { left: 52, right: 10, hr: [6, 70], grade: [84, 12], odd: [104, 22], ecg: [134, 44] };
  let ovBuffer = null;
  const hrTrend = (() => {
    // Mean RR of the intervals that end in each bin, as beats per minute.
    const bins = Math.max(1, Math.min(2000, Math.ceil((xMax - xMin) / 10)));
    const sum = new Float64Array(bins), count = new Uint32Array(bins);
    for (let i = 1; i < BEATS; i++) {
      const b = Math.min(bins - 1, Math.floor((beatT[i] - xMin) / (xMax - xMin) * bins));
      sum[b] += beatT[i] - beatT[i - 1]; count[b]++;
    }
    const hr = Float64Array.from(sum, (s, b) => count[b] ? 60 * count[b] / s : NaN);
    const sorted = Array.from(hr).filter(isFinite).sort((a, b) => a - b);
    const lo = sorted.length ? sorted[Math.floor(0.01 * (sorted.length - 1))] : 40, hi = sorted.length ? sorted[Math.ceil(0.99 * (sorted.length - 1))] : 120;
    return { hr, bins, lo: Math.max(0, Math.floor((lo - 5) / 10) * 10), hi: Math.ceil((hi + 5) / 10) * 10 };
  })();
  function drawOverviewBuffer() {
    const w = Math.max(300, ovCanvas.clientWidth), h = ovCanvas.clientHeight, dpr = window.devicePixelRatio || 1;
    ovBuffer = document.createElement("canvas");
    ovBuffer.width = Math.round(w * dpr); ovBuffer.height = Math.round(h * dpr);
    const ctx = ovBuffer.getContext("2d");
    ctx.setTransform(dpr, 0, 0, dpr, 0, 0);
    const left = OV.left, width = w - OV.left - OV.right;
    const X = (t) => left + (t - xMin) / (xMax - xMin) * width;
    timeAxis(ctx, xMin, xMax, left, width, h - 20, h - 26);
    ctx.fillStyle = COLORS.axis; ctx.font = FONT; ctx.textAlign = "right";
    // Heart rate.
    const [hrTop, hrH] = OV.hr, T = hrTrend;
    const Y = (v) => hrTop + (T.hi - v) / (T.hi - T.lo) * hrH;
    ctx.fillText(T.hi + " bpm", left - 4, hrTop + 9); ctx.fillText(String(T.lo), left - 4, hrTop + hrH);
    ctx.strokeStyle = COLORS.hr; ctx.lineWidth = 1.2; ctx.beginPath();
    let pen = false;
    for (let b = 0; b < T.bins; b++) {
      const v = T.hr[b];
      if (!isFinite(v)) { pen = false; continue; }
      const px = X(xMin + (b + 0.5) * (xMax - xMin) / T.bins), py = Math.min(Math.max(Y(v), hrTop), hrTop + hrH);
      if (pen) ctx.lineTo(px, py); else ctx.moveTo(px, py);
      pen = true;
    }
    ctx.stroke();
    // Grades.
    const [gTop, gH] = OV.grade;
    ctx.fillText("grade", left - 4, gTop + 10);
    for (const r of gradeRuns(xMin, xMax)) { ctx.fillStyle = COLORS.grade[r.g] || "#999"; ctx.fillRect(X(r.a), gTop, Math.max(1, X(r.b) - X(r.a)), gH); }
    // Beats unlike the average beat, removed by the RR check, false and missed.
    const [oTop, oH] = OV.odd;
    ctx.fillStyle = COLORS.axis; ctx.fillText("beats", left - 4, oTop + 14);
    // One tick per pixel column and kind, however many beats fall there.
    const ticks = (colour, y0, hgt, times) => {
      const seen = new Uint8Array(Math.ceil(width) + 1);
      ctx.fillStyle = colour;
      ctx.beginPath();
      for (const t of times) {
        const col = Math.round(X(t) - left);
        if (col < 0 || col > width || seen[col]) continue;
        seen[col] = 1;
        ctx.rect(left + col, y0, 1, hgt);
      }
      ctx.fill();
    };
    function* beatsOf(kind) { for (let i = 0; i < BEATS; i++) if (beatKind[i] === kind) yield beatT[i]; }
    for (const [kind, colour] of KINDS) if (kind !== BEAT && kindCount[kind]) ticks(colour, oTop, oH / 2, beatsOf(kind));
    ticks(COLORS.rr, oTop + oH / 2, oH / 2, Array.from(rrRemoved, (i) => beatT[i]));
    if (ref) ticks(COLORS.fn, oTop + oH / 2, oH / 2, (function* () { for (let i = 0; i < ref.t.length; i++) if (!ref.matched[i]) yield ref.t[i]; })());
    // ECG envelope.
    const [eTop, eH] = OV.ecg;
    ctx.fillStyle = COLORS.axis; ctx.fillText("ECG", left - 4, eTop + eH / 2 + 4);
    ctx.strokeStyle = "#98a2b3"; ctx.lineWidth = 1; ctx.beginPath();
    drawEnvelope(ctx, xMin, xMax, left, width, (v) => eTop + (yRange[1] - v) / (yRange[1] - yRange[0]) * eH);
    ctx.stroke();
  }
  function drawOverview() {
    if (!ovBuffer || ovBuffer.width !== Math.round(Math.max(300, ovCanvas.clientWidth) * (window.devicePixelRatio || 1))) drawOverviewBuffer();
    const { ctx, w, h } = fitCanvas(ovCanvas);
    ctx.setTransform(1, 0, 0, 1, 0, 0);
    ctx.clearRect(0, 0, ovCanvas.width, ovCanvas.height);
    ctx.drawImage(ovBuffer, 0, 0);
    ctx.setTransform(window.devicePixelRatio || 1, 0, 0, window.devicePixelRatio || 1, 0, 0);
    const width = w - OV.left - OV.right;
    const a = OV.left + (view[0] - xMin) / (xMax - xMin) * width, b = OV.left + (view[1] - xMin) / (xMax - xMin) * width;
    ctx.fillStyle = COLORS.view; ctx.fillRect(a, 0, Math.max(2, b - a), h - 20);
    ctx.strokeStyle = COLORS.viewLine; ctx.lineWidth = 1; ctx.strokeRect(a, 0.5, Math.max(2, b - a), h - 21);
  }
  const ovTime = (clientX) => {
    const r = ovCanvas.getBoundingClientRect();
    return xMin + (clientX - r.left - OV.left) / (r.width - OV.left - OV.right) * (xMax - xMin);
  };
  let ovDown = null;
  ovCanvas.addEventListener("mousedown", (e) => { ovDown = ovTime(e.clientX); });
  window.addEventListener("mouseup", (e) => {
    if (ovDown == null) return;
    const t = ovTime(e.clientX);
    if (Math.abs(t - ovDown) * (ovCanvas.clientWidth / (xMax - xMin)) > 4) setView(Math.min(t, ovDown), Math.max(t, ovDown));
    else { const span = view[1] - view[0] < (xMax - xMin) ? view[1] - view[0] : 10; setView(t - span / 2, t + span / 2); }
    ovDown = null;
  });

  // ---- plots (uPlot) ---------------------------------------------------------------------
  const plots = [];
  const widthOf = (id) => Math.max(300, document.getElementById(id).clientWidth);
  const axis = (extra) => Object.assign({ font: FONT, stroke: COLORS.axis, grid: { stroke: COLORS.grid, width: 1 }, ticks: { stroke: "#e4e7ec", width: 1 } }, extra);
  const TIME_STEPS = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, 86400];
  const timeAxisOpts = axis({ incrs: TIME_STEPS, values: (u, splits) => splits.map((v) => clock(v, false)) });
  const BANDS = [["ULF", 0, 0.0033, "ulf_pwr"], ["VLF", 0.0033, 0.04, "vlf_pwr"], ["LF", 0.04, 0.15, "lf_pwr"], ["HF", 0.15, 0.4, "hf_pwr"]];
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
  // Intervals between the beats from index a to b (exclusive).
  function intervals(a, b) {
    const n = Math.max(0, b - a - 1), tx = new Float64Array(n), ty = new Float64Array(n);
    for (let i = 0; i < n; i++) { tx[i] = beatT[a + i + 1]; ty[i] = (beatS[a + i + 1] - beatS[a + i]) / FS * 1e3; }
    return [tx, ty];
  }
  function tachogram(id, data, x0, x1) {
    return new uPlot({
      width: widthOf(id), height: 240,
      scales: { x: { time: false, min: x0, max: x1 } },
      series: [{ label: "time", value: (u, v) => v == null ? "–" : clock(v) },
        { label: "RR", stroke: COLORS.beat, width: 1, points: { show: data[0].length < 1500, size: 4, fill: COLORS.beat },
          value: (u, v) => v == null ? "–" : v.toFixed(0) + " ms" }],
      axes: [timeAxisOpts, axis({ label: "RR (ms)", labelSize: 18, size: 52 })],
      cursor: { drag: { x: false, y: false }, points: { size: 7 } },
    }, data, document.getElementById(id));
  }
  // Power per line (ms^2): the largest of each group of lines when there
  // are more than the plot can show.
  function periodogramData(pg) {
    const amp = typed(pg.amp, Float32Array);
    const group = Math.max(1, Math.ceil(amp.length / 4000)), n = Math.ceil(amp.length / group);
    const px = new Float64Array(n), py = new Float64Array(n);
    for (let g = 0; g < n; g++) {
      let best = 0;
      for (let i = g * group; i < Math.min(amp.length, (g + 1) * group); i++) best = Math.max(best, amp[i] * amp[i] * 1e6);
      px[g] = pg.df * (g * group + 1); py[g] = best;
    }
    return [px, py];
  }
  function periodogram(id, data) {
    return new uPlot({
      width: widthOf(id), height: 240,
      scales: { x: { time: false, min: 0, max: 0.4 } },
      series: [{ label: "frequency", value: (u, v) => v == null ? "–" : v.toFixed(4) + " Hz" },
        { label: "power", stroke: "#344054", width: 1.2, fill: "rgba(52,64,84,0.08)", points: { show: false },
          value: (u, v) => v == null ? "–" : num(v, 3) + " ms²" }],
      axes: [axis({ label: "Hz", labelSize: 18, values: (u, s) => s.map((v) => v.toFixed(2)) }),
        axis({ label: "amplitude² (ms²)", labelSize: 18, size: 60, values: (u, s) => s.map((v) => num(v, 3)) })],
      cursor: { drag: { x: true, y: false } },
      hooks: { drawClear: [bandHook] },
    }, data, document.getElementById(id));
  }
  const sw = (c) => el("span", { class: "sw", style: "background:" + c });
  function bandLegend(id, figures) {
    const box = document.getElementById(id);
    box.textContent = "";
    BANDS.forEach(([name, lo, hi, key], k) => {
      const v = figures.frequency_domain[key];
      box.append(el("span", {}, sw(COLORS.band[k].replace(/[\d.]+\)$/, "0.6)")), name + " " + lo + "–" + hi + " Hz: " + (v == null ? "–" : num(v * 1e6, 4) + " ms²") +
        (key === "ulf_pwr" && !figures.ulf_meaningful ? " (not meaningful under an hour)" : "")));
    });
  }

  mark("before plots");
  let tach = null;
  if (BEATS > 1) {
    const data = intervals(0, BEATS);
    tach = tachogram("tachogram", data, xMin, xMax);
    tach.over.addEventListener("click", () => { const i = tach.cursor.idx; if (i != null) centreOn(data[0][i], 10); });
    plots.push(tach);
  } else {
    document.getElementById("tachogram").append(el("p", { class: "muted" }, "Fewer than two R peaks: no intervals."));
  }
  const tachMark = document.getElementById("tachogram-view");
  function markTachogram() {
    if (!tach) return;
    const a = tach.valToPos(Math.max(view[0], xMin), "x"), b = tach.valToPos(Math.min(view[1], xMax), "x");
    tachMark.style.left = (tach.over.offsetLeft + a) + "px";
    tachMark.style.width = Math.max(2, b - a) + "px";
    tachMark.style.top = tach.over.offsetTop + "px";
    tachMark.style.height = tach.over.clientHeight + "px";
  }
  if (D.periodogram) {
    plots.push(periodogram("periodogram", periodogramData(D.periodogram)));
    bandLegend("band-legend", hrv);
  } else {
    document.getElementById("periodogram").append(el("p", { class: "muted" }, "No periodogram: HRV was not computed."));
  }

  // The selected 5-minute segment: the one in the middle of the view.
  let segment = -1, segTach = null, segPg = null;
  const segmentPanels = document.getElementById("segment-panels");
  segmentPanels.hidden = segs.length === 0;
  function selectSegment() {
    if (!segs.length) return;
    const mid = (view[0] + view[1]) / 2;
    let k = segs.findIndex((s) => mid >= s.span.start_s && mid < s.span.end_s);
    if (k < 0) k = mid < segs[0].span.start_s ? 0 : segs.length - 1;
    if (k === segment) return;
    segment = k;
    const s = segs[k];
    for (const e of document.querySelectorAll(".segment-name")) e.textContent = "5-minute segment " + (k + 1) + " (" + spanText(s.span.start_s, s.span.end_s) + ")";
    const data = intervals(lowerBound(beatT, s.span.start_s), lowerBound(beatT, s.span.end_s));
    if (!segTach) { segTach = tachogram("segment-tachogram", data, s.span.start_s, s.span.end_s); plots.push(segTach); }
    else { segTach.setData(data, false); segTach.setScale("x", { min: s.span.start_s, max: s.span.end_s }); }
    const pg = D.segment_periodograms[k];
    const pdata = pg ? (pg.data = pg.data || periodogramData(pg)) : [new Float64Array(0), new Float64Array(0)];
    if (!segPg) { segPg = periodogram("segment-periodogram", pdata); plots.push(segPg); }
    else { segPg.setData(pdata, false); segPg.redraw(); }
    bandLegend("segment-band-legend", s);
    for (const row of document.querySelectorAll("#segments tr.selected")) row.classList.remove("selected");
    const row = document.querySelector('#segments tr[data-segment="' + k + '"]');
    if (row) row.classList.add("selected");
  }

  mark("plots");
  // ---- tables ----------------------------------------------------------------------------------
  function table(head, rows, onClick) {
    const t = el("table", { class: "figures" });
    t.append(el("thead", {}, el("tr", {}, ...head.map(([h, numeric]) => el("th", numeric ? { class: "num" } : {}, h)))));
    const body = el("tbody");
    rows.forEach((cells, k) => {
      const tr = el("tr", onClick ? { class: "clickable", "data-segment": String(k) } : {},
        ...cells.map((c, i) => el("td", head[i][1] ? { class: "num" } : {}, c)));
      if (onClick) tr.addEventListener("click", () => onClick(k));
      body.append(tr);
    });
    t.append(body);
    return t;
  }
  const ms = (v) => v == null ? "–" : fixed(v * 1e3, 1);
  const ms2 = (v) => v == null ? "–" : num(v * 1e6, 4);
  const pct = (v) => v == null ? "–" : fixed(v * 100, 2);
  if (hours.length) {
    document.getElementById("hours-panel").hidden = false;
    document.getElementById("hours").append(table(
      [["hour"], ["from"], ["to"], ["beats", 1], ["HR bpm", 1], ["SDNN ms", 1], ["RMSSD ms", 1], ["pNN50 %", 1], ["LF ms²", 1], ["HF ms²", 1], ["LF/HF", 1], ["status"]],
      hours.map((h, k) => [String(k + 1), clock(h.span.start_s), clock(h.span.end_s), String(h.r_peaks), num(h.heart_rate_bpm, 3),
        ms(h.time_domain.sdnn), ms(h.time_domain.rmssd), pct(h.time_domain.pnn50), ms2(h.frequency_domain.lf_pwr),
        ms2(h.frequency_domain.hf_pwr), num(h.frequency_domain.lf_hf, 3), h.computed ? String(h.status) : h.not_computed]),
      (k) => setView(hours[k].span.start_s, hours[k].span.end_s)));
  }
  if (segs.length) {
    document.getElementById("segments-panel").hidden = false;
    document.getElementById("segments").append(table(
      [["#"], ["from"], ["to"], ["beats", 1], ["HR bpm", 1], ["SDNN ms", 1], ["RMSSD ms", 1], ["total ms²", 1], ["ULF ms²", 1], ["VLF ms²", 1], ["LF ms²", 1], ["HF ms²", 1], ["LF/HF", 1], ["status"]],
      segs.map((s, k) => [String(k + 1), clock(s.span.start_s), clock(s.span.end_s), String(s.r_peaks), num(s.heart_rate_bpm, 3),
        ms(s.time_domain.sdnn), ms(s.time_domain.rmssd), ms2(s.frequency_domain.tot_pwr), ms2(s.frequency_domain.ulf_pwr),
        ms2(s.frequency_domain.vlf_pwr), ms2(s.frequency_domain.lf_pwr), ms2(s.frequency_domain.hf_pwr), num(s.frequency_domain.lf_hf, 3),
        s.computed ? String(s.status) : s.not_computed]),
      (k) => setView(segs[k].span.start_s, segs[k].span.end_s)));
  }

  // Every figure, with the span it covers.
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
  section("R-peak detection, " + spanText(xMin, xMax));
  row("", "excerpt", spanText(q.excerpt.start_s, q.excerpt.end_s), "", q.excerpt.samples_200hz + " samples at 200 Hz");
  row("", "detection", q.detection.way, "", q.detection.segments > 1 ? q.detection.segments + " segments of " + clock(q.detection.segment_s) +
    ", " + q.detection.overlap_s + " s overlap; " + q.detection.seams_joined_on_common_beats + " of " +
    (q.detection.segments - 1) + " seams joined between beats both segments found" : "");
  row("error", "status", String(q.status), "", q.status_text);
  row("hr", "heart rate", q.heart_rate_bpm != null ? fixed(q.heart_rate_bpm, 0) : "–", "bpm",
    q.rejected_heart_rate_bpm != null ? "computed " + num(q.rejected_heart_rate_bpm) + " bpm lies outside 30–220" : "median RR interval");
  row("rpeaks", "R peaks", String(BEATS), "", labels ? "every beat" : "the normal-shaped beats (--beats normal)");
  if (labels) {
    const c = q.r_peaks.label_counts;
    row("", "beats by label", c.normal + " normal", "", c.wide + " wide, " + c.premature + " premature, " + c.unknown +
      " unknown (added to the normal-shaped beats)");
  }
  row("", "unlike the average beat", String(classes.filter((c) => c === 0).length), "",
    "beat classification: QRS correlation with the average beat below 0.7");
  row("", "extra beats by the RR check", String(rrRemoved.size), "", "both beats of an implausibly short RR interval, unless normal in shape");
  row("", "excerpt grade", q.excerpt_grade == null ? "–" : String(q.excerpt_grade), "", q.excerpt_grade_text + (q.clipping_tested ? "" : " (clipping not tested)"));
  row("qualities", "windows", String(windows.length), "", Object.entries(q.window_grade_counts).filter(([, n]) => n).map(([g, n]) => n + " " + g).join(", ") + " · " + q.window_s + " s each");
  if (hrv) {
    const TL = { nn_rr: "NN/RR ratio", avnn: "mean NN interval", sdnn: "SD of NN intervals", sdann: "SD of 5-minute means",
      sdnnidx: "mean of 5-minute SDs", rmssd: "RMS of successive differences", pnn50: "successive differences > 50 ms" };
    const FL = { tot_pwr: "total power, 0–0.4 Hz", ulf_pwr: "ULF power, 0–0.0033 Hz", vlf_pwr: "VLF power, 0.0033–0.04 Hz",
      lf_pwr: "LF power, 0.04–0.15 Hz", hf_pwr: "HF power, 0.15–0.4 Hz", lf_hf: "LF/HF ratio" };
    const span = spanText(hrv.span.start_s, hrv.span.end_s);
    section("HRV, time domain, " + (hrv.analysis === "long-term" ? "whole excerpt " : "the Java bridge's analysis, ") + span);
    row("error", "HRV status", String(hrv.status), "", hrv.status_text + (hrv.computed ? "" : " · " + hrv.not_computed));
    if (hrv.intervals != null) {
      row("", "NN intervals", String(hrv.intervals - hrv.excluded_intervals), "", "of " + hrv.intervals +
        " RR intervals; " + hrv.excluded_intervals + " left out next to a beat not labelled normal");
    }
    for (const [k, label] of Object.entries(TL)) {
      const v = hrv.time_domain[k], u = hrv.units[k];
      const note = hrv.notes[k] || (v == null ? "" : u === "s" ? fixed(v * 1e3, 1) + " ms" : u === "fraction" ? fixed(v * 100, 2) + " %" : "");
      row(k, label, v == null ? "–" : num(v, 6), u === "fraction" ? "" : u, note);
    }
    section("HRV, frequency domain (Lomb periodogram), " + span);
    for (const [k, label] of Object.entries(FL)) {
      const v = hrv.frequency_domain[k], u = hrv.units[k];
      row(k, label, v == null ? "–" : num(v, 6), u === "ratio" ? "" : "s²", (v == null || u === "ratio" ? "" : num(v * 1e6, 5) + " ms²") +
        (hrv.notes[k] ? " · " + hrv.notes[k] : ""));
    }
    if (segs.length) {
      const fs5 = hrv.five_minute_segments;
      section("HRV, frequency domain, mean of " + fs5.count + " five-minute segments, " + spanText(fs5.span.start_s, fs5.span.end_s));
      for (const [k, label] of Object.entries(FL)) {
        const v = fs5.frequency_domain_mean[k];
        row(k, label, v == null ? "–" : num(v, 6), hrv.units[k] === "ratio" ? "" : "s²",
          (v == null || hrv.units[k] === "ratio" ? "" : num(v * 1e6, 5) + " ms²") + " · over " + fs5.segments_in_mean[k] + " segments" +
          (k === "ulf_pwr" ? " · not meaningful over 5 minutes" : ""));
      }
    }
  }
  if (D.validation) {
    const v = D.validation;
    section("Comparison with reference beats (match within 150 ms), " + spanText(v.excerpt.start_s, v.excerpt.end_s));
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
  const figures = el("table", { class: "figures" });
  figures.append(el("thead", {}, el("tr", {}, el("th", {}, "field"), el("th", {}, "figure"), el("th", {}, "value"), el("th", {}, "unit"), el("th", {}, ""))));
  const fbody = el("tbody");
  for (const r of rows) {
    if (r[0] === "section") { fbody.append(el("tr", {}, el("th", { class: "section", colspan: "5" }, r[1]))); continue; }
    fbody.append(el("tr", {}, el("td", { class: "key" }, r[0]), el("td", {}, r[1]), el("td", { class: "num" }, r[2]), el("td", {}, r[3]), el("td", { class: "muted" }, r[4])));
  }
  figures.append(fbody);
  document.getElementById("figures").append(figures);

  // ---- legends ----------------------------------------------------------------------------------
  const tri = (c) => el("span", { class: "tri", style: "border-top: 9px solid " + c });
  const legend = document.getElementById("ecg-legend");
  legend.append(el("span", {}, tri(COLORS.beat), detMatched ? "detected beat, matched" : "detected R peak"));
  if (kindCount[ODD]) legend.append(el("span", {}, tri(COLORS.odd), "shape unlike the average beat"));
  if (kindCount[WIDE]) legend.append(el("span", {}, tri(COLORS.wide), "added beat: wide or unlike the average"));
  if (kindCount[PREMATURE]) legend.append(el("span", {}, tri(COLORS.premature), "added beat: premature"));
  if (kindCount[UNKNOWN]) legend.append(el("span", {}, tri(COLORS.unknown), "added beat: unknown"));
  if (detMatched) legend.append(el("span", {}, tri(COLORS.fp), "false detection"));
  if (rrRemoved.size) legend.append(el("span", {}, el("b", { style: "color:" + COLORS.rr + ";margin-right:0.35rem" }, "×"), "extra beat by the RR check"));
  if (ref) {
    legend.append(el("span", {}, sw(COLORS.ref), "reference beat"));
    legend.append(el("span", {}, sw(COLORS.fn), "missed reference beat"));
  }
  for (const g of [0, 3, 5, 6]) if (windows.includes(g)) legend.append(el("span", {}, sw(COLORS.grade[g]), "window " + GRADE_TEXT[g]));
  const ovLegend = document.getElementById("overview-legend");
  ovLegend.append(el("span", {}, sw(COLORS.hr), "heart rate"), el("span", {}, sw(COLORS.odd), "unlike the average beat"));
  if (kindCount[WIDE]) ovLegend.append(el("span", {}, sw(COLORS.wide), "wide"));
  if (kindCount[PREMATURE]) ovLegend.append(el("span", {}, sw(COLORS.premature), "premature"));
  if (kindCount[UNKNOWN]) ovLegend.append(el("span", {}, sw(COLORS.unknown), "unknown"));
  if (rrRemoved.size) ovLegend.append(el("span", {}, sw(COLORS.rr), "extra beat by the RR check"));
  if (ref) ovLegend.append(el("span", {}, sw(COLORS.fp), "false detection"), el("span", {}, sw(COLORS.fn), "missed reference beat"));

  // ---- changing the view --------------------------------------------------------------------------
  // Everything a view change redraws, at once (the benchmark times this).
  function redraw() {
    drawEcg();
    drawOverview();
    markTachogram();
    redrawRest();
  }
  function redrawRest() {
    selectSegment();
    const span = view[1] - view[0];
    for (const b of document.querySelectorAll(".toolbar [data-span]")) {
      const s = +b.dataset.span;
      b.classList.toggle("active", s === 0 ? span >= xMax - xMin - 1e-6 : Math.abs(span - s) < 1e-6);
    }
  }
  // View changes are applied once per animation frame, so wheel and key
  // bursts never queue up redraws; the address keeps the view.
  let pending = null, hashTimer = 0;
  function clampView(a, b) {
    const span = Math.min(Math.max(b - a, 1), xMax - xMin);
    a = Math.max(xMin, Math.min(a, xMax - span));
    return [a, a + span];
  }
  function setView(a, b) {
    const first = !pending;
    pending = clampView(a, b);
    if (!first) return;
    requestAnimationFrame(() => {
      view = pending; pending = null;
      redraw();
      clearTimeout(hashTimer);
      hashTimer = setTimeout(() => history.replaceState(null, "", "#t=" + view[0].toFixed(2) + "&span=" + (view[1] - view[0]).toFixed(2)), 300);
    });
  }
  function centreOn(t, span) { span = span || (view[1] - view[0]); setView(t - span / 2, t + span / 2); }
  for (const b of document.querySelectorAll(".toolbar button")) {
    b.addEventListener("click", () => {
      const [a, c] = pending || view, mid = (a + c) / 2, span = c - a;
      if (b.dataset.span !== undefined) { const s = +b.dataset.span || (xMax - xMin); setView(mid - s / 2, mid + s / 2); }
      if (b.dataset.pan !== undefined) setView(a + 0.5 * span * b.dataset.pan, c + 0.5 * span * b.dataset.pan);
      if (b.dataset.zoom !== undefined) { const s = span * b.dataset.zoom; setView(mid - s / 2, mid + s / 2); }
    });
  }
  const ecgTime = (clientX) => {
    const r = ecgCanvas.getBoundingClientRect();
    return view[0] + (clientX - r.left - ECG_PAD.left) / (r.width - ECG_PAD.left - ECG_PAD.right) * (view[1] - view[0]);
  };
  ecgCanvas.addEventListener("wheel", (e) => {
    e.preventDefault();
    const [a, b] = pending || view, span = b - a;
    if (e.shiftKey || Math.abs(e.deltaX) > Math.abs(e.deltaY)) {
      const d = (e.shiftKey ? e.deltaY : e.deltaX) || e.deltaY;
      setView(a + Math.sign(d) * 0.15 * span, b + Math.sign(d) * 0.15 * span);
      return;
    }
    const t = ecgTime(e.clientX), f = e.deltaY < 0 ? 0.8 : 1.25;
    setView(t - (t - a) * f, t + (b - t) * f);
  }, { passive: false });
  ecgCanvas.addEventListener("mousedown", (e) => { drag = [ecgTime(e.clientX), ecgTime(e.clientX)]; });
  ecgCanvas.addEventListener("mousemove", (e) => { if (drag) { drag[1] = ecgTime(e.clientX); drawEcg(); } });
  window.addEventListener("mouseup", () => {
    if (!drag) return;
    const [a, b] = [Math.min(...drag), Math.max(...drag)];
    drag = null;
    if ((b - a) / (view[1] - view[0]) > 0.01) setView(a, b); else drawEcg();
  });
  ecgCanvas.addEventListener("dblclick", () => setView(xMin, xMax));
  document.addEventListener("keydown", (e) => {
    if (e.target.closest && e.target.closest("input, textarea")) return;
    const [a, b] = pending || view, span = b - a, mid = (a + b) / 2;
    if (e.key === "ArrowLeft") setView(a - 0.5 * span, b - 0.5 * span);
    else if (e.key === "ArrowRight") setView(a + 0.5 * span, b + 0.5 * span);
    else if (e.key === "+" || e.key === "=") setView(mid - span / 4, mid + span / 4);
    else if (e.key === "-") setView(mid - span, mid + span);
    else return;
    e.preventDefault();
  });
  let resizeQueued = false;
  window.addEventListener("resize", () => {
    if (resizeQueued) return;
    resizeQueued = true;
    requestAnimationFrame(() => {
      resizeQueued = false;
      for (const u of plots) u.setSize({ width: widthOf(u.root.parentElement.id), height: u.height });
      ovBuffer = null;
      redraw();
    });
  });

  // The view the address asks for (#t=START&span=SECONDS), else the first
  // 20 seconds.
  const asked = new URLSearchParams(location.hash.slice(1));
  if (asked.has("t")) {
    const a = +asked.get("t"), span = asked.has("span") ? +asked.get("span") : 10;
    if (isFinite(a) && isFinite(span)) view = clampView(a, a + span);
  }
  mark("tables");
  drawOverviewBuffer();
  mark("overview");
  redraw();
  mark("first view");

  // A handle for scripts that examine the page (the browser test and
  // bench/long-recording.sh add tools/report/selftest.js to a copy of the
  // report; reports themselves carry no test code).
  window.keloReport = {
    plots, setView, view: () => view, xMin, xMax, marks,
    samples: N, beats: BEATS, segments: segs.length, hours: hours.length,
    unlikeAverage: classes.filter((c) => c === 0).length,
    addedBeats: kindCount[WIDE] + kindCount[PREMATURE] + kindCount[UNKNOWN],  // marked by their labels
    rrRemoved: rrRemoved.size,
    referenceMarkers: ref ? ref.t.length : 0,
    selectedSegment: () => segment,
    chunksDecoded: () => chunksDecoded,
    markersDrawn: () => markersDrawn,
    // Markers drawn with the whole excerpt in view; the view is restored.
    markersOverWhole: () => {
      const saved = view;
      view = [xMin, xMax]; drawEcg();
      const n = markersDrawn;
      view = saved; redraw();
      return n;
    },
    // One view change redrawn at once, without waiting for a frame: the
    // times (ms) of the ECG, of the overview with the tachogram's mark, and
    // of the plots of the segment in view.
    showTimed: (a, b) => {
      const s = performance.now();
      view = clampView(a, b);
      drawEcg(); const e = performance.now();
      drawOverview(); markTachogram(); const o = performance.now();
      redrawRest(); const r = performance.now();
      return [e - s, o - e, r - o];
    },
  };
})();
