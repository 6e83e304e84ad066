#!/usr/bin/env bash
# The main job: builds rmcpp and sets up RMCP+ sessions with cipher suites
# 0 to 3, reporting how far each got.
#   tools/run.sh                 against the bundled BMC simulator (started and
#                                stopped here, on 127.0.0.1:623)
#   tools/run.sh ADDRESS [USER [PASSWORD]]
#                                against the BMC at ADDRESS
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" >/dev/null

if [ $# -gt 0 ]; then
  exec build/tools/demo/rmcpp-demo "$@"
fi

# The bundled simulator listens on UDP port 623: root runs it as it is, any
# other user inside a private user and network namespace.
cat > build/run-with-simulator.sh <<'INNER'
set -eu
build/tools/bmcsim/rmcpp-bmcsim --address 127.0.0.1 --user admin:password:4 > build/bmcsim.log 2>&1 &
sim=$!
trap 'kill $sim 2>/dev/null; wait $sim 2>/dev/null || true' EXIT
for _ in $(seq 50); do grep -q "listening on" build/bmcsim.log && break; sleep 0.1; done
echo "rmcpp-bmcsim is listening on 127.0.0.1:623 (user admin, password \"password\")"
status=0
build/tools/demo/rmcpp-demo 127.0.0.1 admin password || status=$?
echo
echo "simulator log:"
sed 's/^/  /' build/bmcsim.log
exit $status
INNER
if [ "$(id -u)" -eq 0 ]; then
  bash build/run-with-simulator.sh
else
  unshare -rn sh -c 'ip link set lo up && bash build/run-with-simulator.sh'
fi
