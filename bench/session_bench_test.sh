#!/bin/sh
# Runs rmcpp_bench_session once in each mode, with a small count, against
# rmcpp-bmcsim on 127.0.17.50, and checks that each prints its one line.
# Speed is not judged here.
set -u
bench=$1
sim=$2
address=127.0.17.50

"$sim" --address "$address" --user admin:password:4 >/dev/null 2>&1 &
sim_pid=$!
trap 'kill "$sim_pid" 2>/dev/null; wait "$sim_pid" 2>/dev/null' EXIT

common="--host $address --user admin --password password --suite 3 --timeout 1"

# The simulator is ready once one setup goes through.
ready=0
for _ in 1 2 3 4 5 6 7 8 9 10; do
  if "$bench" setups $common --count 1 >/dev/null 2>&1; then ready=1; break; fi
  sleep 0.5
done
[ "$ready" = 1 ] || { echo "the simulator never answered"; exit 1; }

status=0
check() {
  pattern=$1
  shift
  out=$("$@")
  rc=$?
  lines=$(printf '%s\n' "$out" | wc -l)
  if [ "$rc" -ne 0 ] || [ "$lines" -ne 1 ] || ! printf '%s\n' "$out" | grep -Eq "$pattern"; then
    echo "FAIL: $* -> status $rc, output:"
    printf '%s\n' "$out"
    status=1
  else
    echo "ok: $out"
  fi
}

number='[0-9]+(\.[0-9]+)?'
check "^exchanges 50 client_cpu_us_per_exchange $number wall_us_per_exchange $number\$" \
  "$bench" exchanges $common --count 50
check "^setups 20 per_second $number client_cpu_us_per_setup $number\$" \
  "$bench" setups $common --count 20
check "^setups 40 per_second $number client_cpu_us_per_setup $number\$" \
  "$bench" setups $common --count 40 --concurrency 8
check "^exchanges 10 client_cpu_us_per_exchange $number wall_us_per_exchange $number\$" \
  "$bench" exchanges $common --suite 0 --count 10

# A refused login is an error, not a line of figures.
if out=$("$bench" setups --host "$address" --user admin --password wrong --suite 3 --timeout 1 --count 1 2>/dev/null); then
  echo "FAIL: a wrong password gave status 0"
  status=1
elif [ -n "$out" ]; then
  echo "FAIL: a wrong password printed: $out"
  status=1
else
  echo "ok: a wrong password fails without figures"
fi
if out=$("$bench" setups --host "$address" --user admin --password wrong --suite 3 --timeout 1 --count 4 \
           --concurrency 4 2>/dev/null); then
  echo "FAIL: a wrong password gave status 0 with --concurrency"
  status=1
else
  echo "ok: a wrong password fails with --concurrency too"
fi
exit $status
