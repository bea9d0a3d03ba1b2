#!/bin/sh
# Builds the module and the tool h323nat, and replays a recorded call through a NAT router of ours
# that uses the module: the report tells what the module did.
set -eu
cd "$(dirname "$0")/.."

[ $# -eq 0 ] || { echo "usage: scripts/demo.sh" >&2; exit 2; }
scripts/install-packages.sh build
cmake --preset release --log-level=WARNING
cmake --build --preset release -j "$(nproc)" --target h323nat_cli

capture=samples/gk-routed.pcap
output=build/demo.pcap
echo
echo "A host at 10.0.0.5 registers with a gatekeeper outside and calls through it ($capture)."
echo "\$ h323nat replay $capture -o $output --inside 10.0.0.0/24 --public 203.0.113.1"
build/release/bin/h323nat replay "$capture" -o "$output" --inside 10.0.0.0/24 --public 203.0.113.1
