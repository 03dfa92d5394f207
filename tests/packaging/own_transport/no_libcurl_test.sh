#!/usr/bin/env bash
# Neither the program and the library nor the packages that would be installed need libcurl.
# usage: no_libcurl_test.sh PROGRAM ARCHIVE PACKAGES
set -euo pipefail
needed=$(
    readelf --dynamic "$1" | grep NEEDED
    nm --undefined-only "$1" "$2"
    cat "$3"/*Config.cmake
)
! grep -iE 'libcurl|\bcurl_|CURL\)' <<<"$needed"
