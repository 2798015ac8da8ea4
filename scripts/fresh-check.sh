#!/usr/bin/env bash
# Runs the README's two commands on a fresh machine, as a newcomer would:
# makes a minimal Debian 12 root with debootstrap, copies the source tree
# into it, and runs in it, as root, from the tree's top,
#   bash scripts/run-shell.sh </dev/null
#   cmake --workflow --preset test </dev/null
# The first must install every package both need; CI fails when either
# fails. Around them, two short runs as an unprivileged user check the rest
# of the set-up: before, run-shell.sh prints the install command and exits 1
# without building; after, it finds nothing missing.
#
# Needs root (debootstrap, chroot, namespaces). Called by .ci/run; runs on
# its own as well. Prints the time of each step.
#
# The pristine root is kept as a tarball in $VX_FRESH_CACHE (default
# /var/cache/vx-fresh-root; empty: no cache) so that later runs skip
# debootstrap's download; it is made anew when missing or older than 30
# days. The packages themselves are downloaded on every run, as on a new
# machine.
#
# Isolation: everything runs in mount and pid namespaces of its own. /proc,
# /sys, a /dev of its own (tmpfs holding the host's null, zero, full,
# random, urandom and tty, a new devpts, /dev/shm) are mounted there only,
# so the tests' /dev/log and /tmp/vx/ are the root's own and nothing is
# mounted on the host's side; the namespaces, their mounts and any process
# left behind end with the run. The test command also gets a network
# namespace with loopback only, so its UDP ports do not meet those of tests
# running on the host at the same time.
set -euo pipefail

# --- inside the namespaces (the script calls itself) -------------------------
if [ "${1:-}" = --inside ]; then
  root=$2 logs=$3 t0=$4 top=/srv/vxshell
  mount -t proc proc "$root/proc"
  mount -t sysfs -o ro sysfs "$root/sys" 2>/dev/null || true
  mount -t tmpfs -o mode=755,nosuid dev "$root/dev"
  for node in null zero full random urandom tty; do
    touch "$root/dev/$node"
    mount --bind "/dev/$node" "$root/dev/$node"
  done
  mkdir "$root/dev/pts" "$root/dev/shm"
  mount -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts "$root/dev/pts" 2>/dev/null || true
  ln -s pts/ptmx "$root/dev/ptmx"
  mount -t tmpfs -o mode=1777,nosuid,nodev shm "$root/dev/shm"
  ln -s /proc/self/fd "$root/dev/fd"
  ln -s /proc/self/fd/0 "$root/dev/stdin"
  ln -s /proc/self/fd/1 "$root/dev/stdout"
  ln -s /proc/self/fd/2 "$root/dev/stderr"

  # A login's environment, nothing of the caller's.
  login=(/usr/bin/env -i HOME=/root USER=root LOGNAME=root
         PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin)
  nobody=(--userspec=65534:65534 "$root" /usr/bin/env -i HOME=/nonexistent
          PATH=/usr/local/bin:/usr/bin:/bin)
  lap() { echo "== $* (at $(($(date +%s) - t0)) s)"; }
  # must WHICH LOG LINES CMD...: runs CMD with its output in LOG; if it fails,
  # prints the last LINES of it and ends the check.
  must() {
    local which=$1 log=$2 lines=$3 status=0
    shift 3
    "$@" >"$log" 2>&1 || status=$?
    if [ "$status" != 0 ]; then
      echo "fresh-check: the $which command exited $status; the end of its output:" >&2
      tail -n "$lines" "$log" >&2
      exit 1
    fi
  }

  cmd='bash scripts/run-shell.sh </dev/null'
  lap "unprivileged, no sudo: $cmd must print the install command and build nothing"
  status=0
  chroot "${nobody[@]}" bash -c "cd $top && $cmd" >"$logs/nobody.log" 2>&1 || status=$?
  if [ "$status" != 1 ] || [ -e "$root$top/build" ] ||
     ! grep -q 'apt-get update && apt-get install -y --no-install-recommends cmake' "$logs/nobody.log"; then
    echo "fresh-check: without root, run-shell.sh exited $status:" >&2
    cat "$logs/nobody.log" >&2
    exit 1
  fi
  sed 's/^/   /' "$logs/nobody.log"

  lap "1st command, as root: $cmd"
  must 1st "$logs/run-shell.log" 60 timeout -k 10 1500 chroot "$root" "${login[@]}" bash -c "cd $top && $cmd"
  grep -E '^== installing' "$logs/run-shell.log" || true

  cmd='cmake --workflow --preset test </dev/null'
  lap "2nd command, as root, with a network of loopback only: $cmd"
  must 2nd "$logs/test.log" 80 unshare --net -- bash -c 'ip link set lo up && exec "$@"' netns \
    timeout -k 10 1800 chroot "$root" "${login[@]}" bash -c "cd $top && $cmd"
  grep -E 'tests passed|tests failed|Total Test time' "$logs/test.log" || true

  lap "unprivileged again: nothing is missing now"
  cmd='bash scripts/packages.sh ensure base'
  if ! chroot "${nobody[@]}" bash -c "cd $top && $cmd" >"$logs/nobody2.log" 2>&1; then
    echo "fresh-check: after the two commands, packages are still missing:" >&2
    cat "$logs/nobody2.log" >&2
    exit 1
  fi
  lap "both commands passed on a fresh Debian 12 root"
  exit 0
fi

# --- on the host --------------------------------------------------------------
cd "$(dirname "$0")/.."
top=$(pwd)
suite=bookworm
mirror=${VX_FRESH_MIRROR:-http://deb.debian.org/debian}
cache_dir=${VX_FRESH_CACHE-/var/cache/vx-fresh-root}
cache=${cache_dir:+$cache_dir/$suite-minbase.tar}

if [ "$(id -u)" != 0 ]; then
  echo "fresh-check: needs root (debootstrap, chroot, namespaces)" >&2
  exit 1
fi
for tool in debootstrap unshare chroot ip timeout; do
  command -v "$tool" >/dev/null || {
    echo "fresh-check: $tool is missing (bash scripts/packages.sh ensure base ci)" >&2
    exit 1
  }
done

t0=$(date +%s)
lap() { echo "== $* (at $(($(date +%s) - t0)) s)"; }

work=$(mktemp -d "${TMPDIR:-/var/tmp}/vx-fresh.XXXXXX")
cleanup() {
  local status=$?
  if [ "$status" != 0 ] && [ -d "$work/logs" ]; then
    local kept
    kept=$(mktemp -d "${TMPDIR:-/var/tmp}/vx-fresh-logs.XXXXXX")
    cp -r "$work/logs/." "$kept/" && echo "fresh-check: the logs are kept in $kept" >&2
  fi
  # The mounts live in the namespace, which is gone by now; should one have
  # reached the host all the same, it is taken down before anything is
  # removed, and rm never leaves this file system.
  if grep -q " $work/" /proc/self/mounts; then
    umount -R -l "$work/root" 2>/dev/null || true
  fi
  rm -rf --one-file-system "$work"
}
trap cleanup EXIT
root=$work/root
mkdir "$root" "$work/logs"

if [ -n "$cache" ] && [ -f "$cache" ] && [ -z "$(find "$cache" -mtime +30)" ]; then
  lap "fresh root from the cache $cache"
  tar -C "$root" --numeric-owner -xf "$cache"
else
  lap "debootstrap --variant=minbase $suite from $mirror"
  if ! debootstrap --variant=minbase "$suite" "$root" "$mirror" >"$work/logs/debootstrap.log" 2>&1; then
    echo "fresh-check: debootstrap failed; the end of its log:" >&2
    tail -n 30 "$work/logs/debootstrap.log" >&2
    exit 1
  fi
  if [ -n "$cache" ]; then
    lap "keeping the pristine root in $cache"
    mkdir -p "$cache_dir"
    tar -C "$root" --numeric-owner -cf "$cache.tmp.$$" . && mv "$cache.tmp.$$" "$cache"
  fi
fi
# Name resolution as the host has it now, not as it was when cached.
cp -L /etc/resolv.conf "$root/etc/resolv.conf"

lap "copying the source tree into /srv/vxshell"
mkdir -p "$root/srv/vxshell"
if git -C "$top" rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  # The files git knows or would add, as they are in the working tree.
  git -C "$top" ls-files -z --cached --others --exclude-standard |
    tar -C "$top" --null -T - --ignore-failed-read -cf - 2>/dev/null |
    tar -C "$root/srv/vxshell" -xf -
else
  tar -C "$top" --exclude=./.git --exclude=./build --exclude='./build-*' -cf - . |
    tar -C "$root/srv/vxshell" -xf -
fi

status=0
unshare --mount --propagation private --pid --fork --kill-child -- \
  bash "$top/scripts/fresh-check.sh" --inside "$root" "$work/logs" "$t0" || status=$?
lap "done (exit $status)"
exit "$status"
