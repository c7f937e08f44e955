"""dibuja.py JSON PNG - draws what banco.exe measured. Bars and dots are medians, lines go from the least to the most.

Sections that were not measured are left out.
"""
import json
import statistics
import sys

import matplotlib

matplotlib.use("Agg")
from matplotlib import pyplot  # the backend has been chosen

SIZE_COLOURS = ["#9ecae1", "#4292c6", "#2171b5", "#08306b"]
OURS = "#d94801"


def size_name(num_bytes):
    for unit, name in ((1 << 20, "MiB"), (1 << 10, "KiB")):
        if num_bytes >= unit:
            return f"{num_bytes // unit} {name}"
    return f"{num_bytes} B"


def spread(entry, scale):
    """The median and what lies on both sides of it, for an error bar."""
    samples = [sample * scale for sample in entry["samples"]]
    median = statistics.median(samples)
    return median, [[median - min(samples)], [max(samples) - median]]


def draw_round_trip(axes, section):
    """A line of the page for each row of the table, a dot for each size of the buffer."""
    titles = []
    for size in section["sizes"]:
        for row in size["rows"]:
            if row["title"] not in titles:
                titles.append(row["title"])
    for n, size in enumerate(section["sizes"]):
        for row in size["rows"]:
            median, error = spread(row, 1e3)
            axes.errorbar(median, titles.index(row["title"]) + 0.12 * (n - 1.5), xerr=error, fmt="o", markersize=4,
                          color=SIZE_COLOURS[n % 4], elinewidth=1,
                          label=size_name(size["bytes"]) if row is size["rows"][0] else None)
    axes.set_yticks(range(len(titles)), titles)
    for tick in axes.get_yticklabels():
        if tick.get_text().startswith("ivrexa"):
            tick.set_color(OURS)
    axes.invert_yaxis()
    axes.set_xscale("log")
    axes.set_xlabel("milliseconds for a command and its answer")
    axes.grid(axis="x", alpha=0.3)
    axes.legend(title="buffer each way", fontsize=8)
    axes.set_title("Round trip between two processes")


def draw_values(axes, section):
    """What a value costs against how many there are."""
    lines = {}
    compared = [point for point in section["values"] if len(point["rows"]) > 1]
    for point in sorted(compared, key=lambda point: point["values"]):
        for row in point["rows"]:
            median, _ = spread(row, 1e9)
            lines.setdefault(row.get("title", row["name"]), []).append((point["values"], median / point["values"]))
    for name, points in lines.items():
        ours = {"color": OURS, "linewidth": 2.5} if name == "ivrexa" else {}
        axes.plot(*zip(*points), "o-", markersize=4, label=name, **ours)
    axes.set_xscale("log")
    axes.set_yscale("log")
    axes.set_xlabel("values")
    axes.set_ylabel("nanoseconds for each value")
    axes.grid(alpha=0.3)
    axes.legend(fontsize=8)
    axes.set_title("Command data: written and read")


def draw_bars(axes, rows, scale, label):
    names = [row.get("title", row["name"]) for row in rows]
    for n, row in enumerate(rows):
        median, error = spread(row, scale)
        axes.barh(n, median, xerr=error, color=OURS if names[n].startswith("ivrexa") else "#4292c6", height=0.6,
                  error_kw={"elinewidth": 1})
    axes.set_yticks(range(len(names)), names)
    axes.invert_yaxis()
    axes.set_xlabel(label)
    axes.grid(axis="x", alpha=0.3)


def draw_buffer(axes, section):
    draw_bars(axes, section["buffer"]["rows"], 1e3, "milliseconds")
    axes.set_title("One buffer of 64 MiB: stored and loaded")


def draw_growth(axes, section):
    """Each series over its first point, so that all fit one picture."""
    most = 1
    for series in section["series"]:
        first = series["points"][0]
        base, _ = spread(first, 1)
        points = [(n, spread(point, 1)[0] / base) for n, point in enumerate(series["points"])]
        most = max([most] + [ratio for _, ratio in points])
        axes.plot(*zip(*points), "o-", markersize=4,
                  label=f"{series['name']}: {first['name']} to {series['points'][-1]['name']}")
    axes.set_yscale("log")
    ticks = [1 << n for n in range(int(most).bit_length() + 1)]
    axes.set_yticks(ticks, [str(tick) for tick in ticks])
    axes.minorticks_off()
    axes.set_xticks([])
    axes.set_xlabel("from the first point of a series to its last")
    axes.set_ylabel("times the first point")
    axes.grid(alpha=0.3)
    axes.legend(fontsize=8)
    axes.set_title("How the cost of a command grows")


def draw_load(axes, section):
    draw_bars(axes, section["rows"], 1e6, "microseconds for LoadLibrary and FreeLibrary")
    axes.set_title("Loading")


def draw_goals(axes, goals):
    axes.axis("off")
    for n, goal in enumerate(goals):
        colour = "#238b45" if goal["met"] else "#cb181d"
        axes.text(0, 1 - n / max(len(goals), 1), f"{goal['value']:.2f} of {goal['limit']:.2f}   {goal['name']}",
                  color=colour, fontsize=8, va="top", transform=axes.transAxes)
    axes.set_title("Goals: found, and at most")


def pictures(report):
    sections = report["sections"]
    if "roundtrip" in sections:
        yield draw_round_trip, sections["roundtrip"]
    if "data" in sections:
        yield draw_values, sections["data"]
        yield draw_buffer, sections["data"]
    if "growth" in sections:
        yield draw_growth, sections["growth"]
    if "load" in sections:
        yield draw_load, sections["load"]
    if report.get("goals"):
        yield draw_goals, report["goals"]


def main(json_path, png_path):
    with open(json_path, encoding="utf-8") as file:
        report = json.load(file)
    drawn = list(pictures(report))
    columns = min(2, len(drawn))
    rows = -(-len(drawn) // columns)
    figure, grid = pyplot.subplots(rows, columns, figsize=(8 * columns, 5 * rows), squeeze=False)
    places = grid.flatten()
    for axes in places[len(drawn):]:
        axes.axis("off")
    for axes, (draw, data) in zip(places, drawn):
        draw(axes, data)
    quick = ", quick" if report["quick"] else ""
    figure.suptitle(f"ivrexa measured under {report['system']}{quick}, on one processor", y=0.995)
    figure.tight_layout(rect=(0, 0, 1, 0.985))
    figure.savefig(png_path, dpi=110)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
