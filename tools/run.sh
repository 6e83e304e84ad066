#!/usr/bin/env bash
# The main job: builds rmcpp and walks the command-line tool through cipher
# suites 0 to 3: session, mc info, chassis status, chassis power cycle.
#   tools/run.sh                 against the bundled BMC simulator, started
#                                here on 127.0.0.1:623 and always stopped
#   tools/run.sh ADDRESS USER PASSWORD [TOOL OPTIONS...]
#                                against the BMC at ADDRESS (for example
#                                with --standard-keys)
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" >/dev/null

cat > build/tour.sh <<'TOUR'
# Usage: tour.sh ADDRESS USER PASSWORD [OPTIONS...]
set -u
address=$1 user=$2 password=$3
shift 3
failures=0
step() {
  echo "\$ rmcpp $*"
  if ! build/tools/cli/rmcpp "$@" 2>&1 | sed 's/^/    /'; then :; fi
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
if [ "$failures" -eq 0 ]; then
  echo "All steps succeeded: sessions with cipher suites 0 to 3 were set up, used and closed."
else
  echo "$failures step(s) failed."
fi
exit $((failures > 0))
TOUR

if [ $# -gt 0 ]; then
  [ $# -ge 3 ] || { echo "usage: tools/run.sh [ADDRESS USER PASSWORD [OPTIONS...]]" >&2; exit 2; }
  exec bash build/tour.sh "$@"
fi

# The bundled simulator listens on UDP port 623: root runs it as it is, any
# other user inside a private user and network namespace.
cat > build/run-with-simulator.sh <<'INNER'
set -u
build/tools/bmcsim/rmcpp-bmcsim --address 127.0.0.1 --user admin:password:4 > build/bmcsim.log 2>&1 &
sim=$!
trap 'kill $sim 2>/dev/null; wait $sim 2>/dev/null || true' EXIT
for _ in $(seq 50); do grep -q "listening on" build/bmcsim.log && break; sleep 0.1; done
echo "rmcpp-bmcsim (the bundled BMC simulator) is listening on 127.0.0.1:623; user admin, password \"password\"."
status=0
bash build/tour.sh 127.0.0.1 admin password || status=$?
echo
echo "Session events the simulator logged (whole log: build/bmcsim.log):"
grep -E "established|closed|refused|chassis control" build/bmcsim.log | sed 's/^/  /'
echo "The simulator has been stopped."
exit $status
INNER
if [ "$(id -u)" -eq 0 ]; then
  bash build/run-with-simulator.sh
else
  unshare -rn bash -c 'ip link set lo up && bash build/run-with-simulator.sh'
fi
