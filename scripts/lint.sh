#!/bin/sh
# Format, clang-tidy and cppcheck over the project's own sources: scripts/lint.sh [FOLDER...]
#
# Not looked at: the generated codecs. They are some hundred thousand lines of a few patterns; what
# they are made by (asn1gen/) and what they call (asn1per/) is looked at, and the compilers warn.
set -eu
cd "$(dirname "$0")/.."

[ $# -ne 0 ] || set -- asn1gen asn1per bench cli fuzz gateway H.323 host include locator nat report samples tests tree
sources=$(git ls-files -- "$@" | grep -E '\.(c|cpp|h)$') || {
    echo "scripts/lint.sh: no C or C++ in $*" >&2
    exit 2
}
units=$(echo "$sources" | grep -E '\.cpp$' || true)
scripts/install-packages.sh build lint

# shellcheck disable=SC2086 # lists of words, here and below
clang-format-14 --dry-run -Werror $sources

# The compilers' commands without ccache, which clang-tidy would take for the compiler.
cmake --preset debug --log-level=WARNING
cmake --build --preset debug --target h323codec_sources locator_sources >/dev/null
mkdir -p build/lint
sed 's|"command": "[^ ]*ccache |"command": "|' build/debug/compile_commands.json \
    >build/lint/compile_commands.json

# Only what this build compiles: fuzz targets, for instance, have a build of their own.
known=$(for unit in $units; do
    ! grep -q "\"file\": \"$PWD/$unit\"" build/lint/compile_commands.json || echo "$unit"
done)
# GCC's names of warnings are not all clang's.
echo "$known" | xargs -r -n 1 -P "$(nproc)" clang-tidy-14 --quiet -p build/lint \
    --extra-arg=-Wno-unknown-warning-option

# cppcheck does not take the empty first argument that this macro of GoogleTest's may have.
mkdir -p build/lint/cppcheck
# shellcheck disable=SC2086
[ -z "$units" ] || cppcheck --quiet -j "$(nproc)" --cppcheck-build-dir=build/lint/cppcheck --error-exitcode=1 \
    --std=c++20 --language=c++ --library=googletest --enable=warning,performance,portability --inline-suppr \
    --suppressions-list=.cppcheck-suppressions '-DINSTANTIATE_TEST_SUITE_P(...)=' -I . $units
# What is built to ship, if it was built.
if [ -e build/release/bin/h323nat ]; then
    scripts/hardening.sh build/release/bin/h323nat build/release/lib/libh323nat.so
fi
echo "lint: clean"
