#!/usr/bin/env bash
# Installs a build into a fresh prefix and serves the consumer from it.
#   installed.sh <build folder> <compiler>
set -euo pipefail
build=$1 compiler=$2
here=$(cd "$(dirname "$0")" && pwd)
source "$here/consumer_checks.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved"  # nothing of it may know where it was installed
by_cmake "$work/moved" "$work"
by_pkg_config "$work/moved" "$work"
exports_plain_flags "$work/moved"
headers_compile_alone "$work/moved"
