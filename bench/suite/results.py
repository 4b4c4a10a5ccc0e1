"""Writes what was measured: a document, its plots, and the figures for the next comparison."""

import json
import statistics
import tomllib
from pathlib import Path

import plots
from rows import ROWS

NAME = "benchmarks"
RUNS, QUICK_RUNS = 5, 3
# How much worse a ratio may be than the committed one.
SLIP = 1.5

INTRODUCTION = """\
# Benchmarks

Written by `bench/run`, which measures everything on one machine in one go; do not edit. Each side has its turn in each
run, so that what else happens on the machine happens to all. Figures are medians of the runs, with the least and the
largest in brackets. All sides have the same signatures, the same files on the same file systems, their temporary files
in memory, everything warm, and all cores. The programs that write and ask are compiled and sleep in the kernel while
they wait.

The *bare* sides are the least programs that could do the work (`bench/bare_*.cpp`): a loop over libclamav or over the
system calls. A ratio above 1 means that the service takes longer than that side. The peers are those of Debian, with
their own default settings.
"""


def figure(value):
    if value == float("inf"):
        return "never"
    return f"{value:,.0f}" if abs(value) >= 1000 else f"{value:.3g}"


def _range(values):
    if len(values) == 1:
        return figure(values[0])
    return f"{figure(statistics.median(values))} ({figure(min(values))} to {figure(max(values))})"


def _table(heads, rows):
    return ["| " + " | ".join(heads) + " |", "|" + "---|" * len(heads),
            *("| " + " | ".join(row) + " |" for row in rows), ""]


def _measurement(measurement):
    rows = []
    for side, values in measurement.sides.items():
        ratio = "" if side == "tvfilemon" or not statistics.median(values) else f"{measurement.ratio(side):.2f}"
        rows.append([side, _range(values), ratio])
    lines = [f"### {measurement.name}", "", *_table(["side", measurement.unit, "ratio"], rows)]
    for check in measurement.checks:
        lines.append(f"- {check.target}: {check.figure}, {'reached' if check.reached else '**not reached**'}")
    lines += [f"- {remark}" for remark in measurement.remarks]
    return [*lines, ""]


def row_lines(name, measurements):
    """The section of the row."""
    title = ROWS[name].title
    lines = [f"## {title[0].upper() + title[1:]}", "", ROWS[name].what, ""]
    for measurement in measurements:
        lines += _measurement(measurement)
    return lines


def _summary(results):
    rows = []
    for row, measurements in results.items():
        for measurement in measurements:
            for check in measurement.checks:
                rows.append([ROWS[row].title, measurement.name, check.target, check.figure,
                             "yes" if check.reached else "**no**"])
    return _table(["what", "work", "to reach", "measured", "reached"], rows)


def _plots(results, directory):
    """Writes them; returns lines that show them, by row."""
    shown = {}

    def write(row, name, document):
        (directory / name).write_text(document, encoding="utf-8")
        shown.setdefault(row, []).extend([f"![{row}](images/{name})", ""])

    for row, measurements in results.items():
        for number, measurement in enumerate(each for each in measurements if each.samples):
            lines = {side: plots.distribution(values) for side, values in measurement.samples.items()}
            write(row, f"{NAME}-{row}-{number + 1}.svg",
                  plots.plot(f"{row}: {measurement.name}", measurement.unit, "% of the files, no later", lines,
                             log_y=False, with_marks=False))
        growing = {each.name: each.points["tvfilemon"] for each in measurements if each.points}
        if growing:
            write(row, f"{NAME}-{row}.svg", plots.plot("growth", "items", "seconds", growing))
    return shown


def write_document(results, machine, notes_file, documents):
    """Writes the document and the plots below the directory `documents`. A note for a row explains what its figures
    alone do not."""
    notes = tomllib.loads(Path(notes_file).read_text(encoding="utf-8"))
    unknown = set(notes) - set(ROWS)
    assert not unknown, f"notes for rows that there are not: {unknown}"
    images = documents / "images"
    images.mkdir(exist_ok=True)
    shown = _plots(results, images)
    lines = [INTRODUCTION, "## The machine", "", *(f"- {name}: {value}" for name, value in machine.items()), "",
             "## Targets", "", *_summary(results)]
    for row, measurements in results.items():
        lines += row_lines(row, measurements) + shown.get(row, [])
        if row in notes:
            lines += [notes[row].strip(), ""]
    (documents / f"{NAME}.md").write_text("\n".join(lines).rstrip() + "\n", encoding="utf-8")


def quick_ratios(results):
    """Of ours to the bare side, by row and work."""
    return {f"{row}: {measurement.name}": round(measurement.ratio(measurement.bare), 3)
            for row, measurements in results.items() for measurement in measurements if measurement.bare}


def write_figures(results, quick, machine, documents):
    data = {"machine": machine, "quick": quick,
            "rows": {row: [each.as_data() for each in measurements] for row, measurements in results.items()}}
    (documents / f"{NAME}.json").write_text(json.dumps(data, indent=1, ensure_ascii=False) + "\n", encoding="utf-8")


def committed_ratios(documents):
    """Those that the last full run left."""
    file = documents / f"{NAME}.json"
    return json.loads(file.read_text(encoding="utf-8"))["quick"] if file.exists() else {}


def slipped(quick, committed):
    """The ratios that are worse by more than half than the committed ones: a line for each, by name."""
    return {name: f"{name}: the ratio is {ratio}, it was {committed[name]}"
            for name, ratio in quick.items() if name in committed and ratio > SLIP * committed[name]}
