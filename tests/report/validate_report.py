#!/usr/bin/python3
"""Validates every line of a JSON-lines file against the report's JSON Schema.

usage: validate_report.py SCHEMA LINES
Prints one line per invalid report and exits 1 if there is any; checks too that no line nests
deeper than 32 levels.
"""
import json
import sys

import jsonschema


def depth(value):
    """Nesting levels of objects and arrays, counted without recursion."""
    deepest = 0
    stack = [(value, 1)]
    while stack:
        item, level = stack.pop()
        if isinstance(item, dict):
            deepest = max(deepest, level)
            stack.extend((v, level + 1) for v in item.values())
        elif isinstance(item, list):
            deepest = max(deepest, level)
            stack.extend((v, level + 1) for v in item)
    return deepest


def main():
    with open(sys.argv[1], encoding="utf-8") as f:
        validator = jsonschema.Draft202012Validator(json.load(f))
    bad = 0
    lines = 0
    with open(sys.argv[2], encoding="utf-8", errors="surrogateescape") as f:
        for number, line in enumerate(f, 1):
            lines += 1
            report = json.loads(line)
            for error in validator.iter_errors(report):
                bad += 1
                print(f"line {number} ({report.get('file')}): {error.message[:300]} at "
                      f"{list(error.absolute_path)}")
            if depth(report) > 32:
                bad += 1
                print(f"line {number}: nests {depth(report)} levels")
    print(f"{lines} reports, {bad} problems")
    return 1 if bad or lines == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
