#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the benchmark programs one after the other and writes what they print as docs/performance.md.

usage: performance.py BUILD_DIRECTORY PAGE
"""

import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

ABOUT = """# Performance

Written by `./dev bench` in one run; edit the programs in `benchmarks/`, not this page.

A figure is the processor time of ours divided by that of the peer in the same row, less than 1 where ours is faster; where
no peer is named it is a time. Ours and its peers take turns, and a figure is the median over at least 7 rounds; half of the
rounds lie in the range beside it. *At most* is what this library sets itself; a figure beyond it is marked, and the lines
below the table say what is known about why.
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


def summary(sections):
    """How many figures of each subject are held to something, and how many of these hold."""
    lines = ["| subject | figures with a limit | within it |", "|---|---|---|"]
    all_limits, all_short = 0, 0
    for section in re.split(r"^## ", sections, flags=re.MULTILINE)[1:]:
        rows = [line.split(" | ") for line in section.splitlines() if line.startswith("| ")][1:]
        rows = [row for row in rows if len(row) == 6]
        limits = sum(row[4].strip() != "" for row in rows)
        short = sum("falls short" in row[5] for row in rows)
        if limits:
            lines.append(f"| {section.splitlines()[0]} | {limits} | {limits - short} |")
        all_limits, all_short = all_limits + limits, all_short + short
    lines.append(f"| all | {all_limits} | {all_limits - all_short} |")
    return "\n".join(lines) + "\n"


def main():
    build, page = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    parts = [ABOUT, machine(build)]
    sections = ""
    for program in sorted((build / "benchmarks").glob("*_bench")):
        output = subprocess.run([program], stdout=subprocess.PIPE, text=True, check=True).stdout
        print(output, end="", flush=True)
        sections += output
    page.write_text("\n".join(parts + [summary(sections), sections.rstrip() + "\n"]))


if __name__ == "__main__":
    main()
