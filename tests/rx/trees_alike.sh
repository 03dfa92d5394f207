#!/usr/bin/env bash
# trees_alike.sh PROGRAM PROGRAM FIRST COUNT: both programs write the same about the same trees.
set -euo pipefail

first=$(mktemp)
second=$(mktemp)
trap 'rm -f "$first" "$second"' EXIT

"$1" "$3" "$4" >"$first"
"$2" "$3" "$4" >"$second"
if ! difference=$(diff --show-function-line='^tree' -U2 "$first" "$second"); then
    head -n 60 <<<"$difference"
    exit 1
fi
grep -q completed "$first"
