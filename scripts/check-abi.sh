#!/usr/bin/env bash
# Compares what the shared libraries export with the record in abi/: functions and variables, layout and
# virtual functions of the types that they reach, and the layouts that an application sees. Fails on whatever
# an application that is linked already would notice; what is only new is named and passes.
#   scripts/check-abi.sh             compare
#   scripts/check-abi.sh --update    write the record anew: with a release, or knowing what breaks
# The record is made from the dev preset (GCC of Debian 12): inlined functions differ between presets.
set -euo pipefail
cd "$(dirname "$0")/.."

update=no
case ${1:-} in
    "") ;;
    --update) update=yes ;;
    *) echo "usage: scripts/check-abi.sh [--update]" >&2; exit 2 ;;
esac

scripts/setup.sh abigail-tools
cmake --preset dev >/dev/null
cmake --build --preset dev --target ombrix_core ombrix_mesh ombrix_io layout_report >/dev/null
headers=$(mktemp -d)
trap 'rm -rf "$headers"' EXIT
cmake --install build/dev --component development --prefix "$headers" >/dev/null
rm -rf "$headers"/lib*

status=0
for name in core mesh io; do
    record=abi/ombrix_$name.abi
    library=build/dev/ombrix/$name/libombrix_$name.so
    if [ $update = yes ]; then
        abidw --suppressions abi/foreign.supp --headers-dir "$headers/include" --exported-interfaces-only \
            --no-corpus-path --no-comp-dir-path --no-show-locs --out-file "$record" "$library"
        echo "Wrote $record"
        continue
    fi
    # Bits 1 and 2 of the status say that the comparison failed, bit 8 that something is gone, bit 4 that
    # anything changed: a function that is only new, too, unless it takes a place among virtual ones.
    changes=0
    report=$(abidiff --suppressions abi/foreign.supp --headers-dir2 "$headers/include" --harmless \
        --exported-interfaces-only --no-show-locs "$record" "$library") || changes=$?
    if [ $((changes & ~4)) -ne 0 ] || grep -qE '[1-9][0-9]* (Removed|Changed)|vtable' <<<"$report"; then
        echo "$report"
        echo "libombrix_$name does not keep to $record" >&2
        status=1
    elif [ $changes -ne 0 ]; then
        echo "libombrix_$name keeps to $record and adds:"
        sed -n "s/^ *\[A\] */    /p" <<<"$report"
    else
        echo "libombrix_$name keeps to $record"
    fi
done

layouts=abi/layouts.txt
if [ $update = yes ]; then
    build/dev/tests/package/layout_report layouts >"$layouts"
    echo "Wrote $layouts"
    exit
fi
changed=$(diff "$layouts" <(build/dev/tests/package/layout_report layouts) || true)
if grep -q '^<' <<<"$changed"; then
    echo "$changed"
    echo "The layouts do not keep to $layouts" >&2
    status=1
elif [ -n "$changed" ]; then
    echo "The layouts keep to $layouts and add:"
    grep '^>' <<<"$changed"
else
    echo "The layouts keep to $layouts"
fi
exit $status
