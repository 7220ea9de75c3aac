"""The checks, classification and refinement equal the library's plain
fixed-length C routines called directly (through ctypes) on the test
recordings."""

import ctypes

import numpy as np
import pytest

import keloecg
from conftest import EXCERPTS, c_double, c_int32, ptr

N = 36000  # the plain routines' fixed length


@pytest.fixture(scope="module", params=EXCERPTS, ids=lambda p: p.stem)
def excerpt(request):
    ecg = keloecg.read(request.param, fs=200).samples
    return ecg, keloecg.detect(ecg)


@pytest.fixture(scope="module")
def c(clib):
    clib.checkQuality.restype = ctypes.c_int32
    for name in ("checkQuality", "checkRR", "classifyQRS", "refineQrsDetection"):
        getattr(clib, name + "_initialize")()
    return clib


def with_extra_beats(peaks):
    """The detected beats with a spurious beat 60 ms after every tenth one."""
    extra = peaks[::10][:-1] + 12
    return np.unique(np.concatenate([peaks, extra]))


def test_check_quality(c, excerpt):
    ecg, qrs = excerpt
    beats = qrs.r_peaks + 1
    for scale in (None, 5.0, 0.5):  # untested, not clipped, clipped
        expected = c.checkQuality(ptr(c_double(ecg, N), ctypes.c_double), len(ecg),
                                  ctypes.c_double(np.inf if scale is None else scale),
                                  ptr(c_int32(beats, N), ctypes.c_int32), len(beats))
        assert keloecg.check_quality(ecg, qrs, scale) == expected


def test_classify(c, excerpt):
    ecg, qrs = excerpt
    classes = c_int32([], N)
    beats = c_int32(qrs.r_peaks + 1, N)
    c.classifyQRS(ptr(c_double(ecg, N), ctypes.c_double), ptr(beats, ctypes.c_int32), len(qrs.r_peaks),
                  ptr(classes, ctypes.c_int32))
    got = keloecg.classify(ecg, qrs)
    assert got.tolist() == classes[: len(qrs.r_peaks)].tolist()
    assert set(got.tolist()) <= {0, 1}


@pytest.mark.parametrize("protect", [False, True], ids=["no classes", "classified"])
def test_check_rr(c, excerpt, protect):
    ecg, qrs = excerpt
    peaks = with_extra_beats(qrs.r_peaks)
    classes = keloecg.classify(ecg, peaks) if protect else np.zeros(len(peaks), dtype=np.int32)
    c_classes, clean, count = c_int32(classes, N), c_int32([], N), ctypes.c_int32()
    c.checkRR(ptr(c_int32(peaks + 1, N), ctypes.c_int32), len(peaks), ptr(c_classes, ctypes.c_int32),
              ptr(clean, ctypes.c_int32), ctypes.byref(count))
    got = keloecg.check_rr(peaks, classes if protect else None)
    assert (got.r_peaks + 1).tolist() == clean[: count.value].tolist()
    assert got.classes.tolist() == c_classes[: count.value].tolist()
    assert np.array_equal(np.delete(peaks, got.removed), got.r_peaks)


def test_refine(c, excerpt):
    ecg, qrs = excerpt
    # Every fifth beat left out: gaps for the search to fill.
    kept = np.delete(qrs.r_peaks, np.arange(2, len(qrs.r_peaks), 5))
    out, count = c_int32([], N), ctypes.c_int32()
    c.refineQrsDetection(ptr(c_double(ecg, N), ctypes.c_double), ptr(c_int32(kept + 1, N), ctypes.c_int32),
                         len(kept), 200, ptr(out, ctypes.c_int32), ctypes.byref(count))
    got = keloecg.refine(ecg, kept)
    assert (got.r_peaks + 1).tolist() == out[: count.value].tolist()
    listed = out[: np.flatnonzero(np.r_[out[count.value:], 0] == 0)[0] + count.value]
    assert (got.list + 1).tolist() == listed.tolist()
    assert got.added.tolist() == sorted(set(got.list.tolist()) - set(kept.tolist()))


@pytest.mark.parametrize("call, message", [
    (lambda: keloecg.check_quality(np.zeros(N + 1), [1, 2], None),
     "ecg holds 36001 values; this check takes at most 36000 (three minutes at 200 Hz)"),
    (lambda: keloecg.check_rr([1, 2, 3], [1, 1]), "classes holds 2 values for 3 R peaks"),
    (lambda: keloecg.classify(np.zeros(100), [2, 1]),
     "r_peaks[1] = 1 does not follow 2: sample numbers must be in strictly ascending order"),
])
def test_bad_arguments(call, message):
    with pytest.raises(keloecg.InputError) as raised:
        call()
    assert str(raised.value) == message
