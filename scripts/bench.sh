#!/usr/bin/env bash
# Measures the library beside its peers and writes docs/performance.md with its pictures:
#   scripts/bench.sh            generated terrain of 100 thousand to 10 million points; about 40 minutes
#   scripts/bench.sh --quick    one million points only; about 7 minutes
#   scripts/bench.sh --growth   up to 50 million points; about an hour and 16 GiB of memory
#   scripts/bench.sh FILE       the points of a file (PLY, LAS, text or OBJ) in place of the terrain
#   --sizes N,N...              other numbers of terrain points
#   --rounds N                  how often each measure is taken, in turn with the others (3; at most 2 beyond 10 million;
#                               twice as often and once more beside what the machine itself takes)
# Installs what is missing. The page shows the last results of the terrain and of every file measured so far;
# they are kept in build/peers/results. The README's table follows runs over terrain of the usual sizes.
set -euo pipefail
arguments="$*"
rounds=3
sizes=(100000 1000000 10000000)
cloud=
readme=yes
while [ $# -gt 0 ]; do
    case $1 in
    --quick) sizes=(1000000) readme= ;;
    --growth) sizes=(100000 1000000 10000000 50000000) ;;
    --sizes) IFS=, read -ra sizes <<<"$2" && readme= && shift ;;
    --rounds) rounds=$2 && shift ;;
    -*) sed -n '2,/^set/s/^# \{0,1\}//p' "$0" >&2 && exit 2 ;;
    *) cloud=$(realpath "$1") ;;
    esac
    shift
done
cd "$(dirname "$0")/.."

scripts/setup.sh libcgal-dev libpcl-dev libopen3d-dev libflann-dev libtinyobjloader-dev python3-matplotlib
echo "Building the peers preset in build/peers"
cmake --preset peers >/dev/null
cmake --build --preset peers

name=terrain
if [ -n "$cloud" ]; then
    name=$(basename "${cloud%.*}")
    export OMBRIX_BENCH_CLOUD=$cloud
    sizes=(all)
    readme=
fi
results=build/peers/results/$name
rm -rf "$results"
mkdir -p "$results"
{
    echo "command=scripts/bench.sh $arguments"
    echo "commit=$(git describe --always --dirty 2>/dev/null || echo unknown)"
    echo "date=$(date -u +%Y-%m-%d)"
    echo "rounds=$rounds"
} >"$results/run.txt"

status=0
# run PROGRAM RESULT FILTER: every measure of a program that the filter chooses, in random turns
run() {
    # Some peers print as they work; what counts is in the result.
    "$1" --benchmark_filter="$3" --benchmark_repetitions="$turns" --benchmark_min_time=0.1 \
        --benchmark_enable_random_interleaving=true --benchmark_out="$results/$2.json" \
        --benchmark_out_format=json >"$results/$2.log" 2>&1 || {
        echo "$1 failed or found answers that differ: see $results/$2.log" >&2
        status=1
    }
}

# measure PROGRAM SIZE FILTER: the chosen measures of a program, each row in a process of its own, as some leave
# a heap in pieces that makes the others slow
measure() {
    local program=build/peers/benchmarks/$1 tests row
    [ -x "$program" ] || return 0
    echo "$(date +%T) $1 $2"
    tests=$("$program" --benchmark_list_tests --benchmark_filter="$3")
    for row in $(cut -d/ -f1 <<<"$tests" | sort -u); do
        run "$program" "${1%_*}-$row-$2" "^($(grep "^$row/" <<<"$tests" | paste -sd'|'))$"
    done
}

overMeshes='^(obj_|mesh_|small_mesh_)'
for size in "${sizes[@]}"; do
    filter="-$overMeshes" own="-$overMeshes" turns=$rounds
    if [ "$size" != all ]; then
        export OMBRIX_BENCH_SIZES=$size
        # Beyond 10 million points: what the peers finish in reason, and the library on all threads.
        [ "$size" -le 10000000 ] || {
            filter='^(full_octree|kdtree_build|grid_merge_mean|ply_read)'
            own="-$overMeshes|/1_thread/"
            turns=$((rounds < 2 ? rounds : 2))
        }
    fi
    # Beyond 30 million FLANN's k-d tree, which Open3D has too, is measured through PCL.
    programs=(nanoflann cgal flann pcl open3d)
    [ "$size" = all ] || [ "$size" -le 30000000 ] || programs=(nanoflann cgal pcl)
    # Quick, and what limits are set against: more turns make a steadier median.
    turns=$((2 * turns + 1)) measure machine_peer "$size" "-$overMeshes"
    for program in "${programs[@]}"; do
        measure "${program}_peer" "$size" "$filter"
    done
    measure rows_bench "$size" "$own"
done
if [ -z "$cloud" ]; then
    turns=$rounds
    for program in machine tinyobj open3d; do
        measure "${program}_peer" meshes "$overMeshes"
    done
    measure rows_bench meshes "$overMeshes"
    run build/peers/benchmarks/view_bench view 'Visibility|FrameSelection'
fi

# The system's own interpreter: the plots come from its package.
/usr/bin/python3 benchmarks/report ${readme:+--readme}
echo "docs/performance.md and its pictures are written"
exit $status
