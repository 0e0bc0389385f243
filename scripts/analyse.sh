#!/usr/bin/env bash
# Installs what is missing and runs cppcheck over the library, the examples, the benchmarks and the fuzz targets
# and clang-tidy (.clang-tidy) over the library; fails on any finding.
#   scripts/analyse.sh             both
#   scripts/analyse.sh FILE...     clang-tidy over these sources alone, of any folder
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh clang-tidy-14 cppcheck
build=build/analyse
cmake --preset dev -B "$build" -DOMBRIX_BUILD_BENCHMARKS=ON \
    -DOMBRIX_PRECOMPILE_HEADERS=OFF >/dev/null

sources=("$@")
if [ ${#sources[@]} -eq 0 ]; then
    mapfile -t sources < <(git ls-files 'ombrix/*.cpp' | grep -v _windows.cpp)
    # Style is clang-tidy's; here what cppcheck alone looks at.
    echo "cppcheck"
    cppcheck --quiet -j "$(nproc)" --std=c++20 --language=c++ --inline-suppr --error-exitcode=1 \
        --enable=warning,performance,portability --suppressions-list=scripts/cppcheck.txt \
        -I . -I "$build/generated" ombrix examples benchmarks fuzz
fi
echo "clang-tidy over ${#sources[@]} sources"
printf '%s\n' "${sources[@]}" |
    xargs -P "$(nproc)" -n 1 clang-tidy-14 -p "$build" --quiet 2> >(grep -v 'warnings\? generated' >&2)
echo "Nothing found"
