"""Reads what the benchmark programs wrote."""

import json
import re
import statistics
from collections import defaultdict
from dataclasses import dataclass, field
from pathlib import Path

UNITS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}


@dataclass
class Sample:
    """The runs of one library at one size in one program."""

    seconds: list = field(default_factory=list)
    peak_bytes: float = 0.0
    first_seconds: float = 0.0  # of the run before, from an empty heap
    levels: float = 0.0  # of a tree that a point goes down on average; 0 where they were not counted

    def add(self, other):
        self.seconds += other.seconds
        self.peak_bytes = max(self.peak_bytes, other.peak_bytes)
        self.first_seconds = max(self.first_seconds, other.first_seconds)
        self.levels = max(self.levels, other.levels)

    @property
    def median(self):
        return statistics.median(self.seconds)

    @property
    def spread(self):
        """Half of what lies between the fastest and the slowest run, as a share of the median."""
        return (max(self.seconds) - min(self.seconds)) / 2 / self.median


class Results:
    """What was measured on one cloud."""

    def __init__(self, folder: Path):
        self.name = folder.name
        self.run = dict(line.split("=", 1) for line in (folder / "run.txt").read_text().splitlines())
        self.context = {}
        self.view = []  # rows of the selection benchmark: name, seconds, counters
        self.failed = []  # what failed, with the message
        # (row, size) -> program -> library -> Sample
        self.samples = defaultdict(lambda: defaultdict(lambda: defaultdict(Sample)))
        for path in sorted(folder.glob("*.json")):
            text = path.read_text()
            if text.strip():
                self._read(path.stem, json.loads(text))

    def _read(self, stem, report):
        self.context = report["context"]
        runs = [run for run in report["benchmarks"] if run.get("run_type") == "iteration"]
        bad = {run["name"]: run["error_message"] for run in runs if run.get("error_occurred")}
        self.failed += sorted(f"{name}: {message}" for name, message in bad.items())
        runs = [run for run in runs if run["name"] not in bad]
        if stem == "view":
            self._read_view(runs)
            return
        program = stem.rsplit("-", 1)[0]
        for run in runs:
            row, library, size = run["name"].split("/")[:3]
            self.samples[row, int(size)][program][library].add(
                Sample([run["real_time"] * UNITS[run["time_unit"]]], run.get("peak_bytes", 0.0),
                       run.get("first_seconds", 0.0), run.get("levels", 0.0)))

    def _read_view(self, runs):
        by_name = defaultdict(list)
        for run in runs:
            by_name[run["name"]].append(run)
        for name, group in by_name.items():
            seconds = statistics.median(run["real_time"] * UNITS[run["time_unit"]] for run in group)
            self.view.append((name, seconds, group[0]))
        self.view.sort(key=lambda entry: (entry[0].split("/")[0], [int(n) for n in re.findall(r"\d+", entry[0])]))

    def sizes(self, row):
        return sorted(size for name, size in self.samples if name == row)

    def libraries(self, row, size):
        """Library -> Sample, all programs' runs of it together."""
        merged = defaultdict(Sample)
        for program in self.samples[row, size].values():
            for library, sample in program.items():
                merged[library].add(sample)
        return dict(merged)

    def ratio(self, row, size, library):
        """The library's median as a multiple of ours in the same program; none where it was not measured."""
        ratios = [
            program[library].median / program["ombrix"].median
            for program in self.samples[row, size].values()
            if library in program and "ombrix" in program
        ]
        return statistics.median(ratios) if ratios else None
