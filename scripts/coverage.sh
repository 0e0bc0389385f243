#!/usr/bin/env bash
# Installs gcovr, builds the tests with coverage counters in build/coverage, runs them and prints the line and
# the branch coverage of ombrix/, the worst files first. Branches that only exceptions take do not count.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh gcovr
build=build/coverage
cmake --preset dev -B "$build" -DOMBRIX_BUILD_EXAMPLES=OFF \
    -DCMAKE_CXX_FLAGS="--coverage -fprofile-update=atomic" >/dev/null
cmake --build "$build"
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" -j "$(nproc)" --output-on-failure -E '^Package\.' | tail -n 5
counts=$build/coverage.json
gcovr --root . --object-directory "$build" --filter 'ombrix/' --exclude-throw-branches \
    --exclude-unreachable-branches --json "$counts" "$build"
echo "Branches"
gcovr --root . --add-tracefile "$counts" --branches --sort-percentage
echo "Lines"
gcovr --root . --add-tracefile "$counts" --sort-percentage
