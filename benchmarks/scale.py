# SPDX-License-Identifier: Apache-2.0
"""Figures of docs/scale.md: what a task on a Dask cluster of this machine carries and costs.

usage: scale.py [FOLDER], which has room for 1 GB
"""

import pathlib
import sys
import tempfile
import time

import dask.array as da
import numpy as np
from dask import compute, delayed
from distributed import Client, LocalCluster
from distributed.protocol import pickle

import dravik_adt


def seconds(act):
    start = time.perf_counter()
    act()
    return time.perf_counter() - start


def median_of(act, rounds=5):
    return sorted(seconds(act) for _ in range(rounds))[rounds // 2]


def made(folder):
    volume = dravik_adt.create(folder / "volume.raw", (256, 1024, 1024), "f4")
    for box in volume.boxes():
        volume[box] = np.float32(box[0].start)
    volume.flush()
    return volume


def main(folder):
    volume = made(folder)
    chunked = volume.to_dask()
    graph = dict(chunked.__dask_graph__())
    source = next(each for each in graph.values() if type(each).__name__ == "Chunks")
    print(f"definition {len(volume.definition)} bytes, pickled with shape and type {len(pickle.dumps(source))} bytes")
    print(f"{chunked.npartitions} chunks of {np.prod(chunked.chunksize) * 4 / 1e6:.1f} MB")
    text = volume.definition
    print(f"open {1e6 * median_of(lambda: dravik_adt.open(text), 101):.0f} us")
    print(f"read by one thread {median_of(lambda: [volume[box].sum() for box in volume.boxes(1 << 24)]):.2f} s")
    for workers in (1, 2):
        with LocalCluster(workers, threads_per_worker=1, dashboard_address=None) as cluster, Client(cluster):
            on_workers(volume, workers, folder)


def on_workers(volume, workers, folder):
    chunked = volume.to_dask()
    tasks = 2000
    calls = [delayed(abs)(-k, pure=False) for k in range(tasks)]
    print(f"{workers} processes: {1e3 * median_of(lambda: compute(*calls), 3) / tasks:.2f} ms per empty task")
    print(f"{workers} processes: sum {median_of(lambda: chunked.sum().compute()):.2f} s")
    doubled = 2 * chunked
    for name in (f"copy{workers}.raw", f"copy{workers}.zarr"):
        target = dravik_adt.create(folder / name, volume.shape, "f4")
        aligned = doubled.rechunk(target.to_dask().chunks)
        took = seconds(lambda: da.store(aligned, target, lock=False))
        print(f"{workers} processes: read, doubled and stored in {name} {took:.2f} s")
        assert target[200, 5, 5] == 2 * volume[200, 5, 5]


if __name__ == "__main__":
    with tempfile.TemporaryDirectory(dir=sys.argv[1] if len(sys.argv) > 1 else None) as made_here:
        main(pathlib.Path(made_here))
