#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that the library exports its own namespace and the controller functions of its C header, all of them and nothing else."""

import argparse
import pathlib
import re
import subprocess
import sys

DECLARATION = re.compile(r"^DRAVIK_ADT_EXPORT\s.*?(\w+)\(", re.MULTILINE)
# Functions, tables, thunks and statics of the namespace, and the standard hash of its types.
OWN = re.compile(r"_Z(T\w|Th\w*_|Tv\w*_|GV)?Z?N[VK]*[RO]?7Quorvel6Dravik|_ZNKSt4hashIN7Quorvel6Dravik")
# What a sanitizer or the coverage tool adds.
INSTRUMENTS = re.compile(r"_?_(asan|ubsan|tsan|llvm|odr)_|__start_|__stop_|_init$|_fini$")


def exported_symbols(nm: str, library: pathlib.Path) -> set[str]:
    listing = subprocess.run([nm, "-D", "--defined-only", "--format=posix", str(library)], check=True, text=True,
                             stdout=subprocess.PIPE).stdout
    names = {line.split()[0].split("@")[0] for line in listing.splitlines()}
    return {name for name in names if not INSTRUMENTS.match(name)}


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", required=True)
    parser.add_argument("--library", type=pathlib.Path, required=True)
    parser.add_argument("--header", type=pathlib.Path, required=True)
    arguments = parser.parse_args()
    declared = set(DECLARATION.findall(arguments.header.read_text()))
    exported = exported_symbols(arguments.nm, arguments.library)
    plain = {name for name in exported if not OWN.match(name)}
    problems = [f"{name} is declared and not exported" for name in sorted(declared - plain)]
    problems += [f"{name} is exported and neither declared nor ours" for name in sorted(plain - declared)]
    if len(declared) != 11:
        problems.append(f"{arguments.header.name} declares {len(declared)} functions instead of 11")
    for problem in problems:
        print(problem, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
