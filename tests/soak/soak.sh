#!/usr/bin/env bash
# Reads for minutes in a private server, while everything else goes wrong, and
# prints the closing table. Fails on a difference, a crash or an unclean end, and
# if no read is ever complete.
#   MINUTES=10 SEED=1 soak.sh DIR       READERS and WRITERS: how many threads
# A seed repeats the choices of the threads, but not the times of their steps.
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../server/lib.sh"
run=$1
seconds=${SECONDS_OF_RUN:-$((${MINUTES:-10} * 60))}
settings="seconds=$seconds seed=${SEED:-1} readers=${READERS:-6}
  writers=${WRITERS:-3}"

server kill "$run" >/dev/null
rm -rf "$run"
mkdir -p "$run"
trap 'server kill "$run" >/dev/null' EXIT
mark_log "$run"
server start "$run" -- "${fast_options[@]}" >/dev/null ||
  fail "the server did not start"
sql "$run" "INSTALL PLUGIN morvena_soak SONAME 'morvena_soak.so';
  CREATE FUNCTION morvena_soak RETURNS STRING SONAME 'morvena_soak.so'" ||
  fail "the soak is not loaded"

table=$(TIMEOUT=$((seconds + 300)) sql "$run" "SELECT morvena_soak('$settings')")
code=$?
printf '%s\n' "$table"
if [[ $code != 0 ]]; then
  log_since_mark "$run" | tail -n 100 >&2
  fail "the run did not end; the log is $run/mysqld.err"
fi
stopping=$SECONDS
server stop "$run" >/dev/null || fail "the server did not stop"
echo "the server ended after $((SECONDS - stopping)) seconds"
expect_clean_end "$run"
for line in 'differences 0' 'sessions left 0' 'threads left 0'; do
  grep -qx "$line" <<<"$table" || fail "not so: $line"
done

# Without a complete read nothing was compared. How many reads are complete does
# not matter: the kills do not slow down with a slow server, so they hit more of
# its reads, and in a short run it has few reads of each kind.
few=$((seconds < 300 ? 20 : 1))
never=$(awk -v few="$few" '
  /^reads +all / { kinds = 1; next }
  kinds && $(NF - 5) == 0 && ($(NF - 6) >= few || /^all /)
  /^all / { exit }' <<<"$table")
[[ -z $never ]] || fail "reads of which none was complete:
$never"
