"""Many recordings analysed on a Dask cluster, as ``keloecg batch`` analyses them on one machine.

::

    from keloecg.distributed import analyse
    summary = analyse("cohort/", "results/")          # a LocalCluster on this machine
    summary[summary.error.notna()]                    # the recordings that failed

    from distributed import Client
    summary = analyse("/shared/cohort", "/shared/results", Client("tcp://scheduler:8786"))

Each recording is one task: a worker reads it, analyses it and writes its
JSON document (the one ``keloecg batch`` writes) into the output folder. The
summary (``summary.csv`` of ``keloecg batch``, one row per recording in the
order of the inputs) is written there too and returned as a pandas
DataFrame. A recording that fails, even by taking its worker down, is
listed with its error in the ``error`` column; the others complete.

On a cluster of several machines the workers open the recordings and write
the results themselves: inputs and output folder must lie on storage that
every worker sees under the same path, and every worker needs keloecg
installed (see docs/python.md).
"""

from __future__ import annotations

import io
import logging
import math
import os
from typing import Iterable, Optional, Union

from . import _input_error, _keloecg

__all__ = ["analyse"]

log = logging.getLogger(__name__)

PathLike = Union[str, os.PathLike]


def _analyse_one(file: str, json_path: str, settings: dict):
    """One recording, on a worker: (error or None, summary row)."""
    return _keloecg.analyse_for_batch(file, json_path, settings)


def _settings(lead, format, fs, start, duration, full_scale, window, beats) -> dict:
    """The options of keloecg batch, checked as the program checks them."""
    def positive(name, v):
        if v is not None and not (isinstance(v, (int, float)) and math.isfinite(v) and v > 0):
            raise _input_error(f"{name} must be more than 0")
        return None if v is None else float(v)

    if not (isinstance(start, (int, float)) and math.isfinite(start) and start >= 0):
        raise _input_error("start must be 0 or more seconds")
    if not (isinstance(window, int) and 1 <= window <= 86400):
        raise _input_error("window must be 1 to 86400 seconds")
    if beats not in ("all", "normal"):
        raise _input_error(f'beats must be "all" or "normal", not "{beats}"')
    return {"lead": None if lead is None else str(lead), "format": format, "fs": positive("fs", fs),
            "start": float(start), "duration": positive("duration", duration),
            "full_scale": positive("full_scale", full_scale), "window": window, "beats": beats}


def _local_client(n_workers: Optional[int]):
    from distributed import Client, LocalCluster

    # One single-threaded process per core: the analysis itself is
    # single-threaded, and processes keep the HRV routines' static state
    # apart.
    cluster = LocalCluster(n_workers=n_workers or os.cpu_count() or 1, threads_per_worker=1, processes=True,
                           dashboard_address=None)
    return Client(cluster), cluster


def _outcomes(client, files, json_paths, settings):
    """Rows of the summary in input order; a task that failed on the cluster is an error row."""
    from distributed import wait

    keys = [f"keloecg-{os.path.basename(p)}-{i}" for i, p in enumerate(json_paths)]
    futures = client.map(_analyse_one, files, json_paths, settings=settings, key=keys, pure=False)
    wait(futures)
    rows, failed = [], 0
    for file, future in zip(files, futures):
        try:
            error, row = future.result()
        except Exception as e:  # the worker died, or the task could not run at all
            error = f"{file}: the analysis did not complete on the cluster ({type(e).__name__}: {e})"
            row = _keloecg.summary_row(file, error)
        if error:
            failed += 1
            log.warning("%s", error)
        rows.append(row)
    for future in futures:
        future.release()
    return rows, failed


def analyse(inputs: Union[PathLike, Iterable[PathLike]], out_dir: PathLike, client=None, *,
            recursive: bool = False, lead: Union[int, str, None] = None, format: str = "auto",
            fs: Optional[float] = None, start: float = 0.0, duration: Optional[float] = None,
            full_scale: Optional[float] = None, window: int = 10, beats: str = "all",
            n_workers: Optional[int] = None):
    """Analyses recordings on a Dask cluster; returns the summary as a pandas DataFrame.

    inputs: a recording or a folder, or several (a folder gives the
    recordings in it, with ``recursive`` those of its subfolders too).
    out_dir: folder that receives one JSON document per recording (named
    after the record, as keloecg batch names them) and summary.csv.
    client: a ``distributed.Client``; default: a LocalCluster of
    ``n_workers`` processes (one per core) for this call only. The other
    options are those of keloecg batch (--lead, --format, --fs, --start,
    --duration, --full-scale, --window, --beats). Raises InputError when the inputs
    cannot be listed or the output folder cannot be made; a recording that
    fails is a row with its ``error``.
    """
    import pandas

    settings = _settings(lead, format, fs, start, duration, full_scale, window, beats)
    if isinstance(inputs, (str, os.PathLike)):
        inputs = [inputs]
    files = _keloecg.batch_inputs([os.fspath(p) for p in inputs], recursive)
    out_dir = os.path.abspath(os.fspath(out_dir))
    try:
        os.makedirs(out_dir, exist_ok=True)
    except OSError as e:
        raise _input_error(f"cannot create the output folder: {e.strerror}", out_dir) from None
    json_paths = [os.path.join(out_dir, name + ".json") for name in _keloecg.batch_names(files)]

    cluster = None
    if client is None:
        client, cluster = _local_client(n_workers)
    try:
        rows, failed = _outcomes(client, files, json_paths, settings)
    finally:
        if cluster is not None:
            client.close()
            cluster.close()

    csv = _keloecg.summary_csv(rows)
    summary = os.path.join(out_dir, "summary.csv")
    _keloecg.write_atomically(summary, csv)
    log.info("%d recordings analysed, %d failed; results in %s, summary in %s", len(files) - failed, failed,
             out_dir, summary)
    return pandas.read_csv(io.StringIO(csv))
