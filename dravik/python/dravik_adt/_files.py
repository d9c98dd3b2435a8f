# SPDX-License-Identifier: Apache-2.0
"""Files: what makes one, and what is in one."""

from __future__ import annotations

import errno
import os
from collections.abc import Sequence
from typing import Any

import numpy as np

from . import _core
from ._array import Array, open

_FORMATS = {".nc": "netcdf", ".cdf": "netcdf", ".raw": "raw", ".bin": "raw", ".dat": "raw"}


def create(
    path: str | os.PathLike[str], shape: Sequence[int], dtype: Any, format: str | None = None, **options: Any
) -> Array:
    """Makes a file without samples yet and opens it for writing. FileExistsError where there is one.

    `format` is "raw" or "netcdf"; without it the name's ending tells (.raw, .bin, .dat; .nc, .cdf). Options of "raw", whose
    byte order is that of `dtype`: `header` (bytes in front of the samples, zeros). Options of "netcdf": `variable` (its name),
    `axes` (their names), `chunks` (samples per axis), `deflate` (0 to 9), `unit`, `missing` (what is stored for not-a-number).
    """
    place = os.path.abspath(os.fspath(path))
    known = format or _FORMATS.get(os.path.splitext(place)[1].lower())
    if known not in ("raw", "netcdf"):
        raise ValueError(f'no format "{format}", only "raw" and "netcdf"' if format else f"{place} tells no format")
    if os.path.lexists(place):
        raise FileExistsError(errno.EEXIST, os.strerror(errno.EEXIST), place)
    sizes = [int(size) for size in shape]
    if known == "raw":
        return _create_raw(place, sizes, np.dtype(dtype), **options)
    return _create_netcdf(place, sizes, np.dtype(dtype), **options)


def variables(path: str | os.PathLike[str]) -> list[str]:
    """The names of what `open(path, variable)` opens of a netCDF file, in its order."""
    os.stat(path)
    return _core.variables_of_file(os.path.abspath(os.fspath(path)))


def _create_raw(path: str, shape: list[int], dtype: np.dtype[Any], header: int = 0) -> Array:
    is_big = dtype.str[0] == ">"
    _core.create_raw(path, shape, dtype.name, is_big, header)
    source: dict[str, Any] = {"type": "RawFile", "path": path, "shape": shape, "sampleType": dtype.name, "headerBytes": header}
    source |= {"byteOrder": "big" if is_big else "little", "writable": True}
    return open({"dravik": 1, "source": source})


def _create_netcdf(
    path: str,
    shape: list[int],
    dtype: np.dtype[Any],
    variable: str = "samples",
    axes: Sequence[str] = (),
    chunks: Sequence[int] = (),
    deflate: int = 0,
    unit: str = "",
    missing: float | None = None,
) -> Array:
    _core.create_netcdf(path, shape, dtype.name, variable, list(axes), list(chunks), deflate, unit, missing)
    return open(path, variable, writable=True)
