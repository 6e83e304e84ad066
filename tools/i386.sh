#!/usr/bin/env bash
# Builds the whole project for 32-bit x86 (gcc -m32 against Debian's :i386
# packages) in build-i386/ and runs every test there.
#
# The :i386 packages come from Debian multiarch. libssl3 is "Multi-Arch:
# same": its amd64 and i386 copies must have the same version, and Debian's
# security archive sometimes serves an amd64 version that has no i386 build
# yet (or whose i386 index fails to download). This script then installs the
# newest version that both architectures have, for both, and says so. When no
# such version can be installed, it unpacks the i386 packages into
# build-i386/sysroot with `apt-get download` and builds against that
# (RMCPP_I386_UNPACK=1 takes that way on purpose).
#
# Exit status: 0 when the i386 build passed every test; 1 when it failed;
# 3 when the machine could not be given the i386 packages at all (the reason
# is printed; nothing has been built).
set -euo pipefail
cd "$(dirname "$0")/.."
say() { echo "rmcpp i386: $*"; }

if [ "$(id -u)" -eq 0 ]; then as_root=(); else as_root=(sudo); fi
apt_install() { DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq "$@" >/dev/null; }

bash tools/setup.sh

if ! dpkg --print-foreign-architectures | grep -qx i386; then
  say "adding the i386 architecture to dpkg"
  "${as_root[@]}" dpkg --add-architecture i386
fi
if ! "${as_root[@]}" apt-get update -qq; then
  say "apt-get update reported errors (often a mirror being synced); going on with the lists it has"
fi

if ! apt_install gcc-multilib g++-multilib libgtest-dev:i386 libgmock-dev:i386 libbenchmark-dev:i386; then
  say "SKIPPED: the multilib compilers or the i386 test libraries could not be installed"
  exit 3
fi

# ------------------------------------------------------------ OpenSSL
versions() { apt-cache madison "$1" 2>/dev/null | awk '{print $3}' | sort -uV; }
installed() { dpkg-query -W -f='${Version}' "$1" 2>/dev/null || true; }

sysroot=""
ssl_i386=$(installed libssl-dev:i386)
ssl_amd64=$(installed libssl3:amd64)
if [ -n "${RMCPP_I386_UNPACK:-}" ]; then
  say "RMCPP_I386_UNPACK is set: unpacking the i386 OpenSSL packages instead of installing them"
elif [ -n "$ssl_i386" ] && [ "$ssl_i386" = "$ssl_amd64" ]; then
  say "libssl-dev:i386 $ssl_i386 is installed"
elif [ -n "$ssl_amd64" ] && versions libssl-dev:i386 | grep -qxF "$ssl_amd64" &&
     apt_install "libssl3:i386=$ssl_amd64" "libssl-dev:i386=$ssl_amd64"; then
  say "installed libssl-dev:i386 $ssl_amd64, the version of the installed amd64 libssl3"
else
  common=$(comm -12 <(versions libssl-dev:amd64) <(versions libssl-dev:i386) | sort -V | tail -n 1)
  say "no libssl-dev:i386 matches the installed amd64 libssl3 (${ssl_amd64:-none});" \
      "the newest version both architectures have is ${common:-none}"
  if [ -n "$common" ] &&
     apt_install --allow-downgrades "libssl3=$common" "libssl-dev=$common" \
                 "libssl3:i386=$common" "libssl-dev:i386=$common"; then
    say "installed libssl3 and libssl-dev $common for amd64 and i386"
  else
    say "apt could not install libssl-dev:i386 beside the amd64 one; unpacking the i386 packages instead"
    sysroot=unpack
  fi
fi
if [ -n "${RMCPP_I386_UNPACK:-}" ] || [ "$sysroot" = unpack ]; then
  sysroot=$PWD/build-i386/sysroot
  rm -rf "$sysroot" build-i386/debs && mkdir -p "$sysroot" build-i386/debs
  if ! (cd build-i386/debs && apt-get download -qq -o APT::Sandbox::User=root libssl3:i386 libssl-dev:i386); then
    say "SKIPPED: the i386 OpenSSL packages could not be downloaded either"
    exit 3
  fi
  for deb in build-i386/debs/*.deb; do dpkg-deb -x "$deb" "$sysroot"; done
  # One include directory: the architecture's configuration headers join the common ones.
  cp "$sysroot"/usr/include/i386-linux-gnu/openssl/* "$sysroot"/usr/include/openssl/
fi

# ------------------------------------------------------------ yaml-cpp
# libyaml-cpp-dev cannot be installed for two architectures at once, so the
# simulator's i386 build takes the i386 packages unpacked beside the build.
yaml_root=$PWD/build-i386/yaml-cpp
rm -rf "$yaml_root" build-i386/yaml-debs && mkdir -p "$yaml_root" build-i386/yaml-debs
if ! (cd build-i386/yaml-debs &&
      apt-get download -qq -o APT::Sandbox::User=root libyaml-cpp-dev:i386 libyaml-cpp0.7:i386); then
  say "SKIPPED: the i386 yaml-cpp packages could not be downloaded"
  exit 3
fi
for deb in build-i386/yaml-debs/*.deb; do dpkg-deb -x "$deb" "$yaml_root"; done
# Programs built here find it through their build RPATH; installed ones (the
# install test) through this.
export LD_LIBRARY_PATH=$yaml_root/usr/lib/i386-linux-gnu${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}

# ------------------------------------------------------------ build and test
# The exporter needs cpp-httplib, which is not installed for i386.
options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_FLAGS=-m32 -DCMAKE_CXX_FLAGS=-m32 -DRMCPP_BUILD_EXPORTER=OFF)
options+=(-Dyaml-cpp_DIR="$yaml_root/usr/lib/i386-linux-gnu/cmake/yaml-cpp")
# pkg-config would otherwise hand out the amd64 libraries' directories.
export PKG_CONFIG_LIBDIR=/usr/lib/i386-linux-gnu/pkgconfig:/usr/share/pkgconfig
if [ -n "$sysroot" ]; then
  ssl_lib=$sysroot/usr/lib/i386-linux-gnu
  options+=(-DOPENSSL_ROOT_DIR="$sysroot/usr" -DOPENSSL_INCLUDE_DIR="$sysroot/usr/include"
            -DOPENSSL_CRYPTO_LIBRARY="$ssl_lib/libcrypto.so")
  export LD_LIBRARY_PATH=$ssl_lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}
fi
cmake -S . -B build-i386 "${options[@]}" >/dev/null
if ! cmake --build build-i386 -j "$(nproc)" >build-i386/build.log 2>&1; then
  cat build-i386/build.log
  say "FAILED: the i386 build did not complete"
  exit 1
fi
grep -B2 -A6 'warning:' build-i386/build.log || true
warnings=$(grep -c 'warning:' build-i386/build.log || true)
if [ "$warnings" -ne 0 ]; then
  say "FAILED: the i386 build printed $warnings warning(s)"
  exit 1
fi
file -L build-i386/librmcpp.so.1 | grep -q 'ELF 32-bit' || { say "FAILED: librmcpp.so.1 is not a 32-bit object"; exit 1; }

run_ctest="cd build-i386 && ctest --output-on-failure --timeout 300 -j 4"
if [ "$(id -u)" -eq 0 ]; then
  sh -c "$run_ctest"
else
  unshare -rn sh -c "ip link set lo up && $run_ctest"
fi
