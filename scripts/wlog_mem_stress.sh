#!/usr/bin/env bash
# Long form of the memory ring's reliability tests: the writer killed mid-run, the ring going
# round many times and a reader racing a live writer, repeated (default 200 times) from a build
# tree, then a check that no shared-memory segment of the tests is left.
#   scripts/wlog_mem_stress.sh [REPEATS] [BUILD_DIR]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
repeats=${1:-200}
build=${2:-$root/build}
test_bin="$build/lib_src/wlog/wlog_mem_test"
[ -x "$test_bin" ] || cmake --build "$build" --target wlog_mem_test
before=$(ipcs -m | grep -c '^0x' || true)
"$test_bin" --gtest_repeat="$repeats" --gtest_break_on_failure \
  --gtest_filter='WlogMem.RecordsSurvive*:WlogMem.Wraps*:WlogMem.ReaderRacing*'
after=$(ipcs -m | grep -c '^0x' || true)
if [ "$after" -gt "$before" ]; then
  echo "wlog_mem_stress: $((after - before)) shared-memory segment(s) left behind" >&2
  exit 1
fi
echo "wlog_mem_stress: $repeats rounds passed, no segment left"
