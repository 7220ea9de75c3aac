"""Shared fixtures of the Python tests: the recordings, the keloecg program
and the library's C interface reached through ctypes.

CTest runs these tests against the package of the build tree with the
environment that tests/python/CMakeLists.txt sets: PYTHONPATH, and
KELOECG_PROGRAM, KELO_LIBRARY and KELO_SOURCE_DIR.
"""

import ctypes
import json
import os
import pathlib
import subprocess

import numpy as np
import pytest

SOURCE = pathlib.Path(os.environ.get("KELO_SOURCE_DIR", pathlib.Path(__file__).resolve().parents[2]))
BUNDLED = SOURCE / "data" / "mitdb100-5min.f32"
DETECT_DATA = SOURCE / "tests" / "data" / "detect"
# Three-minute MIT-BIH excerpts at 200 Hz without a sidecar: read with fs=200.
EXCERPTS = [DETECT_DATA / f"{record}.f32" for record in ("100", "119", "203")]
# A WFDB record at 360 Hz, 10 s long: too short for R-peak detection.
SHORT_WFDB = SOURCE / "tests" / "tools" / "data" / "mitdb100-10s.hea"


def program() -> str:
    path = os.environ.get("KELOECG_PROGRAM")
    if not path:
        pytest.skip("KELOECG_PROGRAM is not set (run the tests through CTest)")
    return path


def run_keloecg(*args, check=True):
    """The program's exit status, standard output and standard error."""
    done = subprocess.run([program(), *map(str, args)], capture_output=True, text=True)
    if check and done.returncode != 0:
        raise AssertionError(f"keloecg {' '.join(map(str, args))} failed: {done.stderr}")
    return done


def keloecg_json(*args):
    return json.loads(run_keloecg(*args, "--json").stdout)


@pytest.fixture(scope="session")
def clib():
    """libkeloecgsolver's C interface, the same library the extension links."""
    path = os.environ.get("KELO_LIBRARY")
    if not path:
        pytest.skip("KELO_LIBRARY is not set (run the tests through CTest)")
    return ctypes.CDLL(path)


def c_int32(values, length=None):
    """A caller-owned int32 array of `length` elements (zero-padded)."""
    a = np.zeros(length or len(values), dtype=np.int32)
    a[: len(values)] = values
    return a


def c_double(values, length=None):
    a = np.zeros(length or len(values), dtype=np.float64)
    a[: len(values)] = values
    return a


def ptr(a, ctype):
    return a.ctypes.data_as(ctypes.POINTER(ctype))
