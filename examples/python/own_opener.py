# SPDX-License-Identifier: Apache-2.0
"""Python code as a source: a function computes the samples that somebody asks for."""

import numpy as np

import dravik_adt


## [opener]
def mandelbrot(box, depth=50):
    """Iterations until a point leaves the circle of radius 2, for the samples of a box."""
    y, x = np.ogrid[box]
    c = (x - 1500) / 1000 + 1j * (y - 1000) / 1000
    z, counts = np.zeros_like(c), np.zeros(c.shape, "uint8")
    for _ in range(depth):
        inside = abs(z) <= 2
        z = np.where(inside, z * z + c, z)
        counts += inside
    return counts


dravik_adt.register_opener("mandelbrot", mandelbrot)
## [opener]

## [open]
source = {"kind": "mandelbrot", "shape": (2000, 2000), "dtype": "uint8", "chunks": (100, 100), "parameters": {"depth": 20}}
picture = dravik_adt.open(source)
print(picture, "in chunks of", picture.chunks)
print(picture[1000, 300:2000:200])  # computes the chunks of one row
print(picture.definition)
## [open]

## [again]
again = dravik_adt.open(picture.view[::500, ::500].definition)  # in any process that has registered the opener
print(again[...])
## [again]

## [missing]
try:
    dravik_adt.open({**source, "kind": "julia"})
except dravik_adt.Error as error:
    print(error)
## [missing]
