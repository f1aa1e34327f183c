#!/usr/bin/env bash
# Fetches the host, the MySQL server to build for, with its headers and compile
# flags, into $BUILD/host. Nothing is installed on the machine except missing build
# tools, and those only for root. Prints nothing where nothing is to do.
#
#   tools/host.sh                       the server that Debian packages
#   HOST_SOURCE=dir HOST_BUILD=dir      a source tree and its configured or built
#   [HOST_MYSQLD=file] tools/host.sh    folder (CMake with Makefiles or Ninja)
#   tools/host.sh version X.Y.Z         only says whether the code is built for that
#                                       MySQL, and how sure that is
#
# BUILD names the build folder (default: build). Each step leaves a stamp, so an
# interrupted run goes on where it stopped. The result:
#
#   host.cmake             compile flags, read from the host's own InnoDB target
#   exports.txt            symbols that the server and its libraries offer; empty
#                          when there is no server binary
#   version                e.g. 9.7.4
#   tree                   HOST_SOURCE, HOST_BUILD and HOST_MYSQLD, for later runs
#                          that give none of them; empty for the packages
#   bin/mysqld             start the server and its clients from any folder
#   bin/mysql, mysqladmin
#   lib/libmysqlclient.so  the host's client library, if there is one
set -euo pipefail
export LC_ALL=C

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-build}
[[ $build = /* ]] || build=$repo/$build
host=$build/host
root=$host/root # what the packages hold
apt=$host/apt   # apt's private lists, cache and status
cshim=$repo/storage/morvena_sn/cshim
current_step=

said=
say() {
  said=yes
  printf 'host: %s\n' "$*"
}

die() {
  current_step=
  printf 'host: %s\n' "$*" >&2
  exit 1
}

# A failed step shows the end of its log.
at_exit() {
  local code=$?
  if [[ $code != 0 && -n $current_step ]]; then
    tail -n 15 "$host/log/$current_step" >&2
    echo "host: step '$current_step' stopped; its log is $host/log/$current_step" >&2
  fi
}
trap at_exit EXIT

# once NAME TEXT COMMAND...: announces and runs a step that has no stamp.
once() {
  local name=$1 text=$2
  shift 2
  [[ -e $host/stamp/$name ]] && return
  say "$text"
  current_step=$name
  "$@" >"$host/log/$name" 2>&1
  current_step=
  touch "$host/stamp/$name"
}

# --- tools -----------------------------------------------------------------

missing_tools() {
  command -v cmake >/dev/null || echo cmake
  command -v ninja >/dev/null || echo ninja-build
  command -v g++ >/dev/null || echo g++
  command -v nm >/dev/null || echo binutils
  command -v python3 >/dev/null || echo python3
  [[ -e /usr/src/googletest/CMakeLists.txt ]] || echo googletest
}

install_tools() {
  local -a install=(apt-get install -y --no-install-recommends
    -oDPkg::Lock::Timeout=300 "$@")
  export DEBIAN_FRONTEND=noninteractive
  "${install[@]}" || { apt-get update && "${install[@]}"; }
}

need_tools() {
  local -a missing
  mapfile -t missing < <(missing_tools)
  [[ ${#missing[@]} = 0 ]] && return
  if [[ $(id -u) != 0 ]] || ! command -v apt-get >/dev/null; then
    die "please install what is missing and run this again: ${missing[*]}"
  fi
  rm -f "$host/stamp/tools"
  once tools "installing ${missing[*]}" install_tools "${missing[@]}"
  mapfile -t missing < <(missing_tools)
  [[ ${#missing[@]} = 0 ]] || die "still missing: ${missing[*]}"
}

# --- versions --------------------------------------------------------------

# "major.minor.patch" as the host's headers count it.
version_id() {
  local major minor patch
  IFS=. read -r major minor patch <<<"$1"
  echo $((major * 10000 + minor * 100 + patch))
}

# What host/version.h remarks on a version; fails for one that it refuses.
version_remark() {
  local probe=$host/version-check
  mkdir -p "$probe"
  echo "#define MYSQL_VERSION_ID $(version_id "$1")" >"$probe/mysql_version.h"
  printf '#include "host/version.h"\nHOST_VERSION_REMARK\n' |
    g++ -E -P -x c++ -I "$probe" -I "$cshim" - 2>/dev/null |
    sed 's/" *"//g; s/"//g'
}

need_version() {
  local remark
  remark=$(version_remark "$1") ||
    die "$2 is MySQL $1, which the code is not built for: storage/morvena_sn/cshim/host/version.h names the versions"
  [[ -z $remark ]] || say "MySQL $1 $remark"
}

tree_version() {
  sed -n 's/^MYSQL_VERSION_\(MAJOR\|MINOR\|PATCH\)=\([0-9]*\).*/\2/p' \
    "$1/MYSQL_VERSION" | paste -sd.
}

# --- packages --------------------------------------------------------------

# Runs apt with lists, cache and status of our own; only its keys, its proxy and its
# mirror are the machine's. For apt the empty status file means that nothing is
# installed, so it fetches the C library, too: the unpacked programs need it when
# the machine's is older.
private_apt() {
  local tool=$1
  shift
  mkdir -p "$apt/lists" "$apt/cache/archives"
  "$tool" -oDir::Etc::sourcelist="$apt/sources.list" \
    -oDir::Etc::sourceparts=/dev/null -oDir::Etc::preferences=/dev/null \
    -oDir::Etc::preferencesparts=/dev/null -oAPT::Default-Release= \
    -oDir::State::Lists="$apt/lists" -oDir::State::status="$apt/status" \
    -oDir::Cache="$apt/cache" -oAPT::Sandbox::User="$(id -un)" \
    -oAcquire::Languages=none -oAcquire::GzipIndexes=false \
    -oAcquire::Retries=3 "$@"
}

# Prints the first repository of this machine whose origin and label are both
# Debian. $@: further options of apt.
machine_mirror() {
  # shellcheck disable=SC2016
  apt-get "$@" indextargets --format '$(REPO_URI)|$(ORIGIN)|$(LABEL)' \
    'Created-By: Packages' |
    awk -F'|' '$2 == "Debian" && $3 == "Debian" && !n++ { print $1 }'
}

update_lists() {
  local mirror keys=/usr/share/keyrings/debian-archive-keyring.gpg signed=
  mkdir -p "$apt"
  : >"$apt/status"
  mirror=$(machine_mirror)
  if [[ -z $mirror ]]; then
    # Only fetched lists name the origin, and this machine may have none.
    local -a own=(-oDir::State::Lists="$apt/machine-lists"
      -oDir::Cache="$apt/cache" -oAPT::Sandbox::User="$(id -un)")
    mkdir -p "$apt/machine-lists" "$apt/cache"
    apt-get "${own[@]}" update
    mirror=$(machine_mirror "${own[@]}")
    rm -rf "$apt/machine-lists"
  fi
  if [[ -z $mirror ]]; then
    echo "apt of this machine uses no Debian mirror: give HOST_SOURCE and HOST_BUILD"
    return 1
  fi
  [[ -e $keys ]] && signed="[signed-by=$keys]"
  echo "deb $signed $mirror sid main" >"$apt/sources.list"
  private_apt apt-get update
}

packaged_version() {
  private_apt apt-cache show --no-all-versions mysql-server-core |
    sed -n 's/^Version: \([0-9]*:\)\{0,1\}\([0-9.]*\).*/\2/p'
}

download() {
  local -a get=(private_apt apt-get install --download-only
    --no-install-recommends -y "$@")
  # A mirror drops a package when a newer one replaces it: fresh lists name the
  # newer one.
  "${get[@]}" || { private_apt apt-get update && "${get[@]}"; }
}

# Unpacks packages with programs and libraries to $root. From the development
# packages it takes only the headers that the server's own headers include: a whole
# usr/include would hide the compiler's.
unpack_packages() {
  local deb dev=$host/dev
  mkdir -p "$root" "$host/include"
  rm -rf "$dev"
  for deb in "$apt"/cache/archives/*.deb; do
    case ${deb##*/} in
      mysql-source_* | linux-libc-dev_* | libc6-dev_* | *perl*) ;;
      *-dev_*) dpkg -x "$deb" "$dev" ;;
      *) dpkg -x "$deb" "$root" ;;
    esac
  done
  if [[ -d $dev ]]; then
    cp "$dev"/usr/include/mysql/{mysqld_error,errmsg}.h "$host/include"
    cp "$dev"/usr/include/{zlib,zconf}.h "$host/include"
    cp -r "$dev"/usr/include/openssl "$dev"/usr/include/*/openssl "$host/include"
    rm -rf "$dev"
  fi
}

# The package holds one archive: the source tree with the configured build folder
# inside. Large parts without headers stay packed.
unpack_source() {
  rm -rf "$host/source"
  mkdir -p "$host/source"
  dpkg-deb --fsys-tarfile "$apt"/cache/archives/mysql-source_*.deb |
    tar -xO --wildcards '*/mysql-source.tar.gz' |
    tar -xz -C "$host/source" --strip-components=1 --exclude='*/mysql-test' \
      --exclude='*/unittest' --exclude='*/storage/ndb' --exclude='*/router' \
      --exclude='*/boost/libs'
}

packaged_host() {
  local version=
  once lists "reading the distribution's package lists" update_lists
  if [[ ! -e $host/stamp/packages ]]; then
    version=$(packaged_version)
    [[ -n $version ]] || die "the distribution packages no mysql-server-core"
    need_version "$version" "the packaged server"
  fi
  once packages "downloading the packaged server, about 510 MB" download \
    mysql-source mysql-server-core mysql-client-core libmysqlclient-dev
  once unpack "unpacking the packages" unpack_packages
  once source "unpacking the server's headers" unpack_source
  rm -rf "$apt/cache"
  source_dir=$host/source
  [[ -n $version ]] || need_version "$(tree_version "$source_dir")" "the packaged server"
  build_dir=$(dirname "$host"/source/*/CMakeCache.txt)
  include_dir=$host/include
  components=$root/usr/lib/mysql/plugin
  mysqld=$root/usr/sbin/mysqld
  mysqld_options=(--basedir="$root/usr"
    --lc-messages-dir="$root/usr/share/mysql")
}

packaged_client() {
  [[ -x $root/usr/bin/mysql ]] && return
  once lists "reading the distribution's package lists" update_lists
  once client-packages "downloading the packaged client" download mysql-client-core
  once client-unpack "unpacking the packages" unpack_packages
  rm -rf "$apt/cache"
}

# --- a source tree ---------------------------------------------------------

first_program() {
  local file
  for file in "$@"; do
    if [[ -f $file && -x $file ]]; then
      realpath "$file"
      return
    fi
  done
}

tree_host() {
  [[ -n ${HOST_SOURCE:-} && -n ${HOST_BUILD:-} ]] ||
    die "HOST_SOURCE and HOST_BUILD go together: the source tree and its build folder"
  [[ -e $HOST_SOURCE/MYSQL_VERSION && -d $HOST_SOURCE/storage/innobase ]] ||
    die "HOST_SOURCE=$HOST_SOURCE is not a MySQL source tree"
  source_dir=$(realpath "$HOST_SOURCE")
  need_version "$(tree_version "$source_dir")" "HOST_SOURCE=$HOST_SOURCE"
  [[ -e $HOST_BUILD/CMakeCache.txt && -e $HOST_BUILD/include/my_config.h ]] ||
    die "HOST_BUILD=$HOST_BUILD is not a configured build folder"
  build_dir=$(realpath "$HOST_BUILD")
  include_dir=$build_dir/include
  grep -q "MYSQL_VERSION_ID *$(version_id "$(tree_version "$source_dir")")" \
    "$include_dir/mysql_version.h" ||
    die "HOST_BUILD=$HOST_BUILD was configured from another version than HOST_SOURCE"
  if [[ -n ${HOST_MYSQLD:-} ]]; then
    mysqld=$(first_program "$HOST_MYSQLD")
    [[ -n $mysqld ]] || die "HOST_MYSQLD=$HOST_MYSQLD is not a program"
    [[ "$("$mysqld" --no-defaults --version 2>&1)" = *"$(tree_version "$source_dir")"* ]] ||
      die "HOST_MYSQLD=$HOST_MYSQLD is of another version than HOST_SOURCE"
  else
    mysqld=$(first_program "$build_dir"/{bin,runtime_output_directory}/mysqld)
  fi
  components=$build_dir/plugin_output_directory
  mysqld_options=()
  # An installed server finds its messages by itself.
  if [[ $mysqld = "$build_dir"/* || ! -d ${mysqld%/*}/../share ]]; then
    mysqld_options=(--basedir="$build_dir" --lc-messages-dir="$build_dir/share"
      --character-sets-dir="$source_dir/share/charsets")
  fi
}

recall_tree() {
  [[ -z ${HOST_SOURCE:-}${HOST_BUILD:-}${HOST_MYSQLD:-} && -s $host/tree ]] || return 0
  { read -r HOST_SOURCE && read -r HOST_BUILD && read -r HOST_MYSQLD; } <"$host/tree"
}

need_same_tree() {
  [[ ! -e $host/tree || $(head -n 2 "$host/tree") = "$source_dir"$'\n'"$build_dir" ]] ||
    die "$build was made with another host: run 'make clean' first, or choose another folder with BUILD"
}

# A tree that is configured and not built lacks the error headers.
tree_headers() {
  [[ -e $include_dir/mysqld_error.h ]] && return
  rm -f "$host/stamp/tree-headers"
  once tree-headers "building the error headers in $build_dir" \
    cmake --build "$build_dir" --target GenError
}

# --- the result ------------------------------------------------------------

# Writes standard input to a file, unless the file holds just that already: a newer
# time of change would make CMake configure again.
replace() {
  local temporary=$1.new
  cat >"$temporary"
  if cmp -s "$temporary" "$1"; then rm "$temporary"; else mv "$temporary" "$1"; fi
}

write_flags() {
  local flags
  flags=$(python3 "$repo/tools/host_flags.py" "$source_dir" "$build_dir" "$include_dir")
  replace "$host/host.cmake" <<<"$flags"
  tree_version "$source_dir" | replace "$host/version"
}

write_tree() {
  if [[ -n ${HOST_SOURCE:-} ]]; then
    printf '%s\n' "$source_dir" "$build_dir" "${HOST_MYSQLD:+$mysqld}"
  fi | replace "$host/tree"
}

# Prints words for a shell to read back.
quoted() { [[ $# = 0 ]] || printf '%q ' "$@"; }

# Sets the array run to the command that starts a program. The unpacked loader
# starts the unpacked programs, with the unpacked libraries.
set_run() {
  run=("$1")
  if [[ $1 = "$root"/* ]]; then
    local loader
    loader=$(echo "$root"/usr/lib/*/ld-linux*.so.*)
    run=("$loader" --library-path "${loader%/*}" "$1")
  fi
}

# The server takes options that name option files only at the beginning, so the
# wrapper puts its own options after them. MYSQLD_PRELOAD is preloaded into the
# server, not into the shell that starts it.
mysqld_wrapper() {
  set_run "$mysqld"
  cat <<WRAPPER
#!/usr/bin/env bash
first=()
while [[ \${1-} = --no-defaults || \${1-} = --defaults-* ]]; do
  first+=("\$1")
  shift
done
[[ -z \${MYSQLD_PRELOAD-} ]] || export LD_PRELOAD=\$MYSQLD_PRELOAD
exec $(quoted "${run[@]}")"\${first[@]}" $(quoted "${mysqld_options[@]}")"\$@"
WRAPPER
}

client_wrapper() {
  set_run "$1"
  printf '#!/bin/sh\nexec %s"$@"\n' "$(quoted "${run[@]}")"
}

write_programs() {
  local program clients=$root/usr/bin own
  # A tree of which only the server was built borrows the packaged clients.
  own=$(first_program "$build_dir"/{bin,runtime_output_directory}/mysqladmin)
  if [[ -n $own ]]; then
    clients=${own%/*}
  else
    packaged_client
  fi
  mkdir -p "$host/bin"
  if [[ -n $mysqld ]]; then
    mysqld_wrapper | replace "$host/bin/mysqld"
  else
    rm -f "$host/bin/mysqld"
  fi
  for program in mysql mysqladmin; do
    client_wrapper "$clients/$program" | replace "$host/bin/$program"
  done
  chmod +x "$host"/bin/*
}

# In a tree that was built it lies in one of two folders.
link_client_library() {
  local library link=$host/lib/libmysqlclient.so
  library=$(ls "$build_dir"/{library_output_directory,lib}/libmysqlclient.so \
    "$root"/usr/lib/*/libmysqlclient.so.* 2>/dev/null | head -n 1) || true
  [[ -n $library ]] || return 0
  mkdir -p "$host/lib"
  [[ $(readlink "$link") = "$library" ]] || ln -sfn "$library" "$link"
}

# Prints the libraries that the server loads, as its own loader finds them.
server_libraries() {
  set_run "$mysqld"
  if [[ ${#run[@]} = 1 ]]; then
    ldd "$mysqld"
  else
    "${run[0]}" --list "${run[@]:1}"
  fi | awk '{ for (i = 1; i <= NF; i++) if ($i ~ /^\//) print $i }'
}

write_exports() {
  local -a files
  if [[ -z $mysqld ]]; then
    replace "$host/exports.txt" </dev/null
    return
  fi
  [[ -s $host/exports.txt && $host/exports.txt -nt $mysqld &&
    $(cat "$host/exports.of" 2>/dev/null) = "$mysqld" ]] && return
  mapfile -t files < <(server_libraries)
  nm -D --defined-only -j "$mysqld" "${files[@]}" 2>/dev/null |
    sed 's/@.*//' | sort -u >"$host/exports.new"
  mv "$host/exports.new" "$host/exports.txt"
  echo "$mysqld" >"$host/exports.of"
}

# Debug and release code lay out structures differently, and a missing symbol shows
# only one of the two mixtures. A server without NDEBUG has the tracing functions of
# debug builds.
need_same_mode() {
  local flags=debug server=release
  [[ -n $mysqld ]] || return 0
  ! grep -qF '[==[NDEBUG]==]' "$host/host.cmake" || flags=release
  ! grep -q '^_Z[0-9]*_db_enter_' "$host/exports.txt" || server=debug
  [[ $flags = "$server" ]] ||
    die "$mysqld is a $server build, but the flags of $build_dir are those of a $flags build"
}

# At each start the server looks for a component in the plug-in folder, and logs
# errors if it is not there.
link_component() {
  local name=component_reference_cache.so
  mkdir -p "$build/plugin"
  rm -f "$build/plugin/$name"
  [[ ! -e $components/$name ]] || ln -s "$components/$name" "$build/plugin/$name"
}

if [[ ${1-} = version ]]; then
  need_version "${2?host.sh version X.Y.Z}" "this"
  exit
fi
mkdir -p "$host/stamp" "$host/log"
[[ -e $host/version ]] || said=yes # the first time it says that all is ready
need_tools
recall_tree
if [[ -n ${HOST_SOURCE:-}${HOST_BUILD:-}${HOST_MYSQLD:-} ]]; then
  tree_host
  need_same_tree
else
  packaged_host
fi
write_flags
tree_headers
write_programs
link_client_library
write_exports
need_same_mode
link_component
write_tree
[[ -z $said ]] || say "MySQL $(cat "$host/version") is ready in $host"
