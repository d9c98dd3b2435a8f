# SPDX-License-Identifier: Apache-2.0
"""Arrays against numpy: every key, from every thread, and past everything that made them."""

import gc
import os
import pickle
import random
import signal
import subprocess
import sys
import threading

import numpy as np
import pytest

import dravik_adt

TYPES = ["int8", "uint8", "int16", "uint16", "int32", "uint32", "int64", "float32", "float64"]


def any_ndarray(rng):
    """Of any type and axes, sometimes with exchanged, reversed or skipping strides."""
    shape = [rng.randint(1, 9) for _ in range(rng.randint(1, 4))]
    samples = np.arange(int(np.prod(shape)) * 3).reshape([*shape, 3])[..., 1].astype(rng.choice(TYPES))
    if rng.random() < 0.5:
        samples = samples.transpose(rng.sample(range(samples.ndim), samples.ndim))
    return samples[tuple(slice(None, None, rng.choice([1, -1])) for _ in shape)]


def any_key(rng, array):
    """Mostly one that fits; negative steps, `...`, None and what is refused as well."""

    def one(size):
        end = lambda: rng.choice([None, rng.randint(-size - 2, size + 2)])
        return rng.choice([rng.randint(-size, size - 1), slice(end(), end(), rng.choice([None, 1, 2, -1, -3, 0]))])

    key = [one(size) for size in array.shape[: rng.randint(0, array.ndim)]]
    for extra in (..., None, 99, slice(None), np.int64(0)):
        if rng.random() < 0.15:
            key.insert(rng.randint(0, len(key)), extra)
    return key[0] if len(key) == 1 else tuple(key)


def outcome(act):
    try:
        return act()
    except (IndexError, ValueError, TypeError) as error:
        return type(error)


def expect_same(ours, numpys, what):
    if isinstance(numpys, type):
        assert ours is numpys, what
    else:
        assert ours.dtype == numpys.dtype and ours.shape == numpys.shape, what
        np.testing.assert_array_equal(ours, numpys, err_msg=str(what))


@pytest.mark.parametrize("seed", range(20))
def test_reads_and_writes_as_numpy(seed):
    rng = random.Random(seed)
    samples = any_ndarray(rng)
    array = dravik_adt.from_numpy(samples)
    model = samples.copy()
    assert (array.shape, array.dtype, array.nbytes) == (samples.shape, samples.dtype, samples.nbytes)
    for _ in range(50):
        key = any_key(rng, samples)
        expect_same(outcome(lambda: array[key]), outcome(lambda: model[key]), (samples.shape, key))
        value = rng.choice([7, np.arange(3), np.ones((1, 2))])
        written = outcome(lambda: array.__setitem__(key, value))
        assert written == outcome(lambda: model.__setitem__(key, value)), (samples.shape, key)
        np.testing.assert_array_equal(samples, model, err_msg=str(key))


@pytest.mark.parametrize("seed", range(10))
def test_views_show_what_numpys_views_show(seed):
    rng = random.Random(seed)
    samples = any_ndarray(rng)
    array, model = dravik_adt.from_numpy(samples), samples
    for _ in range(3):
        key = tuple(slice(None, None, rng.choice([1, 2, -1])) for _ in range(array.ndim))
        array, model = array.view[key], model[key]
        order = rng.sample(range(array.ndim), array.ndim)
        array, model = array.transpose(*order), model.transpose(order)
        if array.ndim > 1:
            array, model = array.view[0], model[0]
        expect_same(array[...], model, (samples.shape, key, order))
        array[...] = 5
        assert (model == 5).all()
    converted = array.astype("uint8", scale=100, offset=-1)
    assert (converted[...] == 255).all() and converted.dtype == "uint8"
    array[...] = 1
    assert (converted.cached(1000)[...] == 99).all(), "what was converted before is not shown again"


def test_one_array_serves_many_threads():
    samples = np.arange(40 * 50 * 60, dtype="float32").reshape(40, 50, 60)
    array = dravik_adt.from_numpy(samples).view[::-1, :, ::2]
    expected, wrong = samples[::-1, :, ::2], []

    def work(seed):
        rng = random.Random(seed)
        for _ in range(300):
            i, j, k = (rng.randrange(size) for size in array.shape)
            if array[i, j, k] != expected[i, j, k] or not np.array_equal(array[i:, j], expected[i:, j]):
                wrong.append((i, j, k))

    threads = [threading.Thread(target=work, args=(seed,)) for seed in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert wrong == []


def test_loans_outlive_all_that_made_them():
    samples = np.arange(6000.0).reshape(60, 100)
    array = dravik_adt.from_numpy(samples.copy()).view[10:20]
    with array.loan((3, 7)) as loan:
        block, box = loan.array, loan.box
        assert np.array_equal(block, samples[10:20][box]) and not block.flags.writeable
    with pytest.raises(ValueError):
        loan.array
    del array, loan
    gc.collect()
    assert np.array_equal(block, samples[10:20][box])
    script = (
        "import dravik_adt, numpy, sys\n"
        "sys.kept = dravik_adt.from_numpy(numpy.ones((3, 4))).loan((1, 1)).array\n"
        "print(sys.kept.sum())\n"
    )
    assert subprocess.check_output([sys.executable, "-c", script], text=True) == "12.0\n"


def test_transfers_tell_progress_and_stop():
    dravik_adt.register_opener("ramp", ramp)
    array = dravik_adt.open({"kind": "ramp", "shape": (64, 1000), "dtype": "float64", "chunks": (1, 1000)})
    told = []
    out = np.empty((64, 1000), "float32")
    assert array.read(..., out=out, progress=lambda done, total: told.append((done, total))) is out
    assert told[-1] == (64000, 64000) and np.array_equal(out[:, 0], np.arange(64))

    def interrupt(done, total):
        raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        array.read(..., progress=interrupt)
    assert array[5, 5] == 5


def ramp(box, factor=1):
    return factor * np.arange(box[0].start, box[0].stop)[:, None] * np.ones(box[1].stop - box[1].start)


def test_definitions_open_the_same_samples():
    dravik_adt.register_opener("ramp", ramp)
    source = {"kind": "ramp", "shape": [9, 4], "dtype": "float32", "chunks": [2, 4], "parameters": {"factor": 3}}
    array = dravik_adt.open(source).view[::-2].astype("int16", scale=10).cached(100).transpose()
    again = pickle.loads(pickle.dumps(array))
    assert again.definition == array.definition and len(pickle.dumps(array)) < 1000
    assert np.array_equal(again[...], array[...]) and array[0, 0] == 240
    assert [block.sum() for _, block in array.blocks(10)] == [block.sum() for _, block in again.blocks(10)]
    with pytest.raises(TypeError, match="memory"):
        pickle.dumps(dravik_adt.from_numpy(np.zeros(3)))
    with pytest.raises(dravik_adt.Error, match='"other" in this process'):
        dravik_adt.open({**source, "kind": "other"})
    with pytest.raises(ValueError, match="/entity"):
        dravik_adt.open('{"dravik":1,"entity":{"type":"Nothing"}}')


def test_an_openers_failures_are_its_own():
    def broken(box):
        if box[0].start > 3:
            raise ZeroDivisionError("on purpose")
        return np.zeros((1, 1)) if box[0].start > 1 else np.zeros((2, 4))

    dravik_adt.register_opener("broken", broken)
    array = dravik_adt.open({"kind": "broken", "shape": (8, 4), "dtype": "int8", "chunks": (2, 4)})
    assert array[0, 0] == 0
    with pytest.raises(ValueError, match=r"\(1, 1\) for a box of shape \(2, 4\)"):
        array[2, 0]
    with pytest.raises(ZeroDivisionError, match="on purpose"):
        array[4:]
    with pytest.raises(ValueError, match="read-only"):
        array[0] = 1


def test_errors_are_those_of_python():
    array = dravik_adt.from_numpy(np.zeros((3, 4)))
    for wrong in (np.zeros(3, "uint64"), np.zeros(3, ">i4"), np.zeros(3, "complex64"), np.zeros(3, object)):
        with pytest.raises(TypeError):
            dravik_adt.from_numpy(wrong)
    for wrong in (np.zeros(()), np.zeros((1,) * 5), np.zeros((0, 3))):
        with pytest.raises(ValueError):
            dravik_adt.from_numpy(wrong)
    with pytest.raises(ValueError, match="another shape"):
        array.read(..., out=np.zeros(3))
    with pytest.raises(FileNotFoundError):
        dravik_adt.open("/nowhere/at/all")
    with pytest.raises(IndexError, match="axis 1 with size 4"):
        array.gather([[0, 0], [0, 9]])
    assert array.gather([[0, 0], [-1, -1]]).shape == (2,)


@pytest.mark.parametrize("dtype", ["int16", ">u4", "<f8"])
@pytest.mark.parametrize("ending", ["raw", "nc", "zarr", "h5", "tif"])
def test_created_files_hold_what_is_written(tmp_path, dtype, ending):
    path = tmp_path / f"new.{ending}"
    made = dravik_adt.create(path, (5, 6, 7), dtype)
    samples = np.arange(210).reshape(5, 6, 7).astype(made.dtype)
    made[...] = samples
    made[::-2, 1] = 3
    samples[::-2, 1] = 3
    made.flush()
    text = made.definition
    del made
    again = dravik_adt.open(text) if ending == "raw" else dravik_adt.open(path, writable=True)
    expect_same(again[...], samples, text)
    assert again.definition == text and again.writable
    with pytest.raises(FileExistsError):
        dravik_adt.create(path, (1,), dtype)
    with pytest.raises(ValueError):
        dravik_adt.create(tmp_path / "other.tar", (1,), dtype)


def test_variables_are_those_that_open_takes(tmp_path):
    for ending, options, names in (
        ("nc", {"variable": "depth", "axes": ("y", "x")}, ["depth"]),
        ("h5", {"variable": "a/b"}, ["a/b"]),
        ("tif", {}, ["0"]),
        ("zarr", {}, [""]),
    ):
        path = tmp_path / f"new.{ending}"
        dravik_adt.create(path, (20, 30), "float32", **options).flush()
        assert dravik_adt.variables(path) == names
        assert [dravik_adt.open(path, name).shape for name in names] == [(20, 30)]


def test_a_signal_ends_a_read_and_the_array_works_on(tmp_path):
    samples = (np.arange(4_000_000) % 991).astype("int16").reshape(2000, 2000)
    array = dravik_adt.create(tmp_path / "new.nc", samples.shape, "int16", chunks=(20, 2000), deflate=1)
    array[...] = samples
    array.flush()
    timer = threading.Timer(0.05, os.kill, (os.getpid(), signal.SIGINT))
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        for _ in range(1000):
            array.read(..., threads=2)
    timer.join()
    expect_same(array[...], samples, "after the signal")


def test_histogram_counts_as_numpy():
    samples = np.random.default_rng(1).normal(size=(300, 400)).astype("float32")
    samples[::7, ::3] = np.nan
    array = dravik_adt.from_numpy(samples)
    for bounds in (None, (-1, 2)):
        counts, edges = array.histogram(50, bounds)
        expected, expected_edges = np.histogram(samples[~np.isnan(samples)], 50, bounds)
        np.testing.assert_array_equal(counts, expected)
        np.testing.assert_allclose(edges, expected_edges)
