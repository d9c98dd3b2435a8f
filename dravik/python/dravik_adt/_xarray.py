# SPDX-License-Identifier: Apache-2.0
"""Arrays as xarray's, lazily indexed, and the engine "dravik" of xarray.open_dataset."""

from __future__ import annotations

import os
from typing import Any

import numpy as np
import xarray as xr
from xarray.backends import BackendArray, BackendEntrypoint
from xarray.core import indexing

from ._array import Array, open
from ._files import variables


class _Lazy(BackendArray):
    def __init__(self, array: Array) -> None:
        self._array = array
        self.shape, self.dtype = array.shape, array.dtype

    def __getitem__(self, key: Any) -> Any:
        return indexing.explicit_indexing_adapter(key, self.shape, indexing.IndexingSupport.BASIC, self._array.__getitem__)


def _variable(array: Array, dims: tuple[str, ...]) -> xr.Variable:
    info = array.info
    attributes = dict(info["attributes"])
    if info["unit"]:
        attributes["units"] = info["unit"]
    encoding = {} if info["missing"] is None else {"_FillValue": info["missing"]}
    lazy = indexing.LazilyIndexedArray(_Lazy(array))  # type: ignore[no-untyped-call]
    return xr.Variable(dims, lazy, attributes, encoding)  # type: ignore[no-untyped-call]


def _dims(array: Array) -> tuple[str, ...]:
    names = [axis["name"] or f"dim_{k}" for k, axis in enumerate(array.info["axes"])]
    return tuple(name if names.count(name) == 1 else f"{name}_{k}" for k, name in enumerate(names))


def _coordinates(array: Array, dims: tuple[str, ...]) -> dict[str, Any]:
    return {
        name: (name, np.asarray(axis["coordinates"]), {"units": axis["unit"]} if axis["unit"] else {})
        for name, axis in zip(dims, array.info["axes"])
        if axis["coordinates"] is not None
    }


def to_xarray(array: Array) -> xr.DataArray:
    dims = _dims(array)
    return xr.DataArray(_variable(array, dims), _coordinates(array, dims), dims, array.info["name"] or None)


class DravikBackend(BackendEntrypoint):
    """`xarray.open_dataset(path, engine="dravik")`: what the openers recognise, all variables of a netCDF file."""

    description = "Files and definitions that dravik_adt opens"
    open_dataset_parameters = ("filename_or_obj", "drop_variables", "variable", "decode_times", "decode_coords")

    def open_dataset(  # type: ignore[override]
        self,
        filename_or_obj: Any,
        *,
        drop_variables: Any = None,
        variable: str = "",
        decode_times: bool = True,
        decode_coords: bool = True,
    ) -> xr.Dataset:
        drop = {drop_variables} if isinstance(drop_variables, str) else set(drop_variables or ())
        found: dict[str, Any] = {}
        for array in _arrays(filename_or_obj, variable):
            dims = _dims(array)
            found[array.info["name"] or variable or "samples"] = _variable(array, dims)
            for name, told in _coordinates(array, dims).items():
                found.setdefault(name, told)
        data = xr.Dataset({name: told for name, told in found.items() if name not in drop})
        return xr.decode_cf(
            data, mask_and_scale=False, concat_characters=False, decode_times=decode_times, decode_coords=decode_coords
        )

    def guess_can_open(self, filename_or_obj: Any) -> bool:
        return isinstance(filename_or_obj, (str, os.PathLike)) and os.fspath(filename_or_obj).lstrip().startswith("{")


def _arrays(place: Any, variable: str) -> list[Array]:
    """The array of a definition, of a variable, or of each variable in a file; coordinates first, with all that is told of
    them."""
    array = open(place, variable)
    if variable or not isinstance(place, (str, os.PathLike)) or '"type":"NetcdfFile"' not in (array.definition or ""):
        return [array]
    if os.fspath(place).lstrip().startswith("{"):
        return [array]
    arrays = [open(place, name) for name in variables(place)]
    return sorted(arrays, key=lambda each: [axis["name"] for axis in each.info["axes"]] != [each.info["name"]])
