#!/usr/bin/env bash
# Builds the embedded default and runs the main job: the stand-in service
# vxsim in the background, vxShell in the foreground with its menu; vxsim is
# stopped when the shell ends. Extra arguments go to vxShell (default: x).
# First it installs the Debian packages that this and the test command
# (`cmake --workflow --preset test`) need, if any is missing: as root or
# through sudo; otherwise it prints the command to run and ends with 1.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/packages.sh ensure base
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
