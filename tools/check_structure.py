#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks the rules of the tree: who may include whom and that no headers include each other, that functions and headers are
short and headers light, that adt.h names every public header, that the pages quote what the examples print, and that every
test file is built by a target."""

import argparse
import json
import pathlib
import re
import subprocess
import sys

ROOT = "dravik/adt"

# folder -> folders it may include besides itself and export.h
MAY_INCLUDE = {
    "platform": [],
    "exceptions": ["platform"],
    "core": ["exceptions", "platform"],
    "logging": ["core", "platform"],
    "statistics": ["core", "platform"],
    "converters": ["core", "exceptions", "platform"],
    "bulkdef": ["core", "exceptions"],
    "bulkview": ["core", "exceptions"],
    "bulkview/regions": ["bulkview", "converters", "statistics", "core", "exceptions", "platform"],
    "bulkview/accessors": ["bulkview", "bulkview/regions", "core", "exceptions"],
    "bulkview/views": ["bulkview", "bulkview/regions", "core", "exceptions", "platform"],
    "bulkview/filters": ["bulkview", "bulkview/regions", "converters", "bulkdef", "core", "exceptions", "platform"],
    "bulkview/stores": ["bulkview", "bulkview/regions", "bulkview/filters", "bulkview/accessors", "converters", "bulkdef",
                        "core", "exceptions", "platform"],
    "bulkview/old": ["bulkview", "bulkview/accessors", "bulkview/filters", "core", "exceptions"],
}

# What a header may preprocess to, in lines with all that it includes: by its name, else as "".
MOST_PREPROCESSED = {"core/fixed_vector.h": 10_000, "core/range.h": 40_000, "core/extent.h": 40_000,
                     "core/array_ref.h": 40_000, "core/index_set.h": 40_000, "core/hasher.h": 40_000,
                     "converters/scale_offset.h": 40_000, "adt.h": 180_000, "": 130_000}
MOST_LINES = 500  # of a header itself
MOST_FUNCTION_LINES = 50  # of a function's body, unless a comment above it says why it is longer

INCLUDE = re.compile(r'^\s*#\s*include\s+["<](dravik/[^">]+)[">]', re.MULTILINE)


def folder_of(path: str) -> str:
    """The folder of the table that `path`, relative to dravik/adt, lives in; "" for the top level."""
    parts = path.split("/")
    inner = "/".join(parts[:2])
    return inner if inner in MAY_INCLUDE else parts[0] if len(parts) > 1 else ""


# A companion may include the library's public headers and these other companions, by their folders.
COMPANIONS_MAY_INCLUDE = {"dravik/text": [], "dravik/files": ["dravik/text"]}


def companion_of(path: str) -> str:
    """The folder of a companion that `path`, relative to the source, lives in: two parts, three for a file format; "" in the
    library."""
    parts = path.split("/")
    folder = "/".join(parts[:2])
    return "" if folder == ROOT else "/".join(parts[:3]) if folder == "dravik/files" else folder


def check_companions(source: pathlib.Path) -> list[str]:
    problems = []
    for file in sorted((source / "dravik").rglob("*")):
        includer = file.relative_to(source).as_posix()
        companion = companion_of(includer)
        group = next((group for group in COMPANIONS_MAY_INCLUDE if includer.startswith(group + "/")), None)
        if file.suffix not in (".h", ".cpp") or group is None:
            continue
        is_test = includer.endswith("_test.cpp") or "/testing/" in includer
        for name in INCLUDE.findall(file.read_text()):
            if not (source / name).is_file():
                problems.append(f"{includer} includes {name}, which does not exist")
            elif name.startswith(ROOT + "/"):
                private = {"platform", "testing", "detail"} & set(name.split("/"))
                if private and not is_test:
                    problems.append(f"{includer} includes {name}, which is the library's own")
            elif companion_of(name) not in (companion, *COMPANIONS_MAY_INCLUDE[group]) and not (
                    group == "dravik/files" and companion_of(name) == "dravik/files/shared"):
                problems.append(f"{includer} may not include {name}")
    return problems


def may_include(includer: str, included: str) -> bool:
    source, target = folder_of(includer), folder_of(included)
    if source in ("", "testing") or target == source or included == "export.h":
        return target != "testing" or source == "testing"
    return target in MAY_INCLUDE[source]


def check_includes(source: pathlib.Path) -> list[str]:
    problems = []
    for file in sorted((source / ROOT).rglob("*")):
        if file.suffix not in (".h", ".cpp", ".c"):
            continue
        includer = file.relative_to(source / ROOT).as_posix()
        is_test = includer.endswith("_test.cpp") or includer.endswith("_test.c")
        for name in INCLUDE.findall(file.read_text()):
            if not name.startswith(ROOT + "/"):
                problems.append(f"{includer} includes {name}, which is outside the library")
                continue
            included = name[len(ROOT) + 1:]
            if not (source / name).is_file():
                problems.append(f"{includer} includes {name}, which does not exist")
            elif file.suffix == ".h" and folder_of(included) == "platform" and folder_of(includer) not in ("platform", "testing"):
                problems.append(f"{includer} is public and includes {included} of platform/")
            elif not is_test and not may_include(includer, included):
                problems.append(f"{includer} may not include {included}")
    return problems


def check_circles(source: pathlib.Path) -> list[str]:
    root = source / ROOT
    includes = {file.relative_to(source).as_posix(): INCLUDE.findall(file.read_text()) for file in root.rglob("*.h")}
    problems, done = [], set()

    def visit(header: str, path: list[str]) -> None:
        if header in path:
            problems.append("headers include each other: " + " > ".join([*path[path.index(header):], header]))
        elif header not in done:
            for included in includes.get(header, []):
                visit(included, [*path, header])
            done.add(header)

    for header in sorted(includes):
        visit(header, [])
    return problems


def check_weight(source: pathlib.Path, compiler: str) -> list[str]:
    problems = []
    for file in sorted((source / ROOT).rglob("*.h")):
        header = file.relative_to(source / ROOT).as_posix()
        if file.read_text().count("\n") > MOST_LINES:
            problems.append(f"{header} has more than {MOST_LINES} lines")
        if {"platform", "testing", "detail"} & set(file.parts):
            continue
        most = MOST_PREPROCESSED.get(header, MOST_PREPROCESSED[""])
        text = subprocess.run([compiler, "-std=c++20", "-E", f"-I{source}", "-x", "c++", file], check=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
        lines = text.count(b"\n")
        if lines > most:
            problems.append(f"{header} preprocesses to {lines} lines, {most} are allowed")
    return problems


def check_functions(source: pathlib.Path) -> list[str]:
    """Leans on the house's format: a body ends in the first closing brace below the line that opens it, in its column."""
    opens = re.compile(r"(?!namespace|class|struct|enum|union|template|extern|using)[\w~].*[)\w] \{$|\) .*\{$")
    problems = []
    files = [file for suffix in ("*.h", "*.cpp") for file in (source / "dravik").rglob(suffix)]
    for file in sorted(file for file in files if not file.stem.endswith("_test")):
        lines = file.read_text().split("\n")
        for number, line in enumerate(lines):
            indent = line[:len(line) - len(line.lstrip(" "))]
            if len(indent) > 4 or not opens.match(line.strip()) or "(" not in line + lines[number - 1]:
                continue
            end = next((n for n in range(number, len(lines)) if lines[n].startswith(indent + "}")), number)
            if end - number - 1 > MOST_FUNCTION_LINES and not lines[number - 1].startswith(indent + "//"):
                where = f"{file.relative_to(source)}:{number + 1}"
                problems.append(f"{where} begins a function of {end - number - 1} lines, {MOST_FUNCTION_LINES} are allowed")
    return problems


def check_one_include(source: pathlib.Path) -> list[str]:
    included = INCLUDE.findall((source / ROOT / "adt.h").read_text())
    headers = [file.relative_to(source) for file in (source / ROOT).rglob("*.h")]
    public = {header.as_posix() for header in headers if not {"platform", "testing", "detail"} & set(header.parts)}
    return [f"adt.h does not include {header}" for header in sorted(public - {ROOT + "/adt.h", *included})]


def check_quoted_output(source: pathlib.Path) -> list[str]:
    printed = [file.read_text() for file in (source / "examples" / "expected").glob("*.txt")]
    problems = []
    for page in sorted((source / "docs" / "concepts").glob("*.md")):
        for quoted in re.findall(r"^This prints\n\n((?:    .*\n)+)", page.read_text(), re.MULTILINE):
            text = re.sub("^    ", "", quoted, flags=re.MULTILINE)
            if not any(text in output for output in printed):
                problems.append(f"{page.name} quotes what no example prints: {text.splitlines()[0]}")
    return problems


def check_tests_are_built(source: pathlib.Path, compile_commands: pathlib.Path) -> list[str]:
    built = {pathlib.Path(entry["file"]).resolve() for entry in json.loads(compile_commands.read_text())}
    tests = [*(source / "dravik").rglob("*_test.cpp"), *(source / ROOT).rglob("*_test.c"),
             *(source / "examples").rglob("*_test.cpp")]
    return [f"{test.relative_to(source)} is built by no target" for test in tests if test.resolve() not in built]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--compile-commands", type=pathlib.Path, required=True)
    parser.add_argument("--compiler", required=True)
    arguments = parser.parse_args()
    problems = [*check_includes(arguments.source), *check_companions(arguments.source), *check_circles(arguments.source),
                *check_weight(arguments.source, arguments.compiler), *check_functions(arguments.source),
                *check_one_include(arguments.source), *check_quoted_output(arguments.source),
                *check_tests_are_built(arguments.source, arguments.compile_commands)]
    for problem in problems:
        print(problem, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
