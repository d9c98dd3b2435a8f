#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Doxygen's filter for the pages: prints a page in which every type of the library that stands in backticks, alone or before a
member, is a link into the reference.

usage: link_names.py PAGE, run from the root of the source
"""

import pathlib
import re
import sys

NAMESPACE = re.compile(r"^namespace (Quorvel[\w:]*) \{")
TYPE = re.compile(r"^(?:class|struct|enum class)(?: DRAVIK_ADT_EXPORT)? (\w+)(?!::)\b[^;]*$")
NAME = re.compile(r"`((\w+(?:::\w+)*)(?:<[^`]*>)?(?:\([^`]*\))?)`")


def types() -> dict[str, str]:
    """Every public type by its last name, with its whole name."""
    found = {}
    for header in sorted(pathlib.Path("dravik").rglob("*.h")):
        if {"platform", "testing", "detail", "python"} & set(header.parts):
            continue
        namespace = ""
        for line in header.read_text().splitlines():
            if match := NAMESPACE.match(line):
                namespace = match.group(1)
            elif namespace and (match := TYPE.match(line)):
                found[match.group(1)] = f"{namespace}::{match.group(1)}"
    return found


def linked(name: re.Match[str], known: dict[str, str]) -> str:
    """The name as a link to the last of its parts that is a type; as it is where there is none."""
    for part in reversed(name[2].split("::")):
        if part in known:
            text = name[1].replace('"', "'")
            return f'@ref {known[part]} "{text}"'
    return name[0]


def main() -> None:
    known = types()
    code = False
    for line in pathlib.Path(sys.argv[1]).read_text().splitlines():
        code = code ^ line.startswith("```")
        if not code and not line.startswith(("    ", "#")):
            line = NAME.sub(lambda name: linked(name, known), line)
        print(line)


if __name__ == "__main__":
    main()
