#!/usr/bin/env bash
# Builds static libraries as a folder of another project, runs that project's program, and serves the
# consumer from what the other project installs.
#   subdirectory.sh <source folder> <folder to build in, kept> <compiler>
set -euo pipefail
source_folder=$1 build=$2 compiler=$3
here=$(cd "$(dirname "$0")" && pwd)
source "$here/consumer_checks.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Without optimisation: what counts is that it compiles and links.
cmake -S "$here/subdirectory" -B "$build" -G Ninja -DOMBRIX_SOURCE="$source_folder" -DBUILD_SHARED_LIBS=OFF \
    -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build "$build" --parallel "$(nproc)"
(cd "$work" && "$build/consumer")

cmake --install "$build" --prefix "$work/prefix" >/dev/null
by_cmake "$work/prefix" "$work"
by_pkg_config "$work/prefix" "$work"
by_pkg_config "$work/prefix" "$work" --static
exports_plain_flags "$work/prefix"
