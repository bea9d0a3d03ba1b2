#!/bin/sh
# 32-bit Linux, and both Windows. The 64-bit Windows tests run under Wine; the 32-bit ones where
# Wine has its 32-bit part, else the DLL's exports, imports and record layouts are checked alone. The
# zips for Windows are made and tried.
# That part is Debian's for i386, which is left to the machine's owner to allow, before Wine's drive
# in build/wine is made: dpkg --add-architecture i386
set -eu
cd "$(dirname "$0")/../.."

if dpkg --print-foreign-architectures | grep -qx i386; then
    scripts/install-packages.sh i386 || echo "going on without 32-bit Wine" >&2
fi

generator="$PWD/build/debug/bin/asn1gen"
for preset in linux32 mingw64 mingw32; do
    cmake --preset "$preset" --log-level=NOTICE "-DH323NAT_ASN1GEN=$generator"
    cmake --build --preset "$preset" -j "$(nproc)"
    ctest --preset "$preset" -j "$(nproc)" --progress
    case "$preset" in
    mingw*)
        rm -rf "build/$preset/packages"
        (cd "build/$preset" && cpack >/dev/null)
        tests/packaging/zip_test.sh "build/$preset"/packages/*.zip
        ;;
    esac
done
