#!/usr/bin/env bash
# Whether the library for C still fits programs that were compiled with its header before: compares the types of all
# functions that it exports with those that were written down.
# usage: interface_types_test.sh [--write] COMPILER INCLUDE_DIRECTORY SYMBOLS TYPES
set -euo pipefail

write=
if [ "$1" = --write ]; then
    write=yes
    shift
fi
compiler=$1 include=$(realpath "$2") symbols=$3 types=$4
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# A variable of each function's type takes the place of the function, whose types are in C++ there.
{
    echo '#include <KestrinC/kestrin_profile.h>'
    sed 's/.*/__typeof__(\&(&)) of_&;/' "$symbols"
} >"$folder/interface.c"
# Its name is written down, so it is without its folder.
(cd "$folder" && "$compiler" -std=gnu11 -g -fPIC -shared -I "$include" interface.c -o libinterface.so)

if [ -n "$write" ]; then
    abidw --no-corpus-path --no-comp-dir-path --no-show-locs "$folder/libinterface.so" >"$types"
elif ! abidiff --no-show-locs "$types" "$folder/libinterface.so"; then
    echo "If structures have grown at their ends and nothing else has changed, renew the list with ./dev symbols;"
    echo "programs that exist do not fit anything else."
    exit 1
fi
