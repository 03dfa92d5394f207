#!/usr/bin/env bash
# Plays the evening with a development service of its own and a new database, and leaves nothing
# behind.
# usage: play.sh HOUSEHOLD_EVENING KESTRIN_PROFILE_SERVER
set -euo pipefail
readonly evening=$1 server=$2

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT

TMPDIR="$directory" "$evening" --config "$directory/config.json" --blocked blocked -- \
    "$server" --database "$directory/evening.sqlite" --block blocked --max-size 240 --quiet
