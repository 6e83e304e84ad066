#!/usr/bin/env bash
# The C program of README.md's "A short tour of the API", as it stands there:
# it compiles without warnings (-Wall -Wextra) as C and as C++, prints the
# device ID against the bundled simulator and exits with 0, and exits with
# 1 when the Get Device ID exchange goes unanswered. The program's
# "127.0.0.1" is replaced by this test's own loopback address.
# Usage: readme_c_example_test.sh SOURCE_DIR BUILD_DIR LIBRARY ADDRESS WORK_DIR C_COMPILER CXX_COMPILER [FLAGS...]
set -u
source_dir=$1 build=$2 library=$3 address=$4 work=$5 cc=$6 cxx=$7
shift 7
flags=("$@")
if [ "$(id -u)" -ne 0 ]; then
  echo "needs root (or a user namespace) to bind UDP port 623; skipped"
  exit 77
fi
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
sim=
stop_simulator() { [ -n "$sim" ] && { kill "$sim" 2>/dev/null; wait "$sim" 2>/dev/null; }; sim=; }
trap stop_simulator EXIT
rm -rf "$work" && mkdir -p "$work"

# The first C block that holds a main().
awk '/^```c$/ { on = 1; n = 0; next }
     on && /^```/ { on = 0; if (found) exit; next }
     on { block[++n] = $0; if ($0 ~ /^int main/) found = 1 }
     END { if (found) for (i = 1; i <= n; i++) print block[i] }' "$source_dir/README.md" > "$work/example.c"
grep -q '^int main' "$work/example.c" || { echo "FAIL: README.md has no C block with main()"; exit 1; }
grep -q '"127\.0\.0\.1"' "$work/example.c" || fail "the example does not talk to 127.0.0.1"
sed -i "s/\"127\.0\.0\.1\"/\"$address\"/" "$work/example.c"

link=(-I"$source_dir/api" "$library" -Wl,-rpath,"$(dirname "$library")")
"$cc" "${flags[@]}" -Wall -Wextra -Werror -x c "$work/example.c" -x none "${link[@]}" -o "$work/example_c" ||
  fail "the example does not compile warning-free as C"
"$cxx" "${flags[@]}" -Wall -Wextra -Werror -x c++ "$work/example.c" -x none "${link[@]}" -o "$work/example_cxx" ||
  fail "the example does not compile warning-free as C++"
[ "$failures" -eq 0 ] || exit 1

start_simulator() {
  "$build/tools/bmcsim/rmcpp-bmcsim" --config "$source_dir/tools/bmcsim/run.conf" --address "$address" "$@" \
    > "$work/bmcsim.log" 2>&1 &
  sim=$!
  for _ in $(seq 100); do grep -q "listening on" "$work/bmcsim.log" && break; sleep 0.05; done
  grep -q "listening on $address:623" "$work/bmcsim.log" || fail "the simulator did not start"
}

echo "--- against the simulator"
start_simulator --firmware 3.07
for program in example_c example_cxx; do
  status=0
  out=$("$work/$program" 2>&1) || status=$?
  echo "$out"
  [ "$status" -eq 0 ] || fail "$program exited with $status"
  grep -qx "granted privilege 4" <<<"$out" || fail "$program did not print the granted privilege"
  grep -qx "device ID 32, firmware 3.07" <<<"$out" || fail "$program did not print the simulator's device ID and firmware"
done
stop_simulator

echo "--- Get Device ID unanswered (its three attempts ignored)"
start_simulator --reply session:ignore=3
status=0
out=$("$work/example_c" 2>&1) || status=$?
echo "$out"
[ "$status" -eq 1 ] || fail "example_c exited with $status when the exchange failed, not 1"
grep -qx "granted privilege 4" <<<"$out" || fail "the session was not set up"
grep -q "^Get Device ID failed (4): " <<<"$out" || fail "example_c did not say the exchange failed"
stop_simulator

[ "$failures" -eq 0 ] && { echo "all checks passed"; rm -rf "$work"; }
exit $((failures > 0))
