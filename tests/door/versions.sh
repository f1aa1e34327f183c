#!/usr/bin/env bash
# versions.sh HOST_SH VERSION_H SCRATCH: checks which MySQL versions the code is
# built for. host/version.h, run through the preprocessor, and tools/host.sh
# must give the same answers. Prints what is wrong.
set -euo pipefail
host_sh=$1
version_h=$2
scratch=$3
wrong=0

# A version, and what is expected of it: "known", "read", "refused", or the
# known version that it is newer than.
table() {
  cat <<'END'
5.7.44  refused
8.0.26  refused
8.0.27  known
8.0.28  refused
8.0.29  refused
8.0.30  known
8.0.31  refused
8.0.32  known
8.0.45  known
8.0.46  8.0.45
8.0.99  8.0.45
8.1.0   refused
8.2.0   refused
8.3.0   refused
8.4.0   read
8.4.8   read
8.4.9   8.4.8
8.4.13  8.4.8
8.5.0   refused
9.0.0   refused
9.1.2   refused
9.6.0   refused
9.7.0   known
9.7.4   known
9.7.5   9.7.4
9.8.0   9.7.4
9.99.99 9.7.4
10.0.0  9.7.4
11.4.1  9.7.4
END
}

expected() {
  case $2 in
    known) ;;
    refused) echo refused ;;
    read) echo "host: MySQL $1 is known from its sources only and was never built; the tests decide" ;;
    *) echo "host: MySQL $1 is newer than the newest that is known, $2; building with what is known of it; the tests decide" ;;
  esac
}

by_preprocessor() {
  local major minor patch text
  IFS=. read -r major minor patch <<<"$1"
  echo "#define MYSQL_VERSION_ID $((major * 10000 + minor * 100 + patch))" \
    >"$scratch/mysql_version.h"
  if ! text=$(printf '#include "%s"\nHOST_VERSION_REMARK\n' "$version_h" |
    "${CXX:-g++}" -E -P -x c++ -I "$scratch" - 2>"$scratch/error"); then
    # It must refuse for its own reason, not because the preprocessor fails.
    grep -q '#error "morvena_sn: ' "$scratch/error" && echo refused
    return
  fi
  text=$(sed 's/" *"//g; s/"//g' <<<"$text") # string literals side by side
  [[ -z $text ]] || echo "host: MySQL $1 $text"
}

by_host_sh() {
  local text code=0
  text=$(BUILD=$scratch/build "$host_sh" version "$1" 2>&1) || code=$?
  if [[ $code = 0 ]]; then
    printf %s "$text"
  elif [[ $text = *"MySQL $1, which the code is not built for"* ]]; then
    echo refused
  else
    echo "ended with $code: $text"
  fi
}

compare() {
  if [[ $3 != "$4" ]]; then
    printf '%s by %s: %s\n  expected: %s\n' "$1" "$2" "${4:-accepted}" "${3:-accepted}"
    wrong=1
  fi
}

mkdir -p "$scratch"
rows=0
while read -r version kind; do
  rows=$((rows + 1))
  want=$(expected "$version" "$kind")
  compare "$version" version.h "$want" "$(by_preprocessor "$version")"
  compare "$version" host.sh "$want" "$(by_host_sh "$version")"
done < <(table)
[[ $rows -gt 20 ]] || wrong=1
exit $wrong
