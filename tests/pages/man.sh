#!/usr/bin/env bash
# Formats the generated man pages; every warning is a failure.  man.sh DIRECTORY
set -u
command -v groff >/dev/null || { echo "skipped: no groff"; exit 77; }
failed=0
for page in "$1"/*.1; do
  warnings=$(groff -man -ww -z -Tutf8 "$page" 2>&1)
  if command -v mandoc >/dev/null; then warnings+=$(mandoc -Tlint -Wwarning "$page" 2>&1); fi
  [[ -n $warnings ]] || continue
  printf '%s: %s\n' "$page" "$warnings"
  failed=1
done
exit "$failed"
