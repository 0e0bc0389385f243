#!/usr/bin/env bash
# Installs the given build into a fresh prefix, then builds and runs the consumer against it: once through
# CMake's package, once through pkg-config.
#   test_package.sh <build folder> <compiler>
set -euo pipefail
build=$1 compiler=$2
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libraries=$(dirname "$(find "$work/prefix" -name 'libombrix_core.*' | head -n 1)")
export LD_LIBRARY_PATH=$libraries

cmake -S "$here/consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" \
    -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build "$work/cmake"
(cd "$work" && cmake/consumer)

export PKG_CONFIG_PATH=$libraries/pkgconfig
flags=$(pkg-config --cflags --libs ombrixcore)
# shellcheck disable=SC2086
"$compiler" -std=c++20 "$here/consumer/main.cpp" $flags -o "$work/by_pkg_config"
(cd "$work" && ./by_pkg_config)
if find "$work/prefix" -name '*_detail.h' | grep .; then
    echo "private headers were installed" >&2
    exit 1
fi
