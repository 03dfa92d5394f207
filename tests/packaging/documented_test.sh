#!/usr/bin/env bash
# The pages name the headers and the targets that there are, all of them and no others.
# usage: documented_test.sh REPOSITORY PREFIX
set -euo pipefail
export LC_ALL=C
repository=$1
prefix=$2
libraries='HalvardMorrow|HalvardSling|KestrinConfigManager|KestrinProfile|KestrinProfileTesting|KestrinHousehold|KestrinC'

# What a build of shared libraries leaves out.
unless_left_out() {
    if [ -d "$prefix/include/KestrinC" ]; then cat; else grep -vE '^KestrinC(/|::)'; fi
}

# Names in the first column of a page's table that look like PATTERN.
in_table() {
    grep -oE "^\| \`[^\`]+\`" "$repository/docs/$1" | tr -d '|` ' | grep -E "$2" | sort
}
headers_below() {
    (cd "$1" && find . -name '*.h*' -printf '%P\n' | grep -E "^($libraries)/" | sort)
}

status=0
compare() {
    diff --label "what $1 says" --label "what there is" -u "$2" "$3" || status=1
}

compare public-api.md <(in_table public-api.md '\.h(pp)?$' | unless_left_out) <(headers_below "$prefix/include")
compare public-api.md <(in_table public-api.md '::' | unless_left_out) \
    <(find "$prefix" -name '*Targets.cmake' -exec grep -hoE '^add_library\([^ ]+' {} + | cut -d '(' -f 2 | sort)
compare own-platform.md <(in_table own-platform.md '\.hpp$') \
    <(headers_below "$repository/tests/packaging/own_platform/platform")
exit "$status"
