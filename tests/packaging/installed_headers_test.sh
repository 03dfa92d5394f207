#!/usr/bin/env bash
# Installed headers include the standard library, ReactiveX and one another alone, and name nothing
# that is not public.
# usage: installed_headers_test.sh INCLUDE_DIRECTORY
set -euo pipefail
cd "$1"

status=0
# expect_none DESCRIPTION LINES
expect_none() {
    [ -z "$2" ] && return
    printf '%s:\n%s\n' "$1" "$2"
    status=1
}

libraries=(HalvardMorrow HalvardSling KestrinConfigManager KestrinProfile KestrinHousehold)
# For tests of applications; its headers start a process (POSIX) and know GoogleTest.
if [ -d KestrinProfileTesting ]; then
    libraries+=(KestrinProfileTesting)
fi
mapfile -t headers < <(find "${libraries[@]}" -name '*.hpp' | sort)
[ "${#headers[@]}" -gt 20 ] || { echo "only ${#headers[@]} headers are installed"; exit 1; }

expect_none "a folder that is not public is installed" \
    "$(find "${libraries[@]}" -type d -name internal)"

allowed='<([a-z0-9_]+|rxcpp/[a-z/-]+\.hpp|(HalvardMorrow|HalvardSling|KestrinConfigManager|KestrinProfile|KestrinProfileTesting|KestrinHousehold)/[A-Za-z/]+\.hpp)>'
for_tests='^KestrinProfileTesting/.*<(gtest/gtest|(fcntl|signal|spawn|unistd|sys/[a-z]+))\.h>$'
expect_none "an include that is neither of the standard library nor of ReactiveX nor ours" \
    "$(grep -nE '^ *# *include' "${headers[@]}" | grep -vE "# *include $allowed$" | grep -vE "$for_tests")"

# A private member may hold a type of the namespace `internal` that is declared and nothing more.
private='boost|BOOST|CURL[A-Z]*\b|curl_|<curl/|internal/|KestrinInternal'
test_friend='friend (class|struct) [A-Za-z:]*(Test|Friend|Access)'
expect_none "a name that is not public" "$(grep -nE "$private|$test_friend" "${headers[@]}")"
if [ -d KestrinC ]; then
    expect_none "an include of the header for C that is not of C's own library" \
        "$(grep -nE '^ *# *include' KestrinC/*.h | grep -vE '# *include <(stdbool|stddef|stdint|string)\.h>$')"
fi
exit "$status"
