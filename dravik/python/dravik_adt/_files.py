# SPDX-License-Identifier: Apache-2.0
"""Files: what makes one, and what is in one."""

from __future__ import annotations

import errno
import os
from collections.abc import Callable, Sequence
from typing import Any

import numpy as np

from . import _core
from ._array import Array, open

_FORMATS = {
    "zarr": ("", ".zarr"),
    "raw": (".raw", ".bin", ".dat"),
    "netcdf": (".nc", ".cdf"),
    "hdf5": (".h5", ".hdf5", ".hdf"),
    "tiff": (".tif", ".tiff"),
}


def create(path: str | os.PathLike[str], shape: Sequence[int], dtype: Any, format: str | None = None, **options: Any) -> Array:
    """Makes a file without samples yet and opens it for writing. FileExistsError where there is one.

    `format` is "zarr", "raw", "netcdf", "hdf5" or "tiff". Without it the name's ending decides: .zarr or none; .raw, .bin or
    .dat; .nc or .cdf; .h5, .hdf5 or .hdf; .tif or .tiff. Any number of processes may store into "zarr" at once. Options:

    "raw"     `header`: bytes in front of the samples, zeros
    "zarr"    `axes` (their names), `chunks`, `level` (of compression, 0 to 9), `unit`, `missing`
    "netcdf"  `variable` (its name), `axes`, `chunks`, `deflate` (0 to 9), `unit`, `missing`
    "hdf5"    `variable` (groups on the way are made), `chunks`, `deflate`, `unit`, `missing`
    "tiff"    `tile` (rows and columns, multiples of 16), `deflate` (True or False), `interleaved`, `unit`, `missing`

    `chunks` are samples per axis. `missing` is what is stored for not-a-number, in "zarr" what unwritten chunks show. "raw" and
    "zarr" keep the byte order of `dtype`.
    """
    place = os.path.abspath(os.fspath(path))
    ending = os.path.splitext(place)[1].lower()
    known = format or next((name for name, endings in _FORMATS.items() if ending in endings), None)
    if known not in _FORMATS:
        names = ", ".join(f'"{name}"' for name in _FORMATS)
        raise ValueError(f'no format "{format}", only {names}' if format else f"{place}: no format has the ending {ending}")
    if os.path.lexists(place):
        raise FileExistsError(errno.EEXIST, os.strerror(errno.EEXIST), place)
    sizes = [int(size) for size in shape]
    return _MAKERS[known](place, sizes, np.dtype(dtype), **options)


def variables(path: str | os.PathLike[str]) -> list[str]:
    """The names that `open(path, variable)` takes: variables of a netCDF file, data sets of an HDF5 file, arrays of a Zarr
    group, numbers of the images of a TIFF file. Empty for a file of one array."""
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


def _create_hdf5(
    path: str,
    shape: list[int],
    dtype: np.dtype[Any],
    variable: str = "samples",
    chunks: Sequence[int] = (),
    deflate: int = 0,
    unit: str = "",
    missing: float | None = None,
) -> Array:
    _core.create_hdf5(path, shape, dtype.name, variable, list(chunks), deflate, unit, missing)
    return open(path, variable, writable=True)


def _create_tiff(
    path: str,
    shape: list[int],
    dtype: np.dtype[Any],
    tile: Sequence[int] = (256, 256),
    deflate: bool = False,
    interleaved: bool = False,
    unit: str = "",
    missing: float | None = None,
) -> Array:
    rows, columns = tile
    _core.create_tiff(path, shape, dtype.name, (rows, columns), deflate, interleaved, unit, missing)
    return open(path, writable=True)


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


_MAKERS: dict[str, Callable[..., Array]] = {
    "zarr": _create_zarr,
    "raw": _create_raw,
    "netcdf": _create_netcdf,
    "hdf5": _create_hdf5,
    "tiff": _create_tiff,
}
