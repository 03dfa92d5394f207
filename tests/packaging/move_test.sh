#!/usr/bin/env bash
# Installs the project, and moves the folder: nothing in it may say where it was.
# usage: move_test.sh CMAKE BUILD_DIRECTORY PREFIX
set -euo pipefail
first=$3-before
rm -rf "$first" "$3"
"$1" --install "$2" --prefix "$first" >/dev/null
[ -d "$first" ] || { echo "nothing was installed"; exit 1; }
mv "$first" "$3"
! grep -rlF "$first" "$3" || { echo "these name the folder that they were installed into"; exit 1; }
