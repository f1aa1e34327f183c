#!/usr/bin/env bash
# check.sh CHECK CSHIM MODULE: checks the sources in CSHIM or the shared object
# MODULE. Prints what is wrong.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cshim=$2
module=$3

exported() { nm -D --defined-only "$module" | awk '{ print $3 }' | sort -u; }

# The functions that the header declares.
declared() {
  sed 's,//.*,,' "$cshim/cursor.h" | tr '\n' ' ' | sed 's,/\*[^*]*\*\+\([^/*][^*]*\*\+\)*/,,g' |
    grep -oE '\b[a-z][a-z_0-9]*\([^()]*\);' | grep -oE '^[a-z_0-9]+' | sort -u
}

exports_every_symbol() {
  local missing
  missing=$(comm -23 <(sort "$here/symbols.txt") <(exported))
  [[ -z $missing ]] || { echo "not exported: $missing"; return 1; }
}

# Each C function that the shared object exports is declared, and the reverse.
header_and_module_agree() {
  diff <(declared) <(nm -D --defined-only "$module" |
    awk '$2 == "T" && $3 ~ /^[a-z]/ { print $3 }' | sort)
}

# Comments of the host room name the versions that differ; numbers to compare
# with stand in host/version.h alone.
version_numbers_stand_in_one_file() {
  local found
  found=$(
    grep -rnE '\b(8\.0\.[0-9]{2}|80[0-9]{3}|9\.[0-9]+|90[0-9]{3})\b' "$cshim" \
      --include='*.cc' --include='*.h' --include='*.hpp' --exclude-dir=host --exclude=host.h
    grep -rnE '\b(80[0-9]{3}|90[0-9]{3})\b' "$cshim/host.h" "$cshim/host" \
      --include='*.cc' --include='*.h' --exclude=version.h
  ) || true
  [[ -z $found ]] || { echo "$found"; return 1; }
}

door_needs_no_host_header() {
  local found
  found=$(
    grep -nE '^#include ' "$cshim/cursor.h" "$cshim/temporal.h" |
      grep -vE '<(cstddef|cstdint|stdbool\.h|stddef\.h|stdint\.h)>'
    # Among the C++ headers, only those for plug-ins and sessions need a server.
    grep -nE '^#include ' "$cshim"/cursor{,_batch,_error,_range,_reader,_value}.hpp |
      grep -vE '<[a-z_]+>|"cursor(_[a-z]+)?\.hp*"' || true
    grep -nE '"cursor_(session|plugin)\.hpp"' "$cshim"/cursor{,_batch,_error,_range,_reader,_value}.hpp
  ) || true
  [[ -z $found ]] || { echo "$found"; return 1; }
}

case $1 in
  exports_every_symbol | header_and_module_agree | \
    version_numbers_stand_in_one_file | door_needs_no_host_header) "$1" ;;
  *)
    echo "no such check: $1"
    exit 2
    ;;
esac
