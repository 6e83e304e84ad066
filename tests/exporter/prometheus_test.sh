#!/usr/bin/env bash
# A real Prometheus scrapes three simulated BMCs through rmcpp-exporter with
# the multi-target relabelling; once it has scraped every BMC twice, its
# query API must hold each BMC's sensor readings as the BMC's platform file
# gives them.
#
#   127.0.20.11-13  rmcpp-bmcsim, one platform file each (bmc1-3.yaml)
#   127.0.20.10     rmcpp-exporter on :9623, prometheus on :9090
#
# Usage: prometheus_test.sh SOURCE_DIR BUILD_DIR WORK_DIR
# Exit 77 (skipped) when prometheus is not installed.
set -u
source_dir=$1 build_dir=$2 work=$3
here=$source_dir/tests/exporter
bmcsim=$build_dir/tools/bmcsim/rmcpp-bmcsim
exporter=$build_dir/tools/exporter/rmcpp-exporter
exporter_address=127.0.20.10:9623
prometheus_address=127.0.20.10:9090
bmcs=(127.0.20.11 127.0.20.12 127.0.20.13)

prometheus=$(command -v prometheus || true)
if [ -z "$prometheus" ]; then
  echo "prometheus is not installed; skipped"
  exit 77
fi
for tool in curl jq; do
  command -v $tool >/dev/null || { echo "FAIL: $tool is needed (tools/setup.sh installs it)"; exit 1; }
done

rm -rf "$work"
mkdir -p "$work"
pids=()
cleanup() {
  for pid in "${pids[@]}"; do
    kill "$pid" 2>/dev/null
  done
  for pid in "${pids[@]}"; do
    wait "$pid" 2>/dev/null
  done
}
trap cleanup EXIT
trap 'exit 1' INT TERM

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
show_logs() {
  for log in "$work"/*.log; do
    echo "---- $log (last lines)"
    tail -n 20 "$log"
  done
}
die() { echo "FAIL: $*"; show_logs; exit 1; }

# Waits up to $1 seconds for the command after it to succeed.
wait_until() {
  local limit=$1
  shift
  local deadline=$((SECONDS + limit))
  until "$@"; do
    [ $SECONDS -lt $deadline ] || return 1
    sleep 0.2
  done
}

# ---------------------------------------------------------------- simulators
for i in 0 1 2; do
  n=$((i + 1))
  "$bmcsim" --address "${bmcs[$i]}" --user admin:secret --platform "$here/bmc$n.yaml" \
    >"$work/bmcsim$n.log" 2>&1 &
  pids+=($!)
done
for n in 1 2 3; do
  wait_until 10 grep -q "listening on" "$work/bmcsim$n.log" || die "simulator $n did not start"
done

# ---------------------------------------------------------------- exporter
printf 'secret\n' >"$work/password"
cat >"$work/exporter.yml" <<EOF
modules:
  default:
    user: admin
    password_file: password
    privilege: ADMINISTRATOR
    cipher_suite: 3
    timeout_ms: 5000
    collectors: [sensors, chassis, sel, device]
EOF
"$exporter" --config.file "$work/exporter.yml" --web.listen-address "$exporter_address" \
  >"$work/exporter.log" 2>&1 &
exporter_pid=$!
pids+=($exporter_pid)
wait_until 10 curl -sf -o /dev/null "http://$exporter_address/metrics" || die "the exporter did not start"

# ---------------------------------------------------------------- prometheus
cat >"$work/prometheus.yml" <<EOF
# The prober waits for answers in whole seconds: a scrape timeout of 2 s
# leaves each probe 1.5 s after the exporter's 0.5 s offset.
global:
  scrape_interval: 2s
  scrape_timeout: 2s
  evaluation_interval: 1s
scrape_configs:
  - job_name: ipmi
    metrics_path: /probe
    params:
      module: [default]
    static_configs:
      - targets: [${bmcs[0]}, ${bmcs[1]}, ${bmcs[2]}]
    relabel_configs:
      - source_labels: [__address__]
        target_label: __param_target
      - source_labels: [__param_target]
        target_label: instance
      - target_label: __address__
        replacement: $exporter_address
  - job_name: rmcpp-exporter
    static_configs:
      - targets: [$exporter_address]
EOF
"$prometheus" --config.file="$work/prometheus.yml" --storage.tsdb.path="$work/data" \
  --web.listen-address="$prometheus_address" >"$work/prometheus.log" 2>&1 &
pids+=($!)
wait_until 30 curl -sf -o /dev/null "http://$prometheus_address/-/ready" || die "prometheus did not get ready"

query() {
  curl -sf --get "http://$prometheus_address/api/v1/query" --data-urlencode "query=$1"
}

# Two scrapes of every BMC: ipmi_up has two samples for each instance.
scraped_twice() {
  local n
  n=$(query 'count_over_time(ipmi_up{job="ipmi"}[1m])' |
    jq '[.data.result[] | select((.value[1] | tonumber) >= 2)] | length') || return 1
  [ "$n" = 3 ]
}
wait_until 60 scraped_twice || die "prometheus did not scrape every BMC twice within 60 s"

# ---------------------------------------------------------------- checks
# value INSTANCE QUERY: the instant value Prometheus holds for INSTANCE.
value() {
  query "$2" | jq -r --arg instance "$1" \
    '[.data.result[] | select(.metric.instance == $instance) | .value[1]] | if length == 1 then .[0] else "none" end'
}
# expect INSTANCE QUERY WANT: compares as numbers.
expect() {
  local got
  got=$(value "$1" "$2")
  if [ "$got" = none ] || ! jq -en --arg got "$got" --arg want "$3" '($got | tonumber) == ($want | tonumber)' >/dev/null; then
    fail "$1: $2 is $got, the platform file says $3"
  else
    echo "ok: $1: $2 = $got"
  fi
}
# The readings each platform file gives.
temps=(21 22 23)
fans=(2400 3000 3600)
volts=(11.75 12 12.25)
for i in 0 1 2; do
  bmc=${bmcs[$i]}
  expect "$bmc" 'ipmi_up{job="ipmi"}' 1
  expect "$bmc" 'ipmi_sensor_value{job="ipmi",name="Inlet Temp",unit="celsius"}' "${temps[$i]}"
  expect "$bmc" 'ipmi_sensor_value{job="ipmi",name="FAN1",unit="rpm"}' "${fans[$i]}"
  expect "$bmc" 'ipmi_sensor_value{job="ipmi",name="12V",unit="volts"}' "${volts[$i]}"
  expect "$bmc" 'ipmi_sensor_state{job="ipmi",name="Inlet Temp"}' 0
done

# The exporter kept one session per BMC across all those scrapes.
own=$(curl -sf "http://$exporter_address/metrics") || die "the exporter's /metrics did not answer"
setups=$(awk '$1 == "rmcpp_exporter_session_setups_total" { print $2 }' <<<"$own")
probes=$(awk '$1 == "rmcpp_exporter_probes_total{module=\"default\"}" { print $2 }' <<<"$own")
[ "$setups" = 3 ] || fail "the exporter set up $setups sessions for 3 BMCs"
[ -n "$probes" ] && [ "$probes" -ge 6 ] || fail "the exporter counted $probes probes, expected at least 6"
echo "ok: $probes probes over $setups sessions"

# SIGTERM: the exporter stops, closing its sessions, and exits 0.
kill -TERM "$exporter_pid"
wait "$exporter_pid"
rc=$?
[ "$rc" -eq 0 ] || fail "the exporter exited with $rc after SIGTERM"
for n in 1 2 3; do
  grep -q "closed (user 'admin')" "$work/bmcsim$n.log" || fail "the exporter left its session with simulator $n open"
done

if [ "$failures" -ne 0 ]; then
  show_logs
  exit 1
fi
echo "prometheus holds every simulated BMC's readings"
