"""Measures in the namespaces: inside.py RESULT RUNS quick|full ROW...

RESULT becomes a JSON file of the rows' measurements."""

import dataclasses
import json
import sys

import harness

import footprintrows
import growthrows
import iocrows
import requestrows
import responserows
import rows
import startrows

# They declare what measures the rows.
DECLARING = (footprintrows, growthrows, iocrows, requestrows, responserows, startrows)


def main():
    result, runs, form, *names = sys.argv[1:]
    harness.prepare_machine()
    results = rows.measure(names, rows.Scale(int(runs), form == "quick"))
    with open(result, "w", encoding="utf-8") as file:
        json.dump({name: [dataclasses.asdict(each) for each in measurements]
                   for name, measurements in results.items()}, file)


if __name__ == "__main__":
    main()
