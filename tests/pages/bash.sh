#!/usr/bin/env bash
# Completes command lines with the generated script as bash would.  bash.sh SCRIPT
set -u
bash -n "$1" || exit 1
# shellcheck disable=SC1090
source "$1"
cd "$(mktemp -d)" && touch photo.jpg keys.json && mkdir home || exit 1
failed=0

# expect WANTED WORD...: what is completed behind "varobinary" and the words, the last of which was begun,
# has to have WANTED ("!WANTED": must not have it).
expect() {
  local wanted=$1 found=no
  shift
  COMP_WORDS=(varobinary "$@") COMP_CWORD=$# COMPREPLY=()
  _varobinary
  printf '%s\n' "${COMPREPLY[@]}" | grep -qxF -e "${wanted#!}" && found=yes
  if [[ $found == "$([[ $wanted == !* ]] && echo no || echo yes)" ]]; then return; fi
  echo "'varobinary $*' gives: ${COMPREPLY[*]}; expected: $wanted"
  failed=1
}

expect upload up
expect fish completion f
expect '!fish' --json f
expect '!blob' up
expect blob ''
expect path blob ''
expect '!upload' blob ''
expect --chunk-size upload --ch
expect --json upload --js
expect '!--chunk-size' list --ch
expect --before-sync --json blob delete --be
expect safe --policy ''
expect compatible --policy = comp
expect upload --policy safe up
expect photo.jpg upload URL ph
expect keys.json object get --config ke
expect home --home ho
expect '!photo.jpg' --home ''
expect '!photo.jpg' list URL ''
rm -r "$PWD"
exit "$failed"
