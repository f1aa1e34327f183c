#!/usr/bin/env bash
# Compares the plug-in with what a user would use instead, in a private server.
# The server and its tables (about 1 GB) are deleted afterwards.
#
# BUILD   the build folder (default: build); results go to $BUILD/bench:
#         figures.txt, results.json, figures.svg
# ROUNDS  how often each contender is measured (default: 7)
# DOCS=1  writes the figures to docs/performance.md and .svg as well
# KEEP=1  keeps the server's folder, and uses it if it is there
#
# Exit status 0: everything was measured, whatever the figures; 1: two
# contenders that read the same rows got different results.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repo=$(dirname "$here")
build=${BUILD:-build}
[[ $build = /* ]] || build=$repo/$build
folder=$build/bench
run=$folder/run
client=$build/cmake/bench/bench_client

die() {
  printf 'bench: %s\n' "$*" >&2
  exit 1
}

server() { "$repo/tools/server.sh" "$1" --run "$run" "${@:2}"; }

# A debug or instrumented build would measure the cost of its checks.
need_release() {
  grep -q '\[NDEBUG\]' "$build/host/host.cmake" ||
    die "the host is a debug build: figures come from release builds only"
  ! grep -q 'fsanitize' "$build/host/host.cmake" ||
    die "the host is instrumented: figures come from release builds only"
  grep -qE '^CMAKE_BUILD_TYPE:[A-Z]+=(Release|RelWithDebInfo)$' \
    "$build/cmake/CMakeCache.txt" ||
    die "$build/cmake is no release build"
}

# All tables are in memory, and nothing is written during a measurement.
start_server() {
  server start -- --innodb-buffer-pool-size=2G \
    --loose-innodb-redo-log-capacity=2G \
    --innodb-flush-log-at-trx-commit=0 --innodb-doublewrite=OFF \
    --innodb-io-capacity=10000 --innodb-io-capacity-max=20000 \
    --innodb-stats-auto-recalc=OFF --innodb-parallel-read-threads=2
}

finish() {
  server stop >/dev/null
  [[ -n ${KEEP:-} ]] || rm -rf "$run"
}

mkdir -p "$folder"
need_release
[[ -x $client ]] || die "no bench_client: the host has no client library"
trap 'exit 130' INT
trap 'exit 143' TERM HUP
server stop >/dev/null
[[ -n ${KEEP:-} ]] || rm -rf "$run"
trap finish EXIT
start_server

PYTHONDONTWRITEBYTECODE=1 python3 -u "$here/run.py" --client "$client" \
  --socket "$(server socket)" --server-pid "$(cat "$run/mysqld.pid")" \
  --folder "$folder" --rounds "${ROUNDS:-7}" ${ONLY:+--only "$ONLY"} \
  ${DOCS:+--docs "$repo/docs/performance.md"}
