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

_FORMATS = {".nc": "netcdf", ".cdf": "netcdf", ".raw": "raw", ".bin": "raw", ".dat": "raw", ".zarr": "zarr", "": "zarr"}


def create(
    path: str | os.PathLike[str], shape: Sequence[int], dtype: Any, format: str | None = None, **options: Any
) -> Array:
    """Makes a file without samples yet and opens it for writing. FileExistsError where there is one.

    `format` is "zarr", "raw" or "netcdf"; without it the name's ending tells (.zarr or none; .raw, .bin, .dat; .nc, .cdf). Into
    "zarr" any number of processes may store at once. Options of "raw": `header` (bytes in front of the samples, zeros); of
    "netcdf": `variable` (its name) and `deflate` (0 to 9); of "zarr": `level` (of compression, 0 to 9); of both: `axes` (their
    names), `chunks` (samples per axis), `unit`, `missing` (what is stored for not-a-number, or shown where nobody has written).
    The byte order is that of `dtype`, except in "netcdf".
    """
    place = os.path.abspath(os.fspath(path))
    known = format or _FORMATS.get(os.path.splitext(place)[1].lower())
    if known not in _FORMATS.values():
        raise ValueError(f'no format "{format}", only "zarr", "raw" and "netcdf"' if format else f"{place} tells no format")
    if os.path.lexists(place):
        raise FileExistsError(errno.EEXIST, os.strerror(errno.EEXIST), place)
    sizes = [int(size) for size in shape]
    if known == "raw":
        return _create_raw(place, sizes, np.dtype(dtype), **options)
    if known == "zarr":
        return _create_zarr(place, sizes, np.dtype(dtype), **options)
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


def _create_zarr(
    path: str,
    shape: list[int],
    dtype: np.dtype[Any],
    axes: Sequence[str] = (),
    chunks: Sequence[int] = (),
    level: int = 5,
    unit: str = "",
    missing: float | None = None,
) -> Array:
    _core.create_zarr(path, shape, dtype.name, dtype.str[0] == ">", list(axes), list(chunks), level, unit, missing)
    return open(path, writable=True)
