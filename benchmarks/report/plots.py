"""The page's pictures: time against points, both logarithmic, a line for each library."""

import textwrap

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
from matplotlib.ticker import FuncFormatter, LogLocator, NullFormatter  # noqa: E402

from rows import COLORS, LIMIT_COLOR, LIMITS, label  # noqa: E402

README_ROWS = ["full_octree", "normals16", "knn16_pass", "grid_merge_mean"]
HIDDEN = {"1_thread"}


def _points(value, _):
    return f"{value / 1e6:g} M" if value >= 1e6 else f"{value / 1e3:g} k"


def _seconds(value, _):
    return f"{value:g} s" if value > 0.9 else f"{value * 1e3:g} ms"


def _logarithmic(axis, formatter):
    low, high = axis.axes.get_ylim()
    axis.set_major_locator(LogLocator(subs=(1, 2, 5) if high < 100 * low else (1,), numticks=20))
    axis.set_major_formatter(FuncFormatter(formatter))
    axis.set_minor_formatter(NullFormatter())


def _finish(axes, title):
    axes.set_title("\n".join(textwrap.wrap(title, 46)), fontsize=9.5)
    axes.set_xscale("log")
    axes.xaxis.set_major_formatter(FuncFormatter(_points))
    axes.xaxis.set_minor_formatter(NullFormatter())
    axes.grid(True, which="major", color="#dddddd", linewidth=0.8)
    axes.set_axisbelow(True)
    axes.tick_params(labelsize=8)
    for side in ("top", "right"):
        axes.spines[side].set_visible(False)


def _lines(axes, results, row):
    series = {}
    for size in results.sizes(row.name):
        for library, sample in results.libraries(row.name, size).items():
            series.setdefault(library, []).append((size, sample.median))
    for library, points in sorted(series.items(), key=lambda item: -item[1][-1][1]):
        if library in HIDDEN:
            continue
        own = library == "ombrix"
        axes.plot(*zip(*points), label=label(library), color=COLORS.get(library, LIMIT_COLOR),
                  linewidth=2.4 if own else 1.4, linestyle="--" if library in LIMITS else "-", marker="o",
                  markersize=5 if own else 3.5, zorder=3 if own else 2)
    axes.set_yscale("log")
    _logarithmic(axes.yaxis, _seconds)
    axes.legend(fontsize=7.5, frameon=False, loc="upper left")
    _finish(axes, row.title)


def _grid(count, columns):
    lines = -(-count // columns)
    figure, axes = plt.subplots(lines, columns, figsize=(4.3 * columns, 3.5 * lines), squeeze=False)
    flat = list(axes.flat)
    for unused in flat[count:]:
        unused.set_visible(False)
    return figure, flat


def _save(figure, path):
    figure.tight_layout()
    figure.savefig(path, dpi=110)
    plt.close(figure)


def times(results, rows, path, columns=3):
    figure, axes = _grid(len(rows), columns)
    for place, row in zip(axes, rows):
        _lines(place, results, row)
    _save(figure, path)


def growth(results, rows, path):
    """Time and memory of each point, ours alone."""
    figure, (left, right) = plt.subplots(1, 2, figsize=(11, 4.6))
    colors = plt.get_cmap("tab10").colors
    for row, color in zip(rows, colors):
        points = [(size, results.libraries(row.name, size)["ombrix"]) for size in results.sizes(row.name)]
        sizes = [size for size, _ in points]
        name = textwrap.shorten(row.title.split(",")[0], 40, placeholder=" …")
        left.plot(sizes, [sample.median / size * 1e9 for size, sample in points], marker="o", markersize=4,
                  color=color, label=name)
        right.plot(sizes, [sample.peak_bytes / size for size, sample in points], marker="o", markersize=4,
                   color=color, label=name)
    left.set_yscale("log")
    _logarithmic(left.yaxis, lambda value, _: f"{value:g} ns")
    _finish(left, "time per point, all threads together")
    _finish(right, "peak memory per point beyond the input")
    right.set_ylim(bottom=0)
    right.yaxis.set_major_formatter(FuncFormatter(lambda value, _: f"{value:g} B"))
    right.legend(fontsize=7.5, frameon=False, loc="center left", bbox_to_anchor=(1.0, 0.5))
    _save(figure, path)
