#!/usr/bin/env bash
# Builds rmcpp and runs the whole test suite.
#   tools/test.sh              plain build (build/)
#   tools/test.sh --sanitize   AddressSanitizer + UndefinedBehaviorSanitizer (build-sanitize/)
#   tools/test.sh --tsan       ThreadSanitizer (build-tsan/), only the tests labelled `threads`
# Tests listen on UDP port 623 on loopback addresses. Root runs them as they
# are; any other user runs them in a private user and network namespace
# (unshare -rn) with its own loopback interface.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/setup.sh

build=build
options=()
targets=()
select=""
# The sanitizer builds are compiled at -O1 with line tables only: what their
# reports need, in much less compile time.
sanitizer_flags=(-DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG")
if [ "${1:-}" = "--sanitize" ]; then
  build=build-sanitize
  options+=(-DRMCPP_SANITIZE=ON -DRMCPP_BUILD_BENCH=OFF "${sanitizer_flags[@]}")
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
elif [ "${1:-}" = "--tsan" ]; then
  build=build-tsan
  options+=(-DRMCPP_TSAN=ON -DRMCPP_BUILD_BENCH=OFF "${sanitizer_flags[@]}")
  targets+=(--target rmcpp-threads-tests)
  select="-L threads"
  export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1"
fi

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo "${options[@]}" >/dev/null
cmake --build "$build" -j "$(nproc)" "${targets[@]}"

run_ctest="cd '$build' && ctest --output-on-failure --timeout 300 -j 4 $select"
if [ "$(id -u)" -eq 0 ]; then
  sh -c "$run_ctest"
else
  unshare -rn sh -c "ip link set lo up && $run_ctest"
fi
