"""A load of calls through a router of network namespaces: our gateway, plain masquerading and the
kernel's own helpers beside each other. Prints tables for docs/performance.md.

live_load.py --program build/bench/bin/h323nat --load build/bench/bin/bench_live [--short]
  [--only rate|held]"""

import argparse
import json
import os
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(HERE, "..", "..", "tests", "live"))

import gateway  # noqa: E402
from gateway import Gateway, ends_call  # noqa: E402
from network import GATEKEEPER, OUTSIDE, PRIVATE, PUBLIC, Network, why_not  # noqa: E402
from recorded_call import endpoint_bytes, messages  # noqa: E402

KINDS = {"h245": "separate H.245", "tun": "tunnelled", "fast-tun": "fast start",
         "gk-direct": "registered"}
WITH_HELPER = ("h245", "fast-tun")  # the kernel's helper does not look into tunnelled H.245
REGISTRATIONS = 1800  # the gateway keeps eight for each private host
CALLS_OF_A_PART = 4700  # each takes four open files
HOSTS = [f"10.0.0.{16 + i}" for i in range(229)]
GATEWAY_CPU, LOAD_CPU = "1", "0"
SETTINGS = {"--sweep": "5", "--calls": "20000", "--ports": "5000-31999", "--mappings-per-host": "10000",
            "--unanswered-per-host": "1000", "--queue-length": "65536"}

SOON_FREE = ("--media-idle", "2")  # ports of calls that are over


def identifier(found):
    """The 16 octets that Setup, Connect and Release Complete have in common."""
    said = [m.data for m in found if m.protocol == "tcp" and m.data[4] == 8
            and m.data[8] in (0x05, 0x07, 0x5A)]
    common = [said[0][i:i + 16] for i in range(20, len(said[0]) - 15)
              if all(said[0][i:i + 16] in other for other in said[1:])]
    return common[len(common) // 2]


def script(name, samples):
    """The lines of a recorded call, as script.h tells."""
    found = messages(os.path.join(samples, name + ".pcap"))
    client = next(m.client for m in found if m.protocol == "tcp")
    number = identifier(found)
    far_h245 = {m.destination for m in found
                if m.protocol == "tcp" and m.source[0] == PRIVATE and m.destination[1] != 1720}
    places = {(PRIVATE, 5000): "media", (PRIVATE, 5001): "control", client: "client",
              (PRIVATE, 1720): "listening", (PRIVATE, 1719): "ras", (OUTSIDE, 5000): "far-media",
              (OUTSIDE, 5001): "far-control", **{end: "far-h245" for end in far_h245}}
    patches = {endpoint_bytes(end): what for end, what in places.items()}
    patches[number[6:10]] = "number"
    lines, ended = [f"kind {name}"], False
    first = next((int.from_bytes(m.data[2:4], "big") for m in found if m.protocol == "udp"), 0)
    for message in found:
        if message.data[:1] == b"\x1b" and message.protocol == "udp":
            break  # unregistrationRequest: an endpoint stays registered
        ended = ended or ends_call(message)
        channel = "ras"
        if message.protocol == "tcp":
            channel = "h245" if {message.source, message.destination} & far_h245 else "signalling"
        words = ["message", channel, "in" if message.source[0] == PRIVATE else "out",
                 "end" if ended else "talk", message.data.hex()]
        if channel == "ras":  # the number of a request begins at the second or the third octet
            words += [f"{at}:sequence" for at in (1, 2)
                      if 0 <= int.from_bytes(message.data[at:at + 2], "big") - first < 100]
        for octets, what in patches.items():
            at = message.data.find(octets)
            while at >= 0:
                words.append(f"{at}:{what}")
                at = message.data.find(octets, at + 1)
        lines.append(" ".join(words))
    return "\n".join(lines) + "\n"


def processor_seconds(process):
    """Of all threads, to the nanosecond."""
    total = 0
    for thread in os.listdir(f"/proc/{process.pid}/task"):
        with open(f"/proc/{process.pid}/task/{thread}/schedstat", encoding="ascii") as file:
            total += int(file.read().split()[0])
    return total / 1e9


def busy_seconds():
    """Of the whole machine."""
    with open("/proc/stat", encoding="ascii") as file:
        fields = [int(word) for word in file.readline().split()[1:9]]
    return (sum(fields) - fields[3] - fields[4]) / os.sysconf("SC_CLK_TCK")


class Router:
    """What stands between the two sides: 'gateway', 'plain' or 'helper'."""

    def __init__(self, between, *settings):
        self.between = between
        self.settings = settings
        self.network = Network()
        self.folder = tempfile.TemporaryDirectory()
        self.gateway = None
        try:
            self._prepare()
        except BaseException:
            self.__exit__()
            raise

    def _prepare(self):
        for address in HOSTS:
            self.network.run_in("inside", "ip", "addr", "add", address + "/24", "dev", "eth0")
        self.network.run_in("inside", "sysctl", "-qw", "net.ipv4.ip_local_port_range=49152 65535")
        # Ports of calls that are over are soon free again: one address has too few for minutes.
        self.network.on_router(
            "sysctl", "-qw", "net.netfilter.nf_conntrack_tcp_timeout_time_wait=3",
            "net.netfilter.nf_conntrack_tcp_timeout_close=3")
        if self.between == "helper":
            self.network.on_router(
                "nft", 'table ip helper { ct helper q931 { type "Q.931" protocol tcp; };'
                " chain assign { type filter hook prerouting priority mangle;"
                ' tcp dport 1720 ct helper set "q931"; }; }')
        if self.between == "gateway":
            words = [word for setting in SETTINGS.items() for word in setting]
            self.gateway = Gateway(self.network, self.folder.name, *words, *self.settings)
            if not ARGUMENTS.short:
                subprocess.run(["taskset", "-apc", GATEWAY_CPU, str(self.gateway.process.pid)],
                               check=True, capture_output=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.gateway is not None:
            self.gateway.stop()
            self.gateway.log.close()
        self.network.close()
        self.folder.cleanup()

    def load(self, kinds, calls, *options, part=0):
        """One of several parts of a load calls another address."""
        called, gatekeeper = OUTSIDE, GATEKEEPER
        if part:
            called, gatekeeper = f"203.0.113.{20 + 2 * part}", f"203.0.113.{21 + 2 * part}"
            for address in (called, gatekeeper):
                self.network.run_in("outside", "ip", "addr", "add", address + "/24", "dev", "eth0")
        path = os.path.join(self.folder.name, "script")
        with open(path, "w", encoding="ascii") as file:
            file.writelines(script(kind, ARGUMENTS.samples) for kind in kinds)
        pin = [] if ARGUMENTS.short else ["taskset", "-c", LOAD_CPU]
        return subprocess.Popen(
            [*pin, ARGUMENTS.load, "--script", path, "--between", self.between, "--inside",
             self.network.names["inside"], "--outside", self.network.names["outside"], "--host",
             f"{HOSTS[0]}:{len(HOSTS)}", "--public", PUBLIC + ":0", "--called", called + ":1720",
             "--gatekeeper", gatekeeper + ":1719", "--calls", str(calls), *map(str, options)],
            stdout=subprocess.PIPE, stdin=subprocess.PIPE, text=True)

    def measured(self, kind, calls, *options):
        """What the load tells, with processor time for each call in microseconds."""
        def spent():
            daemon = processor_seconds(self.gateway.process) if self.gateway else 0
            return daemon, busy_seconds()

        before = spent()
        load = self.load([kind], calls, *options)
        told = json.loads(load.communicate(timeout=300)[0])
        daemon, machine = (1e6 * (b - a) / calls for a, b in zip(before, spent()))
        told.update(rate=told["up"] / told["seconds"], daemon=daemon, machine=machine)
        check(self, told)
        return told


def check(router, told):
    if told["failed"] or told["wrong"]:
        WRONG.append(f"{router.between}: {told}")
        if router.gateway is not None:
            shown = {k: v for k, v in router.gateway.status()["counters"].items() if v}
            print(f"{router.between}: {told} {shown}", file=sys.stderr)


def pair(values):
    return f"{values[0]:.0f}, {values[1]:.0f}"


def rates(calls):
    """Each kind as fast as it goes, then at half of what the gateway reaches."""
    print("| calls | between | calls a second | gateway, µs a call | machine, µs a call | at calls"
          " a second | Setup, µs | to outside, µs | to inside, µs |")
    print("|---|---|--:|--:|--:|--:|--:|--:|--:|")
    for kind, text in KINDS.items():
        half = None
        calls = min(calls, REGISTRATIONS * 2 // 3) if kind == "gk-direct" else calls
        for between in ("gateway",) if ARGUMENTS.short else ("gateway", "plain", "helper"):
            if between == "helper" and kind not in WITH_HELPER:
                continue
            with Router(between, *SOON_FREE) as router:
                full = router.measured(kind, calls, "--window", ARGUMENTS.window)
                half = half or full["rate"] / 2
                calm = router.measured(kind, calls // 2, "--rate", half, "--first", calls)
            print(f"| {text} | {between} | {full['rate']:.0f} | {full['daemon']:.0f} |"
                  f" {full['machine']:.0f} | {half:.0f} | {pair(calm['setup'])} |"
                  f" {pair(calm['to_outside'])} | {pair(calm['to_inside'])} |", flush=True)


def media(loads):
    """RTP over all calls: packets sent and arrived, processor time."""
    for load in loads:
        load.stdin.write("media\n")
        load.stdin.flush()
    told = [json.loads(load.stdout.readline()) for load in loads]
    return [sum(part[what] for part in told) for what in ("rtp_sent", "rtp_arrived", "own_cpu")]


def table_beside_none(router, loads, rounds=8):
    """Processor time for an RTP packet with the gateway's table and without, in microseconds: of
    the same flows, by turns, since two routers differ by more than that."""
    router.gateway.process.kill()  # it would make the table again
    router.gateway.process.wait()
    table = "".join(line for line in router.network.on_router(
        "nft", "list", "table", "ip", "h323nat").splitlines(True) if "queue" not in line.lower())
    path = os.path.join(router.folder.name, "table")
    with open(path, "w", encoding="ascii") as file:
        file.write(table)
    times = [], []
    for number in range(2 * rounds):
        if number % 2 == 0:
            router.network.on_router("nft", "delete", "table", "ip", "h323nat")
        else:
            router.network.on_router("nft", "-f", path)
        sent, _, spent = media(loads)
        times[1 - number % 2].append(1e6 * spent / sent)
    return [sorted(each)[len(each) // 4] for each in times]


def held(calls, milliseconds):
    """Many calls at once, and RTP over all of them. A process may open so many files only."""
    print("\n| calls at once | memory before, KiB | with the calls, KiB | RTP packets a second |"
          " µs of the processor each | lost |")
    print("|---|--:|--:|--:|--:|--:|")
    parts, shares = -(-calls // CALLS_OF_A_PART), []
    for between in ("gateway",) if ARGUMENTS.short else ("gateway", "plain"):
        with Router(between) as router:
            def resident():
                return router.gateway.status()["resident_kib"] if router.gateway else "-"

            before = resident()
            loads = []
            for part in range(parts):
                first, last = calls * part // parts, calls * (part + 1) // parts
                loads.append(router.load(("tun", "fast-tun"), last - first, "--first", first, "--hold",
                                         "--media", milliseconds, "--window", 32, part=part))
                check(router, json.loads(loads[-1].stdout.readline()))
            during = resident()
            if router.gateway and router.gateway.status()["call_total"] != calls:
                WRONG.append(f"{router.gateway.status()['call_total']} calls at once, not {calls}")
            sent, arrived, spent = media(loads)
            if router.gateway and not ARGUMENTS.short:
                shares.append(table_beside_none(router, loads))
            for load in loads:
                check(router, json.loads(load.communicate("end\n", timeout=300)[0]))
            if sent != arrived:
                WRONG.append(f"{between}: {sent - arrived} RTP packets lost")
            print(f"| {between}, {calls} calls | {before} | {during} |"
                  f" {arrived * 1000 / milliseconds:.0f} | {1e6 * spent / sent:.2f} |"
                  f" {sent - arrived} |", flush=True)
    for with_table, without in shares:
        print(f"\nAn RTP packet with the gateway's table: {with_table:.2f} µs of the processor, without:"
              f" {without:.2f} ({100 * (with_table / without - 1):+.1f} %)")


def main():
    missing = why_not()
    if missing:
        print("skipped: " + missing)
        return gateway.SKIPPED
    gateway.OPTIONS.program = os.path.abspath(ARGUMENTS.program)
    calls, at_once, milliseconds = (ARGUMENTS.calls, ARGUMENTS.at_once, 4000)
    if ARGUMENTS.short:
        calls, at_once, milliseconds = 200, 200, 200
    if ARGUMENTS.only != "held":
        rates(calls)
    if ARGUMENTS.only != "rate":
        held(at_once, milliseconds)
    for line in WRONG:
        print("wrong: " + line, file=sys.stderr)
    return 1 if WRONG else 0


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True)
    parser.add_argument("--load", required=True)
    parser.add_argument("--samples", default=os.path.join(HERE, "..", "..", "samples"))
    parser.add_argument("--short", action="store_true", help="a few calls; times mean nothing")
    parser.add_argument("--only", choices=("rate", "held"))
    parser.add_argument("--calls", type=int, default=6000)
    parser.add_argument("--at-once", type=int, default=10000)
    parser.add_argument("--window", type=int, default=32)
    ARGUMENTS = parser.parse_args()
    WRONG = []
    sys.exit(main())
