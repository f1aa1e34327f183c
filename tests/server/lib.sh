# Sourced by the scripts here: private servers, SQL, and what their logs say.
# BUILD names the build folder.

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
export BUILD=${BUILD:-$repo/build}

fail() {
  printf '%s\n' "$*" >&2
  exit 1
}

# server COMMAND DIR [ARGUMENT...]: tools/server.sh on the run folder DIR.
server() {
  local command=$1 dir=$2
  shift 2
  "$repo/tools/server.sh" "$command" --run "$dir" "$@" || return
  # A process that was killed counts as running until its parent looks, and a
  # new server would respect its lock.
  [[ $command != kill ]] || rm -f "$dir/mysqld.sock.lock"
}

# sql DIR STATEMENT: rows without a heading, columns apart by tabs. TIMEOUT
# seconds bound it.
sql() {
  timeout "${TIMEOUT:-60}" "$BUILD/host/bin/mysql" --no-defaults --user=root \
    --socket="$(server socket "$1")" --skip-column-names --batch --raw \
    --execute="$2"
}

# Waits until the server of DIR has ended, after it was told to.
wait_for_end() {
  local deadline=$((SECONDS + 60))
  while server status "$1" >/dev/null; do
    [[ $SECONDS -lt $deadline ]] || fail "the server is there after 60 seconds"
    sleep 0.02
  done
}

# For speed: what a case writes need not survive a crash of the machine.
fast_options=(--innodb-flush-log-at-trx-commit=0 --innodb-doublewrite=OFF
  --performance-schema-max-thread-instances=4000 --max-connections=500)

show_log() {
  echo "--- end of $1/mysqld.err" >&2
  tail -n "${2:-40}" "$1/mysqld.err" >&2
}

# Marks where the log of DIR ends; log_since_mark prints what came after.
mark_log() { log_mark=$(stat -c %s "$1/mysqld.err" 2>/dev/null || echo 0); }
log_since_mark() { tail -c +$((log_mark + 1)) "$1/mysqld.err"; }

# The words that a crashing server writes, and those of a sanitizer.
crash_words='got signal|Assertion failure|[Aa]ssertion .* failed|terminate called'
crash_words+='|Sanitizer:|runtime error:'

# Fails unless the log since the mark reports a clean end.
expect_clean_end() {
  if log_since_mark "$1" | grep -E "$crash_words" ||
    ! log_since_mark "$1" | grep -q 'Shutdown complete'; then
    fail "the server did not end cleanly"
  fi
}

# expect WHAT GOT WANTED
expect() {
  [[ $2 = "$3" ]] || fail "$1: got '$2', expected '$3'"
}

# expect_list DIR FILE: the server of DIR has the cases that FILE names.
expect_list() {
  local listed
  listed=$(sql "$1" "SELECT morvena_test('--list')" | grep . | sort)
  diff <(grep . "$2" | sort) <(printf '%s\n' "$listed") ||
    fail "the cases of the sources (<) differ from those compiled (>)"
}
