#!/bin/sh
# The optimised build, its tests, and the Debian package made of it.
set -eu
cd "$(dirname "$0")/../.."

cmake --preset release --log-level=WARNING
cmake --build --preset release -j "$(nproc)"
scripts/hardening.sh build/release/bin/h323nat build/release/lib/libh323nat.so
ctest --preset release -j "$(nproc)" --progress
rm -rf build/release/packages
(cd build/release && cpack >/dev/null)
tests/packaging/package_test.sh build/release/packages
lintian --fail-on error --suppress-tags initial-upload-closes-no-bugs build/release/packages/*.deb
# Nothing that the service may do without its being needed: 0 is best, 10 worst.
if command -v systemd-analyze >/dev/null; then
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    cp packaging/h323nat-gateway.service "$work"
    systemd-analyze security --offline=true --threshold=15 "$work/h323nat-gateway.service" | tail -1
fi
