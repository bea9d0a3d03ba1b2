#!/bin/sh
# Every message of the vectors up to 400 octets, cut at every octet and with every single bit
# flipped, through the locator under AddressSanitizer and UBSan. scripts/test.sh takes a sample.
set -eu
cd "$(dirname "$0")/../.."

cmake --preset asan --log-level=WARNING
cmake --build --preset asan -j "$(nproc)" --target test_locator
H323NAT_EVERY_FLIP=1 build/asan/bin/test_locator --gtest_filter='*WrongMessages*'
