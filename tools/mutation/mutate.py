#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Plants single faults in the library's sources and counts how many the tests catch.

All faults are compiled in one build and one of them is switched on per run (see mutant.h). Faults are drawn by a fixed
seed from every place that the compiler's own parser finds: flipped comparisons, swapped arithmetic and logic, changed
constants, dropped calls, swapped arguments. Exit status 0 when at least --wanted percent of the faults that a test
reaches are caught, 1 otherwise, and 1 in any case when none is: then the build under test is the wrong one.
"""

import argparse
import collections
import concurrent.futures
import contextlib
import json
import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import time

import clang.cindex as ci

# Each operator and what may stand in its place: comparisons are flipped or moved by one, in turn.
FLIPPED = {"<": (">=", "<="), "<=": (">", "<"), ">": ("<=", ">="), ">=": ("<", ">"), "==": "!=", "!=": "==", "&&": "||", "||": "&&",
           "+": "-", "-": "+", "*": "+", "/": "*", "%": "*", "<<": ">>", ">>": "<<"}
NEEDS_NUMBERS = {"+", "-", "*", "/", "%", "<<", ">>"}
NUMBERS = {ci.TypeKind.INT, ci.TypeKind.UINT, ci.TypeKind.LONG, ci.TypeKind.ULONG, ci.TypeKind.LONGLONG,
           ci.TypeKind.ULONGLONG, ci.TypeKind.DOUBLE, ci.TypeKind.FLOAT}
# Swapping the arguments of these changes nothing.
SYMMETRIC = ("min", "max", "gcd", "lcm", "areClose", "multiply", "sumOf", "sumWithin", "__builtin_(?:add|mul)_overflow")
# Dropping these changes how fast the library is, or what a compiler might do and this one does not.
HINTS = ("__builtin_prefetch", "prefetchChildren", "yield", "atomic_signal_fence")
INTEGERS = NUMBERS - {ci.TypeKind.DOUBLE, ci.TypeKind.FLOAT}

Fault = collections.namedtuple("Fault", "file start end text kind line")


def library_sources(root):
    names = subprocess.run(["git", "ls-files", "dravik/adt"], cwd=root, check=True, capture_output=True, text=True).stdout.split()
    return {str(root / name) for name in names
            if name.endswith((".h", ".cpp")) and not name.endswith("_test.cpp") and "/testing/" not in name}


class Finder:
    """Collects the places of one translation unit where a fault can be planted."""

    def __init__(self, sources):
        self.sources = sources
        self.texts = {name: pathlib.Path(name).read_bytes() for name in sources}
        self.faults = {}

    def text(self, cursor):
        return self.texts[cursor.extent.start.file.name][cursor.extent.start.offset:cursor.extent.end.offset].decode()

    def plant(self, cursor, kind, faulty):
        """`faulty` stands in for the expression under `cursor` while the fault is live."""
        start, end = cursor.extent.start, cursor.extent.end
        sound = self.text(cursor)
        self.add(start, end, kind, "(Mutation::live(@) ? (%s) : (%s))" % (faulty, sound))

    def add(self, start, end, kind, text):
        key = (start.file.name, start.offset, end.offset, kind)
        self.faults.setdefault(key, Fault(start.file.name, start.offset, end.offset, text, kind, start.line))

    def visit(self, cursor, parent):
        location = cursor.extent.start
        inside = location.file is not None and location.file.name in self.sources
        if inside and cursor.kind not in (ci.CursorKind.STATIC_ASSERT,):
            self.look_at(cursor, parent)
        if location.file is None or inside or cursor.kind == ci.CursorKind.TRANSLATION_UNIT:
            for child in cursor.get_children():
                self.visit(child, cursor)

    def look_at(self, cursor, parent):
        if cursor.extent.end.file is None or cursor.extent.end.file.name != cursor.extent.start.file.name:
            return
        if cursor.kind == ci.CursorKind.BINARY_OPERATOR:
            self.look_at_operator(cursor)
        elif cursor.kind == ci.CursorKind.INTEGER_LITERAL:
            if re.fullmatch(r"\d+", self.text(cursor)):
                self.plant(cursor, "constant", self.text(cursor) + " + 1")
        elif cursor.kind == ci.CursorKind.CALL_EXPR:
            self.look_at_call(cursor, parent)

    def look_at_operator(self, cursor):
        operands = list(cursor.get_children())
        if len(operands) != 2 or any(o.extent.start.file is None for o in operands):
            return
        left, right = operands
        between = self.texts[cursor.extent.start.file.name][left.extent.end.offset:right.extent.start.offset].decode().strip()
        if between not in FLIPPED:
            return
        kinds = {o.type.get_canonical().kind for o in operands}
        if between in NEEDS_NUMBERS and not kinds <= (INTEGERS if between in ("%", "<<", ">>") else NUMBERS):
            return
        faulty = FLIPPED[between]
        if isinstance(faulty, tuple):
            faulty = faulty[cursor.extent.start.line % len(faulty)]
        self.plant(cursor, "%s for %s" % (faulty, between), "%s %s %s" % (self.text(left), faulty, self.text(right)))

    def look_at_call(self, cursor, parent):
        name = self.text(cursor)
        arguments = list(cursor.get_arguments())
        if not name.endswith(")") or any(a is None or a.extent.start.file is None for a in arguments):
            return
        if parent.kind == ci.CursorKind.COMPOUND_STMT and not re.search(r"\b(%s)\(" % "|".join(HINTS), name):
            self.add(cursor.extent.start, cursor.extent.end, "dropped call", "if (!Mutation::live(@)) %s" % name)
        if re.search(r"\b(%s)(<[^()]*>)?\(" % "|".join(SYMMETRIC), name):
            return
        for first, second in zip(arguments, arguments[1:]):
            same = first.type.get_canonical().spelling == second.type.get_canonical().spelling
            plain = first.type.get_canonical().kind in NUMBERS and self.text(first) != self.text(second)
            if same and plain and cursor.type.kind != ci.TypeKind.VOID and parent.kind != ci.CursorKind.COMPOUND_STMT:
                base = cursor.extent.start.offset
                swapped = (name[:first.extent.start.offset - base] + self.text(second) +
                           name[first.extent.end.offset - base:second.extent.start.offset - base] + self.text(first) +
                           name[second.extent.end.offset - base:])
                self.plant(cursor, "swapped arguments", swapped)
                return


def find_faults(root, build):
    sources = library_sources(root)
    finder = Finder(sources)
    index = ci.Index.create()
    for entry in json.loads((build / "compile_commands.json").read_text()):
        if entry["file"] not in sources and "headers_alone" not in entry["file"]:
            continue
        arguments = [a for a in entry["command"].split() if a.startswith(("-I", "-D", "-std", "-isystem"))]
        unit = index.parse(entry["file"], arguments)
        finder.visit(unit.cursor, unit.cursor)
    return [finder.faults[key] for key in sorted(finder.faults)]


def draw(faults, count, seed):
    """`count` faults no two of which overlap."""
    chosen, taken = [], collections.defaultdict(list)
    for fault in random.Random(seed).sample(faults, len(faults)):
        if len(chosen) == count:
            break
        if all(fault.end <= start or end <= fault.start for start, end in taken[fault.file]):
            taken[fault.file].append((fault.start, fault.end))
            chosen.append(fault)
    return chosen


def write_tree(root, tree, chosen, dropped):
    names = subprocess.run(["git", "ls-files"], cwd=root, check=True, capture_output=True, text=True).stdout.split()
    edits = collections.defaultdict(list)
    for number, fault in enumerate(chosen):
        if number not in dropped:
            edits[fault.file].append((fault, number))
    for name in names:
        content = (root / name).read_bytes()
        for fault, number in sorted(edits[str(root / name)], key=lambda edit: -edit[0].start):
            content = content[:fault.start] + fault.text.replace("@", str(number)).encode() + content[fault.end:]
        target = tree / name
        target.parent.mkdir(parents=True, exist_ok=True)
        if not target.exists() or target.read_bytes() != content:
            target.write_bytes(content)
            shutil.copymode(root / name, target)


def build_tree(root, tree, chosen):
    """Builds until it compiles; faults whose line an error names are left out. Returns those left out."""
    dropped = set()
    flags = "-O1 -w -include %s" % (root / "tools/mutation/mutant.h")
    while True:
        write_tree(root, tree, chosen, dropped)
        subprocess.run(["cmake", "-S", str(tree), "-B", str(tree / "build"), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
                        "-DCMAKE_CXX_FLAGS=" + flags, "-DDRAVIK_ADT_BUILD_EXAMPLES=OFF",
                        "-DDRAVIK_ADT_MUTATED=ON",
                        "-DDRAVIK_ADT_CLANG=OFF"],  # what CMake does not compile itself knows nothing of faults
                       check=True, stdout=subprocess.DEVNULL)
        result = subprocess.run(["cmake", "--build", str(tree / "build"), "--", "-k", "0"], capture_output=True, text=True)
        if result.returncode == 0:
            return dropped
        broken = set()
        lines = collections.defaultdict(set)
        for name, line in re.findall(r"([^\s:]+\.(?:h|cpp)):(\d+):\d+:", result.stdout):
            lines[os.path.normpath(os.path.join(tree / "build", name))].add(int(line))
        for number, fault in enumerate(chosen):
            name = str(tree / os.path.relpath(fault.file, root))
            if number not in dropped and any(abs(fault.line - line) <= 1 for line in lines[name]):
                broken.add(number)
        if not broken:
            sys.exit(result.stdout[-4000:] + "\nthe tree does not compile, and not because of a planted fault")
        print("left out, since they do not compile: %d" % len(broken), flush=True)
        dropped |= broken


def run(program, environment, seconds, folder):
    """The exit status, or -1 after `seconds`. Children of the program end with it, or they would wait for ever."""
    process = subprocess.Popen(program, cwd=folder, env={**os.environ, **environment}, start_new_session=True,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        return process.wait(timeout=seconds)
    except subprocess.TimeoutExpired:
        return -1
    finally:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()


def reached_by(tests, tree):
    """For each fault the tests that reach it, fastest first; and how long each test takes."""
    reach, seconds = collections.defaultdict(list), {}
    for test in tests:
        trace = tree / "trace"
        trace.unlink(missing_ok=True)
        started = time.monotonic()
        if run(test["command"], {"DRAVIK_MUTANT_TRACE": str(trace)}, 600, tree / "build") != 0:
            sys.exit("%s fails without any fault" % test["name"])
        seconds[test["name"]] = time.monotonic() - started
        for number in set(trace.read_text().split()) if trace.exists() else ():
            reach[int(number)].append(test)
    for number in reach:
        reach[number].sort(key=lambda test: seconds[test["name"]])
    return reach, seconds


def is_caught(number, tests, seconds, tree):
    return any(run(test["command"], {"DRAVIK_MUTANT": str(number)}, 5 + 10 * seconds[test["name"]], tree / "build") != 0
               for test in tests)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default="build/dev", help="a configured build of this tree")
    parser.add_argument("--count", type=int, default=400, help="how many faults to plant")
    parser.add_argument("--seed", type=int, default=1, help="which ones")
    parser.add_argument("--only", default="", help="regular expression for the files to plant them in")
    parser.add_argument("--wanted", type=float, default=85, help="percent of the reached ones to be caught")
    arguments = parser.parse_args()

    root = pathlib.Path(__file__).resolve().parents[2]
    tree = root / "build/mutants"
    faults = [f for f in find_faults(root, root / arguments.build) if re.search(arguments.only, os.path.relpath(f.file, root))]
    chosen = draw(faults, arguments.count, arguments.seed)
    print("%d places, %d drawn with seed %d" % (len(faults), len(chosen), arguments.seed), flush=True)
    dropped = build_tree(root, tree, chosen)

    listing = subprocess.run(["ctest", "--show-only=json-v1"], cwd=tree / "build", check=True, capture_output=True, text=True)
    # One of the programs that try the same guard under other compiler options says as much as all of them.
    tests = [t for t in json.loads(listing.stdout)["tests"]
             if re.search("_(test|corpus)$", t["name"]) and not t["name"].startswith("fault_guard_gcc")]
    reach, seconds = reached_by(tests, tree)
    reached = [number for number in range(len(chosen)) if number not in dropped and reach[number]]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        caught = list(pool.map(lambda number: is_caught(number, reach[number], seconds, tree), reached))

    for number, found in zip(reached, caught):
        if not found:
            fault = chosen[number]
            line = pathlib.Path(fault.file).read_text().splitlines()[fault.line - 1].strip()
            print("survived %d: %s:%d: %s: %s" % (number, os.path.relpath(fault.file, root), fault.line, fault.kind, line))
    total = len(chosen) - len(dropped)
    percent = 100 * sum(caught) / len(reached) if reached else 0
    print("%d faults, %d reached, %d caught: %.1f %% of those reached" % (total, len(reached), sum(caught), percent))
    return 0 if sum(caught) > 0 and percent >= arguments.wanted else 1


if __name__ == "__main__":
    sys.exit(main())
