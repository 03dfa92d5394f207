#!/usr/bin/env bash
# An application that links a static library into a shared one of its own does not export ours, nor
# the Boost within it: it may have another one itself.
# usage: archive_visibility_test.sh ARCHIVE
set -euo pipefail
visible=$(readelf --symbols --wide "$1" |
    awk '$5 != "LOCAL" && $6 == "DEFAULT" && $7 != "UND" && $7 ~ /^[0-9A-Z]/ { print $8 }' |
    c++filt | sort -u)
! grep -E '^(typeinfo (name )?for |vtable for )?(boost|KestrinInternal|[A-Za-z]+::internal)::' <<<"$visible"
