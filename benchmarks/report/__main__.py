"""Writes docs/performance.md, its pictures and, with --readme, the README's table from the results."""

import argparse
import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))

import page  # noqa: E402
from results import Results  # noqa: E402


def update_readme(path, text):
    """Replaces what stands below the heading "Measured"."""
    readme = path.read_text()
    changed, count = re.subn(r"(?s)(\n## Measured\n\n).*?(?=\n## )", lambda match: match[1] + text, readme)
    if count != 1:
        sys.exit("README.md has no section “Measured”")
    path.write_text(changed)


def main():
    root = Path(__file__).resolve().parents[2]
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--results", type=Path, default=root / "build/peers/results")
    parser.add_argument("--docs", type=Path, default=root / "docs")
    parser.add_argument("--readme", action="store_true", help="the README's section, too")
    options = parser.parse_args()

    folders = sorted((run.parent for run in options.results.glob("*/run.txt")),
                     key=lambda folder: (folder.name != "terrain", folder.name))
    clouds = [Results(folder) for folder in folders]
    if not clouds:
        sys.exit(f"no results in {options.results}: run scripts/bench.sh")
    pictures = options.docs / "pictures"
    pictures.mkdir(parents=True, exist_ok=True)
    (options.docs / "performance.md").write_text(page.write(clouds, pictures))
    if options.readme:
        update_readme(root / "README.md", page.readme(clouds[0], pictures))


main()
