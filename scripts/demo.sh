#!/bin/sh
# Builds the module, installs it below build/, and lets a host program load it and pass it packets.
set -eu
cd "$(dirname "$0")/.."

scripts/install-packages.sh build
jobs=$(nproc)
prefix="$PWD/build/demo/root"
cmake --preset release --log-level=WARNING
cmake --build --preset release -j "$jobs" --target h323nat
cmake --install build/release --component module --prefix "$prefix" >/dev/null
cmake -S samples/minimal_host -B build/demo/host -G Ninja --log-level=WARNING \
    -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build build/demo/host >/dev/null

echo
echo "samples/minimal_host, linked to the module in build/demo/root:"
build/demo/host/minimal_host
