#!/usr/bin/env bash
# Installs what is missing, builds the viewer and tests it: its parts by themselves, the server against clients that
# misbehave, and the page in a headless browser. Takes the preset to build (release, or the one given: asan).
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:-release}
scripts/setup.sh libcpp-httplib-dev nlohmann-json3-dev chromium
command -v node >/dev/null || scripts/setup.sh nodejs
command -v npm >/dev/null || scripts/setup.sh npm
echo "Building the viewer in build/$preset"
cmake --preset "$preset" -DOMBRIX_BUILD_VIEWER=ON -DOMBRIX_BUILD_TESTS=ON >/dev/null
cmake --build --preset "$preset" --target viewer viewer_test
npm --prefix tests/viewer ci --no-audit --no-fund --loglevel=error

"build/$preset/tests/examples/viewer_test"
export VIEWER_PROGRAM="$PWD/build/$preset/examples/viewer/viewer"
# Two seconds to the first points and the like may be missed on a machine that is busy with something else.
node tests/viewer/run.mjs || { echo "Once more, the machine may have been busy" && node tests/viewer/run.mjs; }
