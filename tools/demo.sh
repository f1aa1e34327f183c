#!/usr/bin/env bash
# Reads the distribution's package list, as an InnoDB table, through the example
# plug-in, and holds every result against SQL. Uses a private server of its own,
# in $BUILD/run-demo (BUILD: default build), and ends it in any case.
#
# Exit status 0: every result was the same and the server ended in order. After
# a failure the folder stays, with the server's error log.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-build}
[[ $build = /* ]] || build=$repo/$build
run=$build/run-demo
host=$build/host

server() { "$repo/tools/server.sh" "$1" --run "$run" "${@:2}"; }

stop_server() { server stop >/dev/null; }

# The signals become an ordinary exit, which bash takes after the running
# command: so no server is left half started.
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
  echo "demo: the server did not shut down in order" >&2
  exit 1
fi
rm -rf "$run"
