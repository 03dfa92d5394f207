#!/usr/bin/env bash
# Installs Debian packages in a fresh root, tries what they hold, and takes them away again. In that root, as root.
# usage: packages.sh PACKAGE…
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
export DEBIAN_FRONTEND=noninteractive

fail() {
    echo "packages.sh: $*" >&2
    exit 1
}

# expect WANTED GOT
expect() {
    [ "$2" = "$1" ] || fail "'$1' was wanted, not '$2'"
}

folder=$(mktemp -d)
server=
trap '[ -z "$server" ] || kill "$server"; rm -rf "$folder"' EXIT

apt-get update -qq
apt-get install -y -qq --no-install-recommends "$@" >/dev/null
version=$(sed -nE 's/^project\(KestrinProfile VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
expect "$version" "$(kestrin-profile --version)"
for page in kestrin-profile kestrin-profile-server; do
    gzip -dc "/usr/share/man/man1/$page.1.gz" | grep -q '^\.TH ' || fail "no manual page of $page"
done

kestrin-profile-server --database "$folder/profiles.sqlite" --port 0 --write-config "$folder/config.json" --quiet \
    >"$folder/ready" &
server=$!
until grep -q ' ready on ' "$folder/ready"; do kill -0 "$server"; sleep 0.1; done

# What docs/c-interface.md shows, and a program in C++ with an outbox.
read -ra flags < <(pkg-config --cflags --libs KestrinC)
cc -std=c11 -Wall -Werror examples/c/first.c -pthread "${flags[@]}" -o "$folder/first"
expect v1 "$("$folder/first" "$folder/config.json" v1)"
read -ra flags < <(pkg-config --cflags --libs KestrinHousehold)
c++ -std=c++20 tests/packaging/pkg_config/main.cpp "${flags[@]}" -o "$folder/household"
expect KestrinHousehold.OutboxError "$("$folder/household")"
# The other program finds what the first has added.
kestrin-profile --config "$folder/config.json" watchlist list | grep -qw v1 || fail "there is no v1 on the watch list"

kill "$server"
wait "$server" || fail "the service ended with $?"
server=

names=()
for package in "$@"; do names+=("$(dpkg-deb -f "$package" Package)"); done
apt-get purge -y -qq "${names[@]}" >/dev/null
left=$(find /usr /etc /var -iname '*kestrin*')
[ -z "$left" ] || fail "this is left: $left"
echo "${names[*]}: installed, tried, and taken away again"
