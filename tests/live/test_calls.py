"""Calls through the live gateway between real sockets, each with media in both directions.
Usage: test_calls.py --program PATH --samples DIRECTORY [unittest arguments]"""

import signal
import socket
import struct
import time

from gateway import BOTH_WAYS, RTCP, RTP, GatewayTest, ends_call, main, sample
from network import GATEKEEPER, OTHER_PRIVATE, OUTSIDE, PRIVATE, PUBLIC, SECOND_PRIVATE
from played_call import is_private
from recorded_call import endpoint_bytes, patched

ADVERTISED = "198.51.100.7"


def moved(found, host, port_offset=0, client_port=None):
    """The same call of another private host, or with other ports of it."""
    places = {}
    for message in found:
        for end in (message.source, message.destination, message.client):
            if end[0] == PRIVATE:
                places[end] = (host, end[1])
    for port in (5000, 5001):
        places[PRIVATE, port] = (host, port + port_offset)
    if client_port is not None:
        places[found[0].client] = (host, client_port)
    return patched(found, places)


class CallsTest(GatewayTest):
    def heard(self, call, inside=RTP[0], outside=RTP[1]):
        self.assertEqual(call.media_arrives(inside, outside), BOTH_WAYS)
        rtcp = [(end[0], end[1] + 1) for end in (inside, outside)]
        self.assertEqual(call.media_arrives(*rtcp), BOTH_WAYS)

    def verdicts(self, gateway):
        status = gateway.status()
        return [call["verdict"] for call in status["calls"] + status["ended_calls"]]

    def test_each_kind_of_call_and_nothing_without_the_gateway(self):
        kinds = {"fast-tun": "out", "fast-h245": "out", "h245": "out", "tun": "out",
                 "gk-direct": "out", "gk-routed": "out", "in-h245": "in", "in-fast-tun": "in",
                 "gk-in": "in"}
        for name, direction in kinds.items():
            with self.subTest(name):
                self.new_network()
                arguments = ["--publish", PRIVATE] if name.startswith("in-") else []
                gateway = self.start(*arguments)
                call = self.call(sample(name)).play(ends_call)
                self.heard(call)
                status = gateway.status()
                self.assertEqual(status["calls"][0]["direction"], direction)
                call.play()
                gateway.wait_for(lambda now: now["call_total"] == 0)
                self.assertEqual(self.verdicts(gateway), ["translated"])
                self.assertEqual(gateway.counter("messages_undecodable"), 0)
                self.assertEqual(gateway.stop(), 0)
                call.close()
        for name in kinds:
            with self.subTest("no gateway", name=name):
                self.new_network()
                call = self.call(sample(name), patience=0.2)
                try:
                    call.play(ends_call)
                    heard = call.media_arrives(*RTP)
                except (AssertionError, OSError):
                    heard = (False, False)
                self.assertEqual((call.changed, heard), (0, (False, False)))

    def test_registration_from_any_port(self):
        gateway = self.start()
        found = patched(sample("gk-direct"), {(PRIVATE, 1719): (PRIVATE, 40123)})
        call = self.call(found)
        call.play(lambda message: message.protocol == "tcp")
        announced = call.announced[PRIVATE, 40123]
        self.assertEqual(call.seen_ras_source, announced)
        # The gatekeeper may speak first, also from another port.
        other = self.network.udp("outside", GATEKEEPER, 5555)
        self.addCleanup(other.close)
        other.sendto(b"hello", announced)
        self.assertEqual(call.datagram_socket((PRIVATE, 40123)).recvfrom(99)[0], b"hello")
        call.play(ends_call)
        self.heard(call)
        kinds = [mapping["kind"] for mapping in gateway.status()["mappings"]]
        self.assertEqual(sorted(set(kinds)), ["media", "ras", "signalling"])

    def test_two_registered_hosts_called_at_once(self):
        self.start()
        calls = [self.call(moved(sample("gk-in"), host))
                 for host in (PRIVATE, SECOND_PRIVATE, OTHER_PRIVATE)]
        for number, call in enumerate(calls):
            # One outside party for all: it has other ports in each call.
            ends = {}
            for message in call.found:
                for end in (message.source, message.destination, message.client):
                    if end[0] == OUTSIDE:
                        ends[end] = (OUTSIDE, end[1] + number)
            for port in (5000, 5001):
                ends[OUTSIDE, port] = (OUTSIDE, port + 2 * number)
            call.found = patched(call.found, ends)
        for call in calls:
            call.play(lambda message: message.protocol == "tcp")
            for made in call.datagram_sockets.values():
                made.close()
            call.datagram_sockets.clear()
        signalling = [call.announced[host, 1720] for call, host in
                      zip(calls, (PRIVATE, SECOND_PRIVATE, OTHER_PRIVATE))]
        self.assertEqual(len(set(signalling)), 3)
        for call in calls:
            call.found = [message for message in call.found if message.protocol == "tcp"]
            call.position = 0
            call.play(ends_call)
        for number, (call, host) in enumerate(zip(calls, (PRIVATE, SECOND_PRIVATE, OTHER_PRIVATE))):
            self.heard(call, (host, 5000), (OUTSIDE, 5000 + 2 * number))

    def test_several_published_hosts(self):
        gateway = self.start("--publish", f"{PRIVATE}, {SECOND_PRIVATE}:1721", "--publish-t120", "yes")
        first = self.call(sample("in-fast-tun")).play(ends_call)
        second = self.call(moved(sample("in-fast-tun"), SECOND_PRIVATE))
        second.announced[SECOND_PRIVATE, 1720] = (PUBLIC, 1721)
        second.found = patched(second.found, {
            found.client: (OUTSIDE, 41000) for found in second.found[:1]})
        second.play(ends_call)
        self.heard(first)
        first.close()
        self.heard(second, (SECOND_PRIVATE, 5000))
        self.assertEqual(self.verdicts(gateway), ["translated", "translated"])
        data = self.network.listen("inside", PRIVATE, 1503)
        client = self.network.tcp("outside", OUTSIDE)
        for made in (data, client):
            self.addCleanup(made.close)
        client.connect((PUBLIC, 1503))

    def test_two_private_hosts_through_a_gatekeeper_outside(self):
        """What the gatekeeper passes on carries our own public endpoints: the called host reads the
        private ones, and media goes straight."""
        self.start("--publish", OTHER_PRIVATE)
        caller = self.call(sample("fast-tun")).play(ends_call)
        public = {end: caller.announced[PRIVATE, end[1]] for end in
                  ((OUTSIDE, 5000), (OUTSIDE, 5001))}
        called = self.call(patched(moved(sample("in-fast-tun"), OTHER_PRIVATE), public))
        called.announced.update(caller.announced)
        called.play(ends_call)
        setup = called.received[0]
        for port in (5000, 5001):
            self.assertIn(endpoint_bytes((PRIVATE, port)), setup)
        there = self.network.udp("other", OTHER_PRIVATE, 5000)
        here = self.network.udp("inside", PRIVATE, 5000)
        self.addCleanup(there.close)
        self.addCleanup(here.close)
        there.sendto(b"voice", (PRIVATE, 5000))
        self.assertEqual(here.recvfrom(99), (b"voice", (OTHER_PRIVATE, 5000)))

    def test_a_private_host_calls_the_public_address(self):
        self.start("--publish", OTHER_PRIVATE)
        listener = self.network.listen("other", OTHER_PRIVATE, 1720)
        for side, address in (("inside", PRIVATE), ("other", OTHER_PRIVATE)):
            if side == "other":
                continue
            client = self.network.tcp(side, address)
            client.connect((PUBLIC, 1720))
            accepted, seen = listener.accept()
            setup = sample("in-fast-tun")[0].data
            client.sendall(setup)
            accepted.settimeout(5)
            # What it says of itself is what the other one can reach.
            self.assertEqual(accepted.recv(4096), setup)
            self.assertNotEqual(seen[0], PRIVATE)
            for made in (client, accepted):
                made.close()
        listener.close()

    def test_connections_begin_while_the_gateway_is_busy(self):
        for name in ("fast-tun", "in-fast-tun"):
            with self.subTest(name):
                self.new_network()
                gateway = self.start("--publish", PRIVATE)
                gateway.process.send_signal(signal.SIGSTOP)
                call = self.call(sample(name))
                call.connect(call.found[0])
                gateway.process.send_signal(signal.SIGCONT)
                self.heard(call.play(ends_call))
                self.assertEqual(gateway.counter("connections_adopted"), 0)
                gateway.stop()
                call.close()

    def test_beginnings_wait_where_another_program_hears_the_copies(self):
        with self.network.inside_of("router"):
            other = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 12)
        self.addCleanup(other.close)
        other.send(struct.pack("=IHHIIBB", 28, 4 << 8 | 1, 5, 1, 0, 0, 0) + struct.pack("!H", 1720)
                   + struct.pack("=HHB3x", 5, 1, 1))
        self.assertEqual(struct.unpack("=i", other.recv(99)[16:20]), (0,))
        gateway = self.start()
        self.assertIn("beginnings=queued", gateway.log_text())
        self.heard(self.call(sample("h245")).play(ends_call))
        self.assertEqual(gateway.counter("connections_adopted"), 0)

    def test_small_segments_both_ways(self):
        for name in ("h245", "fast-tun", "in-fast-tun", "tun"):
            with self.subTest(name):
                self.new_network()
                gateway = self.start("--publish", PRIVATE)
                call = self.call(sample(name), piece=100).play(ends_call)
                self.heard(call)
                self.assertGreater(gateway.counter("segments_held"), 0)
                self.assertEqual(gateway.counter("segments_held_in_vain"), 0)
                self.assertEqual(self.verdicts(gateway), ["translated"])
                call.play().close()
                gateway.stop()

    def test_segments_lost_and_out_of_order(self):
        for name in ("fast-tun", "in-fast-tun", "tun"):
            with self.subTest(name):
                self.new_network()
                for side in ("inside", "outside"):
                    self.network.run_in(
                        side, "nft", "table ip lossy { chain out { type filter hook output"
                        " priority 0; meta l4proto tcp ip length > 60 numgen inc mod 4 == 1 drop;"
                        " }; }")
                gateway = self.start("--publish", PRIVATE, "--hold", "1000")
                call = self.call(sample(name), piece=300).play(ends_call)
                self.heard(call)
                self.assertEqual(self.verdicts(gateway), ["translated"])
                call.close()
                gateway.stop()

    def test_an_address_that_the_router_does_not_own(self):
        self.start("--advertise", ADVERTISED, "--publish", PRIVATE)
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual({public[0] for public in call.announced.values()}, {ADVERTISED})
        # The router in front, which has that address, leads here.
        call.announced = {inside: (PUBLIC, public[1]) for inside, public in call.announced.items()}
        self.heard(call)
        call.close()
        inbound = self.call(sample("in-h245"))
        inbound.play(lambda message: not is_private(message.client) and message.client[1] != 1720
                     and message.destination[1] not in (1720,) and message.source[1] not in (1720,))
        announced = [public for public in inbound.announced.values()]
        self.assertEqual({public[0] for public in announced}, {ADVERTISED})
        inbound.announced = {inside: (PUBLIC, public[1])
                             for inside, public in inbound.announced.items()}
        inbound.play(lambda message: message.data[4:6] == b"\x4a\x50" or message.data[4:5] == b"\x03")

    def test_the_address_that_a_connection_leaves_from(self):
        """A second outside address for one of the private hosts, by the operator's own rule."""
        second = "203.0.113.2"
        self.network.on_router("ip", "addr", "add", second + "/24", "dev", "out0")
        self.network.on_router(
            "nft", "insert", "rule", "ip", "operator", "out", "ip", "saddr", SECOND_PRIVATE,
            "oifname", "out0", "snat", "to", second)
        self.start()
        first = self.call(sample("fast-tun")).play(ends_call)
        other = self.call(moved(sample("fast-tun"), SECOND_PRIVATE, 100)).play(ends_call)
        self.assertEqual(first.announced[PRIVATE, 5000][0], PUBLIC)
        self.assertEqual(other.announced[SECOND_PRIVATE, 5100][0], second)
        self.heard(first)
        first.close()
        self.heard(other, (SECOND_PRIVATE, 5100))

    def test_flows_that_leave_from_ports_of_mappings(self):
        """Registered before the gateway, or by a rule, from a port that becomes another's mapping."""
        gateway = self.start("--ports", "20000-20007")
        self.network.on_router(
            "nft", "insert", "rule", "ip", "operator", "out", "ip", "saddr", SECOND_PRIVATE,
            "oifname", "out0", "meta", "l4proto", "tcp", "snat", "to", PUBLIC + ":20000-20007")
        first = self.call(sample("gk-in"))
        first.play(lambda message: message.protocol == "tcp")
        for number in range(4):
            call = self.call(moved(sample("fast-tun"), SECOND_PRIVATE, 0, 46000 + number))
            call.play()
            call.close()
        self.assertEqual(set(self.verdicts(gateway)), {"translated"})

    def test_two_private_hosts_and_one_party(self):
        self.start()
        first = self.call(sample("fast-tun")).play(ends_call)
        other = self.call(moved(sample("fast-tun"), SECOND_PRIVATE)).play(ends_call)
        other.datagram_sockets[OUTSIDE, 5000] = first.datagram_socket((OUTSIDE, 5000))
        self.assertNotEqual(first.announced[PRIVATE, 5000], other.announced[SECOND_PRIVATE, 5000])
        for _ in range(2):
            self.assertEqual(first.media_arrives(*RTP), BOTH_WAYS)
            self.assertEqual(other.media_arrives((SECOND_PRIVATE, 5000), (OUTSIDE, 5000)), BOTH_WAYS)

    def test_two_hundred_calls_at_once(self):
        gateway = self.start()
        found = sample("fast-tun")
        calls = [self.call(moved(found, PRIVATE, 1000 + 2 * number, 40000 + number))
                 for number in range(200)]
        for call in calls:
            call.play(ends_call)
        seen = set()
        for number, call in enumerate(calls):
            inside = (PRIVATE, 6000 + 2 * number)
            call.datagram_sockets[OUTSIDE, 5000] = calls[0].datagram_socket((OUTSIDE, 5000))
            self.assertEqual(call.media_arrives(inside, (OUTSIDE, 5000)), BOTH_WAYS)
            seen.add(call.announced[inside])
        self.assertEqual(len(seen), 200)
        status = gateway.status()
        self.assertEqual((status["call_total"], set(self.verdicts(gateway))), (200, {"translated"}))
        print(f"\n200 calls: {status['resident_kib']} KiB resident, packets stay "
              f"{status['delay_us_median']} us (median), {status['delay_us_p99']} us (99 of 100)")
        for call in calls:
            call.play().close()
        gateway.wait_for(lambda now: now["call_total"] == 0)

    def test_the_listed_scope(self):
        for name in ("fast-tun", "h245", "in-h245", "gk-routed"):
            with self.subTest(name):
                self.new_network()
                gateway = self.start("--scope", "listed", "--publish", PRIVATE)
                call = self.call(sample(name)).play(ends_call)
                self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
                call.play().close()
                self.assertEqual(gateway.status()["scope"], "listed")
                gateway.stop()

    def test_all_packets_queued_and_one_capability(self):
        self.start("--queue", "all", capability_only=True)
        call = self.call(sample("h245")).play(ends_call)
        self.heard(call)


if __name__ == "__main__":
    main(__doc__)
