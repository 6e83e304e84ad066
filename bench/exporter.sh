#!/usr/bin/env bash
# The exporter benchmark: a fleet of simulated BMCs scraped once per
# interval by rmcpp-exporter (one process, sessions and SDR caches kept
# warm) beside the same scrape done the way FreeIPMI-based exporters do it,
# one ipmi-sensors process per target (with its SDR cache on disk). Both
# issue the scrapes of one interval at most 64 at a time. It measures; it
# never judges. As root it runs in a network namespace of its own.
#
# Figures per interval (round): CPU seconds per 1,000 scrapes (the
# exporter's process; the ipmi-sensors processes), p99 and p50 scrape time.
# Round 1 starts cold (no session, no SDR cache); the later rounds are the
# steady state, and the table shows their medians.
set -uo pipefail

usage() {
  cat <<'EOF'
usage: bench/exporter.sh [--quick] [--fleet N] [--rounds R] [--concurrency C] [--build DIR]

  --quick          10 BMCs, 2 rounds (what CI runs)
  --fleet N        BMCs (default 1000; above 250 a multiple of 250)
  --rounds R       scrape intervals (default 4: one cold, three warm)
  --concurrency C  scrapes at once (default 64)
  --build DIR      the build directory holding the programs (default: build)

ipmi-sensors (Debian package freeipmi-tools) missing from PATH shows n/a.
EOF
}

arguments=("$@")
here=$(cd "$(dirname "$0")" && pwd)
source_dir=$(dirname "$here")
build="$source_dir/build"
fleet=1000
rounds=4
concurrency=64
while [ $# -gt 0 ]; do
  case "$1" in
    --quick) fleet=10; rounds=2 ;;
    --fleet) fleet=${2:?--fleet needs a number}; shift ;;
    --rounds) rounds=${2:?--rounds needs a number}; shift ;;
    --concurrency) concurrency=${2:?--concurrency needs a number}; shift ;;
    --build) build=${2:?--build needs a directory}; shift ;;
    -h|--help) usage; exit 0 ;;
    *) echo "exporter.sh: unknown option $1" >&2; usage >&2; exit 2 ;;
  esac
  shift
done
for v in "$fleet" "$rounds" "$concurrency"; do
  case "$v" in ''|*[!0-9]*|0) echo "exporter.sh: --fleet, --rounds and --concurrency want positive numbers" >&2; exit 2 ;; esac
done
if [ "$fleet" -gt 250 ] && [ $((fleet % 250)) -ne 0 ]; then
  echo "exporter.sh: fleets above 250 are multiples of 250 ($fleet is not)" >&2
  exit 2
fi
build=$(cd "$build" 2>/dev/null && pwd) || { echo "exporter.sh: no build directory" >&2; exit 2; }

if [ -z "${RMCPP_EXPORTER_BENCH_NS:-}" ] && [ "$(id -u)" = 0 ] && unshare -n true 2>/dev/null; then
  RMCPP_EXPORTER_BENCH_NS=1 exec unshare -n "$0" "${arguments[@]}"
fi
if [ -n "${RMCPP_EXPORTER_BENCH_NS:-}" ]; then ip link set lo up; fi

sim_program="$build/tools/bmcsim/rmcpp-bmcsim"
exporter="$build/tools/exporter/rmcpp-exporter"
load="$build/bench/rmcpp_bench_scrape"
for p in "$sim_program" "$exporter" "$load"; do
  [ -x "$p" ] || { echo "exporter.sh: $p is not built" >&2; exit 2; }
done
ipmi_sensors=$(command -v ipmi-sensors || true)
[ -n "$ipmi_sensors" ] || echo "exporter.sh: ipmi-sensors not found (Debian package freeipmi-tools): its figures are n/a" >&2

work=$(mktemp -d "${TMPDIR:-/tmp}/rmcpp-exporter-bench.XXXXXX")
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; done
  rm -rf "$work"
}
trap cleanup EXIT
export HOME="$work"              # FreeIPMI keeps its caches under HOME
: > "$work/freeipmi.conf"
mkdir -p "$work/sdr-cache"

user=admin
password=password
listen=127.5.255.254:9623

# BMCs on 127.5.c.d, d from 1 to 250 (or the fleet when smaller).
if [ "$fleet" -le 250 ]; then range="127.5.0.[1-$fleet]"; else range="127.5.[0-$((fleet / 250 - 1))].[1-250]"; fi
for c in $(seq 0 $(( (fleet - 1) / 250 ))); do
  last=250
  [ "$fleet" -le 250 ] && last=$fleet
  for d in $(seq 1 "$last"); do echo "127.5.$c.$d"; done
done > "$work/targets"

wait_for_line() { # FILE TEXT PID WHAT
  for _ in $(seq 1 600); do
    grep -q "$2" "$1" 2>/dev/null && return 0
    kill -0 "$3" 2>/dev/null || break
    sleep 0.05
  done
  echo "exporter.sh: $4 did not start:" >&2
  cat "$1" >&2
  exit 1
}

"$sim_program" --address "$range" --user "$user:$password:4" --standard-keys --quiet --threads 2 \
  --max-sessions 64 --platform "$source_dir/tools/bmcsim/sample-platform.yaml" > "$work/sim.log" 2>&1 &
pids+=($!)
wait_for_line "$work/sim.log" "listening on" "$!" "the simulator"

cat > "$work/exporter.yml" <<EOF
modules:
  default:
    user: $user
    password: $password
    privilege: ADMINISTRATOR
    cipher_suite: 3
    standard_keys: true
    timeout_ms: 10000
    collectors: [sensors]
EOF
"$exporter" --config.file "$work/exporter.yml" --web.listen-address "$listen" \
  --web.max-requests "$concurrency" > "$work/exporter.log" 2>&1 &
exporter_pid=$!
pids+=("$exporter_pid")
ready=0
for _ in $(seq 1 200); do
  if (exec 3<>"/dev/tcp/${listen%:*}/${listen##*:}") 2>/dev/null; then ready=1; break; fi
  kill -0 "$exporter_pid" 2>/dev/null || break
  sleep 0.05
done
[ "$ready" = 1 ] || { echo "exporter.sh: the exporter did not start:" >&2; cat "$work/exporter.log" >&2; exit 1; }

echo "exporter.sh: $fleet BMCs, $rounds rounds, $concurrency scrapes at once" >&2
"$load" http "$work/targets" "$concurrency" "http://$listen/probe?target={}&module=default" \
  --cpu-of "$exporter_pid" --rounds "$rounds" | tee "$work/exporter.rounds" >&2
exporter_status=${PIPESTATUS[0]}
sensors_status=0
if [ -n "$ipmi_sensors" ]; then
  "$load" spawn "$work/targets" "$concurrency" --rounds "$rounds" -- "$ipmi_sensors" -D LAN_2_0 -h '{}' \
    -u "$user" -p "$password" -l ADMIN -I 3 --config-file "$work/freeipmi.conf" \
    --sdr-cache-directory "$work/sdr-cache" --quiet-cache | tee "$work/sensors.rounds" >&2
  sensors_status=${PIPESTATUS[0]}
fi

# field NAME FILE ROUND: a figure of one round's line.
field() {
  [ -s "$2" ] || { echo n/a; return; }
  awk -v want="$1" -v r="$3" '$1 == "round" && $2 == r":" {
      for (i = 1; i <= NF; i++) {
        if (want == "cpu1000" && $i == "per" && $(i + 1) == "1000,") print $(i - 3)
        if (want == "p99" && $i == "p99") print $(i + 1)
        if (want == "p50" && $i == "p50") print $(i + 1)
        if (want == "failed" && $i == "failed,") print $(i - 1)
      } }' "$2"
}
median() {
  if [ $# -eq 0 ]; then echo n/a; return; fi
  printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END {
    if (NR % 2) print v[(NR + 1) / 2]; else printf "%.3f\n", (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}
warm() { # NAME FILE: median over rounds 2..R (round 1 alone when R is 1)
  local values=() r
  [ -s "$2" ] || { echo n/a; return; }
  for r in $(seq 2 "$rounds"); do values+=("$(field "$1" "$2" "$r")"); done
  [ ${#values[@]} -gt 0 ] || values=("$(field "$1" "$2" 1)")
  median "${values[@]}"
}
ratio() {
  case "$1$2" in *n/a*|'') echo n/a; return ;; esac
  awk -v a="$1" -v b="$2" 'BEGIN { if (b == 0) print "n/a"; else printf "%.3f\n", a / b }'
}
row() { printf '%-36s %16s %16s %9s\n' "$1" "$2" "$3" "$(ratio "$2" "$3")"; }

e=$work/exporter.rounds s=$work/sensors.rounds
echo
echo "$fleet simulated BMCs (sample platform, 7 sensors), $concurrency scrapes at once; $(nproc) CPUs, $(date -u +%F)"
echo "peer: $( [ -n "$ipmi_sensors" ] && "$ipmi_sensors" --version 2>/dev/null | head -1 || echo "ipmi-sensors n/a")"
printf '%-36s %16s %16s %9s\n' "figure" "rmcpp-exporter" "ipmi-sensors" "ratio"
row "cold round: CPU s per 1,000 scrapes" "$(field cpu1000 "$e" 1)" "$(field cpu1000 "$s" 1)"
row "cold round: p99 scrape (ms)" "$(field p99 "$e" 1)" "$(field p99 "$s" 1)"
row "warm rounds: CPU s per 1,000 scrapes" "$(warm cpu1000 "$e")" "$(warm cpu1000 "$s")"
row "warm rounds: p99 scrape (ms)" "$(warm p99 "$e")" "$(warm p99 "$s")"
row "warm rounds: p50 scrape (ms)" "$(warm p50 "$e")" "$(warm p50 "$s")"
echo "CPU: the exporter process over each round; ipmi-sensors: the processes it ran. Warm: medians of rounds 2-$rounds."

[ "$exporter_status" = 0 ] || { echo "exporter.sh: some exporter scrapes failed" >&2; exit 1; }
[ "$sensors_status" = 0 ] || { echo "exporter.sh: some ipmi-sensors runs failed" >&2; exit 1; }
exit 0
