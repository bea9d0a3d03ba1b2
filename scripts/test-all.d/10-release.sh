#!/bin/sh
# The optimised build, its tests, and the Debian package made of it.
set -eu
cd "$(dirname "$0")/../.."

cmake --preset release --log-level=WARNING
cmake --build --preset release -j "$(nproc)"
ctest --preset release -j "$(nproc)" --progress
rm -rf build/release/packages
(cd build/release && cpack >/dev/null)
tests/packaging/package_test.sh build/release/packages/*.deb
