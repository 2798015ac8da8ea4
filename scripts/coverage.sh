#!/usr/bin/env bash
# Line and branch coverage of the product code (client, conf, util, shell,
# sim, include) by the whole test suite: builds the coverage preset, runs
# every test, and prints gcovr's summary. Extra arguments go to gcovr (e.g.
# --html-details build-coverage/coverage.html). Needs gcovr (Debian package).
set -euo pipefail
cd "$(dirname "$0")/.."

find build-coverage -name '*.gcda' -delete 2>/dev/null || true
cmake --workflow --preset coverage
gcovr --root . --object-directory build-coverage \
  --filter 'client/' --filter 'conf/' --filter 'util/' --filter 'shell/' --filter 'sim/' --filter 'include/' \
  --exclude-unreachable-branches --exclude-throw-branches --print-summary -o build-coverage/coverage.txt "$@"
