#!/bin/sh
# The recorded calls cut, swapped and sent again at every place; scripts/test.sh takes some.
set -eu
cd "$(dirname "$0")/../.."
cmake --preset release --log-level=WARNING
cmake --build --preset release -j "$(nproc)" --target test_captures
H323NAT_PROOF=full build/release/bin/test_captures --gtest_brief=1
