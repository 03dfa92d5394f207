#!/usr/bin/env bash
# The segments of shared libraries fit pages of 16 KiB, which phones have.
# usage: segments_test.sh LIBRARY…
set -euo pipefail
export LC_ALL=C
for library in "$@"; do
    readelf --segments --wide "$library" | awk -v library="$library" '
        $1 == "LOAD" { ++count; if ($NF != "0x4000") { print library ": not aligned to 16 KiB:", $0; bad = 1 } }
        END { exit bad || count == 0 }'
done
