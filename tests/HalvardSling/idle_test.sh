#!/bin/sh
# A transport with nothing to do must not wake up: no thread of the program may make a system call
# between its two lines, but for the sleep of its main thread.
# Usage: idle_test.sh PROGRAM SECONDS
set -eu

command -v strace >/dev/null || { echo "strace is missing (Debian's package strace)"; exit 1; }
trace=$(mktemp)
trap 'rm -f "$trace"' EXIT
strace -f -o "$trace" "$1" "$2" >/dev/null

# Each line begins with the thread's number; what the main thread does itself does not count.
awk '
    /idle from here/ { main = $1; inside = 1; found = 1; next }
    /idle to here/ { inside = 0; ended = 1 }
    inside && $1 != main { print "woke up: " $0; woken = 1 }
    END {
        if (!found || !ended) { print "the trace is not whole"; exit 1 }
        exit woken
    }
' "$trace"
echo "no wake-up in $2 seconds"
