#!/bin/sh
# Two builds of the present commit in different folders, at different times, give the same module,
# packages, DLL and zip, octet for octet.
set -eu
cd "$(dirname "$0")/../.."

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export CCACHE_DISABLE=1 # what one build compiled must not serve the other
commit=$(git rev-parse HEAD)
other="another one/and deeper"
for folder in one "$other"; do
    git clone --quiet . "$work/$folder"
    (
        cd "$work/$folder"
        git checkout --quiet "$commit"
        cmake --preset release --log-level=WARNING -DH323NAT_TESTS=OFF >/dev/null
        cmake --build --preset release -j "$(nproc)" >/dev/null
        (cd build/release && cpack >/dev/null)
        cmake --preset mingw64 --log-level=ERROR -DH323NAT_TESTS=OFF \
            "-DH323NAT_ASN1GEN=$PWD/build/release/bin/asn1gen" >/dev/null
        cmake --build --preset mingw64 -j "$(nproc)" >/dev/null
        (cd build/mingw64 && cpack >/dev/null)
    )
done
cd "$work/one"
for file in build/release/lib/libh323nat.so.*.*.* build/release/packages/*.deb \
    build/mingw64/bin/h323nat.dll build/mingw64/packages/*.zip; do
    if ! cmp "$file" "$work/$other/$file"; then
        echo "reproducible: $file depends on the folder or time of its build" >&2
        exit 1
    fi
done
echo "reproducible: module, packages, DLL and zip are the same octets"
