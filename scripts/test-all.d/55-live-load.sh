#!/bin/sh
# Some calls of each kind through the live gateway at once: each message must arrive as it has to,
# and media both ways. Its times mean nothing. Needs root and network namespaces.
set -eu
cd "$(dirname "$0")/../.."
status=0
scripts/bench.sh --live --short || status=$?
[ "$status" -eq 77 ] || exit "$status"
