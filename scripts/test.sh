#!/bin/sh
# Builds the project and runs its tests, plain and under AddressSanitizer and UBSan.
#   scripts/test.sh          what needs no cross compiler
#   scripts/test.sh --all    also what scripts/test-all.d/ holds
set -eu
cd "$(dirname "$0")/.."

all=no
case "${1-}" in
"") ;;
--all) all=yes ;;
*)
    echo "usage: scripts/test.sh [--all]" >&2
    exit 2
    ;;
esac

scripts/install-packages.sh build
jobs=$(nproc)
for preset in debug asan; do
    cmake --preset "$preset" --log-level=WARNING
    cmake --build --preset "$preset" -j "$jobs"
    ctest --preset "$preset" -j "$jobs" --progress
done
[ "$all" = yes ] || exit 0

scripts/install-packages.sh fuzz lint abi all
for step in scripts/test-all.d/*.sh; do
    [ ! -e "$step" ] || "$step"
done
