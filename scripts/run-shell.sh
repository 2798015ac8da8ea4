#!/usr/bin/env bash
# Builds the embedded default and runs the main job: the stand-in service
# vxsim in the background, vxShell in the foreground with its menu; vxsim is
# stopped when the shell ends. Extra arguments go to vxShell (default: x).
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset release >/dev/null
cmake --build --preset release --target vxShell vxsim

log=$(mktemp /tmp/vxsim.XXXXXX.log)
./build/bin/vxsim >"$log" 2>&1 &
sim=$!
trap 'kill "$sim" 2>/dev/null; wait "$sim" 2>/dev/null; echo "vxsim log: $log"' EXIT
for _ in $(seq 50); do
  [ -S /tmp/vx/vxRxSock ] && break
  sleep 0.1
done

status=0
if [ "$#" -eq 0 ]; then set -- x; fi
./build/bin/vxShell "$@" || status=$?
exit "$status"
