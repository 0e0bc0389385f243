#!/usr/bin/env bash
# Installs what is missing to build and test ombrixcore, from Debian's packages; quiet when nothing is.
# Further package names can be given as arguments.
set -euo pipefail

packages=(
    g++ cmake ninja-build pkg-config git
    libeigen3-dev libtbb-dev libspdlog-dev libnanoflann-dev
    libgtest-dev libbenchmark-dev libpng-dev
    "$@"
)

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing ${missing[*]}"
sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
log=$(mktemp)
trap 'rm -f "$log"' EXIT
export DEBIAN_FRONTEND=noninteractive
if ! { "${sudo[@]}" apt-get update && "${sudo[@]}" apt-get install -y --no-install-recommends "${missing[@]}"; } \
    >"$log" 2>&1; then
    cat "$log" >&2
    echo "Could not install ${missing[*]}" >&2
    exit 1
fi
