#!/usr/bin/env bash
# A plug-in of a project outside this tree.
#   outside.sh by_flags DIR          builds it with the flags that `make flags` prints
#   outside.sh by_package DIR CMAKE  builds it with the installed CMake package; CMAKE
#                                    is this tree's own CMake folder
#   outside.sh same_flags DIR        whether both ways compile and link alike
#   outside.sh reads DIR             reads with both in a server: before and after
#                                    morvena_sn itself is installed
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../server/lib.sh"
project=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/project
command=$1
dir=$2

# Makes a fresh folder that has only the project's files.
copy_project() {
  rm -rf "$1"
  mkdir -p "$1"
  cp "$project"/* "$1"
}

# BUILD already names the folder of the sanitized build.
print_flags() {
  env -u MAKEFLAGS -u MAKELEVEL -u SANITIZE make -s -C "$repo" "$1" "BUILD=$BUILD"
}

by_flags() {
  copy_project "$dir/by_flags"
  cd "$dir/by_flags"
  # shellcheck disable=SC2046
  "${CXX:-g++}" -O1 -Wall -Wextra -Werror $(print_flags flags) outside.cc -o outside.so
}

by_package() {
  copy_project "$dir/by_package"
  rm -rf "$dir/prefix"
  cmake --install "$1" --prefix "$dir/prefix" >/dev/null
  cmake -S "$dir/by_package" -B "$dir/by_package/cmake" -G Ninja \
    -DCMAKE_PREFIX_PATH="$dir/prefix" -DCMAKE_CXX_COMPILER="${CXX:-g++}" \
    -DCMAKE_CXX_FLAGS='-O1 -Wall -Wextra -Werror' \
    -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
  cmake --build "$dir/by_package/cmake"
}

# Prints the words that decide how code is compiled, one a line. It leaves out
# the compiler, the source and the folder of the public header, which differ.
deciding_words() {
  tr -s ' ' '\n' | grep -E '^(-D|-std|-f|-m|/)' | grep -vxF "${CXX:-g++}" |
    grep -v "^$dir/" | sort -u
}

run_path_and_needs() {
  readelf -d "$1" | sed -nE 's/.*\((NEEDED|RUNPATH)\).*\[(.*)\]/\1 \2/p' | sort
}

same_flags() {
  local flags package
  flags=$(print_flags flags-compile | deciding_words)
  package=$(sed -n 's/.*"command": "\(.*\)",/\1/p' \
    "$dir/by_package/cmake/compile_commands.json" | deciding_words)
  [[ $(wc -l <<<"$flags") -gt 10 ]] || fail "hardly any flags: $flags"
  diff <(echo "$flags") <(echo "$package") || fail "the flags (<) differ (>)"
  diff <(run_path_and_needs "$dir/by_flags/outside.so") \
    <(run_path_and_needs "$dir/by_package/cmake/outside.so") ||
    fail "the shared objects differ"
  run_path_and_needs "$dir/by_flags/outside.so" | grep -xF 'RUNPATH $ORIGIN'
  run_path_and_needs "$dir/by_flags/outside.so" | grep -xF 'NEEDED morvena_sn.so'
}

# The server's plug-in folder holds this file and morvena_sn.so, and nothing else
# of ours.
make_plugin_folder() {
  rm -rf "$dir/plugins"
  mkdir -p "$dir/plugins"
  cp "$1" "$2" "$dir/plugins"
  cp -P "$BUILD"/plugin/component_*.so "$dir/plugins" 2>/dev/null || true
}

start() {
  mark_log "$run"
  server start "$run" --no-plugin -- "${fast_options[@]}" \
    --plugin-dir="$dir/plugins" >/dev/null
}

stop() {
  server stop "$run" >/dev/null
  expect_clean_end "$run"
}

status_variables() {
  sql "$run" "SHOW GLOBAL STATUS LIKE 'morvena_sn_rows_read'" | wc -l
}

# What the embedder has alone, and what it has once morvena_sn is installed as well.
use() {
  sql "$run" "INSTALL PLUGIN outside SONAME 'outside.so';
    CREATE FUNCTION outside_rows RETURNS INTEGER SONAME 'outside.so';
    CREATE DATABASE db; CREATE TABLE db.t (id INT PRIMARY KEY);
    INSERT INTO db.t VALUES (1), (2), (3)"
  expect 'rows' "$(sql "$run" "SELECT outside_rows('db', 't')")" 3
  expect 'rows of a transaction' "$(sql "$run" "START TRANSACTION WITH CONSISTENT SNAPSHOT;
    INSERT INTO db.t VALUES (4); SELECT outside_rows('db', 't')")" 4
  expect 'sessions in the list of threads' "$(sql "$run" "SELECT COUNT(*) > 0
    FROM performance_schema.threads WHERE name LIKE 'thread/morvena_sn/%'")" 1
  expect 'status variables of the embedder alone' "$(status_variables)" 0
  sql "$run" "INSTALL PLUGIN morvena_sn SONAME 'morvena_sn.so'"
  expect 'status variables' "$(status_variables)" 1
  expect 'rows' "$(sql "$run" "SELECT outside_rows('db', 't')")" 3
}

reads_with() {
  make_plugin_folder "$1" "$2"
  server kill "$run" >/dev/null
  rm -rf "$run"
  mkdir -p "$run"
  start
  use
  stop
  # The server loads both again, in any order.
  start
  expect 'rows after a restart' "$(sql "$run" "SELECT outside_rows('db', 't')")" 3
  expect 'status variables after a restart' "$(status_variables)" 1
  stop
}

reads() {
  run=$dir/run
  trap 'code=$?; [[ $code = 0 ]] || show_log "$run"; server kill "$run" >/dev/null' EXIT
  reads_with "$dir/by_flags/outside.so" "$BUILD/plugin/morvena_sn.so"
  reads_with "$dir/by_package/cmake/outside.so" "$dir"/prefix/lib*/morvena_sn/morvena_sn.so
}

"$command" "${@:3}"
