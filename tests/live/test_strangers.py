"""What strangers try against the live gateway, and web pages and hosts inside. Usage:
test_strangers.py --program PATH --samples DIRECTORY [unittest arguments]"""

import json
import signal
import socket
import struct
import time

from gateway import BOTH_WAYS, RTP, GatewayTest, ends_call, main, sample
from network import GATEKEEPER, OUTSIDE, PRIVATE, PUBLIC, SECOND_PRIVATE
from played_call import read_exactly
from recorded_call import endpoint_bytes, patched

SYN, ACK, RST = 0x02, 0x10, 0x04
NOBODY = "203.0.113.250"
MOST_KNOWN = 16500  # connections, and some more than the gateway remembers


def checksum(octets):
    octets += b"\0" * (len(octets) % 2)
    total = sum(struct.unpack(f"!{len(octets) // 2}H", octets))
    total = (total & 0xFFFF) + (total >> 16)
    return ~(total + (total >> 16)) & 0xFFFF


def packet(source, destination, protocol, content):
    return (struct.pack("!BBHHHBBH", 0x45, 0, 20 + len(content), 1, 0, 64, protocol, 0)
            + socket.inet_aton(source[0]) + socket.inet_aton(destination[0]) + content)


def segment(source, destination, flags, sequence=1, acknowledged=0, data=b""):
    """An IPv4 packet with a TCP segment; any source."""
    ends = socket.inet_aton(source[0]) + socket.inet_aton(destination[0])
    content = struct.pack("!HHIIBBHHH", source[1], destination[1], sequence, acknowledged, 5 << 4,
                          flags, 8192, 0, 0) + data
    total = checksum(ends + struct.pack("!BBH", 0, 6, len(content)) + content)
    content = content[:16] + struct.pack("!H", total) + content[18:]
    return packet(source, destination, socket.IPPROTO_TCP, content)


def datagram(source, destination, data):
    return packet(source, destination, socket.IPPROTO_UDP,
                  struct.pack("!HHHH", source[1], destination[1], 8 + len(data), 0) + data)


class StrangersTest(GatewayTest):
    def send_raw(self, side, packets):
        made = self.network.raw(side)
        self.addCleanup(made.close)
        for packet in packets:
            made.sendto(packet, (socket.inet_ntoa(packet[16:20]), 0))

    def flood(self, gateway, side, packets):
        """As fast as the gateway looks at them: its queue passes by what is too much."""
        self.network.on_router("ip", "neigh", "replace", NOBODY, "lladdr", "02:00:00:00:00:01", "dev",
                               "out0", "nud", "permanent")
        before = gateway.counter("packets_sent")
        for at in range(0, len(packets), 2000):
            self.send_raw(side, packets[at : at + 2000])
            sent = before + min(at + 2000, len(packets))
            gateway.wait_for(lambda now: now["counters"]["packets_sent"] >= sent)

    def test_answers_to_nothing_and_half_open_connections(self):
        for scope in ("full", "listed"):
            with self.subTest(scope):
                self.new_network()
                gateway = self.start("--publish", PRIVATE, "--scope", scope)
                sources = [(f"203.0.113.{20 + n % 200}", 1024 + n) for n in range(4000)]
                self.send_raw("outside", [segment((source[0], 1720), (PUBLIC, 30000 + n),
                                                  SYN | ACK, acknowledged=1)
                                          for n, source in enumerate(sources)])
                self.send_raw("outside", [segment(source, (PUBLIC, 1720), SYN)
                                          for source in sources])
                status = gateway.status()
                self.assertEqual(status["counters"]["packets_received"], 0)
                self.assertLess(self.shown(), 1200)
                self.assertEqual((status["call_total"], status["mapping_total"]), (0, 0))
                self.assertLess(gateway.log_text().count("event="), 10)
                call = self.call(sample("in-h245")).play(ends_call)
                self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
                gateway.stop()

    def test_more_beginnings_than_the_gateway_hears(self):
        """A call whose own beginning is lost in a flood of them is followed from its Setup on."""
        gateway = self.start("--calls", "10000")  # records for those that it hears of
        call = self.call(sample("fast-tun"))
        gateway.process.send_signal(signal.SIGSTOP)
        self.send_raw("inside", [segment((SECOND_PRIVATE, 1024 + n), (NOBODY, 1720), SYN)
                                 for n in range(8000)])
        call.connect(call.found[0])
        gateway.process.send_signal(signal.SIGCONT)
        call.play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        self.assertEqual(gateway.counter("connections_adopted"), 1)
        self.assertGreater(gateway.counter("queue_overruns"), 0)

    def test_a_spoofed_syn_or_reset_in_mid_call(self):
        gateway = self.start("--publish", PRIVATE)
        call = self.call(sample("in-fast-tun"))
        call.play(lambda message: call.position == 2)
        client = call.found[0].client
        self.send_raw("outside", [segment(client, (PUBLIC, 1720), flags, 12345)
                                  for flags in (SYN, RST) for _ in range(5)])
        call.play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        self.assertEqual(gateway.status()["call_total"], 1)

    def test_a_web_page_that_speaks_to_port_1720(self):
        """A form that a browser posts: HTTP first, and the call's Setup in what it uploads."""
        gateway = self.start()
        setup = sample("fast-tun")[0].data
        listener = self.network.listen("outside", OUTSIDE, 1720)
        client = self.network.tcp("inside", PRIVATE)
        for made in (listener, client):
            self.addCleanup(made.close)
        client.connect((OUTSIDE, 1720))
        server = listener.accept()[0]
        self.addCleanup(server.close)
        post = b"POST / HTTP/1.1\r\nHost: x\r\n\r\n"
        for part in (post, setup, setup):
            client.sendall(part)
            self.assertEqual(server.recv(4096), part)
        # However many others the page opens meanwhile.
        self.flood(gateway, "inside", [
            segment((PRIVATE, 20000 + number), (NOBODY, 1720), flags, sequence, data=data)
            for number in range(MOST_KNOWN)
            for flags, sequence, data in ((SYN, 0, b""), (ACK, 1, post[:1]))])
        client.sendall(setup)
        self.assertEqual(server.recv(4096), setup)
        self.assertEqual(gateway.status()["mapping_total"], 0)

    def test_a_call_that_was_silent_while_many_knocked(self):
        gateway = self.start("--publish", PRIVATE)
        call = self.call(sample("in-fast-tun")).play(ends_call)
        self.flood(gateway, "inside", [segment((SECOND_PRIVATE, 20000 + number), (NOBODY, 1720), SYN)
                                       for number in range(MOST_KNOWN)])
        call.play()
        gateway.wait_for(lambda now: now["ended_calls"])
        self.assertEqual(gateway.status()["ended_calls"][0]["end"], "released")
        self.assertEqual(gateway.counter("connections_adopted"), 0)

    def test_the_address_of_the_second_router(self):
        """Mappings are heard from the network that leads to it alone."""
        own, peer = "192.0.2.1", "192.0.2.2"
        self.network.on_router("ip", "addr", "add", own + "/24", "dev", "in1")
        self.network.on_router("sysctl", "-qw", "net.ipv4.conf.all.rp_filter=0")
        gateway = self.start("--feed", f"{own}:1721, {peer}:1721")
        told = (b"H3N\2" + struct.pack("!BBH", 2, 0, 20000) + endpoint_bytes((PRIVATE, 8080))
                + bytes(4))
        for side, router in (("inside", "10.0.0.1"), ("outside", PUBLIC)):
            self.network.run_in(side, "ip", "route", "replace", own, "via", router)
            self.send_raw(side, [datagram((peer, 1721), (own, 1721), told)])
        time.sleep(0.3)
        self.assertEqual(gateway.status()["mapping_total"], 0)
        self.network.on_router("ip", "route", "replace", peer, "via", OUTSIDE)
        self.send_raw("outside", [datagram((peer, 1721), (own, 1721), told)])
        gateway.wait_for(lambda now: now["mapping_total"] == 1)

    def test_ports_that_no_message_may_open(self):
        low = (22, 53, 69, 111, 137, 161, 445, 500, 1900)
        for number, port in enumerate(low):
            gateway = self.start("--lowest-inside-port", "2000")
            found = patched(sample("fast-tun"),
                            {(PRIVATE, 5000): (PRIVATE, port & ~1),
                             (PRIVATE, 5001): (PRIVATE, port | 1),
                             sample("fast-tun")[0].client: (PRIVATE, 45000 + number)})
            call = self.call(found).play(ends_call)
            self.assertNotIn((PRIVATE, port & ~1), call.announced)
            kinds = [mapping["kind"] for mapping in gateway.status()["mappings"]]
            self.assertNotIn("media", kinds)
            self.assertIn("partly: ", gateway.status()["calls"][0]["verdict"])
            gateway.stop()
            call.close()

    def test_messages_that_name_another_host(self):
        for scope, why in (("full", "not the sender's own address"),
                           ("listed", "the scope does not translate this place")):
            with self.subTest(scope):
                self.new_network()
                gateway = self.start("--scope", scope)
                found = patched(sample("fast-tun"), {(PRIVATE, 5000): (SECOND_PRIVATE, 5000),
                                                     (PRIVATE, 5001): (SECOND_PRIVATE, 5001)})
                self.call(found).play(ends_call)
                status = gateway.status()
                self.assertNotIn("media", [mapping["kind"] for mapping in status["mappings"]])
                self.assertGreater(status["counters"]["addresses_left"], 3)
                self.assertIn(why, status["calls"][0]["verdict"])
                self.assertRegex(gateway.log_text(), f"address-left .*{SECOND_PRIVATE}:5000")
                gateway.stop()

    def test_one_host_does_not_take_all_mappings(self):
        gateway = self.start("--mappings-per-host", "1")
        call = self.call(sample("fast-tun")).play(ends_call)
        status = gateway.status()
        self.assertEqual(status["mapping_total"], 1)
        self.assertGreaterEqual(status["counters"]["refused_host_limit"], 1)
        self.assertIn("partly: setup.", status["calls"][0]["verdict"])
        self.assertIn("event=address-left", gateway.log_text())
        call.close()

    def test_registrations_that_nobody_answers(self):
        """A machine inside that registers under ever new ports gets a few, for a while."""
        gateway = self.start("--unanswered-per-host", "3")
        request = sample("gk-direct")[0]
        listener = self.network.udp("outside", GATEKEEPER, 1719)
        self.addCleanup(listener.close)
        for port in range(41000, 41020):
            made = self.network.udp("inside", PRIVATE, port)
            data = request.data.replace(endpoint_bytes((PRIVATE, 1719)),
                                        endpoint_bytes((PRIVATE, port)))
            made.sendto(data, (GATEKEEPER, 1719))
            listener.recv(2048)
            made.close()
        mappings = gateway.status()["mappings"]
        self.assertEqual([(mapping["kind"], mapping["ports"]) for mapping in mappings],
                         [("ras", 1)] * 3)

    def test_media_from_elsewhere(self):
        for source, expected in (("learned", False), ("any", True)):
            with self.subTest(source):
                self.new_network()
                gateway = self.start("--media-source", source)
                call = self.call(sample("fast-tun")).play(ends_call)
                public = call.announced[PRIVATE, 5000]
                early = self.network.udp("outside", GATEKEEPER, 9000)
                inside = call.datagram_socket((PRIVATE, 5000))
                self.addCleanup(early.close)
                # Early media comes from anywhere; then the private host shows whom it speaks to.
                early.sendto(b"early", public)
                self.assertEqual(inside.recv(99), b"early")
                self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
                inside.settimeout(0.3)
                for port in (9000, 9001):
                    late = early if port == 9000 else self.network.udp("outside", GATEKEEPER, port)
                    self.addCleanup(late.close)
                    late.sendto(b"late", public)
                    try:
                        heard = inside.recv(99) == b"late"
                    except TimeoutError:
                        heard = False
                    self.assertEqual(heard, expected)
                # The party itself may send from another port.
                moved = self.network.udp("outside", OUTSIDE, 9002)
                self.addCleanup(moved.close)
                moved.sendto(b"moved", public)
                self.assertEqual(inside.recv(99), b"moved")
                gateway.stop()

    def seconds_since_learned(self):
        listed = json.loads(self.network.on_router("nft", "-j", "list", "set", "ip", "h323nat",
                                                   "peers"))
        elements = next(item["set"]["elem"] for item in listed["nftables"] if "set" in item)
        return next(3600 - element["elem"]["expires"] for element in elements
                    if element["elem"]["val"]["concat"] == [*RTP[0], OUTSIDE])

    def test_media_that_runs(self):
        """Of a flow that goes both ways few packets are looked at; what was learned stays so."""
        self.start()
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        private, remote = (call.datagram_socket(end) for end in RTP)
        public = call.announced[RTP[0]]

        def say(*numbers):
            for number in numbers:
                rtp = struct.pack("!BBH8x", 0x80, 0, number) + b"voice"
                for sender, target, reader in ((private, RTP[1], remote), (remote, public, private)):
                    sender.sendto(rtp, target)
                    self.assertEqual(reader.recv(99), rtp)

        for _ in range(2):
            time.sleep(2.5)
            say(32)
        self.assertLess(self.seconds_since_learned(), 2)
        time.sleep(2.5)
        say(*range(33, 64))
        self.assertGreaterEqual(self.seconds_since_learned(), 2)
        say(64)
        self.assertLess(self.seconds_since_learned(), 2)
        stranger = self.network.udp("outside", GATEKEEPER, 9000)
        self.addCleanup(stranger.close)
        for _ in range(2):
            stranger.sendto(struct.pack("!BBH8x", 0x80, 0, 65) + b"late", public)
        private.settimeout(0.3)
        self.assertRaises(TimeoutError, private.recv, 99)

    def test_strangers_do_not_keep_a_mapping_open(self):
        gateway = self.start("--media-idle", "2", "--media-source", "any")
        call = self.call(sample("fast-tun")).play()
        public = call.announced[PRIVATE, 5000]
        call.close()
        stranger = self.network.udp("outside", GATEKEEPER, 9000)
        self.addCleanup(stranger.close)
        deadline = time.monotonic() + 8
        while gateway.status()["mapping_total"] != 0:
            stranger.sendto(b"more", public)
            time.sleep(0.1)
            self.assertLess(time.monotonic(), deadline)

    def test_messages_that_are_never_finished(self):
        """What waits for the rest has a place in the kernel's queue: some must be left for others."""
        gateway = self.start("--publish", PRIVATE, "--queue-length", "64", "--hold", "5000")
        listener = self.network.listen("inside", PRIVATE, 1720)
        self.addCleanup(listener.close)
        for _ in range(100):
            stranger = self.network.tcp("outside", OUTSIDE)
            self.addCleanup(stranger.close)
            stranger.connect((PUBLIC, 1720))
            stranger.sendall(sample("in-fast-tun")[0].data[:50])
        self.assertEqual(self.call(sample("fast-tun")).play(ends_call).changed, 1)
        gateway.wait_for(lambda now: now["counters"]["segments_held_in_vain"] == 100)
        self.assertLessEqual(gateway.log_text().count("event=held-in-vain"), 20)

    def test_a_caller_who_never_stops(self):
        gateway = self.start("--publish", PRIVATE)
        listener = self.network.listen("inside", PRIVATE, 1720)
        stranger = self.network.tcp("outside", OUTSIDE)
        stranger.connect((PUBLIC, 1720))
        host = listener.accept()[0]
        for made in (listener, stranger, host):
            self.addCleanup(made.close)
        found = sample("in-fast-tun")
        once = found[0].data + next(message.data for message in found if ends_call(message))
        for _ in range(600):
            stranger.sendall(once)
            read_exactly(host, len(once))
        self.assertEqual(gateway.counter("calls_ended"), 600)
        self.assertLess(gateway.log_text().count("event=call-"), 900)

    def test_ports_of_the_routers_own_services(self):
        gateway = self.start("--ports", "20000-20011")
        with self.network.inside_of("router"):
            own = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(5)]
        for number, made in enumerate(own):
            made.bind(("0.0.0.0", 20000 + 2 * number))
            self.addCleanup(made.close)
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual(call.announced[PRIVATE, 5000], (PUBLIC, 20010))
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        self.assertEqual(gateway.counter("refused_ports"), 0)

    def test_garbage_to_every_open_port(self):
        gateway = self.start("--publish", PRIVATE)
        call = self.call(sample("gk-in")).play(ends_call)
        stranger = self.network.udp("outside", GATEKEEPER, 9000)
        self.addCleanup(stranger.close)
        for public in call.announced.values():
            for length in range(0, 300, 7):
                stranger.sendto(bytes((length * 7 + n * n) & 255 for n in range(length)), public)
        self.assertLess(gateway.log_text().count("event="), 120)
        call.close()
        gateway.wait_for(lambda now: now["call_total"] == 0)
        again = patched(sample("fast-tun"), {sample("fast-tun")[0].client: (PRIVATE, 45050)})
        self.assertEqual(self.call(again).play(ends_call).changed, 1)
        self.assertEqual(gateway.counter("verdict_errors"), 0)


if __name__ == "__main__":
    main(__doc__)
