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


class _Lazy(BackendArray):
    def __init__(self, array: Array) -> None:
        self._array = array
        self.shape, self.dtype = array.shape, array.dtype

    def __getitem__(self, key: Any) -> Any:
        return indexing.explicit_indexing_adapter(
            key, self.shape, indexing.IndexingSupport.BASIC, self._array.__getitem__
        )


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
    """`xarray.open_dataset(path, engine="dravik")`: what the openers recognise."""

    description = "Files and definitions that dravik_adt opens"
    open_dataset_parameters = ("filename_or_obj", "drop_variables", "variable")

    def open_dataset(  # type: ignore[override]
        self, filename_or_obj: Any, *, drop_variables: Any = None, variable: str = "", **_: Any
    ) -> xr.Dataset:
        array = open(filename_or_obj, variable)
        dims = _dims(array)
        name = array.info["name"] or variable or "samples"
        drop = {drop_variables} if isinstance(drop_variables, str) else set(drop_variables or ())
        data = {} if name in drop else {name: _variable(array, dims)}
        return xr.Dataset(data, {k: v for k, v in _coordinates(array, dims).items() if k not in drop})

    def guess_can_open(self, filename_or_obj: Any) -> bool:
        return isinstance(filename_or_obj, (str, os.PathLike)) and os.fspath(filename_or_obj).lstrip().startswith("{")
