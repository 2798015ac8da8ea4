#!/usr/bin/env bash
# Checks one Debian package of vxShell as a clean machine would get it:
#   scripts/check-deb.sh PACKAGE.deb ARCH        (ARCH: amd64, armhf or arm64)
# 1. the control fields (name, architecture, libc among the dependencies);
# 2. dpkg installs it into an empty root of its own (its own dpkg database:
#    nothing of this machine is touched), and every file a user or an
#    application developer needs is there;
# 3. the binaries are built for ARCH, need no library beyond those of the
#    package and of its dependencies, and no symbol version newer than the
#    dependencies promise; every dependency is needed by some binary;
# 4. vxShell and vxsim start from that root (under qemu-user for ARM) and
#    print their usage;
# 5. a small client compiles with `pkg-config --cflags --libs vxclient`
#    pointed into the root, with the compiler for ARCH, and runs; natively
#    it also builds through the CMake package (find_package(vxShell)).
set -euo pipefail

deb=${1:?usage: check-deb.sh PACKAGE.deb ARCH}
arch=${2:?usage: check-deb.sh PACKAGE.deb ARCH}
here=$(cd "$(dirname "$0")/.." && pwd)

case "$arch" in
  amd64) machine="X86-64"; cxx=c++; emulator=() ;;
  armhf) machine="ARM"; cxx=arm-linux-gnueabihf-g++
         emulator=(qemu-arm -L /usr/arm-linux-gnueabihf) ;;
  arm64) machine="AArch64"; cxx=aarch64-linux-gnu-g++
         emulator=(qemu-aarch64 -L /usr/aarch64-linux-gnu) ;;
  *) echo "check-deb: unknown architecture $arch" >&2; exit 2 ;;
esac
# Newest symbol version that the dependency of package.cmake provides:
# libc6 (>= 2.34). Nothing shipped may need more than libc.
max_glibc=2.34

fail() { echo "check-deb: $deb: $*" >&2; exit 1; }
field() { dpkg-deb --field "$deb" "$1"; }

# 1. Control fields.
[ "$(field Package)" = vxshell ] || fail "package name '$(field Package)'"
[ "$(field Architecture)" = "$arch" ] || fail "architecture '$(field Architecture)', not $arch"
depends=$(field Depends)
[[ "$depends" == *"libc6 "* ]] || fail "Depends lacks libc6: '$depends'"

# 2. Install into an empty root with its own dpkg database. Dependencies are
# not installed there (--force-depends), nor is the foreign architecture
# known to that database (--force-architecture).
root=$(mktemp -d /tmp/vxdeb.XXXXXX)
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
touch "$root/var/lib/dpkg/status" "$root/var/lib/dpkg/available"
dpkg --root="$root" --force-depends --force-architecture --force-not-root \
     --log=/dev/null --no-triggers -i "$deb" >/dev/null 2>"$root/dpkg.err" \
  || fail "dpkg -i: $(cat "$root/dpkg.err")"
dpkg --root="$root" -s vxshell | grep -q '^Status: install ok installed' \
  || fail "not installed: $(dpkg --root="$root" -s vxshell 2>&1)"
usr=$root/usr
for f in bin/vxShell bin/vxsim \
         lib/libvxclient.so lib/libmconf.so lib/libmutil.so \
         lib/libvxclient.so.1 lib/libmconf.so.1 lib/libmutil.so.1 \
         include/vxclient.h include/mconf.h \
         lib/pkgconfig/vxclient.pc lib/pkgconfig/mconf.pc lib/pkgconfig/mutil.pc \
         lib/cmake/vxShell/vxShellConfig.cmake lib/cmake/vxShell/vxShellTargets.cmake \
         share/man/man1/vxShell.1.gz share/man/man1/vxsim.1.gz; do
  [ -e "$usr/$f" ] || fail "missing /usr/$f"
done
grep -qx 'prefix=/usr' "$usr/lib/pkgconfig/vxclient.pc" || fail "vxclient.pc does not say prefix=/usr"
zcat "$usr/share/man/man1/vxShell.1.gz" | grep -q '^\.SH EXIT STATUS' || fail "vxShell.1.gz is no manual page"

# 3. The binaries: machine, libraries needed, symbol versions.
elves=("$usr/bin/vxShell" "$usr/bin/vxsim" "$usr"/lib/lib*.so.1.*)
needed_pkgs=" libc6 "
for elf in "${elves[@]}"; do
  readelf -h "$elf" | grep -q "Machine:.*$machine" || fail "$elf is not built for $machine"
  while read -r lib; do
    case "$lib" in
      libvxclient.so.1|libmconf.so.1|libmutil.so.1) continue ;;   # this package
      libc.so.6|libm.so.6|ld-linux*.so.*) pkg=libc6 ;;
      *) fail "$(basename "$elf") needs $lib, which no dependency provides" ;;
    esac
    [[ "$depends" == *"$pkg "* ]] || fail "$(basename "$elf") needs $lib, but Depends lacks $pkg: '$depends'"
    needed_pkgs+="$pkg "
  done < <(readelf -d "$elf" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
  versions=$(readelf -V "$elf" | { grep -o 'Name: GLIBC[A-Z]*_[0-9.]*' || true; } | sed 's/Name: //' | sort -u)
  newest_glibc=$(printf '%s\n' "$versions" | sed -n 's/^GLIBC_//p' | sort -V | tail -n1)
  if [ -n "$newest_glibc" ] && [ "$(printf '%s\n' "$newest_glibc" "$max_glibc" | sort -V | tail -n1)" != "$max_glibc" ]; then
    fail "$(basename "$elf") needs GLIBC_$newest_glibc, newer than libc6 (>= $max_glibc)"
  fi
done

# Depends names nothing that no binary needs.
for dep in $(printf '%s\n' "$depends" | sed 's/([^)]*)//g; s/,/ /g'); do
  [[ "$needed_pkgs" == *" $dep "* ]] || fail "Depends names $dep, which no binary needs: '$depends'"
done

# 4. The programs start from the root as they are (relative run path).
status=0
out=$(env -u LD_LIBRARY_PATH "${emulator[@]}" "$usr/bin/vxShell" 2>&1) || status=$?
[ "$status" = 1 ] && [[ "$out" == *"Options:"* ]] || fail "vxShell without arguments: status $status: $out"
out=$(env -u LD_LIBRARY_PATH "${emulator[@]}" "$usr/bin/vxsim" --help 2>&1) || fail "vxsim --help: $out"
[[ "$out" == *"Usage: vxsim"* ]] || fail "vxsim --help: $out"

# 5. An application developer's program, built with pkg-config alone.
flags=$(PKG_CONFIG_PATH= PKG_CONFIG_LIBDIR="$usr/lib/pkgconfig" PKG_CONFIG_SYSROOT_DIR="$root" \
        pkg-config --cflags --libs vxclient)
# shellcheck disable=SC2086 # the flags are words
"$cxx" -std=c++17 "$here/scripts/tiny-client/tiny_client.cpp" $flags -o "$root/tiny_client" \
  || fail "tiny client does not build with: $flags"
out=$(LD_LIBRARY_PATH="$usr/lib" "${emulator[@]}" "$root/tiny_client" 2>&1) || fail "tiny client: $out"
[[ "$out" == *"registApplication:-16 unregistApplication:-7"* ]] || fail "tiny client: $out"
if [ "$arch" = amd64 ]; then
  cmake -S "$here/scripts/tiny-client" -B "$root/consumer" -DCMAKE_PREFIX_PATH="$usr" >/dev/null \
    && cmake --build "$root/consumer" >/dev/null || fail "tiny client does not build through find_package(vxShell)"
  out=$(LD_LIBRARY_PATH="$usr/lib" "$root/consumer/tiny_client" 2>&1) || fail "tiny client (CMake package): $out"
fi

echo "check-deb: $(basename "$deb"): $(dpkg-deb --field "$deb" Installed-Size) KiB installed, all checks passed"
