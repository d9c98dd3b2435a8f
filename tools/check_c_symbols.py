#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that the library's C symbols are the controller functions that its C header declares, all of them and no other."""

import argparse
import pathlib
import re
import subprocess
import sys

DECLARATION = re.compile(r"^DRAVIK_ADT_EXPORT\s.*?(\w+)\(", re.MULTILINE)


def exported_c_symbols(nm: str, library: pathlib.Path) -> set[str]:
    listing = subprocess.run([nm, "-D", "--defined-only", "--format=posix", str(library)], check=True, text=True,
                             stdout=subprocess.PIPE).stdout
    names = {line.split()[0].split("@")[0] for line in listing.splitlines()}
    # C++ names are mangled to _Z...; other names with an underscore belong to the compiler's and the linker's runtime.
    return {name for name in names if not name.startswith("_")}


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", required=True)
    parser.add_argument("--library", type=pathlib.Path, required=True)
    parser.add_argument("--header", type=pathlib.Path, required=True)
    arguments = parser.parse_args()
    declared = set(DECLARATION.findall(arguments.header.read_text()))
    exported = exported_c_symbols(arguments.nm, arguments.library)
    problems = [f"{name} is declared and not exported" for name in sorted(declared - exported)]
    problems += [f"{name} is exported and not declared" for name in sorted(exported - declared)]
    if len(declared) != 11:
        problems.append(f"{arguments.header.name} declares {len(declared)} functions instead of 11")
    for problem in problems:
        print(problem, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
