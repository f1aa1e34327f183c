#!/usr/bin/env bash
# Looks at our sources without compiling them.
#
#   tools/lint.sh formatted       are they formatted? Shows what is not
#   tools/lint.sh format          formats them
#   tools/lint.sh links           do the links of the documents lead somewhere?
#   tools/lint.sh tidy [FILE...]  clang-tidy with the checks of .clang-tidy, on
#                                 these files or on all of the plug-in and the
#                                 examples; $BUILD/cmake has the compile commands
#
# Fails where something is wrong. Ends with 77 where it could look at nothing,
# because the program or the list of files is missing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
commands=${BUILD:-build}/cmake

# The version of clang-format and clang-tidy, and the only place that names it:
# Debian 12's. Another one formats differently and has other checks.
version=14

cannot() {
  echo "lint: $*" >&2
  exit 77
}

# The program NAME in that version.
tool() {
  local name
  for name in "$1-$version" "$1"; do
    if "$name" --version 2>/dev/null | grep -q "version $version\."; then
      echo "$name"
      return
    fi
  done
  cannot "$1 $version is not installed"
}

# The files that match PATTERN..., committed or not, without those that git ignores.
sources() {
  local list file
  list=$(git ls-files -co --exclude-standard "$@") ||
    cannot "git does not list the sources"
  while read -r file; do
    if [[ -e $file ]]; then echo "$file"; fi
  done <<<"$list"
}

clang_format() {
  local program list
  program=$(tool clang-format)
  list=$(sources '*.h' '*.hpp' '*.cc' '*.c')
  xargs "$program" "$@" <<<"$list"
}

# Prints only what clang-tidy finds, not its count of warnings in other headers.
# shellcheck disable=SC2016
tidy() {
  local program list
  program=$(tool clang-tidy)
  [[ -e $commands/compile_commands.json ]] ||
    cannot "$commands has no compile commands; make writes them"
  if [[ $# -gt 0 ]]; then
    list=$(printf '%s\n' "$@")
  else
    list=$(sources 'storage/*.cc' 'examples/*.cc')
  fi
  xargs -n 1 -P "$(nproc)" sh -c 'found=$("$@" 2>&1) || {
      printf "%s\n" "$found" | grep -v " generated\.$"
      exit 1
    }' sh "$program" -p "$commands" --quiet <<<"$list"
}

case ${1-} in
  formatted) clang_format --dry-run -Werror ;;
  format) clang_format -i ;;
  links) xargs tools/links.py <<<"$(sources '*.md')" ;;
  tidy) tidy "${@:2}" ;;
  *)
    sed -n '2,/^set /s/^#//p' "$0"
    exit 2
    ;;
esac
