#!/usr/bin/env bash
# Fuzzes every parser of received bytes with libFuzzer under AddressSanitizer
# and UndefinedBehaviorSanitizer.
#   tools/fuzz.sh [SECONDS]     each target runs SECONDS (default 60)
# Builds the fuzz targets with clang in build-fuzz/, runs them two at a time,
# each on a scratch copy of its checked-in corpus (tests/fuzz/<parser>/), and
# prints per target the executions, executions per second, corpus size and
# findings. Crashing, leaking or hanging inputs are kept in
# build-fuzz/fuzz-run/<parser>/findings/. Ends non-zero when a target found
# anything.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
case "$seconds" in
  ''|*[!0-9]*) echo "usage: tools/fuzz.sh [SECONDS]" >&2; exit 2 ;;
esac

# Installs clang 14 and its runtime libraries (libFuzzer and the sanitizers) too.
bash tools/setup.sh

build=build-fuzz
CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DRMCPP_FUZZ=ON -DRMCPP_SANITIZE=ON -DRMCPP_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j 2 --target fuzz_targets

parsers=(pong auth_capa open_session rakp2 rakp4 session_packet ipmi_resp_head aes_pad_decrypt bmcsim bmcsim_config cli_decode channel_ciphers sdr fru sel)
run="$build/fuzz-run"
rm -rf "$run"
mkdir -p "$run"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:symbolize=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

fuzz_one() {
  local parser=$1 dir="$run/$1"
  mkdir -p "$dir/corpus" "$dir/findings"
  cp tests/fuzz/"$parser"/* "$dir/corpus/"
  local status=0
  "$build/tests/fuzz_$parser" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$dir/findings/" "$dir/corpus" </dev/null >"$dir/log" 2>&1 || status=$?
  echo "$status" >"$dir/status"
}

# Two at a time.
for parser in "${parsers[@]}"; do
  while [ "$(jobs -rp | wc -l)" -ge 2 ]; do wait -n || true; done
  echo "fuzz_$parser: ${seconds} s"
  fuzz_one "$parser" &
done
wait

failed=0
printf '\n%-22s %12s %10s %8s %9s\n' target executions exec/s corpus findings
for parser in "${parsers[@]}"; do
  dir="$run/$parser"
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/log" | tail -1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$dir/log" | tail -1)
  corpus=$(find "$dir/corpus" -type f | wc -l)
  findings=$(find "$dir/findings" -type f | wc -l)
  status=$(cat "$dir/status")
  printf '%-22s %12s %10s %8s %9s\n' "fuzz_$parser" "${execs:-?}" "${rate:-?}" "$corpus" "$findings"
  if [ "$findings" -ne 0 ] || [ "$status" -ne 0 ]; then
    failed=1
    echo "  fuzz_$parser ended with status $status; log: $dir/log" >&2
    find "$dir/findings" -type f -printf '  finding: %p\n' >&2
  fi
done
exit $failed
