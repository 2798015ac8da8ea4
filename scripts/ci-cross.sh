#!/usr/bin/env bash
# Builds for the phone: cross builds for 32-bit ARM hard-float (armhf) and
# 64-bit ARM (arm64) with Debian's cross compilers, every unit and
# end-to-end test of each run under qemu-user, then the three Debian
# packages (amd64, armhf, arm64), each checked by scripts/check-deb.sh.
# Called by .ci/run after the native builds; runs on its own as well.
# Prints the time of each step; the whole takes a few minutes on two cores.
set -euo pipefail
cd "$(dirname "$0")/.."

t0=$(date +%s)
lap() { echo "== $* (at $(( $(date +%s) - t0 )) s)"; }

if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null; then
  lap "installing the cross compilers, the emulator and GoogleTest's sources"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  packages=$(bash scripts/packages.sh list base cross)
  # $packages unquoted: one word per package.
  apt-get install -y -qq --no-install-recommends $packages >/dev/null
fi

# Each workflow: configure, build, every test under the emulator, package.
for target in armhf arm64; do
  lap "$target: cross build, tests under qemu-user, package"
  rm -rf "build-$target/package"
  cmake --workflow --preset "$target"
done

lap "amd64: release build and its package"
rm -rf build/package
cmake --workflow --preset deb

lap "checking the packages"
scripts/check-deb.sh build/package/vxshell_*_amd64.deb amd64
scripts/check-deb.sh build-armhf/package/vxshell_*_armhf.deb armhf
scripts/check-deb.sh build-arm64/package/vxshell_*_arm64.deb arm64

lap "cross builds, tests and packages done"
