#!/usr/bin/env bash
# bench/exporter.sh --quick against 10 simulated BMCs: every scrape through
# rmcpp-exporter (and every ipmi-sensors run, where installed) answers and
# the table is printed. No figure in it is judged.
# Usage: exporter_bench_test.sh SOURCE_DIR BUILD_DIR
set -u
source_dir=$1 build_dir=$2
if [ "$(id -u)" -ne 0 ]; then
  echo "needs root (or a user namespace) to bind UDP port 623; skipped"
  exit 77
fi
out=$(bash "$source_dir/bench/exporter.sh" --quick --build "$build_dir" 2>&1)
rc=$?
echo "$out"
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
[ "$rc" -eq 0 ] || fail "exporter.sh exited with $rc"
grep -qE "^round 2: 10 scrapes, 0 failed" <<<"$out" || fail "the exporter's second round did not answer every scrape"
for expected in "10 simulated BMCs" "cold round: CPU s per 1,000 scrapes" "warm rounds: p99 scrape (ms)"; do
  grep -qF -- "$expected" <<<"$out" || fail "exporter.sh did not print: $expected"
done
[ "$failures" -eq 0 ] || exit 1
