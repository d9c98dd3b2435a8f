# SPDX-License-Identifier: Apache-2.0
"""Array, and what makes one."""

from __future__ import annotations

import errno
import hashlib
import json
import os
import re
from collections.abc import Callable, Iterator, Mapping, Sequence
from typing import Any, NoReturn

import numpy as np
from numpy.typing import NDArray

from . import _core

Slices = tuple[slice, ...]

_AXIS_COUNT = re.compile(r'"x-axisCount":\s*([1-4])\s*[,}]')


class _View:
    """What `Array.view` is: indexed like an array, it gives an array that shows a part and reads nothing."""

    def __init__(self, array: Array) -> None:
        self._array = array

    def __getitem__(self, key: Any) -> Array:
        return Array(self._array._subset(key))


class Array(_core.Array):
    """Samples on one to four axes, somewhere: in a file, behind a definition, or in memory.

    Indexing reads: `a[key]` is an ndarray, for integers on all axes a numpy scalar. `key` is numpy's basic indexing,
    negative steps included. One array serves any number of threads; transfers let go of the interpreter's lock.

    Errors are IndexError, ValueError, TypeError, MemoryError, OSError with its errno, and `Error` for the rest.
    """

    @property
    def view(self) -> _View:
        """`a.view[key]`: an array that shows this part of the samples and reads nothing. Writing through it writes the
        samples."""
        return _View(self)

    @property
    def nbytes(self) -> int:
        """Bytes of all samples; none of them need be in memory."""
        return self.size * self.dtype.itemsize

    @property
    def size(self) -> int:
        """Number of samples."""
        return int(np.prod(self.shape, dtype=object))

    @property
    def definition(self) -> str | None:
        """One line of JSON that opens the same samples elsewhere; None for those in this process's memory. Equal
        definitions have equal texts."""
        return self._text()

    @property
    def info(self) -> dict[str, Any]:
        """What the source tells: "axes" (a list of "name", "unit", "coordinates", None where unknown), "name" and "unit" of
        the samples, "missing" (the sample that means it, or None), "attributes"."""
        return self._info()

    def transpose(self, *axes: int) -> Array:
        """The axes in another order, reversed without one; no sample moves."""
        order = axes or tuple(reversed(range(self.ndim)))
        return Array(self._transposed([axis + self.ndim if axis < 0 else axis for axis in order]))

    def astype(self, dtype: Any, scale: float = 1.0, offset: float = 0.0) -> Array:
        """Every sample x as scale * x + offset, rounded to the nearest and saturated; nothing is read."""
        return Array(self._astype(np.dtype(dtype), scale, offset))

    def cached(self, samples: int) -> Array:
        """The same samples, of which up to so many are kept at hand in the blocks that they come in."""
        return Array(self._cached(samples))

    def loan(self, index: Sequence[int]) -> _core.Loan:
        """The block around an index where it lies: `.array` (read-only, not copied) and `.box` (slices). A context
        manager; arrays made of it keep the samples alive for as long as they exist."""
        return self._loan(tuple(index))

    def gather(self, indices: Any) -> NDArray[Any]:
        """The samples at `indices`, of shape (number of samples, number of axes): points, a polyline, a horizon. Every block of
        the storage is asked for once."""
        return self._gather(np.asarray(indices))

    def blocks(self, budget: int = 1 << 22) -> Iterator[tuple[Slices, NDArray[Any]]]:
        """All samples, in boxes of at most about `budget` samples that suit the storage: (slices, ndarray)."""
        for box in self.boxes(budget):
            yield box, self[box]

    def boxes(self, budget: int = 1 << 22) -> Iterator[Slices]:
        """The boxes of `blocks`, with nothing read."""
        block = block_of(self.shape, self.chunks, budget)
        counts = [-(-size // step) for size, step in zip(self.shape, block)]
        for place in np.ndindex(*counts):
            yield tuple(slice(k * step, min((k + 1) * step, size)) for k, step, size in zip(place, block, self.shape))

    def histogram(self, bins: int = 256, range: tuple[float, float] | None = None) -> tuple[NDArray[Any], NDArray[Any]]:
        """Counts and the edges of `bins` bins, as numpy.histogram has them, block by block; not-a-number is left out. Without
        a range the samples are read twice."""
        low, high = _range_of(self) if range is None else range
        counts = np.zeros(bins, np.int64)
        edges = np.histogram_bin_edges(np.zeros(0), bins, (low, high))
        for _, samples in self.blocks():
            counts += np.histogram(samples[~np.isnan(samples)] if samples.dtype.kind == "f" else samples, edges)[0]
        return counts, edges

    def to_dask(self, chunks: Sequence[int] | None = None) -> Any:
        """A dask array of this one. Chunks are whole multiples of `self.chunks`, up to 64 MB, unless they are given."""
        from ._dask import to_dask

        return to_dask(self, chunks)

    def to_xarray(self) -> Any:
        """A lazily indexed xarray.DataArray, with axis names, coordinates and units where the source tells them."""
        from ._xarray import to_xarray

        return to_xarray(self)

    def __len__(self) -> int:
        return int(self.shape[0])

    def __array__(self, dtype: Any = None) -> NDArray[Any]:
        samples: NDArray[Any] = self[...]
        return samples if dtype is None else samples.astype(dtype, copy=False)

    def __dask_tokenize__(self) -> Any:
        text = self.definition
        return ("dravik_adt.Array", hashlib.sha256(text.encode()).hexdigest() if text else id(self))

    def __reduce__(self) -> Any:
        text = self.definition
        if text is None:
            raise TypeError(
                "an array over this process's own memory has no definition and cannot be pickled: write it to a file, or "
                "register an opener in every process"
            )
        return _reopened, (text,)

    def __repr__(self) -> str:
        return f"<dravik_adt.Array {_shape_text(self.shape)} {self.dtype}{'' if self.writable else ' read-only'}>"

    def _repr_html_(self) -> str:
        import html

        rows = [
            ("shape", _shape_text(self.shape)),
            ("type", self.dtype),
            ("bytes", f"{self.nbytes:,}"),
            ("chunks", _shape_text(self.chunks)),
            ("definition", self.definition or "this process's memory"),
        ]
        cells = "".join(f"<tr><th>{name}</th><td>{html.escape(str(value))}</td></tr>" for name, value in rows)
        return f"<table>{cells}</table>"


class _Reopened(Array):
    """An array in another process than the one that pickled it. A task that writes there may be the last thing that its
    process does, and another process may write beside it: so it writes whole chunks, and each write is flushed."""

    def __setitem__(self, key: Any, value: Any) -> None:
        self.write(key, value)

    def write(self, key: Any, value: Any, threads: int = 1, progress: Any = None) -> None:
        box = self._box(key)
        for (start, stop), chunk, size in zip(box, self.chunks, self.shape):
            if start % chunk != 0 or (stop % chunk != 0 and stop != size):
                raise ValueError(
                    f"a task that writes {_box_text(box)} shares a chunk of the storage with another one: rechunk to "
                    f"whole multiples of {tuple(self.chunks)}"
                )
        super().write(key, value, threads, progress)
        self.flush()


class _NotOpened:
    """What cannot be opened in this process. It says so where it is used: an exception amid unpickling would end a worker's
    connection instead of a task."""

    def __init__(self, text: str, error: Exception) -> None:
        self._text, self._error = text, error

    def _raise(self) -> NoReturn:
        if '"type":"NetcdfFile"' in self._text and '"writable":true' in self._text:
            raise OSError(
                errno.EBUSY,
                f"{self._error} (a netCDF file that is written is open in one process alone: store on threads of that "
                "process, or into a raw file)",
            ) from self._error
        raise self._error

    def __getitem__(self, key: Any) -> Any:
        self._raise()

    def __setitem__(self, key: Any, value: Any) -> None:
        self._raise()

    def __getattr__(self, name: str) -> Any:
        if name.startswith("_"):  # what pickle and copy ask every object for
            raise AttributeError(name)
        self._raise()


_core.index_directly(Array)


def open(definition: str | os.PathLike[str] | Mapping[str, Any], variable: str = "", *, writable: bool = False) -> Array:
    """The array that a definition describes, or that lies in a file.

    `definition` is a definition's text (a line of JSON), the path of a file whose format is recognised by its content, or
    a mapping: a parsed definition, or {"kind", "shape", "dtype"} with optional "chunks" and "parameters" for a source that
    `register_opener` knows. `variable` names one of several in a file; without it the one with most samples is meant.
    `writable` opens a file for writing as well; a definition tells itself whether it is written.
    """
    if isinstance(definition, Mapping):
        return _opened(json.dumps(definition if "dravik" in definition else _python_source(definition)))
    text = os.fspath(definition)
    if not isinstance(definition, os.PathLike) and text.lstrip().startswith("{"):
        return _opened(text)
    os.stat(text)  # tells a missing file as Python's users expect
    line = _core.text_of_file(os.path.abspath(text), variable)
    return _opened(_writable(line) if writable else line)


def _writable(text: str) -> str:
    definition = json.loads(text)
    source = definition["entity"]["source"]
    if "writable" not in source:
        raise ValueError(f"files of the type {source['type']} are not written")
    source["writable"] = True
    return json.dumps(definition)


def _opened(text: str) -> Array:
    # An array of fewer axes than its definition alone would give says so in its text.
    axes = _AXIS_COUNT.search(text)
    return Array(_core.open(text, int(axes[1]) if axes else 0))


def _reopened(text: str) -> Array | _NotOpened:
    try:
        return _Reopened(_opened(text))
    except Exception as error:
        return _NotOpened(text, error)


def from_numpy(array: NDArray[Any]) -> Array:
    """An array over the memory of `array`, which it keeps and does not copy."""
    return Array(_core.from_numpy(array))


def register_opener(kind: str, function: Callable[..., NDArray[Any]]) -> None:
    """Makes `function(box, **parameters)` the source of all definitions of this kind in this process. `box` is a tuple of
    slices with start and stop; an array of its shape is returned. It may be called on any thread."""
    _core.register_opener(kind, function)


def _python_source(mapping: Mapping[str, Any]) -> dict[str, Any]:
    known = {"kind", "shape", "dtype", "chunks", "parameters"}
    if unknown := set(mapping) - known:
        raise ValueError(f"unknown in the definition of a Python source: {', '.join(sorted(unknown))}")
    source = {
        "type": "Python",
        "kind": mapping["kind"],
        "shape": list(mapping["shape"]),
        "dtype": np.dtype(mapping["dtype"]).name,
        "chunks": list(mapping.get("chunks") or []),
        "parameters": json.dumps(mapping["parameters"], sort_keys=True) if mapping.get("parameters") else "",
    }
    return {"dravik": 1, "source": source}


def block_of(shape: Sequence[int], chunks: Sequence[int], budget: int) -> list[int]:
    """Samples per axis of boxes: whole chunks, grown along the last axes first, cut along the first where one is too
    large."""
    if budget < 1:
        raise ValueError("a budget holds at least one sample")
    block = list(chunks)
    for axis in range(len(block)):
        rest = int(np.prod(block[axis + 1 :], dtype=object))
        block[axis] = max(1, min(block[axis], budget // rest))
    for axis in reversed(range(len(block))):
        others = int(np.prod(block, dtype=object)) // block[axis]
        block[axis] = min(shape[axis], block[axis] * max(1, budget // (others * block[axis])))
        if block[axis] < shape[axis]:
            break
    return block


def _range_of(array: Array) -> tuple[float, float]:
    low, high = np.inf, -np.inf
    for _, samples in array.blocks():
        finite = samples[np.isfinite(samples)] if samples.dtype.kind == "f" else samples
        if finite.size:
            low, high = min(low, finite.min()), max(high, finite.max())
    return (float(low), float(high)) if low <= high else (0.0, 1.0)


def _box_text(box: Sequence[tuple[int, int]]) -> str:
    return "[" + ", ".join(f"{start}:{stop}" for start, stop in box) + "]"


def _shape_text(shape: Sequence[int]) -> str:
    return " x ".join(map(str, shape))
