#!/usr/bin/env python3
"""Runs the benchmarks of one or two builds and prints one table. Called by scripts/bench.sh."""

import glob
import json
import os
import re
import subprocess
import sys
import tempfile

PROGRAMS = ("bench_codec", "bench_hooks", "bench_replay")
FOREIGN_PACKETS = 4096  # bench/foreign_traffic.h
REPLAYED_PACKETS = 20000  # bench/replay_instructions.cpp


def times(build):
    """Nanoseconds by name. A hook's time is that of one packet."""
    result = {}
    for program in PROGRAMS:
        output = subprocess.run(
            [os.path.join(build, "bin", program), "--benchmark_format=json",
             "--benchmark_min_time=0.1", "--benchmark_repetitions=3",
             "--benchmark_report_aggregates_only=true"],
            check=True, stdout=subprocess.PIPE, text=True).stdout
        for run in json.loads(output)["benchmarks"]:
            if run["aggregate_name"] != "median":
                continue
            name = run["run_name"]
            value = run["ns/packet"] * 1e9 if "ns/packet" in run else run["cpu_time"]
            if name.endswith("manual_time"):
                value = run["real_time"]
            result[name] = value
    return result


def counts(build, program):
    """Pairs of a label and the instructions that the program counted under it."""
    with tempfile.TemporaryDirectory() as folder:
        out = os.path.join(folder, "profile")
        subprocess.run(
            ["valgrind", "--tool=callgrind", "--collect-atstart=no", "-q",
             "--callgrind-out-file=" + out, os.path.join(build, "bin", program)],
            check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        parts = sorted(glob.glob(out + ".*"), key=lambda name: int(name.rsplit(".", 1)[1]))
        for part in parts:
            with open(part, encoding="latin-1") as file:
                text = file.read()
            label = re.search(r"Client Request: (\S+) (\S+)", text)
            total = re.search(r"^(?:totals|summary): (\d+)", text, re.MULTILINE)
            if label and total:
                yield label.groups(), int(total.group(1))


def instructions(build):
    """Instructions by "STEP/MESSAGE", and the sum of each step; of the hooks for each packet of
    foreign traffic, above a call that does nothing; of a replay for each packet of media."""
    result = {}
    for (message, step), count in counts(build, "bench_instructions"):
        name = f"{step}/{message}"
        while name in result:  # two messages of one kind
            name += "'"
        result[name] = count
    for step in ("locate", "locate-all", "decode", "encode", "lossless"):
        result[f"{step}/sum"] = sum(value for name, value in result.items()
                                    if name.startswith(step + "/"))
    empty = None
    for (scope, hook), count in counts(build, "bench_hook_instructions"):
        empty = count if empty is None else empty
        result[f"packet {hook}/{scope}"] = (count - empty) / FOREIGN_PACKETS
    for (step, what), count in counts(build, "bench_replay_instructions"):
        result[f"{step}/{what}"] = count / REPLAYED_PACKETS
    return result


def main():
    mode, builds = sys.argv[1], sys.argv[2:]
    measure = instructions if mode == "instructions" else times
    unit = "instructions" if mode == "instructions" else "ns"
    ours = measure(builds[0])
    theirs = measure(builds[1]) if len(builds) > 1 else {}
    print(f"{'':44}{unit:>14}" + (f"{'other':>14}{'ratio':>8}" if theirs else ""))
    for name, value in ours.items():
        line = f"{name:44}{value:14,.{0 if value >= 100 else 1}f}"
        if name in theirs and theirs[name]:
            line += f"{theirs[name]:14,.1f}{value / theirs[name]:8.2f}"
        print(line)


if __name__ == "__main__":
    main()
