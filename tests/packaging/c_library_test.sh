#!/usr/bin/env bash
# The library for C exports what its header declares, has segments for pages of 16 KiB, and needs
# nothing but the C and C++ runtimes and what it is told.
# usage: c_library_test.sh LIBRARY HEADER [NEEDED…]
set -euo pipefail
export LC_ALL=C
library=$1
header=$2
shift 2

status=0
diff --label "the header" --label "the library" -u \
    <(grep -oE '\bkestrin_[a-z0-9_]+\(' <(sed -E '/static inline/d; s/\(\*[a-z_]+\)\(//g' "$header") |
        tr -d '(' | sort -u) \
    <(nm --dynamic --defined-only --format=posix "$library" | cut -d ' ' -f 1 | sort -u) || status=1

"$(dirname "${BASH_SOURCE[0]}")/segments_test.sh" "$library" || status=1

runtimes=(libc libm libstdc++ libgcc_s libc++ libc++abi libunwind ld-linux-x86-64 ld-linux-aarch64)
needed=$(readelf --dynamic --wide "$library" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p' |
    sed -E 's/\.so(\..*)?$//')
[ -n "$needed" ] || { echo "nothing is needed, not even libc"; exit 1; }
for each in $needed; do
    printf '%s\n' "${runtimes[@]}" "$@" | grep -qxF "$each" || { echo "needs $each"; status=1; }
done
exit "$status"
