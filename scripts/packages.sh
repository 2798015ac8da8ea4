#!/usr/bin/env bash
# The Debian packages of scripts/packages.txt, by section:
#   scripts/packages.sh list SECTION...     the packages, one a line
#   scripts/packages.sh missing SECTION...  those of them not installed
#   scripts/packages.sh ensure SECTION...   installs those not installed
# `ensure` costs one dpkg-query when everything is there: no apt-get update,
# nothing installed. When something is missing it runs `apt-get update` and
# `apt-get install -y --no-install-recommends` with the missing ones, as root
# or through sudo; with neither (or a sudo that would ask for a password
# without a terminal to ask on) it prints the command to run and exits 1,
# having changed nothing. On a machine without dpkg and apt-get it looks for
# the commands the packages provide (second column of the list) and exits 1
# naming those it does not find.
set -euo pipefail
shopt -s inherit_errexit

list_file=$(cd "$(dirname "$0")" && pwd)/packages.txt

# The lines of the given sections, comments and blank lines left out. An
# unknown section is an error: a misspelt name must not install nothing.
lines() {
  awk -v want=" $* " '
    /^[[:space:]]*(#|$)/ { next }
    /^\[.*\]$/ { section = substr($0, 2, length($0) - 2); known[section] = 1; next }
    index(want, " " section " ") { print }
    END {
      n = split(want, w, " ")
      for (i = 1; i <= n; i++)
        if (!(w[i] in known)) { print "packages.sh: no section [" w[i] "] in " FILENAME > "/dev/stderr"; bad = 1 }
      exit bad
    }
  ' "$list_file"
}

list() { lines "$@" | awk '{ print $1 }'; }

missing() {
  local pkgs
  pkgs=$(list "$@" | tr '\n' ' ')
  [ -n "$pkgs" ] || return 0
  # ${db:Status-Abbrev} is "ii " for an installed package; a package dpkg has
  # never heard of is not printed at all, and makes dpkg-query exit 1.
  { dpkg-query -W -f='${db:Status-Abbrev} ${Package}\n' $pkgs 2>/dev/null || true; } \
    | awk -v want="$pkgs" '
        $1 == "ii" { have[$2] = 1 }
        END { n = split(want, w); for (i = 1; i <= n; i++) if (!(w[i] in have)) print w[i] }'
}

# Without dpkg: only the commands can be looked for; libraries are left to
# CMake, which names what it does not find.
ensure_elsewhere() {
  local pkg cmd rest absent=()
  while read -r pkg cmd rest; do
    if [ -n "$cmd" ] && ! command -v "$cmd" >/dev/null; then
      absent+=("$cmd (Debian: $pkg)")
    fi
  done < <(lines "$@")
  if [ "${#absent[@]}" -gt 0 ]; then
    echo "packages.sh: not a Debian system (no dpkg-query or apt-get), and these commands are missing:" >&2
    printf '  %s\n' "${absent[@]}" >&2
    echo "Install them with this system's package manager, then run this again." >&2
    exit 1
  fi
}

ensure() {
  if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    ensure_elsewhere "$@"
    return
  fi
  local need
  need=$(missing "$@" | tr '\n' ' ')
  need=${need% }
  [ -n "$need" ] || return 0

  local as=()
  if [ "$(id -u)" != 0 ]; then
    # sudo -n succeeds without a password where sudo needs none; a password
    # can only be asked for on a terminal.
    if command -v sudo >/dev/null && { sudo -n true 2>/dev/null || [ -t 0 ]; }; then
      as=(sudo)
    else
      echo "packages.sh: these Debian packages are missing: $need" >&2
      echo "Installing them needs root. Run, as root:" >&2
      echo "  apt-get update && apt-get install -y --no-install-recommends $need" >&2
      echo "then run this again." >&2
      exit 1
    fi
  fi
  echo "== installing the missing Debian packages: $need" >&2
  # $need unquoted: one word per package.
  if ! "${as[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q update ||
     ! "${as[@]}" env DEBIAN_FRONTEND=noninteractive \
         apt-get -q install -y --no-install-recommends $need; then
    echo "packages.sh: installing failed. Run, as root:" >&2
    echo "  apt-get update && apt-get install -y --no-install-recommends $need" >&2
    exit 1
  fi
  need=$(missing "$@" | tr '\n' ' ')
  if [ -n "$need" ]; then
    echo "packages.sh: still not installed after apt-get: $need" >&2
    exit 1
  fi
}

case "${1:-}" in
  list | missing | ensure) cmd=$1; shift ;;
  *) echo "usage: packages.sh list|missing|ensure SECTION..." >&2; exit 2 ;;
esac
[ "$#" -gt 0 ] || { echo "packages.sh: name at least one section" >&2; exit 2; }
lines "$@" >/dev/null || exit 2
"$cmd" "$@"
