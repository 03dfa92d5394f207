#!/usr/bin/env bash
# A program that knows pkg-config alone is compiled, linked and run.
# usage: pkg_config_test.sh PKGCONFIG_DIRECTORY PACKAGE SOURCE COMPILER [FLAG…]
set -euo pipefail
export PKG_CONFIG_PATH=$1
package=$2 source=$3
shift 3
program=$(mktemp -d)/program
trap 'rm -rf "$(dirname "$program")"' EXIT
read -ra flags < <(pkg-config --cflags "$package")
read -ra libraries < <(pkg-config --libs "$package")
"$@" "${flags[@]}" "$source" "${libraries[@]}" -pthread -o "$program"
# What a shared library beside an application is found by.
LD_LIBRARY_PATH=$(pkg-config --variable=libdir "$package") "$program"
