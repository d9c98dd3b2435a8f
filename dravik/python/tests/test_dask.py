# SPDX-License-Identifier: Apache-2.0
"""Arrays on many workers: the definition's text is all that travels."""

import os
import subprocess
import sys

import dask
import dask.array as da
import numpy as np
import pytest
import xarray as xr

import dravik_adt

SETUP = """
import numpy as np, dravik_adt
def bowl(box, depth=1.0):
    i, j = np.ogrid[box[0].start:box[0].stop, box[1].start:box[1].stop]
    return depth * ((i - 50) ** 2 + (j - 80) ** 2)
dravik_adt.register_opener("bowl", bowl)
"""
exec(SETUP)
SOURCE = {"kind": "bowl", "shape": (100, 160), "dtype": "float32", "chunks": (32, 40), "parameters": {"depth": 2.0}}


@pytest.fixture(scope="module")
def cluster(tmp_path_factory):
    from distributed import Client, LocalCluster

    preload = tmp_path_factory.mktemp("preload") / "openers.py"
    preload.write_text(SETUP)
    with LocalCluster(2, threads_per_worker=1, dashboard_address=None, preload=[str(preload)]) as made:
        with Client(made) as client:
            yield client


def test_chunks_suit_the_storage():
    array = dravik_adt.open(SOURCE)
    whole = array.to_dask()
    assert whole.chunks == ((100,), (160,)) and whole.dtype == array.dtype
    assert all(size % 32 == 0 for size in dravik_adt.open({**SOURCE, "shape": (9000, 9000)}).to_dask().chunks[0][:-1])
    assert whole.name == dravik_adt.open(dict(SOURCE)).to_dask().name, "equal definitions have equal names"
    assert whole.name != array.view[1:].to_dask().name


def test_workers_open_the_definition_alone(cluster):
    array = dravik_adt.open(SOURCE)
    expected = array[...]
    chunked = array.view[::-1, 10:].to_dask((32, 50))
    np.testing.assert_array_equal(chunked.compute(), expected[::-1, 10:])
    assert float(chunked.mean().compute()) == pytest.approx(float(expected[:, 10:].mean()), rel=1e-5)


def test_a_fresh_process_opens_the_text():
    array = dravik_adt.open(SOURCE).view[3, ::2].astype("int16", offset=1)
    script = SETUP + f"print(dravik_adt.open({array.definition!r})[...].sum())"
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)}
    told = subprocess.check_output([sys.executable, "-c", script], text=True, env=environment)
    assert int(told) == int(array[...].sum())


def test_stores_are_aligned_with_chunks():
    samples = np.zeros((100, 160), "float32")
    target = dravik_adt.from_numpy(samples)
    source = dravik_adt.open(SOURCE)
    da.store(source.to_dask((32, 40)), target, lock=False, scheduler="threads")
    np.testing.assert_array_equal(samples, source[...])


def test_pickled_arrays_write_whole_chunks():
    import pickle

    again = pickle.loads(pickle.dumps(dravik_adt.open(SOURCE)))
    with pytest.raises(ValueError, match=r"\[0:40, 0:40\] shares a chunk.*\(32, 40\)"):
        again[:40, :40] = 1
    with pytest.raises(ValueError, match="read-only"):
        again[96:, 40:80] = 1


def test_xarray_shows_the_same_samples():
    array = dravik_adt.open(SOURCE)
    shown = array.to_xarray()
    assert shown.shape == array.shape and isinstance(shown, xr.DataArray)
    np.testing.assert_array_equal(shown[5:9, [3, 1]].values, array[...][5:9][:, [3, 1]])
    opened = xr.open_dataset(array.definition, engine="dravik")
    np.testing.assert_array_equal(opened["samples"].values, array[...])
