#!/usr/bin/env bash
# Cases of tests/resource, each in a server that is short of something, or has
# pages of another size, or encrypts.
#   resources.sh prepare DIR              makes the servers' data
#   resources.sh case DIR SUITE.CASE      runs a case, prints what it measured
#   resources.sh compare_list DIR FILE    whether FILE names all cases
# TABLE_MB is the size of the table that is read through a buffer pool of
# POOL_MB.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

plugins=(--plugin-load-add=morvena_sn.so
  --plugin-load-add=morvena_sn_resource.so)

# Sets the options of a case's server: its limits or its special settings.
set_options() {
  case $1 in
    TemporarySpace.*)
      mkdir -p "$run/tmp"
      options=(--tmpdir="$run/tmp"
        --innodb-temp-data-file-path=ibtmp1:12M
        --temptable-max-ram=2M --temptable-max-mmap=0)
      ;;
    OpenTables.*)
      # The option alone does not lower what the system allows already.
      ulimit -n 60
      options=(--table-open-cache=4 --table-open-cache-instances=1
        --innodb-open-files=10 --open-files-limit=60 --max-connections=10)
      ;;
    Connections.*) options=(--max-connections=5) ;;
    SmallPool*)
      options=(--innodb-buffer-pool-size="${POOL_MB:-5}M"
        --innodb-buffer-pool-chunk-size=1M --innodb-buffer-pool-instances=1)
      ;;
    PageSize*)
      local kb=${1#PageSize}
      own_data=yes
      options=(--innodb-page-size="${kb%%k.*}K")
      ;;
    Encryption.*)
      own_data=yes
      options=()
      use_keyring
      ;;
    *) options=() ;;
  esac
}

# The server reads what components to load beside the program that it was started
# as, and a component its settings beside itself: BUILD becomes a folder of links
# in which both are our own.
use_keyring() {
  local file program reference keyring own=$run.own/build
  program=$(cat "$BUILD/host/exports.of")
  reference=$(readlink -f "$BUILD/plugin/component_reference_cache.so")
  keyring=${reference%/*}/component_keyring_file.so
  if [[ ! -e $keyring ]]; then
    echo "the host has no component_keyring_file"
    exit 77
  fi
  rm -rf "$run.own"
  mkdir -p "$own/host/bin" "$own/plugin"
  for file in "$BUILD"/host/*; do
    [[ $file = */bin ]] || ln -s "$file" "$own/host/"
  done
  ln -s "$BUILD"/host/bin/{mysql,mysqladmin} "$own/host/bin/"
  ln -s "$BUILD"/plugin/*.so "$keyring" "$own/plugin/"
  [[ ! -e $BUILD/sanitizer.env ]] || ln -s "$BUILD/sanitizer.env" "$own/"
  ln -s "$program" "$own/mysqld"
  sed "s#$program#$own/mysqld#g" "$BUILD/host/bin/mysqld" >"$own/host/bin/mysqld"
  chmod +x "$own/host/bin/mysqld"
  echo '{ "components": "file://component_keyring_file" }' >"$own/mysqld.my"
  echo "{ \"path\": \"$own/keyring\", \"read_only\": false }" \
    >"$own/plugin/component_keyring_file.cnf"
  BUILD=$own
}

start() {
  mark_log "$run"
  server start "$run" --no-plugin -- "${plugins[@]}" "${fast_options[@]}" "$@" \
    >/dev/null
}

stop() {
  server stop "$run" >/dev/null
  expect_clean_end "$run"
}

make_function() {
  sql "$run" "CREATE FUNCTION morvena_test RETURNS STRING
    SONAME 'morvena_sn_resource.so'"
}

prepare() {
  rm -rf "$run"
  mkdir -p "$run"
  start
  make_function
  stop
}

# Only the clock tells a server that hangs from one that is slow.
run_case() {
  local answer seconds=300
  [[ -z ${TABLE_MB-} ]] || seconds=3500
  set_options "$1"
  if [[ -n ${own_data-} ]]; then
    run=$run.own/data
    server kill "$run" >/dev/null
    rm -rf "$run"
    mkdir -p "$run"
  fi
  start "${options[@]}"
  [[ -z ${own_data-} ]] || make_function
  answer=$(TIMEOUT=$seconds sql "$run" "SELECT morvena_test('$1')" 2>&1) ||
    fail "the case did not end: $answer"
  log_since_mark "$run" | sed -n 's/^figure: //p'
  expect "$1" "$answer" PASS
  stop
  [[ -z ${own_data-} ]] || rm -rf "${run%/data}"
}

run=$2
server kill "$run" >/dev/null
# The server repeats in its log what a crashed server had written there.
rm -f "$run/mysqld.err"
# A case that fails half-way leaves no server behind.
trap 'code=$?; [[ $code = 0 || $code = 77 ]] || show_log "$run"; server kill "$run" >/dev/null' EXIT
case $1 in
  prepare) prepare ;;
  case) run_case "$3" ;;
  compare_list)
    start
    expect_list "$run" "$3"
    stop
    ;;
esac
