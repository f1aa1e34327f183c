#!/usr/bin/env bash
# Shuts a server down at a random moment of a soak, again and again. The server
# has to end within ten seconds, its log may have no error of the plug-in, and
# the next start must find nothing to repair.
#   ROUNDS=100 SEED=1 shutdown.sh DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../server/lib.sh"
run=$1
rounds=${ROUNDS:-100}
seed=${SEED:-1}
limit_ms=10000
RANDOM=$seed

# The harness's own connections are killed, too. They have no client that could
# be told.
not_ours='MY-013129'
repairs='crash recovery|not shutdown normally|[Rr]epair|[Cc]orrupt|rolled back'

# The low bits of the generator alternate, so they are not used.
one_of_two() { ((RANDOM / 256 % 2)); }

now_ms() { echo $(($(date +%s%N) / 1000000)); }

start() {
  mark_log "$run"
  server start "$run" -- "${fast_options[@]}" >/dev/null ||
    fail "round $round: the server did not start"
  if log_since_mark "$run" | grep -E "$repairs"; then
    fail "round $round: the start before had something left to repair"
  fi
}

# A client locks one of the tables and keeps it locked to the end. Openings of
# cursors on it wait, so a shutdown has to end waiting openings.
lock_a_table() {
  local table
  table=$(sql "$run" "SELECT CONCAT('soak.', table_name)
    FROM information_schema.tables WHERE table_schema = 'soak'
    ORDER BY RAND($((seed + round))) LIMIT 1")
  [[ -n $table ]] || return 0
  TIMEOUT=100 sql "$run" "LOCK TABLES $table WRITE; DO SLEEP(90)" \
    >/dev/null 2>&1 &
}

# The number of openings that wait for a table's metadata lock.
count_waiting() {
  sql "$run" "SELECT COUNT(*) FROM performance_schema.metadata_locks
    WHERE OBJECT_SCHEMA = 'soak' AND LOCK_STATUS = 'PENDING'
      AND LOCK_TYPE = 'SHARED_READ'"
}

# Half of the shutdowns are made by a signal, half by SQL.
end_server() {
  local from
  from=$(now_ms)
  if one_of_two; then
    sql "$run" SHUTDOWN || fail "round $round: no shutdown"
    wait_for_end "$run"
  else
    server stop "$run" >/dev/null || fail "round $round: the server stayed"
  fi
  took_ms=$(($(now_ms) - from))
}

check_log() {
  (expect_clean_end "$run") || { show_log "$run" 80; exit 1; }
  if log_since_mark "$run" | grep '\[ERROR\]' | grep -v "$not_ours"; then
    fail "round $round: errors in the log"
  fi
}

# Checks the tables that the last round left. One may be missing for a moment.
check_tables() {
  local names name answer
  names=$(sql "$run" "SELECT CONCAT('soak.', table_name)
    FROM information_schema.tables WHERE table_schema = 'soak'") ||
    fail "the tables are not listed"
  n_tables=0
  for name in $names; do
    answer=$(sql "$run" "CHECK TABLE $name") || fail "$name cannot be checked"
    [[ -n $answer ]] || fail "$name: no answer"
    ! grep -v $'\tstatus\tOK$' <<<"$answer" || fail "$name is not in order"
    n_tables=$((n_tables + 1))
  done
}

server kill "$run" >/dev/null
rm -rf "$run"
mkdir -p "$run"
trap 'server kill "$run" >/dev/null' EXIT
round=0
start
sql "$run" "INSTALL PLUGIN morvena_soak SONAME 'morvena_soak.so';
  CREATE FUNCTION morvena_soak RETURNS STRING SONAME 'morvena_soak.so'" ||
  fail "the soak is not loaded"
server stop "$run" >/dev/null

longest=0
with_waits=0
for ((round = 1; round <= rounds; ++round)); do
  start
  manners=careful
  one_of_two || manners=careless
  moment=$((RANDOM % 5000))
  # The last shutdown comes later, so that there are tables to check.
  [[ $round -lt $rounds ]] || moment=$((moment + 5000))
  settings="background unbuilt $manners seconds=600 seed=$((seed + round))"
  [[ $(sql "$run" "SELECT morvena_soak('$settings')") = started ]] ||
    fail "round $round: the soak did not start"
  sleep "$((moment / 1000)).$(printf %03d $((moment % 1000)))"
  waiting=0
  if one_of_two; then
    lock_a_table
    sleep 0.5
    waiting=$(count_waiting) || waiting=0
  fi
  [[ $waiting = 0 ]] || with_waits=$((with_waits + 1))
  end_server
  wait
  echo "round $round: $manners, after $moment ms, waits for locks: $waiting," \
    "took $took_ms ms"
  check_log
  [[ $took_ms -le $limit_ms ]] || fail "round $round: that is too long"
  [[ $took_ms -le $longest ]] || longest=$took_ms
done
start
check_tables
server stop "$run" >/dev/null || fail "round $round: the server stayed"
check_log
echo "shutdowns $rounds, with cursors waiting for locks $with_waits," \
  "the longest took $longest ms; tables in order: $n_tables"
