#!/usr/bin/env bash
# tools/run.sh, the README's first command, against the bundled simulator:
# the whole tour on a free address, then a clear refusal when UDP port 623
# on its address is already taken.
# Usage: run_sh_test.sh SOURCE_DIR BUILD_DIR
set -u
source_dir=$1 build_dir=$2
if [ "$(id -u)" -ne 0 ]; then
  echo "needs root (or a user namespace) to bind UDP port 623; skipped"
  exit 77
fi
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
blocker=
trap '[ -n "$blocker" ] && kill "$blocker" 2>/dev/null' EXIT

echo "--- the tour on a free address (127.0.16.1)"
out=$(RMCPP_BUILD_DIR=$build_dir RMCPP_SIM_ADDRESS=127.0.16.1 bash "$source_dir/tools/run.sh" 2>&1)
rc=$?
echo "$out"
[ "$rc" -eq 0 ] || fail "run.sh exited with $rc"
for expected in "==> checking the Debian packages" "==> building the library, the rmcpp tool and the simulator" \
                "is listening on 127.0.16.1:623" "All steps succeeded: sessions with cipher suites 0 to 3" \
                "The simulator has been stopped."; do
  grep -qF -- "$expected" <<<"$out" || fail "run.sh did not print: $expected"
done
[ "$(grep -c '^\$ rmcpp ' <<<"$out")" -eq 24 ] || fail "the tour did not run 24 steps"
before_tour=$(sed '/^==> starting the bundled BMC simulator/q' <<<"$out" | wc -l)
[ "$before_tour" -le 40 ] || fail "run.sh printed $before_tour lines before starting the simulator"

echo "--- UDP port 623 on 127.0.16.2 already taken"
"$build_dir/tools/bmcsim/rmcpp-bmcsim" --address 127.0.16.2 > "$build_dir/run_sh_blocker.log" 2>&1 &
blocker=$!
for _ in $(seq 100); do grep -q "listening on" "$build_dir/run_sh_blocker.log" && break; sleep 0.05; done
grep -q "listening on 127.0.16.2:623" "$build_dir/run_sh_blocker.log" || fail "the blocking simulator did not start"
out=$(RMCPP_BUILD_DIR=$build_dir RMCPP_SIM_ADDRESS=127.0.16.2 bash "$source_dir/tools/run.sh" 2>&1)
rc=$?
echo "$out"
[ "$rc" -eq 1 ] || fail "run.sh exited with $rc, not 1"
grep -qF "UDP port 623 on 127.0.16.2 is already taken by another program" <<<"$out" || fail "run.sh did not say the port is taken"
grep -q "is listening" <<<"$out" && fail "run.sh claimed its simulator is listening"
grep -q '^\$ rmcpp ' <<<"$out" && fail "run.sh toured the other program"
kill -0 "$blocker" 2>/dev/null || fail "the blocking simulator is gone"
grep -q "established" "$build_dir/run_sh_blocker.log" && fail "the tour reached the blocking simulator"

[ "$failures" -eq 0 ] && echo "all checks passed"
exit $((failures > 0))
