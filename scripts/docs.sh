#!/usr/bin/env bash
# Installs what is missing and builds the documentation as a site in build/docs: the guides and a reference of
# every public name. A name without documentation, or a reference to nothing, is an error.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh doxygen
OMBRIX_VERSION=$(sed -n 's/^ *VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt)
export OMBRIX_VERSION
echo "Building the documentation of version $OMBRIX_VERSION in build/docs"
rm -rf build/docs
mkdir -p build/docs
doxygen docs/Doxyfile
cp -r docs/pictures build/docs/pictures  # the guides name them relative to their own folder
echo "Open build/docs/html/index.html"
