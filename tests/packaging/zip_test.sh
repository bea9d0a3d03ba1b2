#!/bin/sh
# Unpacks the zip for Windows and uses what a user finds in it, under Wine where it runs such
# programs: tests/packaging/zip_test.sh FILE.zip
set -eu

zip=$(realpath "$1")
cd "$(dirname "$0")/../.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
(cd "$work" && cmake -E tar xf "$zip")
root="$work/$(basename "$zip" .zip)"
for file in bin/h323nat.dll bin/h323nat.exe lib/libh323nat.dll.a include/h323nat/h323nat.h \
    doc/h323nat.txt doc/CHANGELOG.md; do
    [ -s "$root/$file" ] || { echo "$zip has no $file" >&2; exit 1; }
done

case "$zip" in
*x86_64.zip) preset=mingw64 ;;
*)
    preset=mingw32
    scripts/wine.sh --runs-32-bit || { echo "$zip: complete; not tried, that needs 32-bit Wine"; exit 0; }
    ;;
esac
scripts/wine.sh "$root/bin/h323nat.exe" --version >/dev/null
cmake -S "$root/samples/minimal_host" -B "$work/build" -G Ninja -Dh323nat_DIR="$root/lib/cmake/h323nat" \
    --toolchain "$PWD/cmake/toolchains/$preset.cmake" >/dev/null
cmake --build "$work/build" >/dev/null
scripts/wine.sh "$work/build/minimal_host.exe" >/dev/null
scripts/wine.sh "$work/build/loading_host.exe" "$root/bin/h323nat.dll" >/dev/null
echo "$zip: complete, and serves a host program"
