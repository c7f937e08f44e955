"""soak_dibujo.py CSV PNG - draws the samples of a soak: what each program holds against what it has done.

A row for each quantity, a column for each group of programs, a line for each program. Where all programs were
ended and begun anew there is a dotted line of the same colour, and the line begins again.
"""
import csv
import sys

import matplotlib

matplotlib.use("Agg")
from matplotlib import pyplot  # the backend has been chosen
from matplotlib.ticker import MaxNLocator

# Title, what its programs count, and their names in the CSV. Programs that do nothing are drawn against time.
GROUPS = [
    ("window and command function", "commands",
     ["servidor_ventana_con_datos", "cliente_ventana_con_datos", "servidor_ventana_sin_datos",
      "cliente_ventana_sin_datos"]),
    ("window, own procedure", "commands",
     ["servidor_net_con_datos", "cliente_net_con_datos", "servidor_net_sin_datos", "cliente_net_sin_datos"]),
    ("no window", "commands",
     ["servidor_sin_ventana_con_datos", "cliente_sin_ventana_con_datos", "servidor_sin_ventana_sin_datos",
      "cliente_sin_ventana_sin_datos"]),
    ("notifications", "notifications", ["servidor_que_avisa", "cliente_avisado"]),
    ("monitor", "registrations", ["monitor"]),
    ("idle", "seconds", ["servidor_ocioso", "cliente_ocioso"]),
]
ROWS = [
    ("handles", "handles", 1),
    ("private_bytes", "private KiB", 1024),
    ("heap_blocks", "blocks in the library's heap", 1),
    ("shared_blocks", "data blocks of the service", 1),
]
ROW_OF_LEGEND = 1       # its lines run far above the axis
# Lines that cover each other can still be told apart.
STYLES = ["C0-", "C1--", "C2-", "C3--"]


def label(role):
    """servidor_ventana_con_datos -> server, with data."""
    side = {"servidor": "server", "cliente": "client"}.get(role.split("_")[0], "monitor")
    if role.endswith("_con_datos"):
        return side + ", with data"
    return side + (", without" if role.endswith("_sin_datos") else "")


def read(path):
    """The samples of each role, in order."""
    samples = {}
    with open(path, newline="", encoding="utf-8") as file:
        for row in csv.DictReader(file):
            samples.setdefault(row["role"], []).append(row)
    return samples


def places(samples, unit):
    """Where each sample stands on the x axis, counted on over the generations, and where those begin."""
    xs, starts, before, last = [], [], 0, 0
    for i, row in enumerate(samples):
        if i > 0 and row["generation"] != samples[i - 1]["generation"]:
            before += 0 if unit == "seconds" else last
            starts.append(xs[-1])
        last = float(row["time_s" if unit == "seconds" else "commands"])
        xs.append(before + last)
    return xs, starts


def broken(samples, values):
    """The values with a gap in front of each generation but the first."""
    pieces = []
    for i, row in enumerate(samples):
        if i > 0 and row["generation"] != samples[i - 1]["generation"]:
            pieces.append(float("nan"))
        pieces.append(values[i])
    return pieces


def draw_panel(axes, samples, group, row):
    """A line for each program of the group. Each counts on its own, so each has restarts of its own."""
    unit, roles = group[1:]
    column, _, scale = row
    top = 0
    for role, style in zip(roles, STYLES):
        xs, starts = places(samples[role], unit)
        ys = [float(sample[column]) / scale for sample in samples[role]]
        axes.plot(broken(samples[role], xs), broken(samples[role], ys), style, label=label(role),
                  linewidth=1.6)
        top = max(top, max(ys))
        for x in starts:
            axes.axvline(x, color=style[:2], linestyle=":", linewidth=1)
    axes.set_ylim(0, top * 1.15 if top > 0 else 1)
    axes.xaxis.set_major_locator(MaxNLocator(5, integer=True))
    axes.yaxis.set_major_locator(MaxNLocator(5, integer=True))
    axes.grid(alpha=0.3)
    axes.set_xlabel(unit)


def main(csv_path, png_path):
    """Draws all of it."""
    samples = read(csv_path)
    figure, grid = pyplot.subplots(len(ROWS), len(GROUPS), figsize=(3.6 * len(GROUPS), 3.1 * len(ROWS)))
    for j, group in enumerate(GROUPS):
        for i, row in enumerate(ROWS):
            draw_panel(grid[i][j], samples, group, row)
        grid[0][j].set_title(group[0])
        grid[ROW_OF_LEGEND][j].legend(fontsize=9, loc="lower right")
    for i, row in enumerate(ROWS):
        grid[i][0].set_ylabel(row[1])
    figure.suptitle("What each program holds against what it has done. "
                    "Dotted: all programs were ended and begun anew.")
    figure.tight_layout()
    figure.savefig(png_path, dpi=100)


main(*sys.argv[1:])
