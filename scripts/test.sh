#!/usr/bin/env bash
# Installs what is missing, builds one preset (dev, or the one given: release, asan, tsan) and runs its tests.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:-dev}
scripts/setup.sh dpkg-dev fakeroot
echo "Building the $preset preset in build/$preset"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
echo "Running the tests of build/$preset"
ctest --preset "$preset" -j "$(nproc)"
