#!/usr/bin/env bash
# The fleet benchmark: rmcpp beside FreeIPMI (ipmi-raw) and ipmitool against
# the same simulated BMCs in one run, printed as one table of medians and
# ratios. It measures; it never judges. As root it runs in a network
# namespace of its own, so its loopback addresses meet no other program.
#
#   P1  one-shot: session setup, Get Device ID, close (suite 3), one host
#   P2  client CPU per exchange on one open suite 3 session
#   P3  session setups per second from one thread
#   P4  Get Device ID from every BMC of a fleet of 100, 1,000 (and 10,000)
#       loopback addresses served by one simulator process
set -uo pipefail

usage() {
  cat <<'EOF'
usage: bench/fleet.sh [--quick] [--big] [--reps K] [--build DIR] [--fleet N[,N...]]

  --quick        a fleet of 10, two repetitions, short runs (what CI runs)
  --big          add the fleet of 10,000 BMCs (ipmitool runs fleets of
                 1,000 and more once)
  --reps K       repetitions per figure; the table shows medians (default 5)
  --build DIR    the build directory holding the programs (default: build)
  --fleet LIST   fleet sizes, e.g. 100,1000 (default 100,1000)
  --threads N    simulator server threads (default 2)
  --tool-max N   run ipmitool on fleets of at most N BMCs (default: all;
                 it needs about 13 minutes for 10,000 here)

Peers missing from PATH (ipmi-raw from freeipmi-tools, ipmitool) show n/a;
nothing is installed. Instruction counts need perf with hardware counters
or valgrind; n/a otherwise.
EOF
}

arguments=("$@")
here=$(cd "$(dirname "$0")" && pwd)
source_dir=$(dirname "$here")
build="$source_dir/build"
reps=5
quick=0
big=0
fleet_sizes="100,1000"
sim_threads=2
tool_max=""
while [ $# -gt 0 ]; do
  case "$1" in
    --quick) quick=1 ;;
    --big) big=1 ;;
    --reps) reps=${2:?--reps needs a number}; shift ;;
    --build) build=${2:?--build needs a directory}; shift ;;
    --fleet) fleet_sizes=${2:?--fleet needs sizes}; shift ;;
    --threads) sim_threads=${2:?--threads needs a number}; shift ;;
    --tool-max) tool_max=${2:?--tool-max needs a number}; shift ;;
    -h|--help) usage; exit 0 ;;
    *) echo "fleet.sh: unknown option $1" >&2; usage >&2; exit 2 ;;
  esac
  shift
done
case "$reps" in ''|*[!0-9]*|0) echo "fleet.sh: --reps wants a positive number" >&2; exit 2 ;; esac
case "$tool_max" in ""|*[!0-9]*) [ -z "$tool_max" ] || { echo "fleet.sh: --tool-max wants a number" >&2; exit 2; } ;; esac
build=$(cd "$build" 2>/dev/null && pwd) || { echo "fleet.sh: no build directory" >&2; exit 2; }

if [ "$quick" = 1 ]; then
  fleet_sizes=10
  [ "$reps" = 5 ] && reps=2
fi
[ "$big" = 1 ] && fleet_sizes="$fleet_sizes,10000"

# A network namespace of its own, when allowed.
if [ -z "${RMCPP_FLEET_NS:-}" ] && [ "$(id -u)" = 0 ] && unshare -n true 2>/dev/null; then
  RMCPP_FLEET_NS=1 exec unshare -n "$0" "${arguments[@]}"
fi
if [ -n "${RMCPP_FLEET_NS:-}" ]; then ip link set lo up; fi

sim_program="$build/tools/bmcsim/rmcpp-bmcsim"
rmcpp="$build/tools/cli/rmcpp"
session_bench="$build/bench/rmcpp_bench_session"
for p in "$sim_program" "$rmcpp"; do
  [ -x "$p" ] || { echo "fleet.sh: $p is not built" >&2; exit 2; }
done
ipmi_raw=$(command -v ipmi-raw || true)
ipmitool=$(command -v ipmitool || true)
[ -n "$ipmi_raw" ] || echo "fleet.sh: ipmi-raw not found (Debian package freeipmi-tools): its figures are n/a" >&2
[ -n "$ipmitool" ] || echo "fleet.sh: ipmitool not found (Debian package ipmitool): its figures are n/a" >&2
[ -x "$session_bench" ] || session_bench=""

work=$(mktemp -d "${TMPDIR:-/tmp}/rmcpp-fleet.XXXXXX")
sims=()
cleanup() {
  for pid in "${sims[@]}"; do kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; done
  rm -rf "$work"
}
trap cleanup EXIT
export HOME="$work"              # FreeIPMI keeps its caches under HOME
: > "$work/freeipmi.conf"

user=admin
password=password
one_host=127.3.0.1                # standard keys: every client
library_host=127.3.0.2            # the library's key mode, for rmcpp_bench_session

# ------------------------------------------------------------------ helpers

# Starts a simulator on the addresses given; waits until it listens.
start_sim() {
  local log="$work/sim.$RANDOM.log"
  "$sim_program" --address "$1" --user "$user:$password:4" --quiet --threads "$sim_threads" \
    --max-sessions 64 "${@:2}" > "$log" 2>&1 &
  local pid=$!
  sims+=("$pid")
  for _ in $(seq 1 600); do
    grep -q "listening on" "$log" 2>/dev/null && { last_sim=$pid; return 0; }
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.05
  done
  echo "fleet.sh: the simulator did not start:" >&2
  cat "$log" >&2
  exit 1
}

stop_sim() {
  kill "$1" 2>/dev/null
  wait "$1" 2>/dev/null
}

# Children's CPU seconds so far (user + system), from this shell's own
# count: `times` must run here, not in a subshell, which starts from zero.
mark_cpu() { times > "$work/times.$1"; }
marked_cpu() {
  awk 'NR == 2 {
         split($1, u, /[ms]/); split($2, s, /[ms]/);
         printf "%.6f\n", u[1] * 60 + u[2] + s[1] * 60 + s[2] }' "$work/times.$1"
}

now() { date +%s.%N; }

calc() { awk "BEGIN { printf \"%.9f\\n\", $1 }"; }

# measure OUT COMMAND...: runs it; sets wall, cpu (seconds) and status.
measure() {
  local out=$1; shift
  local t0 t1
  mark_cpu 0; t0=$(now)
  "$@" > "$out" 2>&1
  status=$?
  t1=$(now); mark_cpu 1
  wall=$(calc "$t1 - $t0")
  cpu=$(calc "$(marked_cpu 1) - $(marked_cpu 0)")
}

median() {
  if [ $# -eq 0 ]; then echo n/a; return; fi
  printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END {
    if (NR % 2) print v[(NR + 1) / 2]; else printf "%.6f\n", (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# fmt VALUE SCALE DECIMALS: VALUE*SCALE, or n/a.
fmt() {
  case "$1" in n/a|'') echo n/a; return ;; esac
  awk -v v="$1" -v k="$2" -v d="$3" 'BEGIN { printf "%.*f\n", d, v * k }'
}

ratio() {
  case "$1$2" in *n/a*|'') echo n/a; return ;; esac
  awk -v a="$1" -v b="$2" 'BEGIN { if (b == 0) print "n/a"; else printf "%.2f\n", a / b }'
}

rows=()
row() { rows+=("$(printf '%-44s %12s %12s %12s %9s %9s' "$1" "$2" "$3" "$4" "$(ratio "$5" "$6")" "$(ratio "$5" "$7")")"); }

rmcpp_cmd=("$rmcpp" -U "$user" -P "$password" -C 3 --standard-keys)
raw_cmd=("$ipmi_raw" -D LAN_2_0 -u "$user" -p "$password" -l ADMIN -I 3 --config-file "$work/freeipmi.conf")
tool_cmd=("$ipmitool" -I lanplus -U "$user" -P "$password" -C 3)

# Instructions of one run (millions), by perf's counter or by callgrind.
instructions() {
  local n
  if command -v perf > /dev/null 2>&1; then
    n=$(perf stat -x, -e instructions:u -- "$@" 2>&1 > /dev/null | awk -F, '/instructions/ { print $1 }' | tail -1)
    case "$n" in ''|*[!0-9]*) ;; *) awk -v n="$n" 'BEGIN { printf "%.2f\n", n / 1e6 }'; return ;; esac
  fi
  if command -v valgrind > /dev/null 2>&1; then
    n=$(valgrind --tool=callgrind --callgrind-out-file=/dev/null -- "$@" 2>&1 > /dev/null |
        awk '/Collected :/ { print $NF }' | tail -1)
    case "$n" in ''|*[!0-9]*) ;; *) awk -v n="$n" 'BEGIN { printf "%.2f\n", n / 1e6 }'; return ;; esac
  fi
  echo n/a
}

# ------------------------------------------------------------------ P1, P2, P3: one BMC

start_sim "$one_host" --standard-keys
one_sim=$last_sim
start_sim "$library_host"
library_sim=$last_sim

runs_per_rep=10
[ "$quick" = 1 ] && runs_per_rep=2

# one_shot NAME COMMAND...: per-run wall and CPU of K repetitions of
# runs_per_rep sequential runs; medians in p1_wall_NAME / p1_cpu_NAME.
one_shot() {
  local name=$1; shift
  local walls=() cpus=() failed=0 r i
  for r in $(seq 1 "$reps"); do
    local t0 t1
    mark_cpu 0; t0=$(now)
    for i in $(seq 1 "$runs_per_rep"); do
      "$@" > "$work/one.out" 2>&1 || failed=$((failed + 1))
    done
    t1=$(now); mark_cpu 1
    walls+=("$(calc "($t1 - $t0) / $runs_per_rep")")
    cpus+=("$(calc "($(marked_cpu 1) - $(marked_cpu 0)) / $runs_per_rep")")
  done
  if [ "$failed" -gt 0 ]; then
    echo "fleet.sh: $name failed $failed of $((reps * runs_per_rep)) one-shot runs; last output:" >&2
    cat "$work/one.out" >&2
  fi
  printf -v "p1_wall_$name" '%s' "$(median "${walls[@]}")"
  printf -v "p1_cpu_$name" '%s' "$(median "${cpus[@]}")"
}

p1_wall_rmcpp=n/a p1_cpu_rmcpp=n/a p1_wall_raw=n/a p1_cpu_raw=n/a p1_wall_tool=n/a p1_cpu_tool=n/a
one_shot rmcpp "${rmcpp_cmd[@]}" -H "$one_host" raw 6 1
[ -n "$ipmi_raw" ] && one_shot raw "${raw_cmd[@]}" -h "$one_host" 0 6 1
[ -n "$ipmitool" ] && one_shot tool "${tool_cmd[@]}" -H "$one_host" raw 6 1
one_shot help "$rmcpp" --help
# What starting any program costs here: the floor under every P1 figure.
one_shot floor "$(type -P true)"

ins_rmcpp=$(instructions "${rmcpp_cmd[@]}" -H "$one_host" raw 6 1)
ins_help=$(instructions "$rmcpp" --help)
ins_raw=n/a ins_tool=n/a
[ -n "$ipmi_raw" ] && ins_raw=$(instructions "${raw_cmd[@]}" -h "$one_host" 0 6 1)
[ -n "$ipmitool" ] && ins_tool=$(instructions "${tool_cmd[@]}" -H "$one_host" raw 6 1)

row "P1 one-shot wall (ms)" "$(fmt "$p1_wall_rmcpp" 1000 2)" "$(fmt "$p1_wall_raw" 1000 2)" "$(fmt "$p1_wall_tool" 1000 2)" \
  "$p1_wall_rmcpp" "$p1_wall_raw" "$p1_wall_tool"
row "P1 one-shot CPU, user+sys (ms)" "$(fmt "$p1_cpu_rmcpp" 1000 2)" "$(fmt "$p1_cpu_raw" 1000 2)" "$(fmt "$p1_cpu_tool" 1000 2)" \
  "$p1_cpu_rmcpp" "$p1_cpu_raw" "$p1_cpu_tool"
row "P1 one-shot instructions (M)" "$ins_rmcpp" "$ins_raw" "$ins_tool" "$ins_rmcpp" "$ins_raw" "$ins_tool"
row "P1 start-up alone: rmcpp --help CPU (ms)" "$(fmt "$p1_cpu_help" 1000 2)" "" "" n/a n/a n/a
row "P1 start-up alone: rmcpp --help instr. (M)" "$ins_help" "" "" n/a n/a n/a
row "P1 floor, any program (true): wall (ms)" "$(fmt "$p1_wall_floor" 1000 2)" "" "" n/a n/a n/a
row "P1 floor, any program (true): CPU (ms)" "$(fmt "$p1_cpu_floor" 1000 2)" "" "" n/a n/a n/a

# P2: exchanges on one session.
count=2000
[ "$quick" = 1 ] && count=50
bench_host=$library_host
bench_keys=()
if [ -n "$session_bench" ] && "$session_bench" --help 2>&1 | grep -q -- --standard-keys; then
  bench_host=$one_host
  bench_keys=(--standard-keys)
fi
field() { awk -v k="$1" '{ for (i = 1; i < NF; ++i) if ($i == k) print $(i + 1) }' "$2" | tail -1; }

p2_cpu_rmcpp=() p2_wall_rmcpp=() p3_rate_rmcpp=() p3_cpu_rmcpp=() p3_seq_rmcpp=()
# P3's setups run as interleaved jobs of one thread, this many at once (the
# simulator keeps 64 sessions).
p3_at_once=32
p2_cpu_raw=() p2_wall_raw=() p2_cpu_tool=() p2_wall_tool=()
for i in $(seq 1 "$count"); do echo "0 6 1"; done > "$work/raw.cmds"
for i in $(seq 1 "$count"); do echo "raw 6 1"; done > "$work/tool.cmds"
for r in $(seq 1 "$reps"); do
  if [ -n "$session_bench" ]; then
    "$session_bench" exchanges --host "$bench_host" --user "$user" --password "$password" --suite 3 --count "$count" \
      "${bench_keys[@]}" > "$work/p2.out" 2>&1
    v=$(field client_cpu_us_per_exchange "$work/p2.out"); [ -n "$v" ] && p2_cpu_rmcpp+=("$v")
    v=$(field wall_us_per_exchange "$work/p2.out"); [ -n "$v" ] && p2_wall_rmcpp+=("$v")
    "$session_bench" setups --host "$bench_host" --user "$user" --password "$password" --suite 3 --count "$count" \
      --concurrency "$p3_at_once" "${bench_keys[@]}" > "$work/p3.out" 2>&1
    v=$(field per_second "$work/p3.out"); [ -n "$v" ] && p3_rate_rmcpp+=("$v")
    v=$(field client_cpu_us_per_setup "$work/p3.out"); [ -n "$v" ] && p3_cpu_rmcpp+=("$v")
    "$session_bench" setups --host "$bench_host" --user "$user" --password "$password" --suite 3 --count "$count" \
      "${bench_keys[@]}" > "$work/p3seq.out" 2>&1
    v=$(field per_second "$work/p3seq.out"); [ -n "$v" ] && p3_seq_rmcpp+=("$v")
  fi
  # Peers: many requests over one session, less a one-shot run, per request.
  if [ -n "$ipmi_raw" ]; then
    measure "$work/p2raw.out" "${raw_cmd[@]}" -h "$one_host" --file "$work/raw.cmds"
    if [ "$status" = 0 ] && [ "$(grep -c rcvd "$work/p2raw.out")" = "$count" ]; then
      p2_cpu_raw+=("$(calc "($cpu - $p1_cpu_raw) / ($count - 1) * 1000000")")
      p2_wall_raw+=("$(calc "($wall - $p1_wall_raw) / ($count - 1) * 1000000")")
    fi
  fi
  if [ -n "$ipmitool" ]; then
    measure "$work/p2tool.out" "${tool_cmd[@]}" -H "$one_host" exec "$work/tool.cmds"
    if [ "$status" = 0 ]; then
      p2_cpu_tool+=("$(calc "($cpu - $p1_cpu_tool) / ($count - 1) * 1000000")")
      p2_wall_tool+=("$(calc "($wall - $p1_wall_tool) / ($count - 1) * 1000000")")
    fi
  fi
done
m() { if [ $# -eq 0 ]; then echo n/a; else median "$@"; fi; }
a=$(m "${p2_cpu_rmcpp[@]}") b=$(m "${p2_cpu_raw[@]}") c=$(m "${p2_cpu_tool[@]}")
row "P2 client CPU per exchange (us)" "$(fmt "$a" 1 2)" "$(fmt "$b" 1 2)" "$(fmt "$c" 1 2)" "$a" "$b" "$c"
a=$(m "${p2_wall_rmcpp[@]}") b=$(m "${p2_wall_raw[@]}") c=$(m "${p2_wall_tool[@]}")
row "P2 wall per exchange (us)" "$(fmt "$a" 1 2)" "$(fmt "$b" 1 2)" "$(fmt "$c" 1 2)" "$a" "$b" "$c"

# P3: rmcpp's one-thread setup rate beside the peers' sequential one-shot runs.
a=$(m "${p3_rate_rmcpp[@]}")
b=n/a c=n/a
[ "$p1_wall_raw" != n/a ] && b=$(calc "1 / $p1_wall_raw")
[ "$p1_wall_tool" != n/a ] && c=$(calc "1 / $p1_wall_tool")
row "P3 setups per second, one thread, $p3_at_once at once" "$(fmt "$a" 1 0)" "$(fmt "$b" 1 0)" "$(fmt "$c" 1 0)" "$a" "$b" "$c"
a=$(m "${p3_cpu_rmcpp[@]}")
row "P3 client CPU per setup (us)" "$(fmt "$a" 1 1)" "" "" n/a n/a n/a
a=$(m "${p3_seq_rmcpp[@]}")
row "P3 setups per second, one after another" "$(fmt "$a" 1 0)" "$(fmt "$b" 1 0)" "$(fmt "$c" 1 0)" "$a" "$b" "$c"
a=$(calc "1 / $p1_wall_rmcpp")
row "P3 sequential one-shot runs per second" "$(fmt "$a" 1 0)" "$(fmt "$b" 1 0)" "$(fmt "$c" 1 0)" "$a" "$b" "$c"

stop_sim "$one_sim"
stop_sim "$library_sim"

# ------------------------------------------------------------------ P4: fleets

# Fleet of N: 127.4.c.d, d from 1 to 250 (or N when smaller), c from 0.
fleet_range() { # N -> the hostrange rmcpp and the simulator take
  local n=$1
  if [ "$n" -le 250 ]; then echo "127.4.0.[1-$n]"; else echo "127.4.[0-$((n / 250 - 1))].[1-250]"; fi
}
fleet_list() { # N -> one bracket per host, as FreeIPMI takes it
  local n=$1 c out=""
  if [ "$n" -le 250 ]; then echo "127.4.0.[1-$n]"; return; fi
  for c in $(seq 0 $((n / 250 - 1))); do out="$out,127.4.$c.[1-250]"; done
  echo "${out#,}"
}
fleet_hosts() { # N -> one address a line
  local n=$1 c d
  if [ "$n" -le 250 ]; then for d in $(seq 1 "$n"); do echo "127.4.0.$d"; done; return; fi
  for c in $(seq 0 $((n / 250 - 1))); do for d in $(seq 1 250); do echo "127.4.$c.$d"; done; done
}

fleet_mode=0
"$rmcpp" --help 2>&1 | grep -q -- --fanout && fleet_mode=1

declare -A p4_wall p4_hosts
for n in ${fleet_sizes//,/ }; do
  if [ "$n" -gt 250 ] && [ $((n % 250)) -ne 0 ]; then
    echo "fleet.sh: fleet sizes above 250 are multiples of 250 ($n is not)" >&2
    exit 2
  fi
  start_sim "$(fleet_range "$n")" --standard-keys
  fleet_sim=$last_sim
  fleet_hosts "$n" > "$work/hosts"
  for who in rmcpp xargs raw tool; do
    walls=() answered=()
    k=$reps
    # ipmitool takes a minute or more per thousand hosts here: run once.
    [ "$who" = tool ] && [ "$n" -ge 1000 ] && k=1
    [ "$who" = xargs ] && [ "$fleet_mode" = 1 ] && continue
    for r in $(seq 1 "$k"); do
      case "$who" in
        rmcpp)
          [ "$fleet_mode" = 1 ] || break
          measure "$work/p4.out" "${rmcpp_cmd[@]}" -H "$(fleet_range "$n")" --fanout 64 --json raw 6 1
          answered+=("$(grep -c '"result"' "$work/p4.out")") ;;
        xargs)
          measure "$work/p4.out" xargs -P16 -I{} sh -c '"$@" -H {} raw 6 1 > /dev/null 2>&1 && echo ok' sh \
            "${rmcpp_cmd[@]}" < "$work/hosts"
          answered+=("$(grep -c '^ok$' "$work/p4.out")") ;;
        raw)
          [ -n "$ipmi_raw" ] || break
          measure "$work/p4.out" "${raw_cmd[@]}" -h "$(fleet_list "$n")" -F 64 0 6 1
          answered+=("$(grep -c 'rcvd:' "$work/p4.out")") ;;
        tool)
          [ -n "$ipmitool" ] || break
          [ -n "$tool_max" ] && [ "$n" -gt "$tool_max" ] && break
          measure "$work/p4.out" xargs -P16 -I{} sh -c '"$@" -H {} raw 6 1 > /dev/null 2>&1 && echo ok' sh \
            "${tool_cmd[@]}" < "$work/hosts"
          answered+=("$(grep -c '^ok$' "$work/p4.out")") ;;
      esac
      walls+=("$wall")
    done
    p4_wall[$who,$n]=$(m "${walls[@]}")
    p4_hosts[$who,$n]=$(m "${answered[@]}")
  done
  stop_sim "$fleet_sim"
done

rmcpp_p4=rmcpp
[ "$fleet_mode" = 1 ] || rmcpp_p4=xargs
label="rmcpp -H range --fanout 64"
[ "$fleet_mode" = 1 ] || label="rmcpp by xargs -P16 (no fleet mode)"
previous=""
for n in ${fleet_sizes//,/ }; do
  a=${p4_wall[$rmcpp_p4,$n]:-n/a} b=${p4_wall[raw,$n]:-n/a} c=${p4_wall[tool,$n]:-n/a}
  row "P4 fleet of $n: wall (s)" "$(fmt "$a" 1 3)" "$(fmt "$b" 1 3)" "$(fmt "$c" 1 3)" "$a" "$b" "$c"
  row "P4 fleet of $n: hosts answered" "$(fmt "${p4_hosts[$rmcpp_p4,$n]:-n/a}" 1 0)" \
    "$(fmt "${p4_hosts[raw,$n]:-n/a}" 1 0)" "$(fmt "${p4_hosts[tool,$n]:-n/a}" 1 0)" n/a n/a n/a
  if [ -n "$previous" ]; then
    g() { ratio "${p4_wall[$1,$n]:-n/a}" "${p4_wall[$1,$previous]:-n/a}"; }
    row "P4 growth $previous -> $n (x wall)" "$(g "$rmcpp_p4")" "$(g raw)" "$(g tool)" n/a n/a n/a
  fi
  previous=$n
done

# ------------------------------------------------------------------ the table

cpu_model=$(awk -F': *' '/^model name/ { print $2; exit }' /proc/cpuinfo)
echo "rmcpp fleet benchmark, $(date -u '+%Y-%m-%d %H:%M UTC')"
echo "machine: ${cpu_model:-unknown CPU}, $(nproc) cores, Linux $(uname -r)"
raw_version=missing tool_version=missing
[ -n "$ipmi_raw" ] && raw_version=$("$ipmi_raw" --version 2>/dev/null | head -1 | awk '{ print $NF }')
[ -n "$ipmitool" ] && tool_version=$("$ipmitool" -V 2>/dev/null | awk '{ print $NF }')
echo "peers: ipmi-raw (FreeIPMI) $raw_version, ipmitool $tool_version"
echo "medians of $reps repetitions; P1 runs $runs_per_rep one-shots per repetition; P4 BMCs on 127.4.x.y," \
  "one simulator process ($sim_threads server thread(s))"
[ "$fleet_mode" = 1 ] || echo "the rmcpp tool here has no fleet mode (--fanout): P4 runs it by xargs -P16"
[ -n "$session_bench" ] || echo "rmcpp_bench_session is not built: rmcpp's P2 and P3 figures are n/a"
echo
printf '%-44s %12s %12s %12s %9s %9s\n' "figure" "rmcpp" "ipmi-raw" "ipmitool" "r/raw" "r/tool"
printf '%s\n' "${rows[@]}"
echo
echo "r/raw, r/tool: rmcpp's figure divided by the peer's (below 1: rmcpp needs less)."
echo "P2 peers: one session carrying $count requests (ipmi-raw --file, ipmitool exec), less a one-shot run."
echo "P3 peers: sequential one-shot runs per second."
echo "P4: wall time of the whole fleet; ipmitool (by xargs -P16) runs fleets of 1,000 and more once."
