# SPDX-License-Identifier: Apache-2.0
"""The program as its users call it: words in, text, files and exit status out. DRAVIK names the program."""

import json
import os
import pathlib
import signal
import subprocess
import time

import h5py
import netCDF4
import numpy as np
import pytest
import segyio
import zarr
from PIL import Image

PROGRAM = os.environ["DRAVIK"]
IS_PLAIN = os.environ.get("DRAVIK_BUILD") == "Release"
SAMPLES = (np.arange(4 * 5 * 6, dtype=np.float32).reshape(4, 5, 6) - 50) * 1.5


def run(*arguments: str, stdin: str = "", status: int = 0) -> subprocess.CompletedProcess[str]:
    done = subprocess.run([PROGRAM, *arguments], input=stdin, capture_output=True, text=True, check=False, timeout=120)
    assert done.returncode == status, done
    return done


@pytest.fixture(autouse=True)
def folder(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> pathlib.Path:
    """An empty folder with a volume and a grid in netCDF files, in which the programs run."""
    monkeypatch.chdir(tmp_path)
    with netCDF4.Dataset("v.nc", "w", format="NETCDF3_CLASSIC") as file:
        for name, length, unit in (("z", 4, "m"), ("lat", 5, "degrees_north"), ("lon", 6, "degrees_east")):
            file.createDimension(name, length)
            axis = file.createVariable(name, "f8", (name,))
            axis[:] = np.arange(length) * 10.0
            axis.units = unit
        temp = file.createVariable("temp", "f4", ("z", "lat", "lon"))
        temp.units = "K"
        temp[:] = SAMPLES
    with netCDF4.Dataset("g.nc", "w") as file:
        file.createDimension("y", 3)
        file.createDimension("x", 4)
        file.createVariable("h", "i2", ("y", "x"))[:] = np.arange(12).reshape(3, 4)
    return tmp_path


def definition(**raw: object) -> str:
    source = {"axisOrder": [], "byteOrder": "little", "headerBytes": 0, "type": "RawFile", "writable": False, **raw}
    return json.dumps({"dravik": 1, "source": source})


STATISTICS = """count      12
missing    0
min        0
max        11
mean       5.5
deviation  3.452053
1 %        2.014127e-05
5 %        0.0001007063
25 %       2.000168
50 %       5.00005
75 %       8.0
95 %       10.99997
99 %       10.99999
"""

NO_PART = "is no part of an axis: write an index, ORIGIN:STEP:COUNT, or : for all of it; --help tells more"

# Words, exit status, what standard output and standard error say.
LINES = [
    (["compare", "v.nc:temp", "v.nc:temp"], 0, "", ""),
    (["compare", "g.nc", "v.nc:temp"], 1, "g.nc v.nc:temp differ: shapes 3 x 4 and 4 x 5 x 6\n", ""),
    (["compare", "g.nc", "none.nc"], 2, "", "dravik: none.nc: No such file or directory\n"),
    (
        ["info", "v.nc:temp"],
        0,
        """v.nc:temp
  format      netCDF
  samples     float32, 4 x 5 x 6
  axis        0 z: 4, 0 to 30 m
  axis        1 lat: 5, 0 to 40 degrees_north
  axis        2 lon: 6, 0 to 50 degrees_east
  value       temp, K
  bricks      4 x 5 x 6
  definition  {"dravik":1,"entity":{"source":{"packed":false,"path":"v.nc","type":"NetcdfFile","variable":"temp","writable":false},"type":"SourceEntity"}}
""",
        "",
    ),
    (["info", "v.nc:none"], 1, "", 'dravik: v.nc: no variable "none"; there are z, lat, lon, temp\n'),
    (
        ["statistics", "v.nc:temp", "--missing=-75:100", "--subset", "0,:,0:2:3"],
        0,
        "count      0\nmissing    15\nunit       K\n",
        "",
    ),
    (
        ["statistics", "g.nc", "--subset", "1:1:5"],
        1,
        "",
        "dravik: the part 1:1:5 reaches outside axis 0, whose indices are 0 to 2\n",
    ),
    (["statistics", "g.nc", "--subset", "1:5"], 2, "", f"dravik: --subset: 1:5 {NO_PART}\n"),
    (["statistics", "g.nc", "--subset", "1:0:5"], 2, "", f"dravik: --subset: 1:0:5 {NO_PART}\n"),
    (["statistics", "g.nc", "--axes", "0,0"], 1, "", "dravik: --axes: name each of the axes from 0 to 1 once\n"),
    (["copy", "g.nc", "g.nc"], 1, "", "dravik: g.nc: exists already; --force replaces it\n"),
    (["copy", "g.nc", "g.xyz"], 1, "", "dravik: g.xyz: no format ends so; there are"),
    (["copy", "g.nc", "none/g.nc"], 1, "", "dravik: none/g.nc"),
    (
        ["copy", "g.nc", "g.raw", "--range", "0:1", "--scale", "2"],
        2,
        "",
        "dravik: --scale excludes --range; --help tells more\n",
    ),
    (
        ["copy", "g.nc", "g.raw", "--range", "5:1"],
        2,
        "",
        "dravik: --range: 5:1 is no range: write two numbers as -1:1, or shares as 1%:99%; --help tells more\n",
    ),
    (
        ["copy", "g.nc", "g.raw", "--type", "float", "--range", "0:1"],
        1,
        "",
        "dravik: --range spreads samples over an integer type: name it by --type\n",
    ),
    (
        ["copy", "g.nc", "g.sgy", "--type", "uint8"],
        1,
        "",
        "dravik: SEG-Y has no samples of type uint8: choose --type float32, int32, int16 or int8\n",
    ),
    (["copy", "g.nc", "g.zarr", "--chunks", "2"], 1, "", "dravik: --chunks: one number per axis of 3 x 4\n"),
    (
        ["draw", "v.nc:temp", "v.png"],
        1,
        "",
        "dravik: a picture has two axes, the samples have 4 x 5 x 6: choose slices by --slice axis=index\n",
    ),
    (
        ["draw", "v.nc:temp", "v.png", "--slice", "w=1"],
        1,
        "",
        "dravik: --slice w=1: there is no axis w; there are 0 z, 1 lat, 2 lon\n",
    ),
    (["info", "-"], 1, "", "dravik: standard input: "),
    (["info", "v.nc", "--memory", "7"], 2, "", "dravik: --memory: 7 bytes are too few; --help tells more\n"),
    (["fly"], 2, "", "dravik: there is no command fly; --help tells more\n"),
    (["info"], 2, "", "dravik: FILE is required; --help tells more\n"),
]


@pytest.mark.parametrize(
    ("words", "status", "output", "error"), LINES, ids=lambda value: " ".join(value) if isinstance(value, list) else ""
)
def test_lines_say_what_they_say(folder: pathlib.Path, words: list[str], status: int, output: str, error: str) -> None:
    before = sorted(folder.iterdir())
    done = run(*words, status=status)
    assert done.stdout == output
    assert done.stderr == (error if error.endswith("\n") or not error else error + done.stderr[len(error) :])
    assert done.stderr.count("\n") == (1 if error else 0)
    assert sorted(folder.iterdir()) == before


def test_statistics_are_those_of_numpy() -> None:
    told = json.loads(run("statistics", "v.nc:temp", "--json", "--missing", "0").stdout)
    known = SAMPLES[SAMPLES != 0].astype(np.float64)
    assert (told["count"], told["missing"]) == (known.size, 1)
    for name, value in {"min": known.min(), "max": known.max(), "mean": known.mean(), "deviation": known.std()}.items():
        assert told[name] == pytest.approx(value)
    width = np.ptp(known) / 65536
    assert np.searchsorted(np.sort(known), told["25 %"] + width) == pytest.approx(known.size / 4, abs=1)
    run("copy", "v.nc:temp", "whole.raw", "--type", "uint8", "--range", "10%:60%")  # much of it the largest number
    told = json.loads(run("statistics", "@whole.raw.json", "--json").stdout)
    for percent in (1, 5, 25, 50, 75, 95, 99):
        lower = np.percentile(np.fromfile("whole.raw", "u1"), percent, method="inverted_cdf")
        assert told[f"{percent} %"] == lower


def by_gdal(path: str) -> np.ndarray:
    subprocess.run(["gdal_translate", "-q", "-of", "ENVI", path, "plain"], check=True)
    return np.fromfile("plain", "<f4").reshape(4, 5, 6)


def samples_of(path: str) -> np.ndarray:
    """By the format's own reader."""
    readers = {
        ".nc": lambda: netCDF4.Dataset(path).variables["temp"][...].filled(),
        ".h5": lambda: h5py.File(path)["temp"][...],
        ".zarr": lambda: zarr.open(path, "r")[...],
        ".sgy": lambda: segyio.tools.cube(path),
        ".tif": lambda: by_gdal(path),
        ".raw": lambda: np.fromfile(path, "<f4").reshape(4, 5, 6),
    }
    return readers[pathlib.Path(path).suffix]()


ENDINGS = [".nc", ".h5", ".zarr", ".sgy", ".tif", ".raw"]


@pytest.mark.parametrize("first", ENDINGS)
def test_copies_go_from_any_format_to_any(first: str) -> None:
    run("copy", "v.nc:temp", "a" + first)
    assert np.array_equal(samples_of("a" + first), SAMPLES)
    source = "@a.raw.json" if first == ".raw" else "a" + first
    for second in ENDINGS:
        run("copy", source, "b" + second, "--memory", "1M", "--threads", "3")
        back = "@b.raw.json" if second == ".raw" else "b" + second
        assert run("compare", "v.nc:temp", back).stdout == ""
    told = run("compare", source, "-", stdin=definition(path="b.raw", sampleType="float32", shape=[4, 5, 6]))
    assert told.stdout == ""


def test_copies_cut_turn_and_convert() -> None:
    run(
        "copy",
        "v.nc:temp",
        "c.raw",
        "--subset",
        "3:-1:2,:,1:2:3",
        "--axes",
        "2,0,1",
        "--type",
        "int16",
        "--scale",
        "2",
        "--offset",
        "1",
    )
    cut = SAMPLES[3:1:-1, :, 1:6:2].transpose(2, 0, 1)
    assert np.array_equal(np.fromfile("c.raw", "<i2").reshape(3, 2, 5), np.rint(cut * 2 + 1))
    run("copy", "v.nc:temp", "d.raw", "--type", "uint8", "--range", "0%:100%")
    spread = np.fromfile("d.raw", "u1").reshape(4, 5, 6)
    assert (spread.min(), spread.max()) == (0, 255)
    assert np.abs(spread - (SAMPLES - SAMPLES.min()) / np.ptp(SAMPLES) * 255).max() <= 0.51
    run("copy", "v.nc:temp", "one.tif", "--subset", "2:1:1,:,:")
    run("copy", "one.tif", "one.raw")
    assert np.array_equal(np.fromfile("one.raw", "<f4").reshape(5, 6), SAMPLES[2])
    run("copy", "c.raw", "e.raw", status=1)
    told = json.loads(run("info", "--json", "@c.raw.json").stdout)
    assert (told[0]["shape"], told[0]["type"]) == ([3, 2, 5], "int16")
    run("copy", "@c.raw.json", "c.raw", "--force", "--offset", "1")
    differ = run("compare", "@d.raw.json", "v.nc:temp", status=1).stdout
    assert differ.startswith(
        "@d.raw.json v.nc:temp differ: 120 of 120 samples, at most by 151.5 at (3,4,5): 255 and 103.5"
    ), differ


def test_pictures_show_the_samples() -> None:
    run("draw", "v.nc:temp", "slice.png", "--slice", "z=2", "--range=-10:10", "--style", "palette")
    picture = Image.open("slice.png").convert("RGB")
    zoom = 800 // 6
    at = lambda row, column: picture.getpixel((84 + column * zoom + zoom // 2, 44 + row * zoom + zoom // 2))
    assert picture.size[0] > 84 + 6 * zoom
    # lat grows to the north: the last row of samples is at the top. Samples run from 15 K to 58.5 K: all at the upper end.
    assert at(0, 0) == at(4, 5)
    run("draw", "v.nc:temp", "wide.png", "--slice", "0=1", "--range=-40:40", "--style", "palette")
    picture = Image.open("wide.png").convert("RGB")
    top, bottom = at(0, 5), at(4, 0)
    assert top != bottom and top[2] < bottom[2] + 255
    run("draw", "g.nc", "relief.png", "--size", "16")
    run("draw", "g.nc", "relief.png", status=1)
    run("statistics", "v.nc:temp", "--histogram", "h.png")
    colours = Image.open("h.png").convert("RGB").getcolors(1 << 20)
    assert max(colours)[1] == (255, 255, 255) and len(colours) > 2


def sparse_volume(gigabytes: float) -> str:
    planes = int(256 * gigabytes)
    with open("big.raw", "wb") as file:
        file.truncate(planes << 22)
    pathlib.Path("big.json").write_text(definition(path="big.raw", sampleType="float32", shape=[planes, 1024, 1024]))
    return "@big.json"


def test_interrupts_leave_nothing_behind(folder: pathlib.Path) -> None:
    source = sparse_volume(8)
    before = sorted(folder.iterdir())
    for ending in [".nc", ".h5", ".zarr", ".raw"]:
        child = subprocess.Popen([PROGRAM, "copy", source, "o" + ending, "--memory", "32M"], stderr=subprocess.PIPE, text=True)
        deadline = time.monotonic() + 60
        while len(list(folder.iterdir())) == len(before) and time.monotonic() < deadline:
            time.sleep(0.01)
        child.send_signal(signal.SIGINT)
        assert child.communicate(timeout=60)[1] == "dravik: stopped\n"
        assert child.returncode == 130
        assert sorted(folder.iterdir()) == before


@pytest.mark.skipif(not IS_PLAIN, reason="sanitizers take memory of their own")
def test_copies_stay_within_their_memory() -> None:
    source = sparse_volume(1)
    for ending in (".raw", ".nc"):
        child = subprocess.Popen([PROGRAM, "copy", source, "m" + ending, "--type", "uint8", "--memory", "100M"])
        peak = 0
        while child.poll() is None:
            told = pathlib.Path(f"/proc/{child.pid}/status").read_text()
            peak = max([peak, *(int(line.split()[1]) for line in told.splitlines() if line.startswith("VmHWM"))])
            time.sleep(0.002)
        assert child.returncode == 0
        assert 1000 < peak < 100 << 10  # kibibytes


@pytest.mark.skipif(os.geteuid() != 0, reason="a disk of its own takes the system's administrator")
def test_full_disks_and_bad_files_are_told(folder: pathlib.Path) -> None:
    small = folder / "small"
    small.mkdir()
    mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "none", str(small)], capture_output=True, check=False)
    if mounted.returncode != 0:
        pytest.skip("nothing can be mounted here")
    try:
        source = sparse_volume(0.02)
        for ending in ENDINGS:
            done = run("copy", source, f"small/o{ending}", status=1)
            assert done.stderr.startswith(f"dravik: small/o{ending}") and done.stderr.count("\n") == 1, done.stderr
            assert not list(small.iterdir())
    finally:
        subprocess.run(["umount", str(small)], check=True)
    whole = pathlib.Path("g.nc").read_bytes()
    pathlib.Path("cut.nc").write_bytes(whole[: len(whole) // 2])
    assert "cut.nc" in run("copy", "cut.nc", "o.raw", status=1).stderr
    pathlib.Path("text.nc").write_text("no such file")
    assert "text.nc: of no format known" in run("info", "text.nc", status=1).stderr
    assert pathlib.Path("g.nc").read_bytes() == whole


def test_read_errors_in_the_middle_leave_no_output(folder: pathlib.Path) -> None:
    with h5py.File("z.h5", "w") as file:
        noise = np.random.default_rng(1).integers(0, 1000, (64, 64, 64), np.int32)
        file.create_dataset("temp", data=noise, chunks=(16, 64, 64), compression="gzip", fletcher32=True)
    content = bytearray(pathlib.Path("z.h5").read_bytes())
    half = len(content) // 2
    content[half : half + 100] = bytes(100)
    pathlib.Path("z.h5").write_bytes(content)
    before = sorted(folder.iterdir())
    for ending in ENDINGS:
        done = run("copy", "z.h5:temp", "o" + ending, status=1)
        assert "z.h5" in done.stderr and done.stderr.count("\n") == 1, done.stderr
        assert sorted(folder.iterdir()) == before
    assert pathlib.Path("z.h5").read_bytes() == content


def test_output_that_nobody_reads_is_an_error() -> None:
    with open("/dev/full", "w") as full:
        done = subprocess.run([PROGRAM, "info", "g.nc"], stdout=full, stderr=subprocess.PIPE, text=True, check=False)
    assert (done.returncode, done.stderr) == (1, "dravik: standard output cannot be written\n")
