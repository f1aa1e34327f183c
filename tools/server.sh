#!/usr/bin/env bash
# Starts and ends private servers. Each has data, socket and log in a run folder of
# its own, and none listens on a network address.
#
#   tools/server.sh start [--run DIR] [--no-plugin] [-- mysqld options]
#   tools/server.sh stop | kill | status | socket [--run DIR]
#
# --run       the run folder (default: $BUILD/run); start creates it. Options after
#             -- hold for this start only, and override those set here.
# --no-plugin leaves morvena_sn out; else start installs it if it is not there
# stop        shuts the server down and waits until it is gone
# kill        ends it at once, as a crash would
# status      ends with 0 if the server runs, with 3 if not
# socket      prints the socket's path
#
# BUILD names the build folder (default: build), whose host/ is the server. Clients
# connect as root, without a password. The run folder holds data/, mysqld.err (the
# error log), mysqld.pid and mysqld.sock.
set -euo pipefail
export LC_ALL=C

ready_seconds=120
stop_seconds=120

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-build}
[[ $build = /* ]] || build=$repo/$build
host=$build/host

say() { printf 'server: %s\n' "$*"; }

die() {
  printf 'server: %s\n' "$*" >&2
  exit 1
}

usage() {
  sed -n '5,6s/^# *//p' "${BASH_SOURCE[0]}" >&2
  exit 2
}

# --- arguments -------------------------------------------------------------

[[ $# -gt 0 ]] || usage
command=$1
shift
run=$build/run
plugin=yes
extra=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --run)
      [[ $# -gt 1 ]] || usage
      run=$2
      shift 2
      ;;
    --no-plugin)
      plugin=no
      shift
      ;;
    --)
      shift
      extra=("$@")
      break
      ;;
    *) usage ;;
  esac
done
[[ $run = /* ]] || run=$PWD/$run
log=$run/mysqld.err
pid_file=$run/mysqld.pid

# --- the socket ------------------------------------------------------------

# A socket's path has at most 107 bytes. If the run folder's path is too long, the
# socket is named through a short link to that folder, which the folder remembers.
set_socket() {
  socket=$run/mysqld.sock
  [[ ${#socket} -gt 107 ]] || return 0
  local link
  link=$(cat "$run/short" 2>/dev/null || true)
  if [[ $command = start && ( -z $link || ! -e $link/run ) ]]; then
    link=$(mktemp -d "${TMPDIR:-/tmp}/morvena_sn.XXXXXX")
    ln -s "$run" "$link/run"
    echo "$link" >"$run/short"
    say "the run folder's path is too long for a socket; $link/run leads to it"
  fi
  [[ -z $link ]] || socket=$link/run/mysqld.sock
}

drop_short_link() {
  [[ -e $run/short ]] || return 0
  local link
  link=$(cat "$run/short")
  rm -f "$link/run" "$run/short"
  rmdir "$link" 2>/dev/null || true
}

# --- the process -----------------------------------------------------------

# A process that has ended stays visible (as a zombie) until its parent waits for it.
alive() {
  [[ $(awk '/^State:/ { print $2 }' "/proc/$1/status" 2>/dev/null) = [!Z] ]]
}

# Prints the process id of this run folder's server; fails if it does not run. The
# system may have given the id to another program, so the command line decides.
server_pid() {
  local pid
  pid=$(cat "$run/started" 2>/dev/null) || return 1
  [[ -n $pid ]] && alive "$pid" || return 1
  tr '\0' '\n' <"/proc/$pid/cmdline" 2>/dev/null |
    grep -xF -e "--pid-file=$pid_file" >/dev/null || return 1
  echo "$pid"
}

sql() {
  "$host/bin/mysql" --no-defaults --user=root --socket="$socket" \
    --skip-column-names --batch --execute="$1"
}

show_log_and_die() {
  tail -n 20 "$log" >&2
  die "$1; the error log is $log"
}

# The data folder gets its name last, so one that is half made is never used.
initialise() {
  [[ -d $run/data ]] && return
  say "creating a data folder in $run"
  rm -rf "$run/data.new"
  "$host/bin/mysqld" --no-defaults --initialize-insecure \
    --datadir="$run/data.new" --plugin-dir="$build/plugin" "${user[@]}" \
    "${initialise_options[@]}" \
    >"$log" 2>&1 || show_log_and_die "the data folder was not created"
  cp "$host/version" "$run/version"
  mv "$run/data.new" "$run/data"
}

# Some options must already be given when the data folder is created.
set_initialise_options() {
  local option
  initialise_options=()
  for option in "${extra[@]}"; do
    case $option in
      --lower[-_]case[-_]table[-_]names=* | --innodb[-_]page[-_]size=*)
        initialise_options+=("$option")
        ;;
    esac
  done
}

launch() {
  if [[ -e $build/sanitizer.env ]]; then
    set -a
    # shellcheck disable=SC1091
    source "$build/sanitizer.env"
    set +a
  fi
  setsid "$host/bin/mysqld" --no-defaults --datadir="$run/data" \
    --socket="$socket" --pid-file="$pid_file" --log-error="$log" \
    --skip-networking --loose-mysqlx=OFF --secure-file-priv= \
    --plugin-dir="$build/plugin" --innodb-buffer-pool-size=256M \
    --skip-log-bin "${user[@]}" "${extra[@]}" \
    </dev/null >>"$log" 2>&1 9>&- &
  child=$!
  echo "$child" >"$run/started"
}

# $1: the log's size before the start.
wait_until_ready() {
  local deadline=$((SECONDS + ready_seconds))
  until tail -c +$(($1 + 1)) "$log" | grep -q 'ready for connections\. Version'; do
    alive "$child" || show_log_and_die "the server ended while starting"
    [[ $SECONDS -lt $deadline ]] ||
      show_log_and_die "the server is not ready after $ready_seconds seconds"
    sleep 0.1
  done
}

# A plug-in that could not be loaded stays in the server's table of plug-ins, and
# INSTALL PLUGIN then refuses it: delete it from there first.
install_plugin() {
  local name=morvena_sn active
  active=$(sql "SELECT COUNT(*) FROM information_schema.plugins
                WHERE plugin_name = '$name' AND plugin_status = 'ACTIVE'")
  [[ $active = 0 ]] || return 0
  sql "DELETE FROM mysql.plugin WHERE name = '$name';
       INSTALL PLUGIN $name SONAME '$name.so'" ||
    die "the plug-in is not loaded (see above); the server runs"
}

start() {
  local pid size
  [[ -x $host/bin/mysqld ]] ||
    die "no server binary in $host: run 'make host' (a source tree needs a built mysqld or HOST_MYSQLD)"
  mkdir -p "$run" "$build/plugin"
  exec 9>"$run/lock"
  flock 9
  set_socket
  if pid=$(server_pid); then
    [[ $plugin = no ]] || install_plugin
    say "it runs already, process $pid, socket $socket"
    return
  fi
  if [[ -d $run/data ]] && ! cmp -s "$host/version" "$run/version"; then
    die "$run holds data of MySQL $(cat "$run/version"), and the host is $(cat "$host/version"): delete the folder, or choose another with BUILD or --run"
  fi
  user=()
  [[ $(id -u) != 0 ]] || user=(--user=root)
  set_initialise_options
  initialise
  touch "$log"
  size=$(stat -c %s "$log")
  launch
  wait_until_ready "$size"
  [[ $plugin = no ]] || install_plugin
  say "MySQL $(cat "$host/version") runs, process $(server_pid)"
  say "connect with: $host/bin/mysql --user=root --socket=$socket"
}

# $1: the signal.
finish() {
  local pid deadline=$((SECONDS + stop_seconds))
  if ! pid=$(server_pid); then
    drop_short_link
    say "it does not run"
    return
  fi
  kill "-$1" "$pid"
  while server_pid >/dev/null; do
    [[ $SECONDS -lt $deadline ]] ||
      show_log_and_die "process $pid still runs after $stop_seconds seconds"
    sleep 0.1
  done
  rm -f "$run/started"
  drop_short_link
  say "stopped"
}

status() {
  local pid
  set_socket
  if ! pid=$(server_pid); then
    say "it does not run"
    exit 3
  fi
  say "it runs, process $pid, socket $socket"
}

case $command in
  start) start ;;
  stop) finish TERM ;;
  kill) finish KILL ;;
  status) status ;;
  socket)
    set_socket
    echo "$socket"
    ;;
  *) usage ;;
esac
