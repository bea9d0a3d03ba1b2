#!/bin/sh
# A host that was built for the last release still fits.
set -eu
exec "$(dirname "$0")/../abi.sh"
