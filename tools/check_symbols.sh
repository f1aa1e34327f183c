#!/usr/bin/env bash
# Fails when a plug-in needs symbols that nobody offers, and prints them. The
# server binds every symbol when it loads a plug-in: one that is missing makes
# INSTALL PLUGIN fail.
#
#   check_symbols.sh EXPORTS PLUGIN [LIBRARY...]
#
# EXPORTS lists the symbols of the server and its libraries. An empty list (no
# server binary is known) checks nothing. LIBRARY: shared objects that PLUGIN links.
set -euo pipefail
export LC_ALL=C
exports=$1
plugin=$2
shift 2

[[ -s $exports ]] || exit 0

offered() {
  cat "$exports"
  [[ $# = 0 ]] || nm -D --defined-only -j "$@" | sed 's/@.*//'
}

needed() {
  nm -D --undefined-only "$plugin" | awk '$1 == "U" { sub(/@.*/, "", $2); print $2 }'
}

missing=$(comm -23 <(needed | sort -u) <(offered "$@" | sort -u) | c++filt)
if [[ -n $missing ]]; then
  printf '%s needs symbols that the server does not export:\n%s\n' \
    "${plugin##*/}" "$missing" >&2
  exit 1
fi
