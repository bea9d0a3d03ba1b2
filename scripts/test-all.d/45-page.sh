#!/bin/sh
# The page of `h323nat replay --report` in headless Chromium.
set -eu
cd "$(dirname "$0")/../.."
exec tests/report/page_test.py build/debug/bin/h323nat samples
