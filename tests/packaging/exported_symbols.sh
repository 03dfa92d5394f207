#!/usr/bin/env bash
# Prints what a shared library exports: demangled, sorted, and without what differs between g++ with
# libstdc++ and clang with libc++ in the names of the same functions.
# usage: exported_symbols.sh LIBRARY
set -euo pipefail
export LC_ALL=C
nm --dynamic --defined-only --demangle --format=posix "$1" |
    sed -E -e 's/ [A-Za-z] [0-9a-f]+( [0-9a-f]*)?$//' \
        -e 's/std::(__1|__cxx11)::/std::/g' -e 's/std::__fs::/std::/g' -e 's/std::chrono::_V2::/std::chrono::/g' \
        -e 's/std::filesystem::__cxx11::/std::filesystem::/g' \
        -e 's/\[abi:[a-z0-9_]+\]//g' \
        -e 's/std::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' \
        -e 's/std::basic_string_view<char, std::char_traits<char> >/std::string_view/g' |
    sort -u
