#!/usr/bin/env bash
# Builds the library, the development service, the package, and runs the package's
# tests. Needs Swift 6 beside what the library needs.
# usage: test.sh [PART OF A TEST'S NAME]   or   test.sh bench
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

# Debian keeps the clang of swiftlang there.
export PATH=$PATH:/usr/libexec/swift/bin
jobs=$(nproc)
readonly jobs build=$PWD/build/swift

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKESTRIN_BUILD_TESTS=OFF \
    -DKESTRIN_BUILD_CLI=OFF -DKESTRIN_BUILD_JAVA=OFF -DCMAKE_CXX_COMPILER_LAUNCHER=ccache >/dev/null
cmake --build "$build" --parallel "$jobs" --target KestrinC kestrin-profile-server
cmake --install "$build/libs/KestrinC" --prefix "$build/prefix" >/dev/null
PKG_CONFIG_PATH=$(dirname "$(find "$build/prefix" -name KestrinC.pc)")
export PKG_CONFIG_PATH LD_LIBRARY_PATH=${PKG_CONFIG_PATH%/pkgconfig}

# package PATH CONFIGURATION
package() {
    swift-build --package-path "$1" --scratch-path "$build/$2/$(basename "$1")" \
        --configuration "$2" --jobs "$jobs" -Xswiftc -warnings-as-errors
}

configuration=debug
[ "${1:-}" != bench ] || configuration=release
readonly configuration
package bindings/swift "$configuration"
package examples/swift-first "$configuration"
"$build/$configuration/swift/$configuration/kestrin-swift-tests" \
    "$build/apps/kestrin-profile-server/kestrin-profile-server" examples/config.json \
    "$build/$configuration/swift-first/$configuration/first" "$@"
