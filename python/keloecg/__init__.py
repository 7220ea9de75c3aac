"""R peaks, quality grades, heart rate and HRV of single-lead ECG recordings.

keloecg runs libkeloecgsolver, the library behind the ``keloecg`` program,
on numpy arrays::

    import keloecg
    rec = keloecg.read("100.hea")          # WFDB, EDF/BDF, CSV or raw; resampled to 200 Hz
    qrs = keloecg.detect(rec)              # R peaks, grades, heart rate, status
    hrv = keloecg.hrv(qrs)                 # the 7 time- and 6 frequency-domain figures
    print(qrs.heart_rate, hrv.sdnn, hrv.lf_hf)
    hrv.to_frame()                         # a pandas DataFrame

Results equal those of the ``keloecg`` program and of the library's C calls.
Sample numbers are 0-based. The analysis functions release the GIL, so that
threads analyse recordings at the same time. Problems with a file or an
argument raise :class:`InputError` (a ``ValueError``) with the message the
program prints. :mod:`keloecg.distributed` analyses many recordings on a
Dask cluster.
"""

from __future__ import annotations

import math
from dataclasses import dataclass, fields
from typing import Optional, Sequence, Union

import numpy as np

from . import _keloecg
from ._keloecg import InputError

__all__ = [
    "ANALYSIS_RATE", "LABELS", "Annotations", "DetectResult", "HrvResult", "InputError", "RRCheck", "Recording",
    "Refinement", "Validation", "check_quality", "check_rr", "classify", "detect", "hrv", "read",
    "read_annotations", "refine", "validate",
]

__version__ = _keloecg.__version__

#: The rate the library analyses, in Hz; other rates are resampled to it.
ANALYSIS_RATE = 200

TIME_FIELDS = _keloecg.TIME_FIELDS
FREQ_FIELDS = _keloecg.FREQ_FIELDS
#: Unit of every HRV figure.
HRV_UNITS = dict(zip(TIME_FIELDS + FREQ_FIELDS, _keloecg.TIME_UNITS + _keloecg.FREQ_UNITS))


def _input_error(problem: str, file: str = "") -> InputError:
    """An InputError raised by the Python side, shaped as those of the extension."""
    error = InputError(f"{file}: {problem}" if file else problem)
    error.file, error.problem = file, problem
    return error


def _pandas():
    # Imported on first use: pandas takes a while to load, and most calls
    # (and the cluster's workers) never need it.
    import pandas

    return pandas


def _number(v) -> float:
    return math.nan if v is None else float(v)


# ---- Reading -----------------------------------------------------------------


@dataclass(frozen=True)
class Annotations:
    """Reference beats (beat annotations only: N L R B A a J S V r F e j n E / f Q ?)."""

    path: str
    fs: float                 #: rate of ``sample``, Hz
    sample: np.ndarray        #: 0-based sample numbers at ``fs``
    sample_200hz: np.ndarray  #: the same at 200 Hz
    symbol: list              #: one beat symbol per sample
    other_annotations: int    #: annotations that are not beats (left out)

    @property
    def time_s(self) -> np.ndarray:
        return self.sample / self.fs

    def __len__(self) -> int:
        return len(self.sample)

    def to_frame(self):
        return _pandas().DataFrame({"sample": self.sample, "sample_200hz": self.sample_200hz,
                                    "time_s": self.time_s, "symbol": self.symbol})


@dataclass(frozen=True)
class Recording:
    """One lead of a recording, at 200 Hz, in millivolts when the unit is known."""

    samples: np.ndarray       #: at 200 Hz
    path: str
    name: str                 #: record name or file stem
    format: str               #: "WFDB 212", "EDF+", "CSV", "float32", ...
    original_fs: float        #: the file's sampling rate, Hz
    original_samples: int
    units: str
    lead_index: int
    leads: list               #: every lead's name ("" when unnamed)
    full_scale: Optional[float]  #: largest amplitude the acquisition represents, when the file tells
    full_scale_source: str
    warnings: list
    annotations: Optional[Annotations]  #: reference beats found next to the file, if any

    fs = float(ANALYSIS_RATE)

    @property
    def lead(self) -> str:
        return self.leads[self.lead_index]

    @property
    def duration_s(self) -> float:
        return len(self.samples) / self.fs

    def to_frame(self):
        return _pandas().DataFrame({"time_s": np.arange(len(self.samples)) / self.fs, self.units: self.samples})


def _annotations(d) -> Optional[Annotations]:
    return None if d is None else Annotations(**d)


def read(path, lead: Union[int, str, None] = None, *, format: str = "auto",
         fs: Optional[float] = None) -> Recording:
    """Reads one lead of a recording as ``keloecg`` does and resamples it to 200 Hz.

    path: a WFDB record (REC.hea with .dat in format 212 or 16, or REC
    alone), EDF, EDF+ or BDF, CSV or text (one column, or the column ``lead``
    names), raw little-endian float32 or float64 (.f32, .f64) with ``fs`` or
    a sidecar STEM.info. lead: 0-based index or name (default: the first).
    format: "auto", "wfdb", "edf", "csv", "f32" or "f64". fs: sampling rate
    of text and raw input. Reference beats found next to the file (REC.atr,
    STEM.beats.txt, STEM.atr) come as ``annotations``.
    """
    d = _keloecg.read(str(path), "" if lead is None else str(lead), format, fs)
    d["annotations"] = _annotations(d["annotations"])
    return Recording(**d)


def read_annotations(path, fs: float) -> Annotations:
    """Reference beats of a WFDB annotation file or of text lines "sample [symbol]" numbered at ``fs``."""
    return Annotations(**_keloecg.read_annotations(str(path), float(fs)))


# ---- Detection and HRV -------------------------------------------------------


@dataclass(frozen=True)
class DetectResult:
    """R peaks, quality grades and heart rate of a recording (the library's QRS run)."""

    r_peaks: np.ndarray        #: 0-based sample numbers at ``fs`` (positions in the array given)
    r_peaks_200hz: np.ndarray  #: the same at the analysis rate, 200 Hz
    labels: np.ndarray         #: per R peak: 1 normal, 2 wide, 3 premature, 4 unknown
    beats: str                 #: "all" (every beat, labelled) or "normal" (the normal-shaped beats alone)
    fs: float
    samples_200hz: int         #: length of the analysed recording at 200 Hz
    window: int                #: quality-window length, s
    window_grades: np.ndarray  #: 0 usable, 3 too few beats, 5 clipped, 6 irregular
    excerpt_grade: int         #: 1 usable, 2 clipped, 3 irregular
    heart_rate: Optional[float]           #: bpm, when in 30..220
    rejected_heart_rate: Optional[float]  #: bpm, when computed but outside 30..220
    status: int                #: 0 success, 3 no usable beats, 5 clipped, 6 irregular
    full_scale: Optional[float]  #: as used (None: clipping not tested)

    @property
    def status_text(self) -> str:
        return _keloecg.status_text(self.status)

    @property
    def excerpt_grade_text(self) -> str:
        return _keloecg.excerpt_grade_text(self.excerpt_grade)

    @property
    def duration_s(self) -> float:
        return self.samples_200hz / ANALYSIS_RATE

    def to_frame(self):
        """One row per R peak."""
        return _pandas().DataFrame({"sample": self.r_peaks, "time_s": self.r_peaks_200hz / ANALYSIS_RATE,
                                    "sample_200hz": self.r_peaks_200hz, "label": self.labels,
                                    "label_text": [LABELS[int(k)] for k in self.labels]})

    def windows_frame(self):
        """One row per quality window."""
        grades = self.window_grades
        single = len(grades) == 1
        return _pandas().DataFrame({
            "start_s": [0.0] if single else np.arange(len(grades), dtype=float) * self.window,
            "duration_s": [self.duration_s] if single else np.full(len(grades), float(self.window)),
            "grade": grades, "grade_text": [_keloecg.window_grade_text(int(g)) for g in grades]})


#: Names of the beat labels.
LABELS = {1: "normal", 2: "wide", 3: "premature", 4: "unknown"}


def detect(ecg, fs: float = ANALYSIS_RATE, full_scale: Optional[float] = None, window: int = 10,
           beats: str = "all") -> DetectResult:
    """R peaks (0-based), excerpt and window grades, heart rate and status of an ECG.

    ecg: a one-dimensional array of samples (mV), or a :class:`Recording`
    (its samples, rate and full scale). A C-contiguous float64 array is
    analysed in place, without a copy. At least 15 s. fs: sampling rate;
    another rate than 200 Hz is resampled to 200 Hz as keloecg does, and the
    R peaks are given at both rates. full_scale: largest amplitude the
    acquisition can represent (a sample beyond 0.97 times it is clipped);
    None leaves clipping untested. window: quality-window length in seconds.
    beats: "all" (default, as keloecg): every beat with its label, the
    normal ones being exactly those of "normal", the normal-shaped beats
    the library's detector gives; the heart rate counts every beat, the
    grades are those of the detector.
    """
    if isinstance(ecg, Recording):
        if full_scale is None:
            full_scale = ecg.full_scale
        ecg, fs = ecg.samples, ecg.fs
    d = _keloecg.detect(ecg, float(fs), None if full_scale is None else float(full_scale), window, beats)
    return DetectResult(fs=float(fs), window=window, **d)


@dataclass(frozen=True)
class HrvResult:
    """HRV figures of a beat series (NaN where not formed), with the run's status.

    Units: HRV_UNITS (intervals and deviations in s, powers in s^2, nn_rr and
    pnn50 as fractions). An SDANN that needs two 5-minute segments more
    than the series holds is 0, as the library reports it.
    """

    status: int          #: 0 success, 3 no usable beats, 4 no spectrum, 5 clipped, 6 irregular
    computed: bool       #: the statistics were computed (heart rate in 30..220 bpm)
    spectrum: bool       #: the frequency-domain figures were formed
    not_computed: Optional[str]
    heart_rate: Optional[float]
    rejected_heart_rate: Optional[float]
    r_peaks: int         #: beats in the series
    intervals: Optional[int]           #: labelled beats: RR intervals of the series
    excluded_intervals: Optional[int]  #: labelled beats: intervals left out (a beat at either end not normal)
    nn_rr: float
    avnn: float
    sdnn: float
    sdann: float
    sdnnidx: float
    rmssd: float
    pnn50: float
    tot_pwr: float
    ulf_pwr: float
    vlf_pwr: float
    lf_pwr: float
    hf_pwr: float
    lf_hf: float

    @property
    def status_text(self) -> str:
        return _keloecg.status_text(self.status)

    def figures(self) -> dict:
        """The 13 figures by name."""
        return {name: getattr(self, name) for name in TIME_FIELDS + FREQ_FIELDS}

    def to_frame(self):
        """One row: the status, the heart rate and every figure."""
        row = {f.name: getattr(self, f.name) for f in fields(self)}
        row["status_text"] = self.status_text
        return _pandas().DataFrame([row])


def _series(r_peaks, fs):
    """R peaks and their rate from an array or a DetectResult."""
    if isinstance(r_peaks, DetectResult):
        return r_peaks.r_peaks, r_peaks.fs
    return r_peaks, fs


def hrv(r_peaks, fs: int = ANALYSIS_RATE, labels=None) -> HrvResult:
    """Every time- and frequency-domain HRV figure of a beat series, with the status.

    r_peaks: ascending 0-based sample numbers at ``fs``, or a
    :class:`DetectResult`, whose 200 Hz R peaks are used and whose excerpt
    grade turns the status into 5 (clipped) or 6 (irregular) as the bridge
    and keloecg do. The figures are computed, as keloecg computes them, when
    the heart rate lies in 30..220 bpm; they cover the whole series given
    (keloecg hrv takes at most the first 10 minutes of a recording).
    labels: one per R peak (1 normal), R peaks at 200 Hz: the figures
    cover the NN intervals alone, between two normal beats, as keloecg's
    runs over every beat compute them; a DetectResult of every beat gives
    its labels.
    """
    grade = 1
    if isinstance(r_peaks, DetectResult):
        if r_peaks.beats == "all":
            labels = r_peaks.labels
        grade, fs, r_peaks = r_peaks.excerpt_grade, ANALYSIS_RATE, r_peaks.r_peaks_200hz
    d = _keloecg.hrv(r_peaks, float(fs), grade, labels)
    time, freq = d.pop("time"), d.pop("freq")
    values = dict(zip(TIME_FIELDS, time if d["computed"] else [math.nan] * len(time)))
    values.update(zip(FREQ_FIELDS, freq if d["spectrum"] else [math.nan] * len(freq)))
    return HrvResult(**d, **values)


# ---- Comparison with reference beats -----------------------------------------


@dataclass(frozen=True)
class Validation:
    """Beat-by-beat comparison with reference beats (a match lies within 150 ms)."""

    reference_beats: int
    detected_beats: int
    tp: int
    fn: int
    fp: int
    sensitivity: float            #: TP / (TP + FN), NaN when undefined
    positive_predictivity: float  #: TP / (TP + FP)
    f1: float                     #: 2 TP / (2 TP + FP + FN)
    mean_abs_offset_ms: float     #: over the matched pairs
    reference_index: np.ndarray   #: the reference beats compared (indices into those given)
    reference_match: np.ndarray   #: per compared reference beat: index of its detection, or -1
    detection_match: np.ndarray   #: per detection: index of its compared reference beat, or -1

    def to_frame(self):
        """One row of counts and rates."""
        skip = {"reference_index", "reference_match", "detection_match"}
        return _pandas().DataFrame([{f.name: getattr(self, f.name) for f in fields(self) if f.name not in skip}])


def validate(detected, reference, fs: float = ANALYSIS_RATE, reference_fs: Optional[float] = None) -> Validation:
    """Compares detected R peaks with reference beats, as ``keloecg validate`` does.

    detected: a :class:`DetectResult` (only the reference beats inside its
    recording count, as keloecg counts those of the excerpt) or 0-based
    sample numbers at ``fs``. reference: :class:`Annotations` (for example
    ``read(path).annotations``) or 0-based sample numbers at
    ``reference_fs`` (default ``fs``).
    """
    span = (None, None)
    if isinstance(detected, DetectResult):
        span = (0.0, detected.samples_200hz / ANALYSIS_RATE)
        detected, fs = detected.r_peaks_200hz, ANALYSIS_RATE
    if isinstance(reference, Annotations):
        reference, reference_fs = reference.sample, reference.fs
    d = _keloecg.match(detected, float(fs), reference, float(fs if reference_fs is None else reference_fs), *span)
    d["mean_abs_offset_ms"] = d.pop("mean_abs_offset_s") * 1e3
    return Validation(reference_beats=d["tp"] + d["fn"], detected_beats=d["tp"] + d["fp"], **d)


# ---- The library's checks, classification and refinement ---------------------


def check_quality(ecg, r_peaks, full_scale: Optional[float] = None) -> int:
    """Grade of an excerpt of at most 3 minutes at 200 Hz: 1 usable, 2 clipped, 3 irregular.

    Clipped: the largest sample (not magnitude) exceeds 0.97 * full_scale
    (None: not tested); irregular: the RR intervals' standard deviation
    exceeds a quarter of their mean (three beats or more).
    """
    r_peaks, _ = _series(r_peaks, None)
    return _keloecg.check_quality(ecg, r_peaks, None if full_scale is None else float(full_scale))


@dataclass(frozen=True)
class RRCheck:
    """Beats kept by the RR-interval check, which removes extra beats that implausibly short intervals mark."""

    r_peaks: np.ndarray  #: the beats kept, 0-based
    classes: np.ndarray  #: their classes (5: marked, but kept by the sweep's order)
    removed: np.ndarray  #: indices (into the beats given) of the beats removed


def check_rr(r_peaks, classes=None) -> RRCheck:
    """The library's RR-interval check. classes: one per beat; beats of class 1 are never removed
    (for example the result of :func:`classify`); default: none protected."""
    r_peaks, _ = _series(r_peaks, None)
    return RRCheck(**_keloecg.check_rr(r_peaks, classes))


def classify(ecg, r_peaks, fs: int = ANALYSIS_RATE) -> np.ndarray:
    """Per beat 1 when its QRS complex is like the average beat (correlation 0.7 or more), else 0.

    r_peaks: 0-based sample numbers of ``ecg`` at ``fs``, or a DetectResult of it.
    """
    r_peaks, fs = _series(r_peaks, fs)
    return _keloecg.classify(ecg, r_peaks, float(fs))


@dataclass(frozen=True)
class Refinement:
    """Beats that the missed-beat search found in unusually long RR gaps."""

    r_peaks: np.ndarray  #: the routine's list of as many beats as given, found beats moved in
    list: np.ndarray     #: its whole output list: those, then found beats it did not move in
    added: np.ndarray    #: every position it found, ascending


def refine(ecg, r_peaks, fs: int = ANALYSIS_RATE) -> Refinement:
    """The library's search for missed beats over at most 3 minutes at 200 Hz."""
    r_peaks, fs = _series(r_peaks, fs)
    return Refinement(**_keloecg.refine(ecg, r_peaks, float(fs)))
