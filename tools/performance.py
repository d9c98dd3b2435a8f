#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the benchmark programs one after the other. Writes all that they print as performance.md into the build folder, and
the figures that benchmarks/headlines.txt names as docs/performance.md, with a chart beside it.

usage: performance.py BUILD_DIRECTORY PAGE
"""

import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

ABOUT = """# Performance

Written by `./dev bench` in one run, which leaves the tables of all figures in `build/bench/performance.md`.

A figure is the processor time of ours divided by that of the peer in the same row, less than 1 where ours is faster; with a
unit it is a time. Ours and its peers do the same work in turns, and a figure is the median of at least 7 rounds. *At most* is
what this library sets itself.

![The ratios of the table below](images/performance.svg)
"""

GROWTH = """How costs grow: the time of a thousand samples, a look-up or a request as there are more samples, blocks and filters,
and the time of a whole read by two threads or two processes beside one.

![Time over sizes, and over threads and processes](images/growth.svg)
"""

INSTRUCTIONS = ("sse4_2", "avx", "avx2", "fma", "avx512f", "avx512bw", "avx512dq", "avx512vl", "avx512vbmi")


def version(compiler):
    shown = subprocess.run([compiler, "-v"], capture_output=True, text=True, check=True).stderr.splitlines()
    return next(line.strip() for line in shown if " version " in line)


def processor(field):
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        key, _, value = line.partition(":")
        if key.strip() == field:
            return value.strip()
    return "unknown"


def caches():
    """The caches of the first core, smallest first."""
    found = []
    for index in sorted(pathlib.Path("/sys/devices/system/cpu/cpu0/cache").glob("index*")):
        level, kind, size = ((index / name).read_text().strip() for name in ("level", "type", "size"))
        if kind != "Instruction":
            found.append(f"L{level} {size}")
    return ", ".join(found) or "unknown"


def peers():
    names = [line for line in (ROOT / "benchmarks/packages.txt").read_text().split("\n") if line and line[0] != "#"]
    found = []
    for name in ["libboost-dev"] + names:
        query = subprocess.run(["dpkg-query", "-W", "-f=${Version}", name], capture_output=True, text=True, check=False)
        found.append(f"{name} {query.stdout if query.returncode == 0 else 'missing'}")
    return ", ".join(found)


def machine(build):
    cache = (build / "CMakeCache.txt").read_text()
    compiler = re.search(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", cache, re.MULTILINE).group(1)
    flags = processor("flags").split()
    rows = {
        "processor": f"{processor('model name')}, {os.cpu_count()} cores",
        "caches": caches(),
        "instruction set": f"{os.uname().machine} with {', '.join(name for name in INSTRUCTIONS if name in flags)}",
        "compiler": version(compiler),
        "peers": peers(),
        "load before the run": f"{os.getloadavg()[0]:.1f}",
    }
    return "\n".join(["| machine | |", "|---|---|"] + [f"| {key} | {value} |" for key, value in rows.items()]) + "\n"


def rows_of(sections):
    """The rows of all tables, as (section, what) -> list of (peer, figure, limit, mark)."""
    rows = {}
    for section in re.split(r"^## ", sections, flags=re.MULTILINE)[1:]:
        title = section.splitlines()[0]
        for line in section.splitlines():
            cells = [cell.strip() for cell in line.strip("|").split("|")]
            if line.startswith("| ") and len(cells) == 6 and cells[0] != "what":
                rows.setdefault((title, cells[0]), []).append((cells[1], cells[2], cells[4], cells[5]))
    return rows


def headlines(rows):
    """The rows of the page: what, peer, figure, limit and mark for each line of headlines.txt."""
    chosen = []
    for line in (ROOT / "benchmarks/headlines.txt").read_text().splitlines():
        if not line or line.startswith("#"):
            continue
        words, section, what, peer = (cell.strip() for cell in line.split("|"))
        found = [row for row in rows.get((section, what), []) if row[0].startswith(tuple(peer.split(" or ")))]
        if len(found) != 1:
            sys.exit(f"headlines.txt: {len(found)} rows say {section} | {what} | {peer}")
        chosen.append((words, *found[0]))
    return chosen


def table(chosen):
    lines = ["| path | beside | figure | at most | |", "|---|---|---|---|---|"]
    lines += [f"| {' | '.join(row)} |" for row in chosen]
    return "\n".join(lines) + "\n"


def plots():
    import matplotlib  # only here: the rest runs without it
    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "dravik"
    import matplotlib.pyplot as plt
    return plt


def draw_growth(rows, path):
    """A line for each series of the section Growth: rows are called "series, of things: number"."""
    plt = plots()
    times, ratios = {}, {}
    for (section, what), found in rows.items():
        if section == "Growth":
            series, _, number = what.rpartition(": ")
            figure = found[0][1]
            (times if figure.endswith(" ns") else ratios).setdefault(series, []).append(
                (int(number), float(figure.removesuffix(" ns"))))
    figure, (left, right) = plt.subplots(1, 2, figsize=(8, 3.6), width_ratios=(3, 1))
    for axes, series, unit in ((left, times, "ns"), (right, ratios, "time beside one alone")):
        for name, points in series.items():
            axes.plot(*zip(*sorted(points)), marker="o", markersize=3, linewidth=1, label=name)
        axes.set_ylabel(unit, fontsize=7)
        axes.tick_params(labelsize=7)
        axes.legend(fontsize=6)
    left.set_xscale("log")
    left.set_yscale("log")
    right.set_xticks((1, 2))
    right.set_ylim(0)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def draw(chosen, path):
    plt = plots()
    ratios = [(words, peer, float(figure)) for words, peer, figure, _, _ in chosen if re.fullmatch(r"[\d.]+", figure)]
    figure, axes = plt.subplots(figsize=(8, 0.28 * len(ratios) + 0.8))
    axes.barh([f"{words} / {peer.split(' (')[0]}" for words, peer, _ in ratios], [ratio for *_, ratio in ratios],
              color=["tab:green" if ratio <= 1 else "tab:gray" for *_, ratio in ratios])
    axes.axvline(1, color="black", linewidth=0.8)
    axes.invert_yaxis()
    axes.tick_params(labelsize=7)
    axes.set_xlabel("processor time of ours / the peer's, less is better", fontsize=7)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def main():
    build, page = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    sections = ""
    for program in sorted((build / "benchmarks").glob("*_bench")):
        output = subprocess.run([program], stdout=subprocess.PIPE, text=True, check=True).stdout
        print(output, end="", flush=True)
        sections += output
    (build / "performance.md").write_text("\n".join([machine(build), sections]))
    rows = rows_of(sections)
    chosen = headlines(rows)
    page.write_text("\n".join([ABOUT, table(chosen), GROWTH, machine(build)]))
    draw(chosen, page.parent / "images" / "performance.svg")
    draw_growth(rows, page.parent / "images" / "growth.svg")


if __name__ == "__main__":
    main()
