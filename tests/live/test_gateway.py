"""The live gateway between real hosts: recorded calls are played through a router made of network
namespaces. Usage: test_gateway.py --program PATH --samples DIRECTORY [unittest arguments]"""

import argparse
import json
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from network import GATEKEEPER, OUTSIDE, PRIVATE, PUBLIC, SECOND_PRIVATE, Network, why_not
from played_call import PlayedCall
from recorded_call import messages, patched

SKIPPED = 77
OPTIONS = argparse.Namespace()
RTP = ((PRIVATE, 5000), (OUTSIDE, 5000))
RTCP = ((PRIVATE, 5001), (OUTSIDE, 5001))
BOTH_WAYS = (True, True)


def sample(name):
    return messages(os.path.join(OPTIONS.samples, name + ".pcap"))


def ends_call(message):
    """End of session (H.245), releaseComplete (Q.931), disengageRequest (RAS)."""
    if message.protocol == "udp":
        return message.data[:1] == b"\x3e"
    return message.data[4:6] == b"\x4a\x50" or message.data[8:9] == b"\x5a"


class Gateway:
    """The program on the router, with its status and its log."""

    def __init__(self, network, folder, *arguments, capability_only=False):
        self.socket = os.path.join(folder, "status")
        self.log = open(os.path.join(folder, "log"), "a+", encoding="utf-8")
        as_user = []
        if capability_only:
            os.chown(folder, 65534, 65534)
            capability = "-all,+net_admin"
            as_user = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                       "--inh-caps=" + capability, "--ambient-caps=" + capability,
                       "--bounding-set=" + capability]
        self.process = network.spawn_on_router(
            [*as_user, OPTIONS.program, "gateway", "--inside", "in0", "--outside", "out0",
             "--status-socket", self.socket, "--sweep", "1", *arguments],
            stderr=self.log, stdout=self.log)
        deadline = time.monotonic() + 10
        while not self.answers():
            if self.process.poll() is not None or time.monotonic() > deadline:
                self.stop(signal.SIGKILL)
                raise AssertionError("the gateway did not start:\n" + self.log_text())
            time.sleep(0.02)

    def _ask(self, *arguments):
        return subprocess.run([OPTIONS.program, "status", "--socket", self.socket, *arguments],
                              capture_output=True, text=True)

    def answers(self):
        return self._ask().returncode == 0

    def status(self):
        return json.loads(self._ask("--json").stdout)

    def counter(self, name):
        return self.status()["counters"][name]

    def wait_for(self, condition, seconds=8):
        deadline = time.monotonic() + seconds
        while not condition(self.status()):
            if time.monotonic() > deadline:
                raise AssertionError("never happened:\n" + json.dumps(self.status(), indent=1))
            time.sleep(0.1)

    def log_text(self):
        self.log.seek(0)
        return self.log.read()

    def stop(self, number=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(number)
        status = self.process.wait(10)
        return status


class GatewayTest(unittest.TestCase):
    def setUp(self):
        self.network = Network()
        self.addCleanup(self.network.close)
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def start(self, *arguments, **options):
        gateway = Gateway(self.network, self.folder, *arguments, **options)
        self.addCleanup(lambda: (gateway.stop(signal.SIGKILL), gateway.log.close()))
        return gateway

    def call(self, found, **options):
        played = PlayedCall(self.network, found, **options)
        self.addCleanup(played.close)
        return played

    def ruleset(self):
        return self.network.on_router("nft", "list", "ruleset")

    def test_fast_start_call_out(self):
        gateway = self.start()
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual(call.changed, 1)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        self.assertEqual(call.media_arrives(*RTCP), BOTH_WAYS)
        status = gateway.status()
        self.assertEqual((status["call_total"], status["mapping_total"]), (1, 1))
        self.assertEqual(status["calls"][0]["inside"].split(":")[0], PRIVATE)
        call.play().close()
        gateway.wait_for(lambda now: now["call_total"] == 0)
        self.assertIn("event=mapping-open", gateway.log_text())
        public = "%s:%d" % call.announced[PRIVATE, 5000]
        self.assertIn("event=rewrite direction=sent message=setup", gateway.log_text())
        self.assertIn(f"mediaChannel {PRIVATE}:5000 -> {public}", gateway.log_text())
        counters = gateway.status()["counters"]
        self.assertEqual((counters["messages_rewritten"], counters["messages_undecodable"]), (1, 0))

    def test_separate_control_call_out(self):
        self.start()
        call = self.call(sample("h245")).play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        self.assertEqual(call.media_arrives(*RTCP), BOTH_WAYS)
        call.play()

    def test_control_address_of_another_host(self):
        gateway = self.start()
        call = self.call(sample("gk-routed")).play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        kinds = sorted(mapping["kind"] for mapping in gateway.status()["mappings"])
        self.assertEqual(kinds, ["media", "ras"])

    def test_registration(self):
        gateway = self.start()
        call = self.call(sample("gk-direct"))
        call.play(lambda message: message.protocol == "tcp")
        announced = call.announced[PRIVATE, 1719]
        self.assertEqual(call.seen_ras_source, announced)
        # The gatekeeper may speak first, also from another port.
        stranger = self.network.udp("outside", GATEKEEPER, 5555)
        self.addCleanup(stranger.close)
        stranger.sendto(b"hello", announced)
        self.assertEqual(call.datagram_socket((PRIVATE, 1719)).recvfrom(99)[0], b"hello")
        self.assertGreaterEqual(gateway.counter("mappings_reused"), 1)

    def test_call_in(self):
        gateway = self.start("--publish", PRIVATE)
        call = self.call(sample("in-h245")).play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        status = gateway.status()
        self.assertEqual(status["calls"][0]["direction"], "in")
        self.assertEqual(sorted(m["kind"] for m in status["mappings"]), ["h245", "media"])
        call.play()

    def test_without_the_gateway_media_is_missing(self):
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual(call.changed, 0)
        self.assertEqual(call.media_arrives(*RTP), (False, False))

    def test_dry_run_changes_nothing(self):
        before = self.ruleset()
        gateway = self.start("--dry-run")
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual(call.changed, 0)
        self.assertEqual(gateway.counter("packets_rewritten"), 1)
        gateway.stop()
        self.assertEqual(self.ruleset(), before)

    def test_two_private_hosts_and_one_party(self):
        self.start()
        second = {(PRIVATE, port): (SECOND_PRIVATE, port) for port in (5000, 5001)}
        found = sample("fast-tun")
        client = found[0].client
        second[client] = (SECOND_PRIVATE, client[1])
        first = self.call(found).play(ends_call)
        other = self.call(patched(found, second)).play(ends_call)
        other.datagram_sockets[OUTSIDE, 5000] = first.datagram_socket((OUTSIDE, 5000))
        self.assertNotEqual(first.announced[PRIVATE, 5000], other.announced[SECOND_PRIVATE, 5000])
        for _ in range(2):
            self.assertEqual(first.media_arrives(*RTP), BOTH_WAYS)
            self.assertEqual(other.media_arrives((SECOND_PRIVATE, 5000), (OUTSIDE, 5000)), BOTH_WAYS)

    def test_killed_and_restarted_in_mid_call(self):
        gateway = self.start()
        call = self.call(sample("fast-tun")).play(ends_call)
        gateway.stop(signal.SIGKILL)
        # The rules are still there and nobody listens: traffic flows, known media ports work.
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        gateway = self.start()
        self.assertEqual(gateway.counter("mappings_adopted"), 1)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        self.assertEqual(call.media_arrives(*RTCP), BOTH_WAYS)
        other = {(PRIVATE, port): (PRIVATE, port + 100) for port in (5000, 5001)}
        found = sample("fast-tun")
        other[found[0].client] = (PRIVATE, 45000)
        later = self.call(patched(found, other)).play(ends_call)
        self.assertNotEqual(later.announced[PRIVATE, 5100], call.announced[PRIVATE, 5000])
        self.assertEqual(later.media_arrives((PRIVATE, 5100), (OUTSIDE, 5100)), BOTH_WAYS)
        call.play()

    def test_other_rules_stay_and_ours_go(self):
        before = self.ruleset()
        gateway = self.start()
        self.call(sample("fast-tun")).play()
        self.assertIn("table ip operator", self.ruleset())
        self.assertEqual(gateway.stop(), 0)
        self.assertEqual(self.ruleset(), before)

    def test_idle_mappings_end_with_their_flows(self):
        gateway = self.start("--media-idle", "1")
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        gateway.wait_for(lambda now: now["mapping_total"] == 1)
        call.play()
        for connection in call.connections.values():
            for end in connection:
                end.close()
        gateway.wait_for(lambda now: now["mapping_total"] == 0)
        self.assertNotIn("5000", self.network.on_router("nft", "list", "map", "ip", "h323nat",
                                                        "media_in"))
        # No way in is left, not even for the party that was in the call.
        outside, inside = (call.datagram_socket((OUTSIDE, 5000)),
                           call.datagram_socket((PRIVATE, 5000)))
        outside.sendto(b"late", call.announced[PRIVATE, 5000])
        with self.assertRaises(TimeoutError):
            inside.recvfrom(99)

    def test_refused_mappings_leave_the_message(self):
        gateway = self.start("--mappings-per-host", "1")
        self.call(sample("fast-tun")).play(ends_call)
        other = {(PRIVATE, port): (PRIVATE, port + 100) for port in (5000, 5001)}
        found = sample("fast-tun")
        other[found[0].client] = (PRIVATE, 45000)
        refused = self.call(patched(found, other)).play(ends_call)
        self.assertEqual(refused.changed, 0)
        self.assertGreaterEqual(gateway.counter("refused_host_limit"), 1)

    def test_reload_keeps_calls(self):
        path = os.path.join(self.folder, "h323nat.conf")
        with open(path, "w", encoding="utf-8") as file:
            file.write("ports = 20000-20999\n")
        gateway = self.start("--config", path)
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertIn(call.announced[PRIVATE, 5000][1], range(20000, 21000))
        with open(path, "w", encoding="utf-8") as file:
            file.write("ports = 30000-30999\npublish = " + SECOND_PRIVATE + "\n")
        gateway.process.send_signal(signal.SIGHUP)
        gateway.wait_for(lambda now: now.get("published") == SECOND_PRIVATE)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        other = {(PRIVATE, port): (PRIVATE, port + 100) for port in (5000, 5001)}
        found = sample("fast-tun")
        other[found[0].client] = (PRIVATE, 45000)
        later = self.call(patched(found, other)).play(ends_call)
        self.assertIn(later.announced[PRIVATE, 5100][1], range(30000, 31000))
        with open(path, "w", encoding="utf-8") as file:
            file.write("ports = everything\n")
        gateway.process.send_signal(signal.SIGHUP)
        time.sleep(0.3)
        self.assertEqual(gateway.status()["published"], SECOND_PRIVATE)
        self.assertIn("reload-refused", gateway.log_text())

    def test_fifty_calls_at_once(self):
        gateway = self.start()
        found = sample("fast-tun")
        calls = []
        for number in range(50):
            ports = {(PRIVATE, 5000 + i): (PRIVATE, 6000 + 2 * number + i) for i in (0, 1)}
            ports[found[0].client] = (PRIVATE, 40000 + number)
            calls.append(self.call(patched(found, ports)))
        for call in calls:
            call.play(ends_call)
        seen = set()
        for number, call in enumerate(calls):
            inside = (PRIVATE, 6000 + 2 * number)
            call.datagram_sockets[OUTSIDE, 5000] = calls[0].datagram_socket((OUTSIDE, 5000))
            self.assertEqual(call.media_arrives(inside, (OUTSIDE, 5000)), BOTH_WAYS)
            seen.add(call.announced[inside])
        self.assertEqual(len(seen), 50)
        status = gateway.status()
        self.assertEqual((status["call_total"], status["mapping_total"]), (50, 50))
        print(f"\n50 calls: {status['resident_kib']} KiB resident, packets stay "
              f"{status['delay_us_median']} us (median), {status['delay_us_p99']} us (99 of 100)")

    def test_overload_passes_traffic_and_is_counted(self):
        gateway = self.start("--queue", "all", "--queue-length", "16")
        target = self.network.udp("outside", OUTSIDE, 9000)
        source = self.network.udp("inside", PRIVATE, 9000)
        self.addCleanup(target.close)
        self.addCleanup(source.close)
        gateway.process.send_signal(signal.SIGSTOP)
        burst = 200
        for _ in range(burst):
            source.sendto(b"x" * 100, (OUTSIDE, 9000))
        gateway.process.send_signal(signal.SIGCONT)
        arrived = 0
        while arrived < burst:
            target.recv(200)
            arrived += 1
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        # 16 waited, the others went by; the queue is asked again at the next sweep.
        gateway.wait_for(lambda now: now["counters"]["queue_passed_by"] >= burst - 17)
        self.assertLessEqual(gateway.counter("queue_passed_by"), burst - 15)

    def test_the_whole_contract_and_its_alternatives(self):
        """All packets queued, and as another user with the one capability it needs."""
        self.start("--queue", "all", capability_only=True)
        call = self.call(sample("h245")).play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)

    def test_warns_of_the_kernels_helper_and_of_missing_translation(self):
        try:
            self.network.on_router(
                "nft", "table ip help { ct helper q931 { type \"Q.931\" protocol tcp; l3proto ip; };"
                " chain pre { type filter hook prerouting priority 0;"
                " tcp dport 1720 ct helper set \"q931\"; }; }")
        except subprocess.CalledProcessError:
            self.skipTest("this kernel has no H.323 helper")
        self.network.on_router("nft", "delete", "table", "ip", "operator")
        self.network.run_outside("ip", "route", "add", "10.0.0.0/24", "via", PUBLIC)
        gateway = self.start()
        found = sample("fast-tun")
        listener = self.network.listen("outside", OUTSIDE, 1720)
        caller = self.network.tcp("inside", PRIVATE)
        for made in (listener, caller):
            self.addCleanup(made.close)
        caller.connect(found[0].destination)
        caller.sendall(found[0].data)
        gateway.wait_for(lambda now: now["counters"]["helper_seen"] == 1)
        self.assertEqual(gateway.counter("calls_untranslated"), 1)

    def test_foreign_connections_of_a_caller_return_to_the_kernel(self):
        gateway = self.start()
        self.call(sample("fast-tun")).play(ends_call)
        listener = self.network.listen("outside", OUTSIDE, 8080)
        client = self.network.tcp("inside", PRIVATE)
        for made in (listener, client):
            self.addCleanup(made.close)
        client.connect((OUTSIDE, 8080))
        server = listener.accept()[0]
        self.addCleanup(server.close)
        client.sendall(b"GET / HTTP/1.1\r\n\r\n")
        server.recv(100)
        gateway.wait_for(lambda now: now["counters"]["foreign_connections"] == 1)
        before = gateway.counter("packets_sent")
        for _ in range(20):
            client.sendall(b"GET / HTTP/1.1\r\n\r\n")
            server.recv(100)
        self.assertLess(gateway.counter("packets_sent") - before, 5)

    def test_only_one_gateway_at_a_time(self):
        self.start()
        second = self.network.spawn_on_router(
            [OPTIONS.program, "gateway", "--inside", "in0", "--outside", "out0",
             "--status-socket", os.path.join(self.folder, "other")],
            stderr=subprocess.PIPE, text=True)
        self.assertIn("queue 1720", second.communicate(timeout=10)[1])
        self.assertEqual(second.returncode, 1)
        self.assertIn("table ip h323nat", self.ruleset())


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True)
    parser.add_argument("--samples", required=True)
    parsed, rest = parser.parse_known_args()
    OPTIONS.program = os.path.abspath(parsed.program)
    OPTIONS.samples = parsed.samples
    missing = why_not()
    if missing:
        print("skipped: " + missing)
        sys.exit(SKIPPED)
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()
