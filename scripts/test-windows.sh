#!/usr/bin/env bash
# Installs what is missing, cross-compiles the Windows source of the memory-mapped files and runs its tests
# under Wine. Everything it makes stays in build/windows.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh g++-mingw-w64-x86-64 wine64 googletest
googletest=/usr/src/googletest/googletest
out=build/windows
mkdir -p "$out/ombrix/core"
# Static linking on both sides: nothing is exported, and no library has to be found at run time.
echo '#define OMBRIX_CORE_API' >"$out/ombrix/core/core_export.h"

echo "Building the Windows tests in $out"
compile() {
    x86_64-w64-mingw32-g++-posix -std=c++20 -isystem "$googletest/include" "$@"
}
pids=()
for source in gtest-all gtest_main; do
    [ -f "$out/$source.o" ] && continue
    compile -w -I"$googletest" -c "$googletest/src/$source.cc" -o "$out/$source.part.o" &&
        mv "$out/$source.part.o" "$out/$source.o" &
    pids+=($!)
done
for pid in "${pids[@]}"; do wait "$pid"; done
compile -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -I. -I"$out" \
    ombrix/core/services/memory_mapped.cpp ombrix/core/services/memory_mapped_windows.cpp \
    tests/core/services/memory_mapped_test.cpp "$out/gtest-all.o" "$out/gtest_main.o" \
    -static -o "$out/memory_mapped_test.exe"

echo "Running them under Wine"
export WINEPREFIX="$PWD/$out/wine" WINEDEBUG=-all
wine=$(command -v wine64 || echo /usr/lib/wine/wine64)
status=0
"$wine" "$out/memory_mapped_test.exe" </dev/null || status=$?
"$(dirname "$(readlink -f "$wine")")/wineserver64" -k || true
exit "$status"
