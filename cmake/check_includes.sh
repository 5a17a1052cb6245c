#!/usr/bin/env bash
# Holds the direction of includes: each folder may name only itself and the folders below it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

declare -A may_include=(
  [include]="vantamo"
  [platform]="platform vantamo"
  [support]="support platform vantamo"
  [state]="state support platform vantamo"
  [constraints]="constraints support platform vantamo"
  [tags]="tags state support platform vantamo"
  [module]="module tags constraints state support platform vantamo"
  [facade]="facade module tags constraints state support platform vantamo"
  [cores]="cores support platform vantamo"
  [examples]="vantamo"
  [tools]="tools cores tags constraints support platform vantamo"
)

failed=0
for folder in "${!may_include[@]}"; do
  allowed=${may_include[$folder]// /|}
  while IFS= read -r line; do
    echo "$line: not below $folder/"
    failed=1
  done < <(git grep -nE '^#include "[^"]+"' -- "$folder" |
    grep -vE "#include \"($allowed)/" || true)
  while IFS= read -r line; do
    echo "$line: a public header names a third party's"
    failed=1
  done < <([ "$folder" = include ] && git grep -nE '^#\s*include <[^>]*[./][^>]*>' -- include |
    grep -vE '<std(bool|def|int)\.h>' || true)
done
exit $failed
