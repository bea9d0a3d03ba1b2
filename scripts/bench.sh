#!/bin/sh
# Measures the codecs, the hooks and whole calls.
#   scripts/bench.sh                      times
#   scripts/bench.sh --instructions       instructions per message, which repeat where times do not
#   scripts/bench.sh --compare BUILD      times as ratios to another tree's build/bench
#   scripts/bench.sh --instructions --compare BUILD
#   scripts/bench.sh --live [OPTION...]   calls through the gateway beside masquerading and the
#                                         kernel's helper; root; options of bench/live/live_load.py
set -eu
cd "$(dirname "$0")/.."

mode=times
other=
while [ $# -gt 0 ]; do
    case "$1" in
    --instructions) mode=instructions ;;
    --live)
        mode=live
        shift
        break
        ;;
    --compare)
        [ $# -gt 1 ] || { echo "--compare wants the build folder to compare with" >&2; exit 2; }
        other=$(realpath "$2")
        shift
        ;;
    *)
        echo "usage: scripts/bench.sh [--instructions] [--compare BUILD] | --live [OPTION...]" >&2
        exit 2
        ;;
    esac
    shift
done

scripts/install-packages.sh build bench
cmake --preset bench --log-level=WARNING
if [ "$mode" = live ]; then
    cmake --build --preset bench -j "$(nproc)" --target h323nat_cli bench_live >/dev/null
    exec python3 bench/live/live_load.py --program build/bench/bin/h323nat \
        --load build/bench/bin/bench_live "$@"
fi
cmake --build --preset bench -j "$(nproc)" >/dev/null
exec python3 scripts/bench_table.py "$mode" build/bench ${other:+"$other"}
