# SPDX-License-Identifier: Apache-2.0
"""Statistics of a volume on worker processes, and a result that they store; all that travels is a line of text.

usage: statistics_over_dask.py [FOLDER]
"""

import pathlib
import sys

import dask.array as da
import numpy as np
from distributed import Client, LocalCluster

import dravik_adt


def made(path):
    path.unlink(missing_ok=True)
    volume = dravik_adt.create(path, (64, 100, 300), "float32")
    for box in volume.boxes():
        i, j, k = np.ogrid[box]
        volume[box] = i + j / 128 + k % 4
    volume.flush()
    return volume


def main(folder):
    volume = made(folder / "measured.raw")
    with LocalCluster(2, threads_per_worker=1, dashboard_address=None) as cluster, Client(cluster):
        ## [compute]
        samples = volume.to_dask(chunks=(16, 100, 300))
        mean, deviation, most = da.compute(samples.mean(dtype="f8"), samples.std(dtype="f8"), samples.max())
        print(f"mean {mean:.4f}, deviation {deviation:.4f}, most {most:.4f}")
        ## [compute]

        ## [store]
        path = folder / "anomaly.raw"
        path.unlink(missing_ok=True)
        target = dravik_adt.create(path, samples.shape, "float32")
        anomaly = (samples - mean).rechunk((8 * target.chunks[0], *target.chunks[1:]))
        da.store(anomaly, target, lock=False)
        print(f"stored in chunks of {target.chunks}: {target[63, 99, 3]:.4f}")
        ## [store]

        ## [refused]
        try:
            da.store(anomaly.rechunk((5, 100, 300)), target, lock=False)
        except ValueError as error:
            print("refused:", str(error).rpartition(": ")[2])
        ## [refused]


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "."))
