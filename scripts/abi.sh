#!/bin/sh
# The binary interface of libh323nat.so against that of the last release: names, symbol version,
# arguments, the layout of every record in them, and the header's numbers. Functions and numbers may be
# added.
#   scripts/abi.sh            compares; status 1 and a report when a host of that release would break
#   scripts/abi.sh --release  takes the present interface as that of a release
set -eu
cd "$(dirname "$0")/.."

case "${1-}" in
"" | --release) ;;
*)
    echo "usage: scripts/abi.sh [--release]" >&2
    exit 2
    ;;
esac

scripts/install-packages.sh build abi
release=tests/abi/libh323nat.abi
numbers=tests/abi/numbers.txt # no debug information has them
preset=debug # the types come from its debug information
cmake --preset "$preset" --log-level=WARNING >/dev/null
cmake --build --preset "$preset" --target h323nat >/dev/null
module=build/$preset/lib/libh323nat.so

present_numbers() {
    cc -E -dM include/h323nat.h |
        grep -oE '^#define [A-Z0-9_]+ UINT32_C\(\w+\)|\bX\(\w+, [0-9]+' |
        sed -E 's/^#define //; s/X\((\w+), /H323NAT_LEFT_\1 /' | LC_ALL=C sort
}

if [ "${1-}" = --release ]; then
    abidw --exported-interfaces-only --no-show-locs --no-comp-dir-path --no-corpus-path \
        --out-file "$release" "$module"
    present_numbers >"$numbers"
    exit
fi
gone=$(present_numbers | LC_ALL=C comm -23 "$numbers" -)
[ -z "$gone" ] || printf 'numbers of %s that are no more:\n%s\n' include/h323nat.h "$gone" >&2
if ! abidiff --no-added-syms --no-show-locs "$release" "$module" || [ -n "$gone" ]; then
    echo "scripts/abi.sh: hosts built for the last release would not work with this module" >&2
    exit 1
fi
echo "binary interface: as in the last release, or with additions"
