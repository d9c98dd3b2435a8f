# SPDX-License-Identifier: Apache-2.0
"""The program dravik beside foreign tools that do the same work: wall time and peak memory of whole processes.

usage: command_bench.py DRAVIK RELIEF, the program and the netCDF file of the relief; ./dev bench runs it
"""

import os
import shlex
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ROUNDS = 9
MAKE_VOLUME = """
import segyio, numpy
spec = segyio.spec()
spec.sorting, spec.format, spec.samples = 2, 5, range(500)
spec.ilines, spec.xlines = range(1, 201), range(1, 201)
with segyio.create("volume.sgy", spec) as file:
    for trace in range(40000):
        file.header[trace] = {189: 1 + trace // 200, 193: 1 + trace % 200}
        file.trace[trace] = numpy.arange(500, dtype=numpy.float32) + trace
    file.bin.update(tsort=2, hns=500)
"""
SLICE = "import segyio\nwith segyio.open('volume.sgy') as file: file.depth_slice[250].tofile('slice')"


def measured(command):
    """Seconds and kibibytes of one run."""
    start = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = status
    if status != 0:
        sys.exit(f"failed: {' '.join(command)}")
    return time.perf_counter() - start, usage.ru_maxrss


def compare(what, ours, peer, output, name):
    if shutil.which(peer[0]) is None:
        print(f"| {what} | {name} | not installed | | | |")
        return
    synced = ["sh", "-c", f"{shlex.join(peer)} 2>/dev/null && sync {output}"]  # ours waits until the disk has its output
    runs = [(measured(ours), measured(synced)) for _ in range(ROUNDS)][1:]
    for unit, at in (("time", 0), ("memory", 1)):
        figures = sorted(mine[at] / theirs[at] for mine, theirs in runs)
        quarter, median = (len(figures) - 1) // 4, statistics.median(figures)
        limit = 1 if unit == "time" else None
        short = "**falls short**" if limit and round(median, 2) > limit else ""
        spread = f"{figures[quarter]:.2f} – {figures[-1 - quarter]:.2f}"
        print(f"| {what}: {unit} | {name} | {median:.2f} | {spread} | {limit or ''} | {short} |")


def main():
    dravik, relief = sys.argv[1:]
    print("## Command\n\nWhole processes, files in memory; wall time and the largest resident memory.\n")
    print("| what | beside | figure | half of the rounds | at most | |\n|---|---|---|---|---|---|")
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        subprocess.run(["/usr/bin/python3", "-c", MAKE_VOLUME], check=True)
        grid = f"NETCDF:{relief}:ROSE"
        gdal = ["gdal_translate", "-q", "-of", "ENVI"]
        copy = [dravik, "copy", "--force"]
        compare(
            "relief to bytes with scale",
            [*copy, relief, "o.raw", "--range=-10500:7900", "--type", "uint8"],
            [*gdal, "-ot", "Byte", "-scale", "-10500", "7900", "0", "255", grid, "peer"],
            "peer",
            "gdal_translate",
        )
        compare(
            "relief to a new netCDF file",
            [*copy, relief, "o.nc"],
            ["nccopy", "-k", "nc4", relief, "peer.nc"],
            "peer.nc",
            "nccopy",
        )
        compare(
            "every fourth sample of the relief",
            [*copy, relief, "d.raw", "--subset", "0:4:540,0:4:1080"],
            [*gdal, "-outsize", "1080", "540", grid, "peer"],
            "peer",
            "gdal_translate",
        )
        compare(
            "a time slice of a SEG-Y volume",
            [*copy, "volume.sgy", "s.raw", "--subset", ":,:,250"],
            ["/usr/bin/python3", "-c", SLICE],
            "slice",
            "segyio",
        )
    print("\nWhere it falls short: ours waits twice for the disk, for the file and for its name, which keeps half a file away.\n")


if __name__ == "__main__":
    main()
