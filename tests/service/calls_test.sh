#!/bin/sh
# Calling an operation, without subscribing, asks nothing of the system but memory: it touches no
# file and no network, starts no thread and waits for nobody. (libc++ asks for the thread's number when
# a static object is made.)
# Usage: calls_test.sh PROGRAM CONFIGURATION
set -eu

command -v strace >/dev/null || { echo "strace is missing (Debian's package strace)"; exit 1; }
trace=$(mktemp)
trap 'rm -f "$trace"' EXIT

# Prints the system calls between the program's two lines.
between() {
    strace -f -o "$trace" "$@" >/dev/null
    awk '
        /calls from here/ { inside = 1; found = 1; next }
        /calls to here/ { inside = 0; ended = 1 }
        inside && !/ (brk|mmap|munmap|mprotect|mremap|madvise|gettid)\(/ { print }
        END { if (!found || !ended) { print "the trace is not whole" } }
    ' "$trace"
}

asked=$(between "$@")
[ -z "$asked" ] || { printf 'a call asks of the system:\n%s\n' "$asked"; exit 1; }
# What it looks for is there when the program subscribes.
[ -n "$(between "$@" subscribe)" ] || { echo "subscribing asks nothing of the system"; exit 1; }
echo "22 calls ask nothing but memory"
