#!/usr/bin/env bash
# Starts the development service with a new database, plays the evening against it, stops the
# service, and leaves nothing behind.
# usage: play.sh HOUSEHOLD_EVENING KESTRIN_PROFILE_SERVER
set -euo pipefail
readonly evening=$1 server=$2

directory=$(mktemp -d)
server_id=
stop() {
    if [ -n "$server_id" ]; then
        kill -TERM "$server_id" 2>/dev/null || true
        wait "$server_id" || { echo "the service did not end cleanly" >&2; status=1; }
        server_id=
    fi
    rm -rf "$directory"
}
status=0
trap stop EXIT

mkfifo "$directory/ready"
"$server" --port 0 --database "$directory/evening.sqlite" --write-config "$directory/config.json" \
    --block blocked --max-size 240 --quiet >"$directory/ready" &
server_id=$!
read -r ready <"$directory/ready" || { echo "the service did not start" >&2; exit 1; }
echo "$ready"

"$evening" --config "$directory/config.json" --blocked blocked || status=$?
stop
trap - EXIT
exit "$status"
