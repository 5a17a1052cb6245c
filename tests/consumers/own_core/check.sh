#!/bin/sh
# check.sh PROGRAM: it prints a tag, and is linked with nothing but what the module itself needs.
set -eu
"$1" | grep '"pi":"home"'
others=$(ldd "$1" | awk '{print $1}' | sed 's|.*/||' |
  grep -vE '^(linux-vdso|ld-linux.*|lib(c|m|gcc_s|stdc\+\+|uriparser|md|vantamo))\.so\.[0-9]+$' || true)
if [ -n "$others" ]; then
  echo "The program is linked with more than the module needs:" $others >&2
  exit 1
fi
