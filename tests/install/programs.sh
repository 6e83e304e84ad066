#!/usr/bin/env bash
# cmake --install gives the rmcpp tool, the rmcpp-bmcsim simulator, the
# library, the header and both man pages; the installed programs find the
# installed library without LD_LIBRARY_PATH, and the tool runs against the
# simulator.
# Usage: programs.sh BUILD_DIR WORK_DIR ADDRESS
set -u
build=$1 work=$2 address=$3
if [ "$(id -u)" -ne 0 ]; then
  echo "needs root (or a user namespace) to bind UDP port 623; skipped"
  exit 77
fi
# librmcpp must come through the programs' RPATH: drop any directory that
# holds one from LD_LIBRARY_PATH (others, such as an i386 OpenSSL, stay).
kept=()
IFS=: read -ra dirs <<<"${LD_LIBRARY_PATH:-}"
for d in "${dirs[@]}"; do [ -n "$d" ] && [ ! -e "$d/librmcpp.so.1" ] && kept+=("$d"); done
if [ ${#kept[@]} -gt 0 ]; then LD_LIBRARY_PATH=$(IFS=:; echo "${kept[*]}"); export LD_LIBRARY_PATH; else unset LD_LIBRARY_PATH; fi
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
sim=
trap '[ -n "$sim" ] && kill "$sim" 2>/dev/null; wait 2>/dev/null' EXIT

rm -rf "$work"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null || { echo "FAIL: cmake --install"; exit 1; }
for f in bin/rmcpp bin/rmcpp-bmcsim lib/librmcpp.so.1 include/rmcpp.h \
         share/man/man1/rmcpp.1 share/man/man1/rmcpp-bmcsim.1; do
  [ -e "$prefix/$f" ] || fail "not installed: $f"
done
[ "$failures" -eq 0 ] || exit 1

echo "--- installed programs linked to librmcpp find the installed one"
# The tool may have the library built in (RMCPP_STATIC_TOOL); every program
# that loads it must load the installed copy.
for program in "$prefix"/bin/*; do
  readelf -d "$program" 2>/dev/null | grep -q 'NEEDED.*\[librmcpp\.so' || { echo "$(basename "$program"): built in or not used"; continue; }
  library=$(ldd "$program" | awk '$1 ~ /^librmcpp\.so/ { print $3 }')
  [ "$(realpath "$library" 2>/dev/null)" = "$(realpath "$prefix/lib/librmcpp.so.1")" ] ||
    fail "installed $(basename "$program") loads librmcpp from '$library', not from $prefix/lib"
  echo "$(basename "$program"): $library"
done
"$prefix/bin/rmcpp" --version || fail "installed rmcpp --version"

echo "--- the installed tool against the installed simulator on $address"
"$prefix/bin/rmcpp-bmcsim" --address "$address" --user admin:password:4 --manufacturer 0x1234 --product 0x42 \
  > "$work/bmcsim.log" 2>&1 &
sim=$!
for _ in $(seq 100); do grep -q "listening on" "$work/bmcsim.log" && break; sleep 0.05; done
grep -q "listening on $address:623" "$work/bmcsim.log" || fail "installed rmcpp-bmcsim did not start: $(cat "$work/bmcsim.log")"
out=$("$prefix/bin/rmcpp" -H "$address" -U admin -P password -C 3 session 2>&1) || fail "rmcpp session: $out"
echo "$out"
grep -Eq "^Granted Privilege +: ADMINISTRATOR$" <<<"$out" || fail "session did not print the granted privilege"
out=$("$prefix/bin/rmcpp" -H "$address" -U admin -P password -C 3 mc info 2>&1) || fail "rmcpp mc info: $out"
echo "$out"
grep -Eq "^Manufacturer ID +: 4660$" <<<"$out" || fail "mc info did not print the simulator's manufacturer 0x1234"
grep -Eq "^Product ID +: 66$" <<<"$out" || fail "mc info did not print the simulator's product 0x42"
out=$("$prefix/bin/rmcpp" --json -H "$address" -U admin -P password -C 3 mc info 2>&1) || fail "rmcpp --json mc info: $out"
grep -q '4660' <<<"$out" || fail "mc info --json did not carry the manufacturer"
grep -q "established" "$work/bmcsim.log" || fail "the simulator logged no session"

echo "--- man -l formats both pages"
for page in rmcpp rmcpp-bmcsim; do
  text=$(LANG=C MANWIDTH=80 man --warnings -l "$prefix/share/man/man1/$page.1" 2>"$work/man.err") || fail "man -l $page.1 failed"
  [ -s "$work/man.err" ] && fail "man -l $page.1 warned: $(cat "$work/man.err")"
  grep -q "^NAME" <<<"$text" || fail "$page.1 has no NAME section"
  grep -Eq "^ +$page +- " <<<"$text" || fail "$page.1 does not name $page"
  grep -q "^SYNOPSIS" <<<"$text" || fail "$page.1 has no SYNOPSIS"
done

[ "$failures" -eq 0 ] && { echo "all checks passed"; rm -rf "$work"; }
exit $((failures > 0))
