#!/usr/bin/env bash
# Builds rmcpp and runs the whole test suite.
#   tools/test.sh              plain build (build/)
#   tools/test.sh --sanitize   AddressSanitizer + UndefinedBehaviorSanitizer (build-sanitize/)
# Tests listen on UDP port 623 on loopback addresses. Root runs them as they
# are; any other user runs them in a private user and network namespace
# (unshare -rn) with its own loopback interface.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/setup.sh

build=build
options=()
if [ "${1:-}" = "--sanitize" ]; then
  build=build-sanitize
  options+=(-DRMCPP_SANITIZE=ON)
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
fi

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo "${options[@]}" >/dev/null
cmake --build "$build" -j "$(nproc)"

run_ctest="cd '$build' && ctest --output-on-failure --timeout 300 -j 4"
if [ "$(id -u)" -eq 0 ]; then
  sh -c "$run_ctest"
else
  unshare -rn sh -c "ip link set lo up && $run_ctest"
fi
