#!/usr/bin/env bash
# Passes on what Ninja prints, a line at a time; nothing at all where it found
# nothing to do.
held=
while IFS= read -r line; do
  case $line in
    'ninja: no work to do.') ;;
    'ninja: Entering directory'* | *'Re-checking globbed directories...') held+=$line$'\n' ;;
    *)
      printf '%s%s\n' "$held" "$line"
      held=
      ;;
  esac
done
