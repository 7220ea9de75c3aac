"""detect, hrv, read and validate give the keloecg program's results, bit for
bit, on the bundled recording and the test recordings; errors carry the
program's messages."""

import math

import numpy as np
import pytest

import keloecg
from conftest import BUNDLED, DETECT_DATA, EXCERPTS, SHORT_WFDB, keloecg_json, run_keloecg

RECORDINGS = [BUNDLED, *EXCERPTS]


def same_number(a, b):
    """JSON null stands for what is not a number or not formed."""
    if b is None:
        return a is None or math.isnan(a)
    return a == b


BEATS = ["all", "normal"]


@pytest.mark.parametrize("beats", BEATS)
@pytest.mark.parametrize("path", RECORDINGS, ids=lambda p: p.name)
def test_detect_equals_keloecg_qrs(path, beats):
    rec = keloecg.read(path, fs=200)
    qrs = keloecg.detect(rec, beats=beats)
    expected = keloecg_json("qrs", path, "--fs", 200, "--beats", beats)["qrs"]
    assert qrs.r_peaks_200hz.tolist() == expected["r_peaks"]["sample_200hz"]
    labels = expected["r_peaks"].get("label", ["normal"] * len(qrs.labels))
    assert [keloecg.LABELS[k] for k in qrs.labels.tolist()] == labels
    assert same_number(qrs.heart_rate, expected["heart_rate_bpm"])
    assert (qrs.status, qrs.excerpt_grade) == (expected["status"], expected["excerpt_grade"])
    assert qrs.window_grades.tolist() == expected["window_grades"]
    assert qrs.full_scale == expected["full_scale"]
    assert qrs.status_text == expected["status_text"]


@pytest.mark.parametrize("path", EXCERPTS, ids=lambda p: p.name)
def test_detect_equals_the_frozen_detectwaves_output(path):
    ecg = np.fromfile(path, dtype="<f4").astype(np.float64)
    golden = np.loadtxt(path.with_suffix(".rpeaks.txt"), dtype=np.int64)
    normal = keloecg.detect(ecg, beats="normal")
    assert (normal.r_peaks + 1).tolist() == golden.tolist()
    # Every beat: the normal ones are exactly those.
    every = keloecg.detect(ecg)
    assert (every.r_peaks[every.labels == 1] + 1).tolist() == golden.tolist()


@pytest.mark.parametrize("beats", BEATS)
@pytest.mark.parametrize("path", RECORDINGS, ids=lambda p: p.name)
def test_hrv_equals_keloecg_hrv(path, beats):
    h = keloecg.hrv(keloecg.detect(keloecg.read(path, fs=200), beats=beats))
    expected = keloecg_json("hrv", path, "--fs", 200, "--beats", beats)["hrv"]
    assert (h.status, h.computed, h.r_peaks) == (expected["status"], expected["computed"], expected["r_peaks"])
    assert (h.intervals, h.excluded_intervals) == (expected.get("intervals"), expected.get("excluded_intervals"))
    figures = {**expected["time_domain"], **expected["frequency_domain"]}
    assert list(figures) == list(h.figures())
    for name, value in figures.items():
        assert same_number(getattr(h, name), value), name
    assert h.to_frame().loc[0, "sdnn"] == h.sdnn


@pytest.mark.parametrize("path", RECORDINGS, ids=lambda p: p.name)
def test_validate_equals_keloecg_validate(path):
    rec = keloecg.read(path, fs=200)
    v = keloecg.validate(keloecg.detect(rec), rec.annotations)
    expected = keloecg_json("validate", path, "--fs", 200)["records"][0]
    for key in ("reference_beats", "detected_beats", "tp", "fn", "fp", "sensitivity", "f1", "mean_abs_offset_ms"):
        assert same_number(getattr(v, key), expected[key]), key
    # Every match pairs a reference beat and a detection both ways.
    for r, d in enumerate(v.reference_match):
        assert d == -1 or v.detection_match[d] == r


def write_wfdb16(path, x, fs, gain=200):
    """One signal in WFDB format 16 (ADC zero 0, `gain` units per mV)."""
    np.round(x * gain).astype("<i2").tofile(path.with_suffix(".dat"))
    path.with_suffix(".hea").write_text(
        f"{path.stem} 1 {fs} {len(x)}\n{path.stem}.dat 16 {gain}(0)/mV 16 0 0 0 0 MLII\n")
    return path.with_suffix(".hea")


def test_resampled_recordings_give_keloecgs_positions_at_both_rates(tmp_path):
    # The bundled recording at 360 Hz, as raw float64 and as a WFDB record.
    x200 = keloecg.read(BUNDLED).samples
    t360 = np.arange(len(x200) * 360 // 200) / 360
    x360 = np.interp(t360, np.arange(len(x200)) / 200, x200)
    raw = tmp_path / "rec360.f64"
    x360.astype("<f8").tofile(raw)
    wfdb = write_wfdb16(tmp_path / "rec360", x360, 360)

    for path, qrs in [(raw, keloecg.detect(x360, fs=360)), (wfdb, keloecg.detect(keloecg.read(wfdb)))]:
        expected = keloecg_json("qrs", path, "--fs", 360)
        assert qrs.r_peaks_200hz.tolist() == expected["qrs"]["r_peaks"]["sample_200hz"], path.name
        assert qrs.samples_200hz == expected["recording"]["samples_200hz"]
        # An array at 360 Hz gives its R peaks at 360 Hz as keloecg numbers them.
        if path == raw:
            assert qrs.r_peaks.tolist() == expected["qrs"]["r_peaks"]["sample_original"]
    rec = keloecg.read(wfdb)
    assert (rec.format, rec.original_fs, rec.lead, rec.name, rec.original_samples) == (
        "WFDB 16", 360.0, "MLII", "rec360", len(x360))


def test_read_finds_the_reference_beats_next_to_a_record():
    rec = keloecg.read(SHORT_WFDB)
    assert len(rec.samples) == math.ceil(rec.original_samples * 200 / 360)
    ann = rec.annotations
    assert ann.fs == 360.0 and ann.path.endswith("mitdb100-10s.atr") and len(ann) > 0
    assert np.array_equal(ann.sample_200hz, np.floor(ann.sample * 200 / 360 + 0.5))
    assert set(ann.symbol) <= set("NLRBAaJSVrFejnE/fQ?")
    assert ann.to_frame().shape == (len(ann), 4)


def test_samples_are_analysed_in_place():
    ecg = keloecg.read(BUNDLED).samples
    before = ecg.copy()
    qrs = keloecg.detect(ecg)
    assert np.array_equal(ecg, before)  # only read
    # Arrays of another layout or type are converted first, to the same result.
    assert np.array_equal(keloecg.detect(np.repeat(ecg, 2)[::2]).r_peaks, qrs.r_peaks)
    assert np.array_equal(keloecg.detect(list(ecg)).r_peaks, qrs.r_peaks)


# Each case: the Python call and the keloecg command that meet the same problem.
ERROR_CASES = {
    "missing file": (lambda: keloecg.read("no/such/record.hea"), ["qrs", "no/such/record.hea"]),
    "no such lead": (lambda: keloecg.read(SHORT_WFDB, lead="V9"), ["qrs", SHORT_WFDB, "--lead", "V9"]),
    "lead index": (lambda: keloecg.read(SHORT_WFDB, lead=7), ["qrs", SHORT_WFDB, "--lead", "7"]),
    "raw without rate": (lambda: keloecg.read(EXCERPTS[0]), ["qrs", EXCERPTS[0]]),
    "unknown format": (lambda: keloecg.read(DETECT_DATA / "README.md"), ["qrs", DETECT_DATA / "README.md"]),
}


@pytest.mark.parametrize("case", ERROR_CASES, ids=str)
def test_errors_carry_the_programs_message(case):
    call, args = ERROR_CASES[case]
    done = run_keloecg(*args, check=False)
    assert done.returncode == 2
    with pytest.raises(keloecg.InputError) as raised:
        call()
    assert isinstance(raised.value, ValueError)
    assert f"keloecg: error: {raised.value}" in done.stderr
    assert str(raised.value) == (f"{raised.value.file}: {raised.value.problem}" if raised.value.file
                                 else raised.value.problem)


@pytest.mark.parametrize("call, message", [
    (lambda: keloecg.detect(keloecg.read(SHORT_WFDB)), "recording too short: 0:10.0, R-peak detection needs at least 15 s"),
    (lambda: keloecg.detect(np.r_[np.zeros(4000), np.nan]), "sample 4000 (at 20 s) is not a number (NaN)"),
    (lambda: keloecg.detect(np.zeros((2, 4000))), "ecg must be one-dimensional, not of 2 dimensions"),
    (lambda: keloecg.detect(np.zeros(4000), fs=0), "fs must be a sampling rate above 0 Hz"),
    (lambda: keloecg.detect(np.zeros(4000), window=0), "window must be 1 to 86400 seconds"),
    (lambda: keloecg.hrv([5, 3]), "r_peaks[1] = 3 does not follow 5: sample numbers must be in strictly ascending order"),
    (lambda: keloecg.hrv([-1, 3]), "r_peaks[0] = -1: sample numbers are 0-based, 0 or more"),
    (lambda: keloecg.hrv([1, 3], fs=250.5), "fs must be a whole number of Hz above 0 for this routine"),
])
def test_bad_arguments_raise_value_errors(call, message):
    with pytest.raises(ValueError, match=None) as raised:
        call()
    assert str(raised.value) == message


def test_hrv_without_usable_beats_is_not_computed():
    few = keloecg.hrv([100])
    assert (few.status, few.computed, few.not_computed) == (3, False, "fewer than two R peaks")
    slow = keloecg.hrv([0, 1000, 2000])  # 12 bpm
    assert (slow.status, slow.rejected_heart_rate, slow.not_computed) == (3, 12.0, "heart rate outside 30-220 bpm")
    assert all(math.isnan(v) for v in slow.figures().values())
