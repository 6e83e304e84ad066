#!/usr/bin/env bash
# Runs every example of the rmcpp tool in README.md, docs/*.md and
# docs/*.1 against rmcpp-bmcsim, as a new user would type them.
#
# An example is a line of a code block (``` fences; .nf/.fi in a man page)
# that starts with "$ " followed by the command, optionally after VAR=value
# assignments: "$ rmcpp -H 127.0.0.1 -U admin -P password mc info". The
# lines after it, up to the next "$ " line or the end of the block, are its
# output; "..." there stands for any number of lines. Other lines of code
# blocks are not run.
#
# Each document gets a fresh simulator started with tools/bmcsim/run.conf
# (user admin, password "password"), the same one tools/run.sh tours, but on
# this test's own loopback address: every "127.0.0.1" in a command and its
# output is replaced by that address. Commands run with bash from a scratch
# directory, with the built tool first on PATH. Each must exit with status 0
# and, where the document shows output, print exactly that (trailing blanks
# aside).
# Usage: doc_examples_test.sh SOURCE_DIR BUILD_DIR ADDRESS WORK_DIR
set -u
source_dir=$1 build=$2 address=$3 work=$4
if [ "$(id -u)" -ne 0 ]; then
  echo "needs root (or a user namespace) to bind UDP port 623; skipped"
  exit 77
fi
rm -rf "$work" && mkdir -p "$work"
export PATH=$build/tools/cli:$PATH
failures=0 examples=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
sim=
stop_simulator() { [ -n "$sim" ] && { kill "$sim" 2>/dev/null; wait "$sim" 2>/dev/null; }; sim=; }
trap stop_simulator EXIT

# Prints the examples of a document as lines "C<TAB>command" and "O<TAB>output line".
extract() {
  case "$1" in
    *.1) awk '
           function text(line) {
             gsub(/\\-/, "-", line); gsub(/\\\(aq/, "\047", line); gsub(/\\\(dq/, "\"", line)
             gsub(/\\e/, "\\", line); gsub(/\\&/, "", line)
             return line
           }
           /^\.nf/ { on = 1; cmd = 0; next }
           /^\.fi/ { on = 0; next }
           on && /^\$ / { print "C\t" text(substr($0, 3)); cmd = 1; next }
           on && cmd && !/^\./ { print "O\t" text($0) }' "$1" ;;
    *) awk '
           /^ *```/ { on = !on; cmd = 0; next }
           on && /^\$ / { print "C\t" substr($0, 3); cmd = 1; next }
           on && cmd { print "O\t" $0 }' "$1" ;;
  esac
}

# Does the actual output (file $1) match the shown output (file $2, with "...")?
matches() {
  awk '
    FNR == NR { sub(/[ \t]+$/, ""); got[++n] = $0; next }
    { sub(/[ \t]+$/, ""); want[++m] = $0 }
    function match_from(i, j) {
      if (j > m) return i > n
      if (want[j] == "...") {
        for (k = i; k <= n + 1; k++) if (match_from(k, j + 1)) return 1
        return 0
      }
      return i <= n && got[i] == want[j] && match_from(i + 1, j + 1)
    }
    END { exit match_from(1, 1) ? 0 : 1 }' "$1" "$2"
}

run_example() {  # command, shown-output file
  local command=${1//127.0.0.1/$address}
  sed -i "s/127\.0\.0\.1/$address/g" "$2"
  examples=$((examples + 1))
  echo "\$ $command"
  local status=0
  (cd "$work" && bash -c "$command") > "$work/got" 2>&1 || status=$?
  sed 's/^/    /' "$work/got"
  [ "$status" -eq 0 ] || fail "exit status $status: $command"
  if [ -s "$2" ] && ! matches "$work/got" "$2"; then
    fail "output differs from the document's: $command"
    echo "    the document shows:"
    sed 's/^/    | /' "$2"
  fi
}

documents=("$source_dir/README.md" "$source_dir"/docs/*.md "$source_dir"/docs/*.1)
for doc in "${documents[@]}"; do
  [ -f "$doc" ] || continue
  extract "$doc" > "$work/examples"
  [ -s "$work/examples" ] || continue
  grep -c '^C' "$work/examples" > "$work/count"
  echo "=== ${doc#"$source_dir"/}: $(cat "$work/count") example(s)"
  (cd "$source_dir" && exec "$build/tools/bmcsim/rmcpp-bmcsim" --config tools/bmcsim/run.conf --address "$address") \
    > "$work/bmcsim.log" 2>&1 &
  sim=$!
  for _ in $(seq 100); do grep -q "listening on" "$work/bmcsim.log" && break; sleep 0.05; done
  grep -q "listening on $address:623" "$work/bmcsim.log" || { fail "the simulator did not start: $(cat "$work/bmcsim.log")"; stop_simulator; continue; }
  command=
  : > "$work/shown"
  while IFS= read -r line; do
    case "$line" in
      C$'\t'*) [ -n "$command" ] && run_example "$command" "$work/shown"
               command=${line#C$'\t'}; : > "$work/shown" ;;
      O$'\t'*) printf '%s\n' "${line#O$'\t'}" >> "$work/shown" ;;
    esac
  done < "$work/examples"
  [ -n "$command" ] && run_example "$command" "$work/shown"
  stop_simulator
done

# The two documents a new user reads first must show runnable examples.
for doc in README.md docs/rmcpp.1; do
  [ -n "$(extract "$source_dir/$doc" | grep '^C')" ] || fail "$doc shows no runnable example"
done
echo "$examples example(s) run, $failures failure(s)"
[ "$failures" -eq 0 ] && rm -rf "$work"
exit $((failures > 0))
