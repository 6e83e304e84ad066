#!/usr/bin/env bash
# The main job: builds rmcpp and walks the command-line tool through cipher
# suites 0 to 3 (session, mc info, chassis status, chassis power cycle), then
# through the everyday commands: sensors, event log, inventory, boot device,
# users, channel and LAN.
#   tools/run.sh                 against the bundled BMC simulator, started
#                                here on 127.0.0.1:623 and always stopped
#   tools/run.sh ADDRESS USER PASSWORD [TOOL OPTIONS...]
#                                against the BMC at ADDRESS (for example
#                                with --standard-keys)
# RMCPP_BUILD_DIR chooses the build directory (default build);
# RMCPP_SIM_ADDRESS the simulator's loopback address (default 127.0.0.1).
set -euo pipefail
cd "$(dirname "$0")/.."

build=${RMCPP_BUILD_DIR:-build}
sim_address=${RMCPP_SIM_ADDRESS:-127.0.0.1}
stage() { echo "==> $*"; }

if [ $# -gt 0 ] && [ $# -lt 3 ]; then
  echo "usage: tools/run.sh [ADDRESS USER PASSWORD [OPTIONS...]]" >&2
  exit 2
fi

stage "checking the Debian packages rmcpp needs (tools/setup.sh)"
bash tools/setup.sh

if [ ! -f "$build/CMakeCache.txt" ]; then
  stage "configuring the build in $build/"
  mkdir -p "$build"
  if ! cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >"$build/configure.log" 2>&1; then
    echo "rmcpp: configuring failed; the end of $build/configure.log:" >&2
    tail -n 30 "$build/configure.log" >&2
    exit 1
  fi
fi

# cmake's progress, condensed: on a terminal one line rewritten in place,
# otherwise a line per quarter of each target's way; a line per target
# built; compiler diagnostics in full. (Read line by line in the shell, so
# each line shows as soon as cmake prints it.)
condense() {
  local tty=$1 line percent what next_step=0 last=0 shown=0
  local -A seen=()
  end_line() { if [ "$shown" -eq 1 ]; then printf '\r\033[K'; shown=0; fi; }
  while IFS= read -r line; do
    case $line in
      *warning:* | *error:* | *"Error "[0-9]*) end_line; printf '    %s\n' "$line"; continue ;;
    esac
    if [[ $line =~ ^\[\ *[0-9]+%\]\ Built\ target\ (.*)$ ]]; then
      what=${BASH_REMATCH[1]}
      [ -n "${seen[$what]:-}" ] || { end_line; printf '    built %s\n' "$what"; }
      seen[$what]=1
      continue
    elif [[ $line =~ ^\[\ *([0-9]+)%\]\ (.*)$ ]]; then
      percent=$((10#${BASH_REMATCH[1]})) what=${BASH_REMATCH[2]}
    elif [[ $line =~ ^\[([0-9]+)/([0-9]+)\]\ (.*)$ ]]; then
      percent=$((100 * BASH_REMATCH[1] / BASH_REMATCH[2])) what=${BASH_REMATCH[3]}
    else
      continue
    fi
    [[ $what =~ ^Building\ (C|CXX)\ object\ (.*)$ ]] && what="compiling ${BASH_REMATCH[2]%.o}"
    [[ $what =~ ^Linking\ (C|CXX)\ (.*)$ ]] && what="linking ${BASH_REMATCH[2]}"
    while [[ $what =~ ^(.*)CMakeFiles/[^/]*\.dir/(.*)$ ]]; do what=${BASH_REMATCH[1]}${BASH_REMATCH[2]}; done
    [ "$percent" -lt "$last" ] && next_step=0
    last=$percent
    if [ "$tty" -eq 1 ]; then
      printf '\r\033[K    [%3d%%] %s' "$percent" "$what"
      shown=1
    elif [ "$percent" -ge "$next_step" ]; then
      printf '    [%3d%%] %s\n' "$percent" "$what"
      while [ "$next_step" -le "$percent" ]; do next_step=$((next_step + 25)); done
    fi
  done
  end_line
}

stage "building the library, the rmcpp tool and the simulator (a few minutes the first time)"
tty=0
[ -t 1 ] && tty=1
set +e
cmake --build "$build" -j "$(nproc)" --target rmcpp rmcpp-cli rmcpp-bmcsim 2>&1 |
  tee "$build/build.log" | condense "$tty"
built=${PIPESTATUS[0]}
set -e
if [ "$built" -ne 0 ]; then
  echo "rmcpp: the build failed; the end of $build/build.log:" >&2
  tail -n 30 "$build/build.log" >&2
  exit 1
fi
stage "built: $build/tools/cli/rmcpp, $build/tools/bmcsim/rmcpp-bmcsim, $build/librmcpp.so.1"

cat > "$build/tour.sh" <<'TOUR'
# Usage: tour.sh BUILD ADDRESS USER PASSWORD [OPTIONS...]
set -u
build=$1 address=$2 user=$3 password=$4
shift 4
failures=0
step() {
  echo "\$ rmcpp $*"
  if ! "$build/tools/cli/rmcpp" "$@" 2>&1 | sed 's/^/    /'; then :; fi
  [ "${PIPESTATUS[0]}" -eq 0 ] || failures=$((failures + 1))
}
for suite in 0 1 2 3; do
  echo
  echo "=== cipher suite $suite ==="
  common=(-H "$address" -U "$user" -P "$password" -C "$suite" "$@")
  step "${common[@]}" session
  step "${common[@]}" mc info
  step "${common[@]}" chassis status
  step "${common[@]}" chassis power cycle
done
echo
echo "=== everyday commands (the suite the BMC offers first: 17, else 3) ==="
common=(-H "$address" -U "$user" -P "$password" "$@")
step "${common[@]}" sdr list
step "${common[@]}" sel list
step "${common[@]}" fru print
step "${common[@]}" chassis bootdev pxe
step "${common[@]}" chassis bootparam get 5
step "${common[@]}" user list
step "${common[@]}" channel info
step "${common[@]}" lan print
echo
if [ "$failures" -eq 0 ]; then
  echo "All steps succeeded: sessions with cipher suites 0 to 3 were set up, used and closed, and the everyday commands answered."
else
  echo "$failures step(s) failed."
fi
exit $((failures > 0))
TOUR

if [ $# -gt 0 ]; then
  stage "touring the BMC at $1"
  exec bash "$build/tour.sh" "$build" "$@"
fi

# The bundled simulator listens on UDP port 623: root runs it as it is, any
# other user inside a private user and network namespace.
cat > "$build/run-with-simulator.sh" <<'INNER'
# Usage: run-with-simulator.sh BUILD ADDRESS
set -u
build=$1 address=$2
log=$build/bmcsim.log
"$build/tools/bmcsim/rmcpp-bmcsim" --config tools/bmcsim/run.conf --address "$address" > "$log" 2>&1 &
sim=$!
trap 'kill $sim 2>/dev/null; wait $sim 2>/dev/null || true' EXIT
for _ in $(seq 100); do
  grep -q "listening on" "$log" && break
  kill -0 "$sim" 2>/dev/null || break
  sleep 0.05
done
if ! grep -q "listening on" "$log"; then
  if grep -q "Address already in use" "$log"; then
    echo "rmcpp: UDP port 623 on $address is already taken by another program (another rmcpp-bmcsim or ipmi_sim still running?), so the bundled simulator cannot listen there." >&2
    echo "rmcpp: stop that program, or tour it as a BMC: tools/run.sh $address USER PASSWORD" >&2
  else
    echo "rmcpp: the bundled simulator did not start on $address:623; its output:" >&2
    sed 's/^/    /' "$log" >&2
  fi
  exit 1
fi
echo "==> rmcpp-bmcsim (the bundled BMC simulator) is listening on $address:623; user admin, password \"password\"."
status=0
bash "$build/tour.sh" "$build" "$address" admin password || status=$?
echo
echo "Session events the simulator logged (whole log: $log):"
grep -E "established|closed|refused|chassis control" "$log" | sed 's/^/  /'
echo "The simulator has been stopped."
exit $status
INNER
stage "starting the bundled BMC simulator on $sim_address:623"
if [ "$(id -u)" -eq 0 ]; then
  exec bash "$build/run-with-simulator.sh" "$build" "$sim_address"
else
  exec unshare -rn bash -c 'ip link set lo up && exec bash "$0" "$1" "$2"' "$build/run-with-simulator.sh" "$build" "$sim_address"
fi
