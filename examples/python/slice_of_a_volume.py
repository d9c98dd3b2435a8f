# SPDX-License-Identifier: Apache-2.0
"""A volume is written box by box, and a slice and a horizon are taken out of it without reading the rest.

usage: slice_of_a_volume.py [FOLDER]
"""

import pathlib
import sys

import numpy as np

import dravik_adt

folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".")
path = folder / "volume.raw"
path.unlink(missing_ok=True)


def amplitude(i, j, k):
    return 1000 * np.sin(0.1 * (k - 0.1 * i)) * np.cos(0.05 * j)


## [write]
volume = dravik_adt.create(path, shape=(200, 150, 250), dtype=">i2")  # big-endian, 15 MB
for box in volume.boxes(budget=1 << 20):
    i, j, k = np.ogrid[box]
    volume[box] = amplitude(i, j, k)
volume.flush()  # raises what the disk refuses
## [write]

## [read]
print(volume, "in chunks of", volume.chunks)
slice_ = volume[:, 75, :]  # an ndarray of 200 x 250
print("slice:", slice_.shape, slice_.dtype, slice_.min(), "to", slice_.max())
print("backwards:", volume[10, 75, 4::-1])
## [read]

## [view]
section = volume.view[:, 75, ::2].astype("float32", scale=0.001).transpose()  # nothing is read
print("view:", section.shape, section.dtype, f"{section[3, 10]:.3f}")
print("definition:", len(section.definition) - len(str(path.resolve())), "characters and the path")
## [view]

## [gather]
horizon = [(i, i // 2, 100 + i // 10) for i in range(0, 200, 50)]
print("horizon:", volume.gather(horizon))
## [gather]

## [loan]
with volume.loan((10, 75, 4)) as loan:
    print("loan:", loan.array.shape, "of", loan.box[0].start, "to", loan.box[0].stop)
## [loan]
