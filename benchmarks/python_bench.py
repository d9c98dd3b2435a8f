# SPDX-License-Identifier: Apache-2.0
"""The Python package beside numpy, h5py, netCDF4 and zarr: single samples, rows, the whole world relief, and a part of it.

usage: python_bench.py RELIEF, the netCDF file of the relief; ./dev bench runs it
"""

import importlib
import os
import statistics
import sys
import tempfile
import time

import numpy as np

import dravik_adt

SECONDS, FEWEST, MOST, BATCH_NS = 0.6, 7, 101, 200_000


class Contest:
    """Entries that do the same work, in turns; figures are medians over the rounds, in processor time."""

    def __init__(self, entries):
        self.entries = entries
        first = None
        for name, work in entries.items():
            first = work() if first is None else first
            np.testing.assert_array_equal(work(), first, err_msg=f"{name} did other work than the first")
        batches = {name: self.batch_of(work) for name, work in entries.items()}
        round_ns = sum(self.timed(work, batches[name]) * batches[name] for name, work in entries.items())
        rounds = int(min(MOST, max(FEWEST, SECONDS * 1e9 / round_ns)))
        self.ns = {name: [] for name in entries}
        for _ in range(rounds):
            for name, work in entries.items():
                self.ns[name].append(self.timed(work, batches[name]))

    @staticmethod
    def timed(work, batch):
        start = time.process_time_ns()
        for _ in range(batch):
            work()
        return (time.process_time_ns() - start) / batch

    def batch_of(self, work):
        batch = 1
        while self.timed(work, batch) * batch < BATCH_NS:
            batch *= 2
        return batch

    def time(self, ours):
        return self.ns[ours]

    def ratio(self, ours, peer):
        return [one / other for one, other in zip(self.ns[ours], self.ns[peer])]


def shown(figure):
    return f"{figure:.{0 if figure >= 100 else 1 if figure >= 10 else 2 if figure >= 0.1 else 3}f}"


class Report:
    """A section in the form of the other programs' reports."""

    def __init__(self, subject, about):
        print(f"## {subject}\n\n{about}\n")
        print("| what | beside | figure | half of the rounds | at most | |\n|---|---|---|---|---|---|")
        self.reasons = []

    def row(self, what, peer, figures, at_most=None, unit="", why="not understood yet."):
        figures = sorted(figures)
        quarter, median = (len(figures) - 1) // 4, float(shown(statistics.median(figures)))
        spread = f"{shown(figures[quarter])} – {shown(figures[len(figures) - 1 - quarter])}"
        short = at_most is not None and median > at_most
        limit = "" if at_most is None else f"{at_most:g}{unit}"
        print(f"| {what} | {peer} | {shown(median)}{unit} | {spread} | {limit} | {'**falls short**' if short else ''} |")
        if short:
            self.reasons.append(f"- *{what}* — {why}")

    def end(self):
        print("", *self.reasons, *([""] if self.reasons else []), sep="\n")


def missing(report, what, peer):
    print(f"| {what} | {peer} | not installed | |  | |")


def peers_of(samples, folder):
    """The samples, native and uncompressed, behind each peer that is installed: what is indexed."""
    rows = (15, samples.shape[1])
    found = {"numpy.memmap": np.memmap(os.path.join(folder, "x.npy"), samples.dtype, "w+", shape=samples.shape)}
    found["numpy.memmap"][...] = samples
    for name in ("h5py", "netCDF4", "zarr"):
        try:
            module = importlib.import_module(name)
        except ImportError:
            found[name] = None
            continue
        path = os.path.join(folder, f"x.{name}")
        if name == "h5py":
            found[name] = module.File(path, "w").create_dataset("x", data=samples, chunks=rows)
        elif name == "netCDF4":
            file = module.Dataset(path, "w")
            file.createDimension("y", samples.shape[0])
            file.createDimension("x", samples.shape[1])
            found[name] = file.createVariable("x", samples.dtype, ("y", "x"), chunksizes=rows)
            found[name].set_auto_maskandscale(False)
            found[name][...] = samples
        else:
            found[name] = module.open(path, "w", shape=samples.shape, chunks=rows, dtype=samples.dtype, compressor=None)
            found[name][...] = samples
    return found


def indexing(relief, peers):
    report = Report(
        "Python: indexing",
        "One index of the relief, 2161 x 4320 float32, at one place again and again: what Python's part costs. The peers have "
        "the samples in the machine's byte order, in chunks of 15 rows where they have chunks. A row has 64 samples.",
    )
    for what, key, limit in (("one sample", (1000, 2000), 1500), ("a row of 64", (1000, slice(2000, 2064)), 1000)):
        contest = Contest({"ours": lambda: relief[key]} | {n: lambda p=p: p[key] for n, p in peers.items() if p is not None})
        report.row(f"{what}: time", "", contest.time("ours"), limit, " ns")
        for name, peer in peers.items():
            if peer is None:
                missing(report, what, name)
            else:
                report.row(what, name, contest.ratio("ours", name))
    report.end()


def boxes(relief, path, peers, folder):
    import netCDF4

    report = Report(
        "Python: boxes",
        "Boxes of the relief, read into a new array of native float32 each time. The file has the other byte order, and ours looks "
        "for missing samples as well. *Raw file* and *ndarray* are ours over the same samples in native order.",
    )
    shape = relief.shape
    start = os.path.getsize(path) - 4 * shape[0] * shape[1]
    swapped = np.memmap(path, ">f4", "r", start, shape)
    netcdf = netCDF4.Dataset(path)[relief.info["name"]]
    whole = Contest(
        {"ours": lambda: relief[...], "swap": lambda: swapped.astype("f4"), "netCDF4": lambda: np.asarray(netcdf[...])}
    )
    both = "ours looks for missing samples in the same pass."
    report.row("the whole relief", "numpy's byte swap of a memmap", whole.ratio("ours", "swap"), 1.2, why=both)
    report.row("the whole relief", "netCDF4", whole.ratio("ours", "netCDF4"))

    raw = dravik_adt.create(os.path.join(folder, "x.raw"), shape, "f4")
    raw[...] = relief[...]
    raw.flush()
    native = peers["numpy.memmap"]
    entries = {"relief": lambda: relief[::4, ::4], "swap": lambda: swapped[::4, ::4].astype("f4")}
    entries |= {"raw": lambda: raw[::4, ::4], "ndarray": lambda a=dravik_adt.from_numpy(native): a[::4, ::4]}
    entries |= {n: lambda p=p: np.array(p[::4, ::4]) for n, p in peers.items() if p is not None}
    part = Contest(entries)
    report.row("every 4th of both axes: ndarray", "numpy.memmap", part.ratio("ndarray", "numpy.memmap"), 1.2)
    report.row("every 4th of both axes: raw file", "numpy.memmap", part.ratio("raw", "numpy.memmap"), 1.2)
    report.row("every 4th of both axes", "numpy's byte swap of a memmap", part.ratio("relief", "swap"), 1.2)
    for name in ("h5py", "netCDF4", "zarr"):
        if peers[name] is None:
            missing(report, "every 4th of both axes: raw file", name)
        else:
            report.row("every 4th of both axes: raw file", name, part.ratio("raw", name))
    report.end()


def main():
    path = sys.argv[1]
    if not os.path.exists(path):
        print(f"## Python\n\nThe relief is missing: {path}\n")
        return
    relief = dravik_adt.open(path)
    with tempfile.TemporaryDirectory() as folder:
        peers = peers_of(relief[...], folder)
        indexing(relief, peers)
        boxes(relief, path, peers, folder)


if __name__ == "__main__":
    main()
