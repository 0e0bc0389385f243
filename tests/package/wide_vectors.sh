#!/usr/bin/env bash
# An application compiled for wider vector units than the library sees the same layouts and gets the same
# results: compares what the two forms of one program print. Exits with 77 where the processor cannot run it.
#   wide_vectors.sh <program with the library's flags> <program with wide vectors> <feature>
set -euo pipefail
grep -qw "$3" /proc/cpuinfo || { echo "no $3 here: skipped"; exit 77; }
diff <("$1") <("$2")
lines=$("$2" | wc -l)
[ "$lines" -gt 200 ] || { echo "only $lines lines were compared" >&2; exit 1; }
echo "$lines lines are the same"
