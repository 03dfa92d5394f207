#!/usr/bin/env bash
# The main job: starts the development service with a new database, plays the demo against it,
# stops the service, and leaves nothing behind.
# usage: demo.sh KESTRIN_PROFILE KESTRIN_PROFILE_SERVER
set -euo pipefail
readonly client=$1 server=$2

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

export XDG_STATE_HOME=$directory/state
mkfifo "$directory/ready"
"$server" --port 0 --database "$directory/demo.sqlite" --write-config "$directory/config.json" \
    --block blocked --max-size 240 --quiet >"$directory/ready" &
server_id=$!
exec 3<"$directory/ready"
read -r -t 20 ready <&3 || { echo "the service did not start" >&2; exit 1; }
echo "$ready"

"$client" --config "$directory/config.json" demo --blocked blocked || status=$?
stop
trap - EXIT
exit "$status"
