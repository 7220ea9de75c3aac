#!/usr/bin/env python3
"""keloecg.detect against the library's C calls it makes, on a 30-minute recording.

    PYTHONPATH=build/default/python /usr/bin/python3 bench/python_detect.py [BUILD_DIR]

The recording is the one of bench_detect: the three-minute test excerpts
(MIT-BIH records 100, 119, 203) laid end to end to 361,112 samples at
200 Hz. The C side is what detect does beneath Python, called through
ctypes on the same array: detectWaves, then calcHRvar on its R peaks.
detect is timed with beats="normal", the beats detectWaves finds (the
default, beats="all", adds the labelled-beat pass, a different analysis;
it took about 4.9 times the C calls). Both run alternately in one process, so that a busy machine slows both
alike; the medians and minima of the rounds are printed with their ratio.
"""

import ctypes
import pathlib
import statistics
import sys
import time

import numpy as np

import keloecg

ROOT = pathlib.Path(__file__).resolve().parents[1]
BUILD = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "build" / "default"
SAMPLES = 361112
ROUNDS = 40


class Emx(ctypes.Structure):
    _fields_ = [("data", ctypes.c_void_p), ("size", ctypes.POINTER(ctypes.c_int32)),
                ("allocatedSize", ctypes.c_int32), ("numDimensions", ctypes.c_int32),
                ("canFreeData", ctypes.c_bool)]


def recording() -> np.ndarray:
    parts = [np.fromfile(ROOT / "tests" / "data" / "detect" / f"{r}.f32", dtype="<f4") for r in ("100", "119", "203")]
    source = np.concatenate(parts).astype(np.float64)
    return np.resize(source, SAMPLES)


def c_detect(lib, ecg: np.ndarray) -> float:
    """detectWaves and calcHRvar as detect calls them; returns the heart rate."""
    x = lib.emxCreateWrapper_real_T(ecg.ctypes.data, len(ecg), 1)
    peaks, windows = lib.emxCreate_int32_T(0, 1), lib.emxCreate_int32_T(1, 1)
    grade = ctypes.c_int32()
    lib.detectWaves(x, ctypes.c_double(np.inf), 200, 10, peaks, ctypes.byref(grade), windows)
    rate = lib.calcHRvar(peaks, peaks.contents.size[0], 200)
    lib.emxDestroyArray_real_T(x)
    for r in (peaks, windows):
        lib.emxDestroyArray_int32_T(r)
    return rate


def main():
    lib = ctypes.CDLL(str(BUILD / "libkeloecgsolver.so"))
    lib.emxCreateWrapper_real_T.restype = ctypes.POINTER(Emx)
    lib.emxCreateWrapper_real_T.argtypes = [ctypes.c_void_p, ctypes.c_int32, ctypes.c_int32]
    lib.emxCreate_int32_T.restype = ctypes.POINTER(Emx)
    lib.calcHRvar.restype = ctypes.c_double
    lib.detectWaves_initialize()
    lib.calcHRvar_initialize()
    ecg = recording()
    assert c_detect(lib, ecg) == keloecg.detect(ecg, beats="normal").heart_rate

    c_times, py_times = [], []
    for _ in range(ROUNDS):
        start = time.perf_counter()
        c_detect(lib, ecg)
        c_times.append(time.perf_counter() - start)
        start = time.perf_counter()
        keloecg.detect(ecg, beats="normal")
        py_times.append(time.perf_counter() - start)
    c_med, py_med = statistics.median(c_times), statistics.median(py_times)
    c_min, py_min = min(c_times), min(py_times)
    print(f"30 minutes at 200 Hz ({SAMPLES} samples), {ROUNDS} rounds each")
    print(f"C calls (ctypes)  median {c_med * 1e3:8.3f} ms   min {c_min * 1e3:8.3f} ms")
    print(f"keloecg.detect    median {py_med * 1e3:8.3f} ms   min {py_min * 1e3:8.3f} ms")
    print(f"Python / C        median {py_med / c_med:8.3f}      min {py_min / c_min:8.3f}")


if __name__ == "__main__":
    main()
