#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Tells how much of the library the tests run, and fails where that is less than wanted.

Wants the build folder of the preset `coverage`. Counts functions, lines and branches of everything below dravik/adt but tests
and testing/. A template counts once, with what any of its instances ran. What no test reaches stands in left.txt
with a reason; a place that is missing there fails the run, and so does an entry whose line is gone. An entry may be reached now
and then: by two threads that happen to meet, say.
"""

import argparse
import collections
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
LEFT = ROOT / "tools/coverage/left.txt"
WANTED = {"functions": 99.5, "lines": 98.0, "branches": 95.0}  # percent, on top of which all that is missed is listed


def library_name(path):
    """The name below the root of a source of the library; None for anything else."""
    path = os.path.normpath(path)
    name = os.path.relpath(path, ROOT)
    if not name.startswith("dravik/adt/") or name.endswith("_test.cpp") or "/testing/" in name:
        return None
    return name


def run_tests(build, profiles):
    """Runs every test. The counters are files mapped into memory, so a process that dies of a fault leaves its own."""
    profiles.mkdir(exist_ok=True)
    for old in profiles.glob("*.prof*"):
        old.unlink()
    subprocess.run(["ctest", "--preset", "coverage", "--parallel", str(os.cpu_count()), "--quiet"], cwd=ROOT, check=True,
                   env={**os.environ, "LLVM_PROFILE_FILE": str(profiles / "%c%m-%p.profraw")})


def export(build, profiles):
    merged = str(profiles / "all.profdata")
    # A process that was killed while it mapped its counters leaves a file without a header.
    subprocess.run(["llvm-profdata", "merge", "-failure-mode=all", "-sparse", "-o", merged, *map(str, profiles.glob("*.profraw"))],
                   check=True, stderr=subprocess.DEVNULL)
    listing = subprocess.run(["ctest", "--show-only=json-v1"], cwd=build, check=True, capture_output=True, text=True).stdout
    programs = {test["command"][0] for test in json.loads(listing)["tests"] if "command" in test}
    # The scheduled copies of the sources are others than the library's.
    objects = [p for p in sorted(programs) if p.startswith(str(build)) and not p.endswith("schedule_test")]
    command = ["llvm-cov", "export", str(build / "libdravik_adt.so"), "-instr-profile", merged]
    command += [word for program in objects for word in ("-object", program)]
    return json.loads(subprocess.run(command, check=True, capture_output=True, text=True).stdout)["data"][0]


def lines_of(segments):
    """Whether each line that has code was run: by the region that it lies in or one that begins on it."""
    begins = collections.defaultdict(list)
    for line, _, count, has_count, is_entry, is_gap in segments:
        begins[line].append((count, has_count, is_entry and not is_gap))
    lines, around = {}, (0, False)
    for line in range(min(begins, default=0), max(begins, default=-1) + 1):
        counts = [count for count, has_count, is_entry in begins[line] if has_count and is_entry]
        if around[1] or counts:
            lines[line] = max(counts + ([around[0]] if around[1] else [])) > 0
        if begins[line]:
            around = begins[line][-1][:2]
    return lines


class Coverage:
    """What was run, by file and place: functions, lines, and both ways of each branch."""

    def __init__(self, data):
        self.texts = {}
        self.places = {"functions": collections.Counter(), "lines": collections.Counter(), "branches": collections.Counter()}
        for file in data["files"]:
            name = library_name(file["filename"])
            if name:
                self.texts[name] = (ROOT / name).read_text().splitlines()
                for line, was_run in lines_of(file["segments"]).items():
                    self.places["lines"][name, line] += was_run
        for function in data["functions"]:
            self.add(function)

    def add(self, function):
        name = library_name(function["filenames"][0])
        if name:
            line, column = function["regions"][0][:2]
            self.places["functions"][name, line, column] += function["count"]
        for branch in function["branches"]:
            name = library_name(function["filenames"][branch[6]])
            if name and "constexpr" not in self.texts[name][branch[0] - 1]:
                self.places["branches"][name, *branch[:4], True] += branch[4]
                self.places["branches"][name, *branch[:4], False] += branch[5]

    def text(self, place):
        return self.texts[place[0]][place[1] - 1].strip()

    def missed(self, kind):
        return sorted(place for place, count in self.places[kind].items() if count == 0)

    def percent(self, kind):
        return 100 - 100 * len(self.missed(kind)) / len(self.places[kind])


def read_left():
    """Entries `file: text of the line: reason`, the parts divided by ` | `."""
    entries = [line.split(" | ") for line in LEFT.read_text().splitlines() if line and not line.startswith("#")]
    return {(name, text): reason for name, text, reason in entries}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/coverage")
    parser.add_argument("--only", default="", help="report no place but those in files whose name contains this")
    parser.add_argument("--rerun", action=argparse.BooleanOptionalAction, default=True, help="run the tests first")
    arguments = parser.parse_args()
    profiles = arguments.build / "profiles"
    if arguments.rerun:
        run_tests(arguments.build, profiles)
    coverage = Coverage(export(arguments.build, profiles))

    left, failed = read_left(), False
    for kind in WANTED:
        for place in coverage.missed(kind):
            key = place[0], coverage.text(place)
            if key not in left and arguments.only in place[0]:
                failed = True
                way = " never %s" % str(place[-1]).lower() if kind == "branches" else ""
                print("%s:%d: %s%s: %s" % (place[0], place[1], kind[:-1].replace("branche", "branch"), way, key[1]))
    for name, text in left:
        if text not in (line.strip() for line in coverage.texts.get(name, ())):
            failed = True
            print("tools/coverage/left.txt: there is no such line: %s | %s" % (name, text))
    for kind, wanted in WANTED.items():
        failed = failed or coverage.percent(kind) < wanted
        print("%s: %.2f %% of %d, wanted %.1f %%" % (kind, coverage.percent(kind), len(coverage.places[kind]), wanted))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
