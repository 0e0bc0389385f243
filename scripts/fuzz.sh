#!/usr/bin/env bash
# Installs clang, builds the fuzz targets (build/fuzz) and runs each on as many cores as there are, one core a
# target; fails when one finds something and keeps the input in build/fuzz/finds.
#   scripts/fuzz.sh [SECONDS [TARGET...]]      60 seconds each, all targets
# OMBRIX_FUZZ_CORPUS  folder of corpora to go on from and to add to (otherwise each run starts from fuzz/seeds)
# OMBRIX_FUZZ_SEED    a number makes runs repeat each other's choices
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
[ $# -gt 0 ] && shift
scripts/setup.sh clang-14 llvm-14 libclang-rt-14-dev
echo "Building the fuzz targets in build/fuzz"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

out=$PWD/build/fuzz/fuzz
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    for program in "$out"/fuzz_*; do targets+=("${program##*/fuzz_}"); done
fi
# Input files of readers are rewritten thousands of times a second: keep them in memory where possible.
TMPDIR=$(mktemp -d -p "$([ -w /dev/shm ] && echo /dev/shm || echo /tmp)" ombrix-fuzz.XXXXXX)
trap 'rm -rf "$TMPDIR"' EXIT
export TMPDIR seconds out
export finds=$PWD/build/fuzz/finds seeds=$PWD/fuzz/seeds
export corpora=${OMBRIX_FUZZ_CORPUS:-$TMPDIR/corpora} seed=${OMBRIX_FUZZ_SEED:-0}
export ASAN_OPTIONS=quarantine_size_mb=16:symbolize=1 UBSAN_OPTIONS=print_stacktrace=1
ASAN_SYMBOLIZER_PATH=$(command -v llvm-symbolizer-14)
export ASAN_SYMBOLIZER_PATH
mkdir -p "$finds" "$corpora"

# The limits are part of what is checked: nothing may allocate or run without bound.
fuzz_one() {
    local target=$1 log="$finds/$1.log" status=0
    mkdir -p "$corpora/$target"
    local known=("$corpora/$target")
    [ -d "$seeds/$target" ] && known+=("$seeds/$target")
    "$out/fuzz_$target" -max_total_time="$seconds" -seed="$seed" -max_len=4096 -timeout=20 \
        -rss_limit_mb=2048 -malloc_limit_mb=64 -print_final_stats=1 -artifact_prefix="$finds/$target-" \
        "${known[@]}" >"$log" 2>&1 || status=$?
    local runs edges features known_edges
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    known_edges=$(sed -n 's/.*Loaded [0-9]* modules *(\([0-9]*\) inline.*/\1/p' "$log")
    edges=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
    features=$(grep -o 'ft: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
    printf '%-16s %10s executions, %5s of %5s edges, %6s features%s\n' "$target" "${runs:-?}" \
        "${edges:-?}" "${known_edges:-?}" "${features:-?}" "$([ $status -eq 0 ] || echo "  FOUND SOMETHING")"
    if [ $status -ne 0 ]; then
        grep -v '^#[0-9]*[[:space:]]' "$log" | tail -n 60 >&2
        return 1
    fi
}
export -f fuzz_one

echo "Fuzzing ${#targets[@]} targets, $seconds seconds each"
printf '%s\n' "${targets[@]}" | xargs -P "$(nproc)" -I{} bash -c 'fuzz_one {}'
