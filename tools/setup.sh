#!/usr/bin/env bash
# Installs what rmcpp needs to build, test and run on Debian 12.
# Root installs directly; other users go through sudo when it is there.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  libssl-dev libgtest-dev libgmock-dev libbenchmark-dev
  iproute2 util-linux procps file man-db groff-base
  openipmi ipmitool freeipmi-tools
  clang libclang-rt-14-dev
  libcli11-dev nlohmann-json3-dev libyaml-cpp-dev libcpp-httplib-dev
  prometheus curl jq
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
  as_root=()
elif command -v sudo >/dev/null 2>&1; then
  as_root=(sudo)
else
  echo "rmcpp: these Debian packages are missing: ${missing[*]}" >&2
  echo "rmcpp: install them as root: apt-get install -y ${missing[*]}" >&2
  exit 1
fi
echo "rmcpp: installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq ||
  echo "rmcpp: apt-get update reported errors; trying the install with the package lists there are"
DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq "${missing[@]}" >/dev/null
