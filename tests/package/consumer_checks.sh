# Functions of the package tests: each takes an installed prefix and serves an outside project from it.
# Expects `compiler` and `here`, the folder of these tests.

fail() {
    echo "$*" >&2
    exit 1
}

# The folder of the installed libraries.
libraries_of() {
    dirname "$(find "$1" -name 'libombrix_core.so' -o -name 'libombrix_core.a' | head -n 1)"
}

# Builds and runs the consumer through CMake's package: by_cmake <prefix> <work folder>
by_cmake() {
    cmake -S "$here/consumer" -B "$2/by_cmake" -DCMAKE_PREFIX_PATH="$1" \
        -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
    grep -q "^ombrixcore_DIR:PATH=$1/" "$2/by_cmake/CMakeCache.txt" || fail "another package was found"
    cmake --build "$2/by_cmake"
    (cd "$2" && LD_LIBRARY_PATH=$(libraries_of "$1") by_cmake/consumer)
}

# The same through pkg-config: by_pkg_config <prefix> <work folder> [--static]
by_pkg_config() {
    local prefix=$1 work=$2 flags
    shift 2
    flags=$(PKG_CONFIG_PATH=$(libraries_of "$prefix")/pkgconfig pkg-config "$@" --cflags --libs ombrixcore)
    # shellcheck disable=SC2086
    "$compiler" -std=c++20 "$here/consumer/main.cpp" $flags -o "$work/by_pkg_config"
    (cd "$work" && LD_LIBRARY_PATH=$(libraries_of "$prefix") ./by_pkg_config)
}

# No flag that chooses a processor, an optimisation or a warning reaches an application.
exports_plain_flags() {
    local files
    mapfile -t files < <(find "$1" -name '*.cmake' -path '*ombrixcore*' -o -name ombrixcore.pc)
    [ ${#files[@]} -ge 4 ] || fail "the exported files are incomplete: ${files[*]}"
    if grep -E -- '(^|[ ";=])-(m|O|W|f|g)[a-z0-9]' "${files[@]}"; then
        fail "these flags are exported"
    fi
}

# Every installed header compiles alone, under strict warnings: headers_compile_alone <prefix>
headers_compile_alone() {
    local flags
    flags=$(PKG_CONFIG_PATH=$(libraries_of "$1")/pkgconfig pkg-config --cflags ombrixcore)
    ! find "$1/include" -name '*_detail.h' | grep . || fail "private headers were installed"
    # shellcheck disable=SC2086
    find "$1/include/ombrix" -name '*.h' -print0 | xargs -0 -P "$(nproc)" -I HEADER \
        "$compiler" -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror \
        $flags -x c++ -include HEADER /dev/null
}
