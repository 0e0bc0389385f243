#!/usr/bin/env bash
# Installs what is missing and runs cppcheck over the library, the examples, the benchmarks and the fuzz targets
# and clang-tidy over all sources, by the .clang-tidy of their folder; fails on any finding.
#   scripts/analyse.sh             both; about an hour of processor time
#   scripts/analyse.sh FILE...     clang-tidy over these sources alone
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh clang-14 clang-tidy-14 cppcheck
export build=build/analyse
cmake --preset dev -B "$build" -DOMBRIX_BUILD_BENCHMARKS=ON \
    -DOMBRIX_PRECOMPILE_HEADERS=OFF >/dev/null
cmake --preset fuzz -B "$build-fuzz" -DOMBRIX_PRECOMPILE_HEADERS=OFF >/dev/null

sources=("$@")
if [ ${#sources[@]} -eq 0 ]; then
    # Without what only builds elsewhere: on Windows, beside the benchmarks' peers, against an installed package, and
    # the viewer, part of which npm makes.
    mapfile -t sources < <(git ls-files '*.cpp' |
        grep -vE '_windows.*\.cpp|^benchmarks/peers/|^tests/package/|viewer')
    # Style is clang-tidy's; here what cppcheck alone looks at.
    echo "cppcheck"
    cppcheck --quiet -j "$(nproc)" --std=c++20 --language=c++ --inline-suppr --error-exitcode=1 \
        --enable=warning,performance,portability --suppressions-list=scripts/cppcheck.txt \
        -I . -I "$build/generated" ombrix examples benchmarks fuzz
fi
echo "clang-tidy over ${#sources[@]} sources"
analyse() {
    case $1 in
    fuzz/*) clang-tidy-14 -p "$build-fuzz" --quiet "$1" ;;
    *) clang-tidy-14 -p "$build" --quiet "$1" ;;
    esac 2> >(grep -v 'warnings\? generated' >&2)
}
export -f analyse
printf '%s\n' "${sources[@]}" | xargs -P "$(nproc)" -I FILE bash -c 'analyse FILE'
echo "Nothing found"
