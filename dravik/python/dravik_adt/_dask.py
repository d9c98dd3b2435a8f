# SPDX-License-Identifier: Apache-2.0
"""Arrays as dask arrays: each task opens its definition, once per process, and reads its own chunk."""

from __future__ import annotations

import threading
import weakref
from collections.abc import Sequence
from typing import Any

import numpy as np
from numpy.typing import NDArray

from ._array import Array, block_of, open

_MOST_BYTES = 64 << 20

_open: weakref.WeakValueDictionary[str, Array] = weakref.WeakValueDictionary()
_recent: list[Array] = []  # keeps the last few open between two tasks
_lock = threading.Lock()


def opened(definition: str) -> Array:
    """The array of a definition, one per process while somebody uses it."""
    with _lock:
        array = _open.get(definition)
        if array is None:
            array = _open[definition] = open(definition)
        if array in _recent:
            _recent.remove(array)
        _recent.append(array)
        del _recent[:-8]
        return array


class Chunks:
    """What dask indexes: reads boxes of the array of a definition; a process's own array stays itself. What travels opens
    nothing before it is read."""

    def __init__(self, array: Array) -> None:
        self._definition = array.definition
        self._array = array if self._definition is None else None
        self.shape, self.dtype, self.ndim = array.shape, array.dtype, array.ndim

    def __getitem__(self, key: Any) -> NDArray[Any]:
        array = self._array if self._definition is None else opened(self._definition)
        assert array is not None
        samples: NDArray[Any] = array[key]
        return samples

    def __getstate__(self) -> dict[str, Any]:
        if self._array is not None:
            self._array.__reduce__()  # which tells why it cannot travel
        return self.__dict__


def to_dask(array: Array, chunks: Sequence[int] | None) -> Any:
    from dask.array.core import from_array
    from dask.base import tokenize

    if chunks is None:
        chunks = block_of(array.shape, array.chunks, _MOST_BYTES // array.dtype.itemsize)
    return from_array(
        Chunks(array),
        chunks=tuple(chunks),
        name="dravik-" + tokenize(array, tuple(chunks)),  # type: ignore[no-untyped-call]
        lock=False,
        asarray=False,
        fancy=False,
        meta=np.empty((0,) * array.ndim, array.dtype),
    )
