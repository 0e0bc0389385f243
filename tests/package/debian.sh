#!/usr/bin/env bash
# Makes the Debian packages, installs them with dpkg and serves the consumer from them.
#   debian.sh <source folder> <folder to build in, kept> <compiler>
#
# dpkg works on a copy of the system's list of packages and below a folder of its own: dependencies are
# resolved against what the system has, and the system stays as it is. Exits with 77 where there is no dpkg.
set -euo pipefail
source_folder=$1 build=$2 compiler=$3
here=$(cd "$(dirname "$0")" && pwd)
source "$here/consumer_checks.sh"
for tool in dpkg dpkg-deb dpkg-shlibdeps fakeroot; do
    command -v "$tool" >/dev/null || { echo "no $tool: skipped"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

(
    cd "$source_folder"
    cmake --preset debian -B "$build" -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
    cmake --build "$build" --parallel "$(nproc)"
)
rm -rf "$build/packages"
(cd "$build" && cpack -G DEB >/dev/null)
runtime=$(echo "$build"/packages/libombrixcore1_*.deb)
development=$(echo "$build"/packages/libombrixcore-dev_*.deb)
version=$(dpkg-deb -f "$runtime" Version)

# What the packages say of themselves
depends=$(dpkg-deb -f "$runtime" Depends)
for library in libc6 libstdc++6 libtbb12 libspdlog1; do
    [[ $depends == *$library* ]] || fail "libombrixcore1 does not depend on $library: $depends"
done
depends=$(dpkg-deb -f "$development" Depends)
for package in "libombrixcore1 (= $version)" libeigen3-dev libtbb-dev; do
    [[ $depends == *"$package"* ]] || fail "libombrixcore-dev does not depend on $package: $depends"
done
for library in core mesh io; do
    dpkg-deb -I "$runtime" shlibs | grep -qx "libombrix_$library 1 libombrixcore1 (>= $version)" ||
        fail "no shlibs line for libombrix_$library"
done

dpkg-deb -I "$runtime" triggers | grep -qx "activate-noawait ldconfig" || fail "ldconfig would not be told"

# Install
mkdir -p "$work/root" "$work/admin"/{info,updates,triggers}
cp /var/lib/dpkg/status "$work/admin/status"
cp /var/lib/dpkg/arch "$work/admin/arch" 2>/dev/null || true
install_packages() {
    fakeroot dpkg --admindir="$work/admin" --instdir="$work/root" --log="$work/log" --no-triggers \
        --force-script-chrootless,not-root,bad-path -i "$@"
}
if install_packages "$development" >"$work/alone" 2>&1; then
    fail "libombrixcore-dev installs without libombrixcore1"
fi
install_packages "$runtime" "$development"

# Use
libraries=$(libraries_of "$work/root/usr")
[ "$libraries" = "$work/root/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)" ] ||
    fail "the libraries are in $libraries"
by_cmake "$work/root/usr" "$work"
by_pkg_config "$work/root/usr" "$work"
