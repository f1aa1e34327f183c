#!/usr/bin/env bash
# Fails, with their names, when a module needs symbols that nobody offers. The
# server binds every symbol when it loads a module, and refuses the module for
# one that is missing.
#
#   check_symbols.sh EXPORTS MODULE [LIBRARY...]
#
# EXPORTS lists what the server and its libraries offer; an empty one (no server
# binary is known) checks nothing. LIBRARY: shared objects that MODULE links.
set -euo pipefail
export LC_ALL=C
exports=$1
module=$2
shift 2

[[ -s $exports ]] || exit 0

offered() {
  cat "$exports"
  [[ $# = 0 ]] || nm -D --defined-only -j "$@" | sed 's/@.*//'
}

needed() {
  nm -D --undefined-only "$module" | awk '$1 == "U" { sub(/@.*/, "", $2); print $2 }'
}

missing=$(comm -23 <(needed | sort -u) <(offered "$@" | sort -u) | c++filt)
if [[ -n $missing ]]; then
  printf '%s needs symbols that the server does not export:\n%s\n' \
    "${module##*/}" "$missing" >&2
  exit 1
fi
