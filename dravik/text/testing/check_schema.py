#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks the schema of definitions by a table of texts: good ones pass, bad ones fail, and every type has a good one. Every
form that a source file registers has a type."""

import json
import pathlib
import re
import sys

import jsonschema

ROOT = pathlib.Path(__file__).resolve().parents[3]
ROOTS = ("entity", "source", "transform", "view")


def registered():
    """The names in forms.add<Def>("Name", …), those of tests left out."""
    for path in (ROOT / "dravik").rglob("*.cpp"):
        if not path.stem.endswith("_test"):
            yield from re.findall(r'\.add<\w+>\(\s*"(\w+)"', path.read_text())


def main(schema_path: str, texts_path: str) -> int:
    schema = json.loads(pathlib.Path(schema_path).read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    problems, passed = [], ""
    for line in pathlib.Path(texts_path).read_text().splitlines():
        kind, _, row = line.partition(" ")
        text = row.partition(" :: ")[2]
        is_good = kind in ("good", "file")
        if (is_good or kind == "bad") and validator.is_valid(json.loads(text)) != is_good:
            problems.append(f"the schema says otherwise: {line}")
        passed += text if is_good else ""
    types = [form["properties"]["type"]["const"] for root in ROOTS for form in schema["$defs"][root]["oneOf"]]
    problems += [f"the schema lacks {name}" for name in sorted(set(registered()) - set(types))]
    problems += [f"no good text of {name}" for name in types if f'"type":"{name}"' not in passed]
    for problem in problems:
        print(problem, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
