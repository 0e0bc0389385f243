#!/usr/bin/env bash
# Installs valgrind, builds the dev preset and runs its quick tests (those of less than SECONDS, 0.1) under
# memcheck; fails on an error or a leak.
#   scripts/test-memcheck.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-0.1}
scripts/setup.sh valgrind
# ctest notes what each test costs.
costs=build/dev/Testing/Temporary/CTestCostData.txt
[ -f "$costs" ] && cmake --build --preset dev || scripts/test.sh dev
quick=$(awk -v most="$seconds" '$1 == "---" { exit } $3 < most { print $1 }' "$costs" | paste -sd:)

log=$(mktemp)
trap 'rm -f "$log"' EXIT
passed=0 failed=0
while read -r program; do
    echo "$program"
    # Eight workers would only take turns; what the task library keeps until the end stays reachable.
    if valgrind --quiet --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite \
        --suppressions=scripts/memcheck.supp "$program" --gtest_filter="$quick" --gtest_brief=1 >"$log" 2>&1; then
        passed=$((passed + $(sed -n 's/^\[  PASSED  \] \([0-9]*\) test.*/\1/p' "$log")))
    else
        failed=$((failed + 1))
        tail -n 60 "$log"
    fi
done < <(find build/dev/tests -type f -executable -name '*test*' -not -name '*.so*' -not -name '*.sh' | sort)
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
