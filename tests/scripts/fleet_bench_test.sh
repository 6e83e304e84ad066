#!/usr/bin/env bash
# bench/fleet.sh --quick against a fleet of 10 simulated BMCs: it runs to the
# end and prints its table. No figure in it is judged.
# Usage: fleet_bench_test.sh SOURCE_DIR BUILD_DIR
set -u
source_dir=$1 build_dir=$2
if [ "$(id -u)" -ne 0 ]; then
  echo "needs root (or a user namespace) to bind UDP port 623; skipped"
  exit 77
fi
out=$(bash "$source_dir/bench/fleet.sh" --quick --build "$build_dir" 2>&1)
rc=$?
echo "$out"
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
[ "$rc" -eq 0 ] || fail "fleet.sh exited with $rc"
for expected in "rmcpp fleet benchmark, " "machine: " "figure " "P1 one-shot wall (ms)" \
                "P1 one-shot CPU, user+sys (ms)" "P1 one-shot instructions (M)" "P2 client CPU per exchange (us)" \
                "P3 setups per second, one thread, 32 at once" \
                "P3 setups per second, one after another" "P4 fleet of 10: wall (s)" "P4 fleet of 10: hosts answered"; do
  grep -qF -- "$expected" <<<"$out" || fail "fleet.sh did not print: $expected"
done
[ "$failures" -eq 0 ] || exit 1
