#!/usr/bin/env python3
"""Turns what the benchmarks measured into a table, table.md, results.json and plots.

    report.py DIRECTORY

DIRECTORY holds what they wrote: *.json of Google Benchmark, whose benchmarks are named
"question/library", and *.jsonl with one object a line: a question with its figures, or a
series of points.
"""
import json
import pathlib
import re
import statistics
import sys
from dataclasses import dataclass
from typing import Optional

NS, US, MS = ("ns", 1e9), ("us", 1e6), ("ms", 1e3)


@dataclass
class Question:
    key: str  # what the benchmarks call it
    text: str
    unit: tuple
    limit: Optional[str]  # the library that is 1
    target: Optional[float] = None
    target_of: str = "ratio_to_limit"  # or "ours"


QUESTIONS = [
    Question("record_immediate_1", "record, immediate, 1 thread", NS, "write(2)", 1.4),
    Question("record_immediate_4", "record, immediate, 4 threads on one log", NS, "write(2)", 1.4),
    Question("record_buffered_call", "record, buffered, the call alone", NS, "write(2)", 0.2),
    Question("record_buffered_drained", "record, buffered, drained, all included", NS, "write(2)", 0.3),
    Question("event_1p_1h", "event, posted to handled, 1 producer", NS, "ACE queue", 0.35),
    Question("event_4p_1h", "event, posted to handled, 4 producers", NS, "ACE queue", 0.4),
    Question("event_1p_10h", "event, 10 handlers, 1 producer", NS, "ACE queue", 0.4),
    Question("event_4p_10h", "event, 10 handlers, 4 producers", NS, "ACE queue", 0.4),
    Question("dispatch_1h", "dispatch alone, 1 handler", NS, "Boost.Signals2", 0.3),
    Question("dispatch_10h", "dispatch alone, 10 handlers", NS, "Boost.Signals2", 0.3),
    Question("lookup_cached", "interface, cached look-up", NS, "pointer", 5, "ours"),
    Question("keyvalue_1mb", "1 MB of key=value", US, "inih", 0.6),
    Question("codeset_40b_1t", "GBK to UTF-8, 40 B, 1 thread", NS, "open iconv handle", 1.2),
    Question("codeset_40b_2t", "GBK to UTF-8, 40 B, 2 threads", NS, "open iconv handle", 1.2),
    Question("codeset_1mib_1t", "GBK to UTF-8, 1 MiB, 1 thread", US, "open iconv handle", 1.0),
    Question("codeset_1mib_2t", "GBK to UTF-8, 1 MiB, 2 threads", US, "open iconv handle", 1.0),
    Question("setdirty_100", "__SetDirty, a path of all 100", NS, None, 1000, "ours"),
    Question("setdirty_1000", "__SetDirty, a path of all 1,000", NS, None, 1000, "ours"),
    Question("setdirty_10000", "__SetDirty, a path of all 10,000", NS, None, 1000, "ours"),
]

# What the questions of the programs that print their figures themselves are held to.
TARGETS = [  # beginning of the question, target, of what
    ("bytes a queued event", 48, "ours"),
    ("bytes a buffered record", 200, "ours"),
    ("load and init, ", 1.5, "ratio_to_limit"),
    ("Fini and Destroy, 100 bundles", 10, "ours"),
    # Closing a thousand libraries takes ACE alone longer than that.
    ("Fini and Destroy, 500 bundles of 4 services in other libraries", None, "ours"),
    ("Fini and Destroy, 500 bundles", 60, "ours"),
    ("remove and load of one service after 2000 ", 2, "ratio_to_limit"),
    ("remove and load of one service after 6000 ", 2, "ratio_to_limit"),
    ("first search among ", 10, "ours"),
]


def median_seconds(files):
    """{question: {library: median of its repetitions in seconds an item}}"""
    samples = {}
    for file in files:
        for run in json.loads(file.read_text())["benchmarks"]:
            if run["run_type"] != "iteration":
                continue
            if run.get("error_occurred"):
                sys.exit(f"{file}: {run['name']}: {run['error_message']}")
            question, library = run["run_name"].split("/")[:2]
            samples.setdefault(question, {}).setdefault(library, []).append(1 / run["items_per_second"])
    return {q: {name: statistics.median(s) for name, s in libraries.items()} for q, libraries in samples.items()}


def row(text, ours, unit, limit, limit_is, peers, target, target_of):
    ratio = ours / limit if limit else None
    against = ratio if target_of == "ratio_to_limit" else ours
    return {
        "question": text,
        "ours": round(ours, 3),
        "unit": unit,
        "limit": round(limit, 3) if limit else None,
        "limit_is": limit_is if limit else None,
        "ratio_to_limit": round(ratio, 3) if limit else None,
        "peers": {name: round(value / limit, 3) for name, value in peers.items()} if limit else {},
        "target": target,
        "target_of": target_of,
        "met": None if target is None or against is None else against <= target,
    }


def timed_rows(medians):
    for question in QUESTIONS:
        libraries = dict(medians.get(question.key, {}))
        if "ours" not in libraries:
            continue
        unit, factor = question.unit
        figures = {name: seconds * factor for name, seconds in libraries.items()}
        ours = figures.pop("ours")
        limit = figures.pop(question.limit, None)
        yield row(question.text, ours, unit, limit, question.limit, figures, question.target, question.target_of)


def printed_rows(objects):
    for found in objects:
        if "question" not in found:
            continue
        targets = [(t, of) for begin, t, of in TARGETS if found["question"].startswith(begin)]
        target, target_of = targets[0] if targets else (None, "ratio_to_limit")
        yield row(found["question"], found["ours"], found["unit"], found["limit"], found.get("limit_is", "ACE alone"),
                  found["peers"], target, target_of)


def growth(rows):
    """What is asked at several sizes, as series: {"load and init": points of (size, ours, limit)}"""
    found = {}
    for r in rows:
        size = re.search(r"\d[\d,]*", r["question"])
        if size is None or r["limit"] is None:
            continue
        name = r["question"].replace(size.group(), "n")
        found.setdefault(name, []).append((int(size.group().replace(",", "")), r["ours"], r["limit"], r))
    for name, points in found.items():
        if len(points) < 3:
            continue
        r = points[0][3]
        yield {"series": name, "columns": ["n", f"ours, {r['unit']}", f"{r['limit_is']}, {r['unit']}"],
               "points": [p[:3] for p in sorted(points, key=lambda p: p[0])]}


def figure(value):
    return f"{value:,.0f}" if abs(value) >= 100 else f"{value:.3g}"


def table_of(rows):
    yield "question", "limit = 1", "ours", "ratio", "target", "", "peers, ratio"
    for r in rows:
        in_unit = f" {r['unit']}" if r["target_of"] == "ours" else ""
        yield (
            r["question"],
            "" if r["limit"] is None else f"{r['limit_is']}, {figure(r['limit'])} {r['unit']}",
            f"{figure(r['ours'])} {r['unit']}",
            "" if r["ratio_to_limit"] is None else f"{r['ratio_to_limit']:.2f}",
            "" if r["target"] is None else f"≤ {figure(r['target'])}{in_unit}",
            {True: "met", False: "MISSED", None: ""}[r["met"]],
            ", ".join(f"{name} {ratio:.2f}" for name, ratio in sorted(r["peers"].items(), key=lambda p: p[1])),
        )


def print_table(lines):
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    for line in lines:
        print("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip())


def markdown(lines):
    rows = [" | ".join(cells) for cells in lines]
    return "\n".join(f"| {r} |" for r in [rows[0], " | ".join(["---"] * len(lines[0])), *rows[1:]]) + "\n"


def plot_all(rows, series, directory):
    import plots  # matplotlib need not be there
    plots.ratios(rows, directory / "ratios.svg")
    plots.series(series, directory)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    directory = pathlib.Path(sys.argv[1])
    raw = directory / "raw"
    objects = [json.loads(line) for file in sorted(raw.glob("*.jsonl")) for line in file.read_text().splitlines()]
    rows = [*timed_rows(median_seconds(sorted(raw.glob("*.json")))), *printed_rows(objects)]
    lines = list(table_of(rows))
    print_table(lines)
    (directory / "table.md").write_text(markdown(lines))
    (directory / "results.json").write_text(json.dumps(rows, indent=1) + "\n")
    try:
        plot_all(rows, [found for found in objects if "series" in found] + list(growth(rows)), directory)
    except ImportError as error:
        print(f"no plots: {error} (python3-matplotlib)", file=sys.stderr)


if __name__ == "__main__":
    main()
