#!/usr/bin/env bash
# Loads the distribution's package list into an InnoDB table, reads it through the
# example plug-in, and compares every result with SQL. The private server for that
# lies in $BUILD/run-demo (BUILD: default build) and always ends with the script.
#
# Exit status 0: every result was the same, and the server shut down cleanly. After
# a failure the folder stays, with the server's error log.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-build}
[[ $build = /* ]] || build=$repo/$build
run=$build/run-demo
host=$build/host

server() { "$repo/tools/server.sh" "$1" --run "$run" "${@:2}"; }

stop_server() { server stop >/dev/null; }

# A signal becomes an ordinary exit. Bash takes it after the command that runs, so
# no server is left half started.
trap 'exit 130' INT
trap 'exit 143' TERM HUP
trap stop_server EXIT

mkdir -p "$run"
stop_server
rm -rf "$run"
server start

PYTHONDONTWRITEBYTECODE=1 python3 -u "$repo/tools/demo.py" "$host/bin/mysql" \
  "$(server socket)" "$run" "$host/apt/lists" /var/lib/apt/lists

stop_server
if ! tail -n 5 "$run/mysqld.err" | grep -q 'Shutdown complete'; then
  tail -n 20 "$run/mysqld.err" >&2
  echo "demo: the server did not shut down cleanly" >&2
  exit 1
fi
rm -rf "$run"
