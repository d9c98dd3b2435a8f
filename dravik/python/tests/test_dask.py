# SPDX-License-Identifier: Apache-2.0
"""Arrays on many workers: the definition's text is all that travels."""

import os
import subprocess
import sys

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


def test_stores_survive_the_death_of_a_worker(cluster, tmp_path):
    samples = np.arange(40 * 50 * 600, dtype="float32").reshape(40, 50, 600)
    target = dravik_adt.create(tmp_path / "stored.raw", samples.shape, ">f4")
    once = str(tmp_path / "once")

    class Deadly:  # ends its process in the middle of a store, once: a part of the chunk is written
        def __init__(self, array):
            self.array = array

        def __setitem__(self, key, value):
            if key[0].start >= 8 and not os.path.exists(once):
                open(once, "w").close()
                dravik_adt.open(self.array.definition)[key[0].start] = -1
                os.kill(os.getpid(), 9)
            self.array[key] = value

    chunked = da.from_array(samples, chunks=(target.chunks[0], -1, -1))
    da.store(chunked, Deadly(target), lock=False)
    assert os.path.exists(once), "a worker has died"
    np.testing.assert_array_equal(target[...], samples)
    np.testing.assert_array_equal(np.fromfile(tmp_path / "stored.raw", ">f4"), samples.ravel())


def test_processes_store_into_zarr(cluster, tmp_path):
    import zarr

    samples = np.random.default_rng(1).normal(size=(40, 50)).astype("float32")
    target = dravik_adt.create(tmp_path / "stored", samples.shape, ">f4", chunks=(10, 20), axes=("i", "j"), unit="m")
    da.store(da.from_array(samples, chunks=(10, 40)), target, lock=False)
    np.testing.assert_array_equal(dravik_adt.open(target.definition)[...], samples)
    np.testing.assert_array_equal(zarr.open(str(tmp_path / "stored"), mode="r")[...], samples)


def test_netcdf_is_written_by_one_process(cluster, tmp_path):
    target = dravik_adt.create(tmp_path / "refused.nc", (40, 50), "float32", chunks=(10, 50))
    with pytest.raises(OSError, match="one process"):
        da.store(da.ones((40, 50), chunks=(10, 50)), target, lock=False)


def test_threads_store_into_netcdf(cluster, tmp_path):
    samples = np.random.default_rng(1).normal(size=(40, 50)).astype("float32")
    target = dravik_adt.create(tmp_path / "stored.nc", (40, 50), "float32", chunks=(10, 50), axes=("i", "j"), unit="m")
    da.store(da.from_array(samples, chunks=(10, 50)), target, lock=False, scheduler="threads")
    target.flush()
    del target
    with xr.open_dataarray(tmp_path / "stored.nc", engine="netcdf4") as shown:
        np.testing.assert_array_equal(shown.values, samples)
        assert shown.units == "m" and shown.dims == ("i", "j")
    read = dravik_adt.open(tmp_path / "stored.nc").to_dask((20, 50))
    np.testing.assert_array_equal(read.compute(), samples)


@pytest.mark.parametrize("name", ["etopo5", "levitus_climatology"])
def test_engine_shows_what_netcdfs_shows(name):
    path = f"/usr/share/ferret-vis/data/{name}.cdf"
    if not os.path.exists(path):
        pytest.skip("the data of ferret are missing")
    with xr.open_dataset(path, engine="dravik") as ours, xr.open_dataset(path, engine="netcdf4") as theirs:
        xr.testing.assert_equal(ours, theirs)
        for variable in theirs.variables:
            told = {key: str(value) for key, value in theirs[variable].attrs.items()}
            assert {**ours[variable].attrs} == told, variable


def test_xarray_shows_the_same_samples():
    array = dravik_adt.open(SOURCE)
    shown = array.to_xarray()
    assert shown.shape == array.shape and isinstance(shown, xr.DataArray)
    np.testing.assert_array_equal(shown[5:9, [3, 1]].values, array[...][5:9][:, [3, 1]])
    opened = xr.open_dataset(array.definition, engine="dravik")
    np.testing.assert_array_equal(opened["samples"].values, array[...])
