#!/usr/bin/env bash
# The server of the embedder's cases.
#   embedder.sh up DIR MODULE           start it afresh, with the cases of MODULE
#   embedder.sh case DIR SUITE.CASE     run a case in it
#   embedder.sh compare_list DIR FILE   whether FILE names all cases that it has
#   embedder.sh down DIR                stop it
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
command=$1
run=$2

# morvena_sn_test needs the plug-in morvena_sn; the others contain its code.
start() {
  local plugin=()
  [[ $(cat "$run/module") = morvena_sn_test ]] || plugin=(--no-plugin)
  server start "$run" "${plugin[@]}" -- "${fast_options[@]}" >/dev/null
}

up() {
  server kill "$run" >/dev/null
  rm -rf "$run"
  mkdir -p "$run"
  echo "$1" >"$run/module"
  start || fail "the server did not start"
  sql "$run" "
    INSTALL PLUGIN morvena_sn_test SONAME '$1.so';
    CREATE FUNCTION morvena_test RETURNS STRING SONAME '$1.so'" ||
    fail "the cases are not loaded"
}

# Handles a server that a case has ended, or that still runs an abandoned case.
restart() {
  server kill "$run" >/dev/null
  start || fail "the server did not start again"
}

case_() {
  # A debug server takes some ten times as long.
  local answer code seconds=400
  # Some cases were asked to repeat themselves and take longer.
  [[ -z ${ROUNDS-}${READS-}${CALLS-} ]] || seconds=7000
  server status "$run" >/dev/null || restart
  mark_log "$run"
  answer=$(TIMEOUT=$seconds sql "$run" "SELECT morvena_test('$1')" 2>&1)
  code=$?
  [[ $code = 0 && $answer = PASS ]] && exit 0
  printf '%s\n' "$answer"
  if [[ $code = 124 ]]; then
    echo "the case did not end" >&2
    sql "$run" "SHOW FULL PROCESSLIST" >&2
  fi
  if [[ $code != 0 ]]; then
    log_since_mark "$run" | tail -n 60 >&2
    restart
  fi
  exit 1
}

down() {
  mark_log "$run"
  server stop "$run" || fail "the server did not stop"
  (expect_clean_end "$run") || { show_log "$run" && exit 1; }
  ! grep -E "$crash_words" "$run/mysqld.err" ||
    fail "$run/mysqld.err tells of a crash"
}

case $command in
  up) up "$3" ;;
  down) down ;;
  case) case_ "$3" ;;
  compare_list) expect_list "$run" "$3" ;;
esac
