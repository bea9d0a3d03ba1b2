#!/bin/sh
# Installs the packages of scripts/packages.txt that are missing: scripts/install-packages.sh GROUP...
# Does nothing, and needs no rights, when all are there.
set -eu

list="$(dirname "$0")/packages.txt"
[ $# -ne 0 ] || { echo "usage: scripts/install-packages.sh GROUP..., groups of $list" >&2; exit 2; }
missing=""
for group in "$@"; do
    packages=$(awk -v group="$group" '!/^#/ && $2 == group { print $1 }' "$list")
    [ -n "$packages" ] || { echo "$list has no group '$group'" >&2; exit 2; }
    for package in $packages; do
        status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
        [ "$status" = installed ] || missing="$missing $package"
    done
done
[ -n "$missing" ] || exit 0

if [ "$(id -u)" -eq 0 ]; then
    as_root="env"
elif command -v sudo >/dev/null; then
    as_root="sudo env"
else
    echo "These Debian packages are missing:$missing" >&2
    echo "Run this script as root, or install sudo, or install them yourself." >&2
    exit 1
fi
echo "Installing:$missing" >&2
# A list that cannot be fetched may belong to a source that nothing here needs: the next step tells.
$as_root DEBIAN_FRONTEND=noninteractive apt-get -q update >&2 ||
    echo "Package lists are not up to date; going on with what there is." >&2
# shellcheck disable=SC2086 # a list of words
$as_root DEBIAN_FRONTEND=noninteractive apt-get -qy install --no-remove --no-install-recommends \
    $missing >&2
