#!/usr/bin/env bash
# Cases that start and stop servers. Each case has a server of its own.
#   lifecycle.sh prepare DIR    makes the data that the cases start from
#   lifecycle.sh NAME DIR       runs the case NAME
#   lifecycle.sh list           prints the cases' names
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

plugins=(--plugin-load-add=morvena_sn.so --plugin-load-add=morvena_sn_test.so)
function_sql="CREATE FUNCTION morvena_act RETURNS STRING
  SONAME 'morvena_sn_test.so'"

start() {
  mark_log "$run"
  server start "$run" --no-plugin -- "${plugins[@]}" "${fast_options[@]}" "$@" \
    >/dev/null
}

act() { sql "$run" "SELECT morvena_act('$1')"; }

# status_of PLUGIN: prints nothing if the server does not know the plug-in.
status_of() {
  sql "$run" "SELECT plugin_status FROM information_schema.plugins
    WHERE plugin_name = '$1'"
}

# Ends the server, and fails unless it ends cleanly.
stop() {
  server stop "$run" >/dev/null
  expect_clean_end "$run"
}

callbacks() { log_since_mark "$run" | sed -n 's/^callback: //p' | paste -sd' '; }

prepare() {
  server kill "$run" >/dev/null
  rm -rf "$run"
  mkdir -p "$run"
  start "$@"
  sql "$run" "$function_sql; CREATE DATABASE db;
    CREATE TABLE db.t (id INT PRIMARY KEY, pad CHAR(100));
    SET cte_max_recursion_depth = 10000;
    INSERT INTO db.t WITH RECURSIVE n (i) AS
      (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000)
      SELECT i, 'p' FROM n"
  stop
}

# --- cases ------------------------------------------------------------------

opening_before_the_server_has_started_is_refused() {
  start
  expect 'opening at load' "$(act opened_at_load)" "3168 Server isn't available"
  expect 'opening later' "$(act count)" '5000 rows'
  stop
}

names_are_lowered_where_the_server_stores_them_so() {
  run=$run.lower
  prepare --lower-case-table-names=1
  start --lower-case-table-names=1
  expect 'names in mixed case' "$(act count_in_mixed_case)" \
    '5000 rows, 5000 rows, Db.T'
  stop
}

names_keep_their_case_where_the_server_does() {
  start
  expect 'names in mixed case' "$(act count_in_mixed_case)" \
    "1049 Unknown database 'Db', 1049 Unknown database 'Db', Db.T"
  stop
}

callbacks_run_once_each_in_order() {
  start
  act start
  act observe_a
  act observe_b
  act observe_a
  stop
  expect 'callbacks' "$(callbacks)" 'a b'
}

callbacks_run_without_a_start() {
  start
  act observe_b
  act observe_a
  stop
  expect 'callbacks' "$(callbacks)" 'b a'
}

callbacks_run_at_a_shutdown_by_sql() {
  start
  act start
  act observe_a
  sql "$run" SHUTDOWN
  wait_for_end "$run"
  stop
  expect 'callbacks' "$(callbacks)" 'a'
}

null_in_place_of_a_callback_is_left_alone() {
  start
  act start
  act observe_nothing
  act observe_a
  act observe_nothing
  stop
  expect 'callbacks' "$(callbacks)" 'a'
}

callback_without_a_plugin_is_left_alone() {
  start
  act start
  act observe_for_nobody
  act observe_b
  stop
  expect 'callbacks' "$(callbacks)" 'b'
}

callback_without_a_plugin_alone() {
  start
  act observe_for_nobody
  stop
  expect 'callbacks' "$(callbacks)" ''
}

registration_during_the_shutdown_is_kept_for_nobody() {
  start
  act start
  act observe_late
  act observe_a
  stop
  expect 'callbacks' "$(callbacks)" 'late a'
}

callback_may_wait_for_a_thread_that_opens_a_cursor() {
  start
  act start
  act observe_reader
  stop
  expect 'callbacks' "$(callbacks)" "3168 Server isn't available"
}

# The server ends the client that holds the table only after the callback.
callback_may_wait_for_an_opening_that_waits_for_a_lock() {
  start
  act start
  act observe_opening
  TIMEOUT=100 sql "$run" "LOCK TABLES db.t WRITE; DO SLEEP(90)" 2>/dev/null &
  until [[ $(sql "$run" "SELECT COUNT(*) FROM information_schema.processlist
    WHERE info = 'DO SLEEP(90)'") = 1 ]]; do sleep 0.05; done
  expect 'opening' "$(act open_and_wait)" waits
  stop
  wait || true
  expect 'callbacks' "$(callbacks)" "1317 Query execution was interrupted"
}

embedder_that_ends_first_leaves_the_other_its_threads() {
  start
  act start
  act observe_clean_up
  act start
  act observe_parallel_reader
  stop
  expect 'callbacks' "$(callbacks)" 'clean_up 5000'
}

server_without_a_performance_schema() {
  start --performance-schema=OFF
  act start
  expect 'rows' "$(act count)" '5000 rows'
  expect 'cursor' "$(act leave_open)" 'open 0 on a row'
  act observe_parallel_reader
  stop
  expect 'callbacks' "$(callbacks)" '5000'
}

start_and_stop_without_cursors() {
  start
  act start
  act stop
  act start
  act start
  act stop
  act stop
  stop
}

embedder_that_never_starts() {
  start
  stop
}

cursors_are_closed_by_the_callback() {
  start
  act start
  act observe_clean_up
  for _ in 1 2 3; do expect 'cursor' "$(act leave_open)" 'open 0 on a row'; done
  stop
  expect 'callbacks' "$(callbacks)" 'clean_up'
}

cursors_left_open_with_a_callback_that_leaves_them() {
  start
  act start
  act observe_a
  for _ in 1 2 3; do expect 'cursor' "$(act leave_open)" 'open 0 on a row'; done
  stop
  expect 'callbacks' "$(callbacks)" 'a'
}

cursors_left_open_without_a_callback() {
  start
  act start
  for _ in 1 2 3; do expect 'cursor' "$(act leave_open)" 'open 0 on a row'; done
  stop
}

cursors_left_open_by_an_embedder_that_never_starts() {
  start
  expect 'cursor' "$(act leave_open)" 'open 0 on a row'
  stop
}

idle_sessions_without_a_stop() {
  start
  act start
  expect 'rows' "$(act count)" '5000 rows'
  stop
}

idle_sessions_of_an_embedder_that_never_starts() {
  start
  expect 'rows' "$(act count)" '5000 rows'
  stop
}

idle_sessions_after_a_stop_and_a_start() {
  start
  act start
  expect 'rows' "$(act count)" '5000 rows'
  act stop
  expect 'rows' "$(act count)" '5000 rows'
  act start
  expect 'rows' "$(act count)" '5000 rows'
  stop
}

read_that_runs_without_a_callback() {
  start
  act start
  expect 'read' "$(act read_on)" reading
  expect 'read' "$(act read_on)" reading
  stop
}

read_that_runs_of_an_embedder_that_never_starts() {
  start
  expect 'read' "$(act read_on)" reading
  stop
}

server_killed_with_a_cursor_open() {
  start
  act start
  act leave_open
  server kill "$run" >/dev/null
  start
  expect 'rows' "$(act count)" '5000 rows'
  stop
}

tables_of_a_read_only_server() {
  start --innodb-read-only
  expect 'rows' "$(act count)" '5000 rows'
  stop
}

donors_of_a_read_only_server() {
  start --innodb-read-only
  local rows='5000 rows, 5000 rows'
  expect 'without a transaction' "$(act count_for_client)" "$rows"
  for begin in 'START TRANSACTION WITH CONSISTENT SNAPSHOT' \
    'BEGIN; DO (SELECT COUNT(*) FROM db.t)'; do
    expect "$begin" "$(sql "$run" "$begin;
      SELECT morvena_act('count_for_client')")" "$rows"
  done
  stop
}

super_read_only_server() {
  start
  sql "$run" 'SET GLOBAL super_read_only = 1'
  expect 'rows' "$(act count)" '5000 rows'
  expect 'rows of a donor' "$(act count_for_client)" '5000 rows, 5000 rows'
  stop
}

plugin_can_be_installed_and_removed() {
  plugins=()
  start
  for _ in 1 2 3; do
    sql "$run" "INSTALL PLUGIN morvena_sn SONAME 'morvena_sn.so'"
    sql "$run" 'UNINSTALL PLUGIN morvena_sn'
  done
  expect 'plug-ins' "$(sql "$run" "SELECT COUNT(*) FROM
    information_schema.plugins WHERE plugin_name = 'MORVENA_SN'")" 0
  stop
}

# It is marked as removed, and kept for as long as the embedder needs it.
removing_the_plugin_under_an_embedder_does_no_harm() {
  plugins=(--plugin-load-add=morvena_sn_test.so)
  start
  sql "$run" "INSTALL PLUGIN morvena_sn SONAME 'morvena_sn.so'"
  act start
  expect 'cursor' "$(act leave_open)" 'open 0 on a row'
  sql "$run" 'UNINSTALL PLUGIN morvena_sn'
  expect 'the system is' "$(status_of MORVENA_SN)" DELETED
  expect 'rows' "$(act count)" '5000 rows'
  expect 'cursor' "$(act leave_open)" 'open 0 on a row'
  stop
}

# Its own functions and those of the plug-in that calls them stay where they are:
# one is marked as removed and kept until it is used no more, the other refuses.
removing_the_plugins_while_reads_run_does_no_harm() {
  start
  act start
  expect 'read' "$(act read_on)" reading
  expect 'read' "$(act read_on)" reading
  for _ in {1..20}; do
    sql "$run" 'UNINSTALL PLUGIN morvena_sn' 2>/dev/null || true
    expect 'the system is' "$(status_of MORVENA_SN)" DELETED
    ! sql "$run" 'UNINSTALL PLUGIN morvena_sn_test' 2>/dev/null ||
      fail 'the embedder was removed while it reads'
    expect 'the embedder is' "$(status_of morvena_sn_test)" ACTIVE
    sql "$run" "INSTALL PLUGIN morvena_sn SONAME 'morvena_sn.so'" 2>/dev/null ||
      true
  done
  expect 'rows' "$(act count)" '5000 rows'
  stop
}

cases() {
  sed -n '/^# --- cases/,/^cases()/s/^\([a-z_]*\)() {$/\1/p' "${BASH_SOURCE[0]}" |
    grep -vx cases
}

command=$1
[[ $command != list ]] || { cases; exit; }
run=$2
if [[ $command = prepare ]]; then
  prepare
else
  cases | grep -qx "$command" || fail "no such case: $command"
  server kill "$run" >/dev/null
  # The server repeats in its log what a crashed server had written there.
  rm -f "$run/mysqld.err"
  # A case that fails half-way leaves no server behind.
  trap 'code=$?; [[ $code = 0 ]] || show_log "$run"; server kill "$run" >/dev/null' EXIT
  "$command" >/dev/null
fi
