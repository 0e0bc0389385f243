#!/usr/bin/env bash
# Installs what is missing, builds the tour and runs it:
#   scripts/demo.sh                     on the cloud that comes with the examples, in all colourings
#   scripts/demo.sh FILE [OPTION...]    on a cloud of yours; scripts/demo.sh --help tells the options
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

"$root/scripts/setup.sh"
echo "Building the tour in $root/build/release"
(
    cd "$root"
    cmake --preset release >/dev/null
    cmake --build --preset release --target tour
)
[ $# -gt 0 ] || set -- --sheet
# An --output among the arguments comes later and so counts.
exec "$root/build/release/examples/tour" --output "$root/build/demo" "$@"
