# SPDX-License-Identifier: Apache-2.0
"""Bulk numeric data far larger than memory: seismic volumes, grids, any regularly sampled array of one to four axes.

    import dravik_adt

    volume = dravik_adt.open("survey.sgy")
    slice = volume[:, :, 250]                    # a numpy array
    small = volume.view[::4, ::4].astype("uint8", scale=0.1)    # nothing is read
    small.to_dask().mean().compute()

Axes, steps and indices are numpy's; samples are integers of 8 to 64 bits, float32 or float64.
"""

from ._array import Array, from_numpy, open, register_opener
from ._core import Error, Loan
from ._files import create, variables

__all__ = ["Array", "Error", "Loan", "create", "from_numpy", "open", "register_opener", "variables"]
