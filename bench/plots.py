"""The plots of report.py."""
import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "zo_bundlemgr"  # equal figures give equal files
from matplotlib import pyplot, ticker  # noqa: E402

OURS = "#c0392b"


def save(figure, file):
    figure.tight_layout()
    figure.savefig(file, metadata={"Date": None})
    pyplot.close(figure)


def ratios(rows, file):
    """Each question a line: ours, the peers and the target, with the limit at 1."""
    rows = [r for r in rows if r["ratio_to_limit"] is not None and r["target_of"] == "ratio_to_limit"]
    if not rows:
        return
    peers = sorted({name for r in rows for name in r["peers"]})
    looks = {name: (f"C{i % 10}", "o^sv"[i // 10 % 4]) for i, name in enumerate(peers)}
    figure, axes = pyplot.subplots(figsize=(10, 0.34 * len(rows) + 2))
    for y, r in enumerate(reversed(rows)):
        for name, ratio in r["peers"].items():
            axes.plot(ratio, y, looks[name][1], color=looks[name][0], markersize=6, alpha=0.7)
        if r["target"] is not None:
            axes.plot(r["target"], y, "|", color="black", markersize=14, markeredgewidth=2)
        axes.plot(r["ratio_to_limit"], y, "D", color=OURS, markersize=7)
    axes.axvline(1, color="black", linewidth=0.8)
    axes.set_xscale("log")
    axes.xaxis.set_major_locator(ticker.LogLocator(subs=(1, 2, 5)))
    axes.xaxis.set_major_formatter(ticker.FormatStrFormatter("%g"))
    axes.xaxis.set_minor_formatter(ticker.NullFormatter())
    axes.set_yticks(range(len(rows)), [f"{r['question']}  (1 = {r['limit_is']})" for r in reversed(rows)], fontsize=8)
    axes.set_xlabel("cost beside the limit; less is better")
    axes.grid(axis="x", alpha=0.3)
    marks = [axes.plot([], [], "D", color=OURS, label="ours")[0],
             axes.plot([], [], "|", color="black", markersize=12, markeredgewidth=2, label="target")[0]]
    marks += [axes.plot([], [], looks[name][1], color=looks[name][0], alpha=0.7, label=name)[0] for name in peers]
    axes.legend(handles=marks, loc="lower center", bbox_to_anchor=(0.3, 1), ncol=6, fontsize=7, frameon=False)
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
