#!/usr/bin/env bash
# packaging/symbols.sh [--write] LIBRARY...
#
# Compares what the shared libraries show with the lists in packaging/symbols, one a library: its
# SONAME, whether it can be unloaded, and its symbols, each behind its version. --write writes the
# lists anew.
set -euo pipefail
lists=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/symbols
export LC_ALL=C

# The private version's number changes with each version; what stands behind it may change too.
list() {
  readelf -dW "$1" | sed -n 's/.*(SONAME).*\[\(.*\)\]/SONAME \1/p; s/.*(FLAGS_1).*\(NODELETE\).*/\1/p'
  nm -DC --defined-only "$1" | sed -nE 's/^[0-9a-f]* +[A-Za-z] (.*)@@(VANTAMO_[A-Z0-9]+)(_[0-9.]+)?$/\2 \1/p
    /@/!s/^[0-9a-f]* +[B-Zb-z] /UNVERSIONED /p' | sort
}

write=
if [ "${1:-}" = --write ]; then
  write=1
  shift
fi
result=0
for library in "$@"; do
  name=$(basename "$library")
  name=${name%%.so*}
  if [ -n "$write" ]; then
    list "$library" >"$lists/$name.txt"
  elif ! diff -u --label "$name.txt" --label "$library" "$lists/$name.txt" <(list "$library"); then
    result=1
    echo "$name shows something else than before. When that is meant: packaging/symbols.sh --write $library" >&2
    echo "What a program may rely on and is gone, or changed, needs another VANTAMO_ABI_VERSION." >&2
  fi
done
exit $result
