# SPDX-License-Identifier: Apache-2.0
"""A first look at a file: what is in it, and a picture of a part of its samples.

usage: first_look.py FILE [VARIABLE]
"""

import sys

import matplotlib

matplotlib.use("agg")
import matplotlib.pyplot as plt

import dravik_adt

path, variable = sys.argv[1], sys.argv[2] if len(sys.argv) > 2 else ""

## [look]
relief = dravik_adt.open(path, variable)
print(relief, "in", relief.info["unit"])
for axis in relief.info["axes"]:
    print(f'{axis["name"]}: {axis["coordinates"][0]:g} to {axis["coordinates"][-1]:g} {axis["unit"]}')
## [look]

## [histogram]
counts, edges = relief.histogram(bins=4, range=(-12000, 12000))
for count, low, high in zip(counts, edges, edges[1:]):
    print(f"{low:6g} to {high:6g}: {count:7}")
## [histogram]

## [picture]
small = relief.view[::-8, ::8].to_xarray()  # nothing has been read
picture = small.plot.imshow(cmap="terrain", figsize=(8, 4))
picture.figure.savefig("first_look.png")
## [picture]
print("first_look.png:", *small.shape)
plt.close()
