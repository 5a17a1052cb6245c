#!/usr/bin/env bash
# check_docs.sh DOCUMENT: each block under a comment that names a file stands in that file, word for
# word.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

blocks=0
while IFS= read -r line; do
  [[ $line =~ ^\<!--\ (tests/[^ ]+)\ --\>$ ]] || continue
  file=${BASH_REMATCH[1]}
  IFS= read -r line # the fence
  block=
  while IFS= read -r line && [[ $line != '```' ]]; do block+=$line$'\n'; done
  if [[ $(<"$file")$'\n' != *"$block"* ]]; then
    echo "$1: this does not stand in $file:" >&2
    printf '%s' "$block" >&2
    exit 1
  fi
  blocks=$((blocks + 1))
done <"$1"
[ "$blocks" -gt 0 ]
