#!/usr/bin/env bash
# Endurance soak of vxShell's menu against vxsim: keys of sessions, tones and
# the test threads, one every 20 ms, for a given time; prints the RSS, open
# descriptors and threads of vxShell and the requests vxsim has served, over
# time, and how far the RSS moved after the first minute.
#
#   bench/soak.sh [-t SECONDS] [-s SAMPLE_SECONDS] [-k KEY_MS] [-b BIN_DIR] [-o SHELL_LOG]
#
#   -t  length of the soak (default 1200 s, 20 minutes)
#   -s  time between samples (default 30 s)
#   -k  time between keys (default 20 ms)
#   -b  where vxShell and vxsim are (default build/bin of this tree)
#   -o  keep vxShell's output in this file (default: dropped)
#
# vxsim binds /tmp/vx/vxRxSock: nothing else may serve there during the soak
# (vxsim refuses to start beside a running service). `key` and `usleep`, which
# key scripts run through /bin/sh, are stubs of the soak's own, first on PATH,
# so nothing real is pressed.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
seconds=1200
sample=30
key_ms=20
bin=$here/build/bin
shell_log=/dev/null
while getopts "t:s:k:b:o:h" opt; do
  case $opt in
    t) seconds=$OPTARG ;;
    s) sample=$OPTARG ;;
    k) key_ms=$OPTARG ;;
    b) bin=$OPTARG ;;
    o) shell_log=$OPTARG ;;
    *) sed -n '2,17p' "$0" | sed 's/^# \{0,1\}//'; exit 2 ;;
  esac
done
for prog in vxShell vxsim; do
  [ -x "$bin/$prog" ] || { echo "soak: no $bin/$prog (build first, or give -b)" >&2; exit 2; }
done

# Session, tone and test-thread keys, in this order, round and round. "a 2"
# is the audio-mode prompt and its answer; "p p" pauses and retrieves.
keys=(r a 2 s t c d f 0 1 2 g l h l j l k l w p p z m n u)

work=$(mktemp -d /tmp/vxsoak.XXXXXX)
sim_pid=
shell_pid=
cleanup() {
  [ -n "$shell_pid" ] && kill "$shell_pid" 2>/dev/null || true
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

mkdir -p "$work/stubs"
for stub in key usleep; do
  printf '#!/bin/sh\nexit 0\n' > "$work/stubs/$stub"
  chmod +x "$work/stubs/$stub"
done
export PATH=$work/stubs:$PATH

"$bin/vxsim" > "$work/sim.log" 2>&1 &
sim_pid=$!
for _ in $(seq 100); do
  [ -S /tmp/vx/vxRxSock ] && [ -s /tmp/vx/voxalis.pid ] && break
  kill -0 "$sim_pid" 2>/dev/null || { echo "soak: vxsim did not start: $(cat "$work/sim.log")" >&2; exit 1; }
  sleep 0.1
done

mkfifo "$work/keys"
"$bin/vxShell" x < "$work/keys" > "$shell_log" 2>&1 &
shell_pid=$!
exec 3> "$work/keys"

# A sleep without a process: read with a time-out on a pipe nobody writes.
exec 4<> <(:)
pause() { read -r -t "$1" -u 4 || true; }

status() { sed -n "s/^$1:[[:space:]]*\([0-9]*\).*/\1/p" "/proc/$shell_pid/status"; }
served() { wc -l < "$work/sim.log"; }

printf '%8s %9s %5s %8s %10s\n' seconds rss_kb fds threads requests
start=$(date +%s%N)
next_sample=0
rss_first_min=
rss_lo=
rss_hi=
rss=0
i=0
key_s=$(printf '%d.%03d' $(( key_ms / 1000 )) $(( key_ms % 1000 )))
while :; do
  now=$(( ($(date +%s%N) - start) / 1000000 ))
  if [ "$now" -ge $(( next_sample * 1000 )) ] || [ "$now" -ge $(( seconds * 1000 )) ]; then
    kill -0 "$shell_pid" 2>/dev/null || { echo "soak: vxShell ended early" >&2; exit 1; }
    rss=$(status VmRSS)
    fds=$(ls "/proc/$shell_pid/fd" | wc -l)
    printf '%8d %9d %5d %8d %10d\n' $(( now / 1000 )) "$rss" "$fds" "$(status Threads)" "$(served)"
    if [ "$now" -ge 60000 ]; then
      [ -z "$rss_first_min" ] && rss_first_min=$rss
      [ -z "$rss_lo" ] || [ "$rss" -lt "$rss_lo" ] && rss_lo=$rss
      [ -z "$rss_hi" ] || [ "$rss" -gt "$rss_hi" ] && rss_hi=$rss
    fi
    [ "$now" -ge $(( seconds * 1000 )) ] && break
    next_sample=$(( next_sample + sample ))
  fi
  printf '%s\n' "${keys[i % ${#keys[@]}]}" >&3
  i=$(( i + 1 ))
  pause "$key_s"
done

echo "keys sent: $i; requests served: $(served)"
if [ -n "$rss_first_min" ]; then
  echo "RSS after the first minute: from ${rss_first_min} KB, between ${rss_lo} and ${rss_hi} KB," \
       "moved $(( rss_hi - rss_lo )) KB (last $(( rss - rss_first_min )) KB from the first)"
fi

printf 'q\n' >&3
exec 3>&-
for _ in $(seq 50); do kill -0 "$shell_pid" 2>/dev/null || break; sleep 0.1; done
