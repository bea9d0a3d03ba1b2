#!/bin/sh
# Fuzzes the module and its tools with libFuzzer, every target for its share of the time, and reports
# executions, coverage and findings. Exit status 1 when an input broke a promise.
#   scripts/fuzz.sh [SECONDS]     in all; 600 when not given
#   scripts/fuzz.sh --coverage    lines of the module's folders that the corpora reach
#   scripts/fuzz.sh --merge       adds to fuzz/corpus/ what the fuzzer found reaches further
# New inputs collect in build/fuzz-corpus, findings in build/fuzz-findings (docs/fuzzing.md).
# FUZZ_TIMEOUT is the time limit for one input in seconds, 2 when not set.
set -eu
cd "$(dirname "$0")/.."

targets="hooks full types runtime locator tree parser capture plain_capture"
inputs=build/fuzz-corpus
findings=build/fuzz-findings

longest() {
    case "$1" in
    hooks | full) echo 6000 ;;
    *capture) echo 8000 ;;
    parser) echo 2000 ;;
    *) echo 1500 ;;
    esac
}

build() { # PRESET PROGRAM...
    preset=$1
    shift
    cmake --preset "$preset" --log-level=WARNING
    cmake --build --preset "$preset" -j "$(nproc)" --target "$@"
}

programs() {
    for target in $targets; do
        echo "fuzz_$target"
    done
}

seeds() {
    [ -d "$inputs/tree" ] || build/fuzz/bin/make_seeds "$inputs" tests/vectors/*.txt
    for target in $targets; do
        mkdir -p "$inputs/$target" "fuzz/corpus/$target"
    done
}

fuzz() { # SECONDS
    # shellcheck disable=SC2046
    build fuzz make_seeds $(programs)
    seeds
    mkdir -p "$findings"
    share=$(($1 / $(echo "$targets" | wc -w)))
    [ "$share" -ne 0 ] || share=1 # 0 has no end
    status=0
    printf '%-13s %12s %10s %10s  %s\n' target executions edges inputs findings
    for target in $targets; do
        log=$findings/$target.log
        found=none
        build/fuzz/bin/fuzz_"$target" -max_total_time="$share" -max_len="$(longest "$target")" \
            -timeout="${FUZZ_TIMEOUT:-2}" -rss_limit_mb=2048 -print_final_stats=1 \
            -artifact_prefix="$findings/$target-" \
            "$inputs/$target" "fuzz/corpus/$target" >"$log" 2>&1 || {
            found=$(sed -n 's/.*Test unit written to //p' "$log" | tail -1)
            [ -n "$found" ] || found="see $log"
            status=1
        }
        printf '%-13s %12s %10s %10s  %s\n' "$target" \
            "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)" \
            "$(sed -n 's/^#.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -1)" \
            "$(find "$inputs/$target" -type f | wc -l)" "$found"
    done
    return "$status"
}

coverage() {
    # shellcheck disable=SC2046
    build coverage $(programs)
    profiles=build/coverage/profiles
    rm -rf "$profiles"
    objects=
    for target in $targets; do
        LLVM_PROFILE_FILE="$profiles/$target.profraw" \
            build/coverage/bin/fuzz_"$target" "fuzz/corpus/$target" >/dev/null
        objects="$objects -object=build/coverage/bin/fuzz_$target"
    done
    llvm-profdata-14 merge -o "$profiles/all.profdata" "$profiles"/*.profraw
    # shellcheck disable=SC2086
    llvm-cov-14 export -summary-only -instr-profile "$profiles/all.profdata" $objects \
        >"$profiles/summary.json"
    python3 - "$profiles/summary.json" <<'END'
import json, os, sys

files = json.load(open(sys.argv[1]))["data"][0]["files"]
for folder in "asn1per", "locator", "nat", "host":
    start = os.path.join(os.getcwd(), folder) + os.sep
    lines = [f["summary"]["lines"] for f in files
             if os.path.realpath(f["filename"]).startswith(start)]
    count = sum(line["count"] for line in lines)
    covered = sum(line["covered"] for line in lines)
    print(f"{folder:8} {covered:5} of {count:5} lines, {100 * covered / count:5.1f} %")
END
}

merge() {
    # shellcheck disable=SC2046
    build fuzz make_seeds $(programs)
    seeds
    for target in $targets; do
        build/fuzz/bin/fuzz_"$target" -merge=1 -max_len="$(longest "$target")" \
            "fuzz/corpus/$target" "$inputs/$target" 2>&1 | tail -1
    done
}

case "${1-600}" in
--coverage) work=coverage ;;
--merge) work=merge ;;
"" | *[!0-9]*)
    echo "usage: scripts/fuzz.sh [SECONDS | --coverage | --merge]" >&2
    exit 2
    ;;
*) work=fuzz ;;
esac
scripts/install-packages.sh build fuzz
"$work" "${1-600}"
