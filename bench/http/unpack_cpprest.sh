#!/usr/bin/env bash
# Unpacks Debian's C++ REST SDK, with the Boost that it was built for, into a folder:
#     bench/http/unpack_cpprest.sh build/cpprest
#     cmake --preset bench -DKESTRIN_CPPREST_DIR="$PWD/build/cpprest"
# It is not installed, because that Boost and this project's cannot be installed side by side.
set -euo pipefail

readonly folder=${1:?usage: unpack_cpprest.sh FOLDER}
readonly packages=(libcpprest-dev libcpprest2.10 libboost1.74-dev)

mkdir -p "$folder/packages"
cd "$folder"
(cd packages && apt-get download "${packages[@]}")
for package in packages/*.deb; do
    dpkg-deb -x "$package" .
done
rm -r packages
