#!/usr/bin/env bash
# A shared library exports what the list says: no more, so that nothing becomes public by accident,
# and no less.
# usage: exported_symbols_test.sh LIBRARY LIST
set -euo pipefail
diff --label "$2" --label "$1" -u "$2" \
    <("$(dirname "${BASH_SOURCE[0]}")/exported_symbols.sh" "$1") ||
    { echo "If this is meant, renew the list with ./dev symbols"; exit 1; }
