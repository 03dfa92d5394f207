#!/usr/bin/env bash
# The repository in a root of another distribution below build/. As root: it mounts, in a namespace of
# its own.
# usage: root.sh make ROOT SUITE PACKAGE…   makes the root with mmdebstrap unless it is there
#        root.sh run ROOT COMMAND…          copies what is not ignored here to /src, and runs the
#                                           command there
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

make() {
    local root=$1 suite=$2
    shift 2
    [ -e "$root/src" ] && return
    mkdir -p "$(dirname "$root")"
    rm -rf --one-file-system "$root.new"
    mmdebstrap --variant=minbase --aptopt='APT::Install-Recommends "false"' \
        --include="$(IFS=,; echo "$*")" "$suite" "$root.new"
    mkdir "$root.new/src"
    mv "$root.new" "$root"
}

# What was built there stays, and times of files with it.
copy() {
    find "$1/src" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
    git ls-files --cached --others --exclude-standard -z |
        tar --null --files-from=- --ignore-failed-read --create 2>/dev/null |
        tar --extract --directory="$1/src"
}

run() {
    local root=$1
    shift
    copy "$root"
    cp /etc/resolv.conf "$root/etc/resolv.conf"
    # shellcheck disable=SC2016
    exec unshare --mount --fork bash -c '
        root=$1
        shift
        mount -t proc proc "$root/proc"
        mount --rbind /dev "$root/dev"
        mount -t tmpfs tmpfs "$root/tmp"
        exec env -i HOME=/root LC_ALL=C.UTF-8 PATH=/usr/bin:/bin:/usr/sbin:/sbin \
            chroot "$root" bash -c "cd /src && exec \"\$@\"" _ "$@"' _ "$root" "$@"
}

"$@"
