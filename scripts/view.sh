#!/usr/bin/env bash
# Installs what is missing, builds the viewer and shows a cloud in the browser, at the address that it prints:
#   scripts/view.sh                     the cloud that comes with the examples
#   scripts/view.sh FILE [OPTION...]    a cloud of yours; scripts/view.sh --help tells the options
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

"$root/scripts/setup.sh" libcpp-httplib-dev nlohmann-json3-dev
# Node.js from elsewhere than Debian's packages does as well, and comes with npm.
command -v node >/dev/null || "$root/scripts/setup.sh" nodejs
command -v npm >/dev/null || "$root/scripts/setup.sh" npm
echo "Building the viewer in $root/build/release"
(
    cd "$root"
    cmake --preset release -DOMBRIX_BUILD_VIEWER=ON >/dev/null
    cmake --build --preset release --target viewer
)
exec "$root/build/release/examples/viewer/viewer" "$@"
