#!/usr/bin/env bash
# The rmcpp-exporter program's command line, start and stop: exit 2 on bad
# flags, 1 (with FILE:LINE) on a bad modules file or a listen address it
# cannot bind, 0 after SIGTERM or SIGINT. Listens on 127.0.20.10:9630.
# Usage: program_test.sh EXPORTER WORK_DIR
set -u
exporter=$1 work=$2
address=127.0.20.10:9630
rm -rf "$work"
mkdir -p "$work"
pids=()
cleanup() { for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; done; }
trap cleanup EXIT

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
# run WANT_STATUS ARGS...: runs the exporter, output in $out.
run() {
  local want=$1
  shift
  out=$(timeout 20 "$exporter" "$@" 2>&1)
  local rc=$?
  [ "$rc" -eq "$want" ] || fail "rmcpp-exporter $* exited with $rc, expected $want: $out"
}

cat >"$work/good.yml" <<'EOF'
modules:
  default:
    user: admin
    password: Zq7-not-shown
EOF
cat >"$work/bad.yml" <<'EOF'
modules:
  default:
    user: admin
    password: Zq7-not-shown
    privilege: ADMINISTRATOR
    # the strongest
    cipher_suite: 5
EOF

run 0 --help
grep -q -- "--config.file" <<<"$out" || fail "--help does not list --config.file"
run 0 --version
grep -Eq "^rmcpp-exporter [0-9]+\.[0-9]+" <<<"$out" || fail "--version printed: $out"
run 2
run 2 --config.file "$work/good.yml" --bogus
run 2 --config.file "$work/good.yml" --web.max-requests 0
run 2 --config.file "$work/good.yml" --web.listen-address 9623
run 2 --config.file "$work/good.yml" --session.idle-timeout 5x
run 2 --config.file "$work/good.yml" --probe.timeout-offset -1

run 1 --config.file "$work/bad.yml" --web.listen-address "$address"
grep -qF "$work/bad.yml:7: cipher_suite must be one of 0-3, 15-17" <<<"$out" || fail "bad modules file: $out"
grep -q "Zq7-not-shown" <<<"$out" && fail "the password was printed: $out"
run 1 --config.file "$work/missing.yml" --web.listen-address "$address"
grep -qF "$work/missing.yml" <<<"$out" || fail "missing modules file: $out"

# Starts the exporter in the background, listening on $1 (default
# $address); waits until /metrics answers on $address.
start() {
  "$exporter" --config.file "$work/good.yml" --web.listen-address "${1:-$address}" >"$work/run.log" 2>&1 &
  pid=$!
  pids+=($pid)
  local tries=0
  until curl -sf -o /dev/null "http://$address/metrics"; do
    tries=$((tries + 1))
    if [ $tries -gt 50 ] || ! kill -0 "$pid" 2>/dev/null; then
      fail "the exporter did not start: $(cat "$work/run.log")"
      return 1
    fi
    sleep 0.1
  done
}

for signal in TERM INT; do
  if start; then
    curl -sf "http://$address/" | grep -q "<td>default</td>" || fail "/ does not list the module"
    kill -$signal "$pid"
    wait "$pid"
    rc=$?
    [ "$rc" -eq 0 ] || fail "SIG$signal: exit status $rc"
    grep -q "stopped" "$work/run.log" || fail "SIG$signal: no stop line: $(cat "$work/run.log")"
  fi
done

# ":PORT" listens on every address, IPv4 and IPv6.
if start :9630; then
  curl -sf -o /dev/null "http://127.0.0.1:9630/metrics" || fail ":9630 does not answer on 127.0.0.1"
  if ip -6 addr show dev lo 2>/dev/null | grep -q "::1"; then
    curl -sf -o /dev/null "http://[::1]:9630/metrics" || fail ":9630 does not answer on ::1"
  fi
  kill -TERM "$pid"
  wait "$pid"
fi

# A second exporter on the same address cannot listen.
if start; then
  run 1 --config.file "$work/good.yml" --web.listen-address "$address"
  grep -q "cannot listen on 127.0.20.10:9630" <<<"$out" || fail "second listener: $out"
  kill -TERM "$pid"
  wait "$pid"
fi

[ "$failures" -eq 0 ] || exit 1
echo "rmcpp-exporter's command line, start and stop behave"
