#!/usr/bin/python3
"""Prints each line that no test ran, with the reason why; fails when one has none.

    uncovered_lines.py COVERAGE REASONS

COVERAGE is the JSON report of gcovr, made in the directory of the sources. REASONS is a TOML file: for each source a list
of tables with "lines", a piece of it that stands in it once, and the "reason" why no test runs them. One that is not
found any more is an error, too.
"""

import json
import sys
import tomllib
from pathlib import Path


def stripped(text):
    return [line.strip() for line in text.split("\n")]


def line_numbers(source, piece):
    """The numbers of the lines of a piece, that is of the only place where the source has it; else nothing."""
    size = len(piece)
    starts = [i for i in range(len(source) - size + 1) if source[i:i + size] == piece]
    return range(starts[0] + 1, starts[0] + 1 + size) if len(starts) == 1 else ()


def explained(name, entries, errors):
    """The reasons by the number of the line."""
    path = Path(name)
    source = stripped(path.read_text(encoding="utf-8")) if path.is_file() else []
    reasons = {}
    for entry in entries:
        piece = stripped(entry["lines"].strip("\n"))
        numbers = line_numbers(source, piece)
        if not numbers:
            errors.append(f"{name} does not have once what a reason is given for: {piece[0]}")
        for number in numbers:
            reasons[number] = " ".join(entry["reason"].split())
    return reasons


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    coverage = json.loads(Path(sys.argv[1]).read_text(encoding="utf-8"))
    entries = tomllib.loads(Path(sys.argv[2]).read_text(encoding="utf-8"))
    errors = []
    reasons = {name: explained(name, pieces, errors) for name, pieces in entries.items()}
    for file in sorted(coverage["files"], key=lambda each: each["file"]):
        name = file["file"]
        source = Path(name).read_text(encoding="utf-8").splitlines()
        for line in file["lines"]:
            if line["count"] != 0 or line.get("gcovr/noncode"):
                continue
            number = line["line_number"]
            reason = reasons.get(name, {}).get(number)
            text = f"{name}:{number}: {source[number - 1].strip()}"
            if reason is None:
                errors.append(f"{text}\n    no test runs it, and no reason is given")
            else:
                print(f"{text}\n    {reason}")
    for error in errors:
        print(error)
    sys.exit(1 if errors else 0)


if __name__ == "__main__":
    main()
