"""The text of docs/performance.md and of the README's section."""

import math
import re
import subprocess
import textwrap
from pathlib import Path

import plots
from rows import LIMITS, ROWS, is_own, label

MAIN_SIZE = 10_000_000  # the table's size where it was measured, else the largest below
README_ROWS = ["full_octree", "nested_octree", "dynamic_octree", "knn16_pass", "normals16", "grid_merge_mean",
               "ply_read", "obj_read"]
PACKAGES = ["libcgal-dev", "libpcl-dev", "libopen3d-dev", "libflann-dev", "libnanoflann-dev",
            "libtinyobjloader-dev", "libtbb-dev", "libeigen3-dev"]


def seconds(value):
    for unit, factor in (("s", 1.0), ("ms", 1e3), ("µs", 1e6)):
        if value * factor >= 1 or unit == "µs":
            scaled = value * factor
            digits = max(0, 2 - int(math.floor(math.log10(scaled)))) if scaled > 0 else 0
            return f"{scaled:.{min(digits, 2)}f} {unit}"


def points(size):
    return f"{size / 1e6:g} million" if size >= 1e6 else f"{size:,}"


def memory(count):
    return f"{count / 1e9:.2f} GB" if count >= 1e9 else f"{count / 1e6:.0f} MB"


def with_spread(sample):
    if len(sample.seconds) < 2:
        return f"{seconds(sample.median)} (one run)"
    return f"{seconds(sample.median)} ± {100 * sample.spread:.0f} %"


def table(header, lines):
    yield "| " + " | ".join(header) + " |"
    yield "|" + "---|" * len(header)
    for line in lines:
        yield "| " + " | ".join(line) + " |"
    yield ""


def command_output(*command):
    try:
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()
    except (OSError, subprocess.CalledProcessError):
        return ""


def processor():
    info = Path("/proc/cpuinfo").read_text()
    found = {key: re.search(rf"^{key}\s*: (.*)$", info, re.M) for key in ("model name", "cpu family", "model")}
    name = found["model name"][1] if found["model name"] else "unknown processor"
    details = ", ".join(f"{key.removeprefix('cpu ')} {found[key][1]}" for key in ("cpu family", "model") if found[key])
    return f"{name} ({details})"


def machine(context):
    total = re.search(r"MemTotal:\s*(\d+)", Path("/proc/meminfo").read_text())
    compiler = command_output("c++", "--version").splitlines()
    versions = []
    for package in PACKAGES:
        version = command_output("dpkg-query", "-W", "-f", "${Version}", package)
        if version:
            versions.append(f"{package.removeprefix('lib').removesuffix('-dev')} {version}")
    return [
        f"{context['num_cpus']} cores of {processor()}, {int(total[1]) / 2**20:.0f} GiB of memory, "
        f"{command_output('uname', '-sr')}; {compiler[0] if compiler else 'unknown compiler'}, release build (`-O3`); "
        + ", ".join(versions) + ".",
        "",
    ]


def main_size(results, row):
    sizes = results.sizes(row.name)
    fitting = [size for size in sizes if size <= MAIN_SIZE]
    return fitting[-1] if fitting else (sizes[0] if sizes else None)


def peers_of(results, row, size):
    """The other libraries' ratios to ours, the fastest first; and the machine's limits'."""
    ratios = [(results.ratio(row.name, size, library), library)
              for library in results.libraries(row.name, size) if not is_own(library)]
    ratios = sorted((ratio, library) for ratio, library in ratios if ratio is not None)
    return ([pair for pair in ratios if pair[1] not in LIMITS], [pair for pair in ratios if pair[1] in LIMITS])


def wanted(results, row, size):
    """What was asked of the row, what came out, and whether that is enough."""
    own = results.libraries(row.name, size)["ombrix"]
    asked = []
    for library, factor in row.at_most.items():
        ratio = results.ratio(row.name, size, library)
        if ratio is not None:
            asked.append((f"≤ {factor:.2f} × {label(library)}: {1 / ratio:.2f}", 1 / ratio <= factor))
    if row.seconds is not None:
        asked.append((f"≤ {seconds(row.seconds)}", own.median <= row.seconds))
    if row.rate is not None:
        rate = size / own.median
        asked.append((f"≥ {row.rate / 1e6:.0f} M points/s: {rate / 1e6:.1f}", rate >= row.rate))
    return "<br>".join(text + (" ✓" if met else " **missed**") for text, met in asked)


def times_table(results):
    lines = []
    for row in ROWS:
        size = main_size(results, row)
        libraries = results.libraries(row.name, size) if size else {}
        if "ombrix" not in libraries:
            continue
        peers, limits = peers_of(results, row, size)
        ahead = f"{peers[0][0]:.2f} × ({label(peers[0][1])})" if peers else ""
        others = "<br>".join(f"{label(library)} {with_spread(libraries[library])}" for _, library in peers + limits)
        if "ombrix_sorted" in libraries:
            others = f"{label('ombrix_sorted')} {with_spread(libraries['ombrix_sorted'])}<br>" + others
        note = f"<br><sub>{row.note}</sub>" if row.note else ""
        lines.append([row.title + note, with_spread(libraries["ombrix"]), others, ahead, wanted(results, row, size)])
    yield from table(["work", "ombrixcore", "beside it", "fastest peer takes", "wanted"], lines)


def memory_table(results):
    lines = []
    for row in ROWS:
        size = main_size(results, row)
        libraries = results.libraries(row.name, size) if size else {}
        others = [(sample.peak_bytes, library) for library, sample in libraries.items()
                  if not is_own(library) and library not in LIMITS and sample.peak_bytes > 1e6]
        if "ombrix" not in libraries or libraries["ombrix"].peak_bytes < 1e6:
            continue
        lines.append([row.title, memory(libraries["ombrix"].peak_bytes),
                      ", ".join(f"{label(library)} {memory(count)}" for count, library in sorted(others)),
                      seconds(libraries["ombrix"].first_seconds)])
    yield from table(["work", "ombrixcore", "beside it", "ombrixcore's first run"], lines)


def threads_table(results):
    lines = []
    for row in ROWS:
        size = main_size(results, row)
        ratio = results.ratio(row.name, size, "1_thread") if size else None
        if ratio is not None:
            one = results.libraries(row.name, size)["1_thread"]
            met = "✓" if ratio >= 1.7 else "**missed**"
            lines.append([row.title, with_spread(one), f"{ratio:.2f} times {met}"])
    if lines:
        yield "### Second thread"
        yield ""
        yield "How much faster the same work is on two threads than on one. Wanted: 1.7 times."
        yield ""
        yield from table(["work", "one thread", "two threads are faster by"], lines)


def grown_rows(results):
    return [row for row in ROWS if len(results.sizes(row.name)) > 1
            and row.name not in ("knn16_queries", "hash64", "morton_codes")
            and all("ombrix" in results.libraries(row.name, size) for size in results.sizes(row.name))]


def others_growth(results, row, first, last):
    """How much longer a point takes at the last size than at the first with the other libraries."""
    before, after = results.libraries(row.name, first), results.libraries(row.name, last)
    for library in after:
        if library in before and not is_own(library):
            yield f"{label(library)} {after[library].median / last / (before[library].median / first):.2f}"


def growth_table(results, rows):
    sizes = sorted({size for row in rows for size in results.sizes(row.name)})
    first = max([size for size in sizes if size <= 1_000_000], default=sizes[0])
    last = sizes[-1]
    allowed = math.log(last) / math.log(first)
    yield "### Growth"
    yield ""
    yield ("Nanoseconds for a point, all threads together. Wanted: not more growth than the logarithm of the number "
           f"of points, {allowed:.2f} from {points(first)} to {points(last)}; and no growth of the memory for a point.")
    yield ""
    lines = []
    for row in rows:
        samples = {size: results.libraries(row.name, size)["ombrix"] for size in results.sizes(row.name)}
        line = [row.title]
        line += [f"{samples[size].median / size * 1e9:.0f}" if size in samples else "" for size in sizes]
        if first in samples and last in samples:
            times = samples[last].median / last / (samples[first].median / first)
            line.append(f"{times:.2f} " + ("✓" if times <= allowed else "**more**"))
            line.append(", ".join(others_growth(results, row, first, last)))
            peaks = [samples[size].peak_bytes / size for size in (first, last)]
            line.append(f"{peaks[0]:.0f} → {peaks[1]:.0f} B")
            levels = [samples[size].levels for size in (first, last)]
            line.append(f"{levels[0]:.1f} → {levels[1]:.1f} ({levels[1] / levels[0]:.2f})" if all(levels) else "")
        lines.append(line + [""] * (len(sizes) + 5 - len(line)))
    yield from table(["work"] + [points(size) for size in sizes]
                     + ["grew by", "beside it grew", "memory for a point", "levels a point goes down"], lines)
    yield ("A million points are in the processor's cache for the most part, 50 million are not, and they come in random "
           "order: what others grow by on the same machine stands beside it. A search in a k-d tree reads the points where the "
           "caller keeps them. What cannot be helped: a surface's octree gains a level whenever its points are four "
           "times as many, and a nested tree tries every point on each level on its way down, so that its time follows "
           "the levels; and a full tree copies each point from where it was added to its leaf, two reads from anywhere "
           "in memory (position and colour; the scalar travels with the code), as its points are never moved while they "
           "are sorted.")
    yield ""


def view_table(results):
    if not results.view:
        return
    yield "### Selection for a frame"
    yield ""
    lines = []
    for name, median, run in results.view:
        counts = [f"{run[key]:,.0f}" if key in run else "" for key in ("nodes", "selected")]
        lines.append([f"`{name}`", *counts, seconds(median)])
    yield from table(["selection / nodes / points in the budget", "nodes", "selected", "time"], lines)


def section(results, pictures):
    terrain = results.name == "terrain"
    size = max((main_size(results, row) or 0 for row in ROWS if not row.name.startswith(("obj", "mesh", "small"))))
    what = "Generated terrain in random order" if terrain else f"The points of `{results.name}` in the file's order"
    yield f"## {what}: {points(size)} points"
    yield ""
    yield (f"`{results.run['command']}`, {results.run['date']}, commit {results.run['commit']}. Wall time, medians of "
           f"{results.run['rounds']} or more runs (2 of most beyond 10 million points) ± half of what lies between the fastest and the slowest; ratios are between "
           "medians of the same program.")
    yield ""
    yield from times_table(results)
    if results.failed:
        yield "Not counted, because it failed or the answers differ:"
        yield ""
        yield from (f"- {message}" for message in results.failed)
        yield ""
    rows = grown_rows(results)
    if rows:
        plots.times(results, rows, pictures / f"performance_{results.name}.png")
        yield f"![Time against points](pictures/performance_{results.name}.png)"
        yield ""
    yield from threads_table(results)
    if rows:
        yield from growth_table(results, rows)
        plots.growth(results, rows, pictures / f"performance_{results.name}_growth.png")
        yield f"![Time and memory for a point](pictures/performance_{results.name}_growth.png)"
        yield ""
    yield "### Peak memory and first run"
    yield ""
    yield ("What the work takes beyond its input, the result included; and how long the first run takes, which waits "
           "for the kernel to hand out and clear that memory. The times above are those of later runs, in a process "
           "that keeps the memory it has freed; this holds for every library here. It also adds to the peaks, by "
           "what was kept: a full tree takes 63 to 76 bytes a point.")
    yield ""
    yield from memory_table(results)
    yield from view_table(results)


def write(clouds, pictures):
    lines = [
        "# Performance",
        "",
        "Written by `scripts/bench.sh`; do not edit. The same work is done by this library and by public peers from "
        "Debian's packages, in one program for each peer and a process for each row, in random turns, with the same "
        "parameters and number of threads. A time is reported only where the answers agree: leaves within the "
        "capacity, distances and counts of neighbours equal, normals equal up to their sign.",
        "",
    ]
    lines += machine(clouds[0].context)
    for results in clouds:
        lines += section(results, pictures)
    return "\n".join(lines).rstrip() + "\n"


def readme(results, pictures):
    rows = [row for row in ROWS if row.name in README_ROWS]
    lines = []
    for row in rows:
        size = main_size(results, row)
        libraries = results.libraries(row.name, size) if size else {}
        if "ombrix" in libraries:
            peers, limits = peers_of(results, row, size)
            beside = ", ".join(f"{label(library)} {seconds(libraries[library].median)}" for _, library in peers + limits)
            lines.append([row.title, seconds(libraries["ombrix"].median), beside])
    plots.times(results, [row for row in ROWS if row.name in plots.README_ROWS], pictures / "performance.png", 2)
    size = main_size(results, ROWS[0])
    head = (
        f"{points(size).capitalize()} points of a generated terrain in random order, {results.context['num_cpus']} cores "
        f"of {processor()}, medians of {results.run['rounds']} runs by `scripts/bench.sh`, one run of what takes long. "
        "[docs/performance.md](docs/performance.md) has all rows, memory, growth and versions."
    )
    text = [
        *textwrap.wrap(head, 120),
        "",
        *table(["work", "ombrixcore", "beside it"], lines),
        "![Time against points](docs/pictures/performance.png)",
    ]
    return "\n".join(text) + "\n"
