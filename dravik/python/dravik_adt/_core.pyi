# SPDX-License-Identifier: Apache-2.0
from collections.abc import Callable, Sequence
from typing import Any

import numpy as np
from numpy.typing import NDArray

class Error(Exception): ...

class Array:
    def __init__(self, array: Array) -> None: ...
    @property
    def shape(self) -> tuple[int, ...]:
        """Samples per axis."""
    @property
    def ndim(self) -> int: ...
    @property
    def dtype(self) -> np.dtype[Any]: ...
    @property
    def chunks(self) -> tuple[int, ...]:
        """Samples per axis that cost the storage as much as one of them; all of an axis where any cut is as good."""
    @property
    def writable(self) -> bool: ...
    def __getitem__(self, key: Any) -> Any: ...
    def __setitem__(self, key: Any, value: Any) -> None: ...
    def read(
        self,
        key: Any,
        out: NDArray[Any] | None = None,
        dtype: Any = None,
        threads: int = 1,
        progress: Callable[[int, int], Any] | None = None,
    ) -> NDArray[Any]:
        """As indexing, into `out` if given, in another type if wanted (rounded and saturated). `progress(done, total)`, in
        samples, is called on this thread now and then; what it raises ends the transfer."""
    def write(self, key: Any, value: Any, threads: int = 1, progress: Callable[[int, int], Any] | None = None) -> None:
        """As assignment to an index; `value` is broadcast and converted by numpy's rules."""
    def flush(self) -> None:
        """Carries down to the storage what was written; raises what fails there, and may be called again."""
    def _text(self) -> str | None: ...
    def _info(self) -> dict[str, Any]: ...
    def _box(self, key: Any) -> tuple[tuple[int, int], ...]: ...
    def _gather(self, indices: NDArray[Any]) -> NDArray[Any]: ...
    def _subset(self, key: Any) -> Array: ...
    def _transposed(self, order: Sequence[int]) -> Array: ...
    def _astype(self, dtype: Any, scale: float, offset: float) -> Array: ...
    def _cached(self, samples: int) -> Array: ...
    def _loan(self, index: Sequence[int]) -> Loan: ...

class Loan:
    @property
    def array(self) -> NDArray[Any]:
        """The block where it lies, read-only; it stays for as long as this array exists."""
    @property
    def box(self) -> tuple[slice, ...]: ...
    def release(self) -> None: ...
    def __enter__(self) -> Loan: ...
    def __exit__(self, *args: Any) -> None: ...

def index_directly(derived: type) -> None: ...
def open(text: str, axis_count: int) -> Array: ...
def text_of_file(path: str, variable: str) -> str: ...
def from_numpy(array: NDArray[Any]) -> Array: ...
def register_opener(kind: str, function: Callable[..., NDArray[Any]]) -> None: ...
def create_raw(path: str, shape: Sequence[int], sample_type: str, is_big_endian: bool, header_bytes: int) -> None: ...
def create_netcdf(
    path: str,
    shape: Sequence[int],
    sample_type: str,
    variable: str,
    axes: Sequence[str],
    chunks: Sequence[int],
    deflate: int,
    unit: str,
    missing: float | None,
) -> None: ...
def create_hdf5(
    path: str,
    shape: Sequence[int],
    sample_type: str,
    variable: str,
    chunks: Sequence[int],
    deflate: int,
    unit: str,
    missing: float | None,
) -> None: ...
def create_tiff(
    path: str,
    shape: Sequence[int],
    sample_type: str,
    tile: tuple[int, int],
    is_deflated: bool,
    is_interleaved: bool,
    unit: str,
    missing: float | None,
) -> None: ...
def create_zarr(
    path: str,
    shape: Sequence[int],
    sample_type: str,
    is_big_endian: bool,
    axes: Sequence[str],
    chunks: Sequence[int],
    level: int,
    unit: str,
    missing: float | None,
) -> None: ...
def variables_of_file(path: str) -> list[str]: ...
