"""The plots of report.py."""
import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "zo_bundlemgr"  # equal figures give equal files
from matplotlib import pyplot  # noqa: E402

OURS, PEER, TARGET = "#c0392b", "#7f8c8d", "#2980b9"


def save(figure, file):
    figure.tight_layout()
    figure.savefig(file, metadata={"Date": None})
    pyplot.close(figure)


def ratios(rows, file):
    """Each question a line: ours, the peers and the target, with the limit at 1."""
    rows = [r for r in rows if r["ratio_to_limit"] is not None]
    if not rows:
        return
    figure, axes = pyplot.subplots(figsize=(10, 0.34 * len(rows) + 1.6))
    for y, r in enumerate(reversed(rows)):
        for name, ratio in r["peers"].items():
            axes.plot(ratio, y, "o", color=PEER, markersize=5)
            axes.annotate(name, (ratio, y), textcoords="offset points", xytext=(0, 5), ha="center", fontsize=5,
                          color=PEER)
        if r["target"] is not None and r["target_of"] == "ratio_to_limit":
            axes.plot(r["target"], y, "|", color=TARGET, markersize=13, markeredgewidth=2)
        axes.plot(r["ratio_to_limit"], y, "D", color=OURS, markersize=6)
    axes.axvline(1, color="black", linewidth=0.8)
    axes.set_xscale("log")
    axes.set_yticks(range(len(rows)), [r["question"] for r in reversed(rows)], fontsize=8)
    axes.set_xlabel("cost, limit = 1 (less is better)")
    axes.grid(axis="x", alpha=0.3)
    marks = [axes.plot([], [], "D", color=OURS)[0], axes.plot([], [], "o", color=PEER)[0],
             axes.plot([], [], "|", color=TARGET, markersize=13, markeredgewidth=2)[0]]
    figure.legend(marks, ["ours", "peers", "target"], loc="upper right", ncol=3, fontsize=8)
    save(figure, file)


def series(all_series, directory):
    """Each series a file: its first column against the others, those of one unit together."""
    for found in all_series:
        name, columns, points = found["series"], found["columns"], found["points"]
        units = {}
        for i, column in enumerate(columns[1:], start=1):
            label, _, unit = column.rpartition(", ")
            units.setdefault(unit or column, []).append((label or column, [p[i] for p in points]))
        figure, all_axes = pyplot.subplots(1, len(units), figsize=(5 * len(units), 3.2), squeeze=False)
        for axes, (unit, lines) in zip(all_axes[0], units.items()):
            for i, (label, values) in enumerate(lines):
                axes.plot([p[0] for p in points], values, "o-", label=label, color=OURS if i == 0 else None,
                          markersize=3)
            axes.set_ylim(bottom=0)
            axes.set_xlabel(columns[0])
            axes.set_ylabel(unit)
            axes.grid(alpha=0.3)
            if len(lines) > 1:
                axes.legend(fontsize=8)
        figure.suptitle(name, fontsize=10)
        words = "".join(c if c.isalnum() else " " for c in name.lower()).split()
        save(figure, directory / ("_".join(words) + ".svg"))
