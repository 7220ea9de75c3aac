"""keloecg.distributed on a LocalCluster of two worker processes gives what
keloecg batch gives: the same JSON document per recording, the same
summary.csv, failed recordings listed with the program's messages; and a
recording that takes its worker down is listed as failed, not lost."""

import json
import os

import pandas as pd
import pytest

from conftest import BUNDLED, EXCERPTS, SHORT_WFDB, run_keloecg

distributed = pytest.importorskip("distributed")

from keloecg import InputError  # noqa: E402
from keloecg.distributed import _outcomes, analyse  # noqa: E402

MISSING = "no/such/recording.f32"
INPUTS = [str(p) for p in (BUNDLED, *EXCERPTS, SHORT_WFDB)] + [MISSING]


@pytest.fixture(scope="module")
def client():
    # The scheduler gives up on a task at once when it kills its worker.
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None,
                                  scheduler_kwargs={"allowed_failures": 0}) as cluster, \
            distributed.Client(cluster) as c:
        yield c


def test_cluster_run_equals_keloecg_batch(client, tmp_path):
    batch = run_keloecg("batch", *INPUTS, "--fs", 200, "--out", tmp_path / "batch", check=False)
    assert batch.returncode == 2  # two recordings fail
    summary = analyse(INPUTS, tmp_path / "dask", client, fs=200)

    assert summary.equals(pd.read_csv(tmp_path / "batch" / "summary.csv"))
    assert (tmp_path / "dask" / "summary.csv").read_bytes() == (tmp_path / "batch" / "summary.csv").read_bytes()
    assert sorted(os.listdir(tmp_path / "dask")) == sorted(os.listdir(tmp_path / "batch"))
    for name in os.listdir(tmp_path / "batch"):
        if name.endswith(".json"):
            assert json.loads((tmp_path / "dask" / name).read_text()) == json.loads(
                (tmp_path / "batch" / name).read_text()), name

    failed = summary[summary.error.notna()]
    assert failed.file.tolist() == [str(SHORT_WFDB), MISSING]
    assert failed.error.tolist()[1] == f"{MISSING}: no such file"
    for error in failed.error:
        assert f"keloecg: error: {error}" in batch.stderr
    assert summary.error.isna().sum() == len(INPUTS) - 2


def crash_on_poison(file, json_path, settings):
    """A task that takes its worker process down on one file."""
    if file.endswith("poison.f32"):
        os._exit(3)
    from keloecg.distributed import _analyse_one
    return _analyse_one(file, json_path, settings)


def test_a_recording_that_kills_its_worker_is_listed(client, tmp_path, monkeypatch):
    files = [str(BUNDLED), "poison.f32"]
    paths = [str(tmp_path / "a.json"), str(tmp_path / "b.json")]
    import keloecg.distributed as kd

    monkeypatch.setattr(kd, "_analyse_one", crash_on_poison)
    rows, failed = _outcomes(client, files, paths, {"fs": 200.0, "window": 10})
    assert failed == 1
    assert rows[0][2] == "" and (tmp_path / "a.json").exists()
    assert rows[1][0] == "poison.f32"
    assert rows[1][2].startswith("poison.f32: the analysis did not complete on the cluster (KilledWorker")


def test_bad_inputs_and_options_raise(tmp_path):
    empty = tmp_path / "empty"
    empty.mkdir()
    with pytest.raises(InputError, match="no recordings found in this folder"):
        analyse(empty, tmp_path / "out")
    with pytest.raises(InputError, match="window must be 1 to 86400 seconds"):
        analyse(INPUTS, tmp_path / "out", window=0)
    with pytest.raises(InputError, match='beats must be "all" or "normal", not "some"'):
        analyse(INPUTS, tmp_path / "out", beats="some")
    (tmp_path / "file").write_text("")
    with pytest.raises(InputError, match="cannot create the output folder"):
        analyse(INPUTS, tmp_path / "file" / "out")
