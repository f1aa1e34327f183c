#!/usr/bin/env bash
# Measures what a long snapshot costs, in a private server that is deleted
# afterwards. A session keeps its snapshot while another one updates rows. The
# table is read under the old snapshot and under a fresh one.
#
# BUILD    the build folder (default: build); the figures go to
#          $BUILD/old_snapshot/figures.txt as well
# SECONDS_OF_WRITING  how long rows are updated (default: 60); what
#          they leave has to fit into the buffer pool, or the disk is measured
# RATE     updates a second, at most (default: as many as can be)
# ROWS     of the table (default: 100000)
# POOL     the buffer pool (default: 1G)
#
# Exit status 0: everything was measured; 1: something read was not exact.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repo=$(dirname "$here")
export BUILD=${BUILD:-$repo/build}
[[ $BUILD = /* ]] || BUILD=$repo/$BUILD
folder=$BUILD/old_snapshot
run=$folder/run
client=$BUILD/cmake/bench/bench_client

server() { "$repo/tools/server.sh" "$1" --run "$run" "${@:2}"; }

finish() {
  server stop >/dev/null
  rm -rf "$run"
}

[[ -x $client ]] || {
  echo "old_snapshot: no $client: the host has no client library, or make is to come first" >&2
  exit 1
}
server kill >/dev/null
rm -rf "$folder"
mkdir -p "$folder"
trap 'exit 130' INT
trap 'exit 143' TERM HUP
trap finish EXIT
# Neither memory nor disk may end the writing. By default purge removes the
# history that it has finished from the list, and so from the figure, only once
# in 128 rounds.
server start -- --innodb-buffer-pool-size="${POOL:-1G}" \
  --loose-innodb-redo-log-capacity=1G \
  --innodb-flush-log-at-trx-commit=0 --innodb-doublewrite=OFF \
  --innodb-stats-auto-recalc=OFF \
  --innodb-purge-rseg-truncate-frequency=1 >/dev/null

PYTHONDONTWRITEBYTECODE=1 python3 -u "$here/old_snapshot.py" \
  --client "$client" --socket "$(server socket)" \
  --seconds "${SECONDS_OF_WRITING:-60}" --rows "${ROWS:-100000}" \
  ${RATE:+--rate "$RATE"} |
  tee "$folder/figures.txt"
