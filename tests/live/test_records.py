"""What the live gateway keeps of calls: records, pages, and captures of calls in trouble.
Usage: test_records.py --program PATH --samples DIRECTORY [unittest arguments]"""

import json
import os
import subprocess
import time

from gateway import BOTH_WAYS, OPTIONS, RTP, GatewayTest, ends_call, main, sample
from network import OUTSIDE, PRIVATE
from recorded_call import patched

SETUP_WITHOUT_CONTENT = bytes.fromhex("0300000d080200010504028890")


def with_client_port(found, port):
    return patched(found, {found[0].client: (found[0].client[0], port)})


class RecordsTest(GatewayTest):
    def ask(self, gateway, *arguments):
        run = subprocess.run([OPTIONS.program, "calls", "--socket", gateway.socket, *arguments],
                             capture_output=True, text=True)
        return run.stdout, run.stderr

    def test_a_page_of_a_running_call_and_of_the_ended_one(self):
        gateway = self.start("--keep-calls", "5")
        call = self.call(sample("fast-tun")).play(ends_call)
        number = gateway.status()["calls"][0]["call"]
        record = os.path.join(self.folder, "calls", f"{number}.json")
        gateway.wait_for(lambda now: os.path.exists(record))
        running, errors = self.ask(gateway, "--html", str(number))
        self.assertIn("setup", running, errors)
        call.play()
        gateway.wait_for(lambda now: now["call_total"] == 0)
        page, errors = self.ask(gateway, "--html", str(number))
        self.assertIn("releaseComplete", page, errors)
        self.assertIn("UDP mapping 10.", page)
        self.assertIn("✓ translated", page)
        self.assertGreater(page.count('<g class="message'), running.count('<g class="message'))
        ended = json.loads(self.ask(gateway, "--json")[0])
        self.assertEqual(ended["verdict"], "translated")
        self.assertEqual(ended["call"], number)

    def test_packets_each_way(self):
        gateway = self.start("--keep-calls", "5")

        def played(found, sent, page):
            call = self.call(found).play(ends_call)
            self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
            for _ in range(sent - 1):
                call.datagram_sockets[RTP[0]].sendto(b"\x80\x00" + bytes(10), RTP[1])
            gateway.wait_for(lambda now: now["calls"][0].get("media_sent") == sent)
            call.play()
            call.close()
            gateway.wait_for(lambda now: now["call_total"] == 0)
            gateway.wait_for(lambda now: now["ended_calls"][0].get("media_received") == 1)
            ended = gateway.status()["ended_calls"][0]
            self.assertEqual(ended["media_sent"], sent)
            # A handshake, the messages and their acknowledgements.
            self.assertIn(ended["signalling_sent"], range(4, 30))
            self.assertIn(ended["signalling_received"], range(4, 30))
            time.sleep(3)  # the last survey
            self.assertIn(page, self.ask(gateway, "--html", str(ended["call"]))[0])
            self.assertIn(f"→ {sent} ← 1  ", self.ask(gateway)[0])

        played(sample("fast-tun"), 3, "→ 3  ← 1 both ways")
        # By the same ports: the kernel goes on counting, the second call does not have the first's.
        played(with_client_port(sample("fast-tun"), 45000), 5, "→ 5  ← 1 both ways")

    def test_packets_are_not_counted_unless_wanted(self):
        gateway = self.start("--keep-calls", "5", "--count-packets", "no")
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        call.play()
        gateway.wait_for(lambda now: now["ended_calls"])
        time.sleep(3)
        self.assertNotIn("media_sent", gateway.status()["ended_calls"][0])
        self.assertIn("not counted", self.ask(gateway, "--html", "1")[0])
        self.assertEqual(self.network.on_router("sysctl", "-n", "net.netfilter.nf_conntrack_acct"),
                         "0\n")

    def test_every_call_has_its_end_and_its_verdict(self):
        several = "partly: setup: it came in several segments"
        cases = [
            # settings, sample, octets of each segment, releases, end, verdict
            (["--publish", PRIVATE], "in-fast-tun", None, True, "released", "translated"),
            (["--publish", PRIVATE, "--scope", "listed"], "in-fast-tun", None, True, "released",
             "partly: "),
            (["--publish", PRIVATE, "--scope", "listed"], "in-fast-tun", None, False, "closed",
             "partly: "),
            (["--scope", "listed"], "fast-tun", None, False, "closed", "partly: setup.source"),
            (["--scope", "listed"], "fast-tun", 100, True, "released", several),
        ]
        for settings, name, piece, releases, end, verdict in cases:
            with self.subTest(settings=settings, sample=name, releases=releases):
                self.new_network()
                gateway = self.start(*settings)
                call = self.call(sample(name), piece=piece)
                call.play(None if releases else ends_call)
                if not releases:
                    self.assertEqual(gateway.status()["call_total"], 1)
                    call.close()
                gateway.wait_for(lambda now: now["ended_calls"])
                ended = gateway.status()["ended_calls"][0]
                self.assertEqual(ended["end"], end)
                self.assertTrue(ended["verdict"].startswith(verdict), ended["verdict"])
                self.assertEqual(gateway.status()["call_total"], 0)
                gateway.stop()

    def test_a_call_that_is_not_followed_has_its_line(self):
        gateway = self.start("--calls", "1")
        first = self.call(sample("fast-tun")).play(ends_call)
        second = self.call(with_client_port(sample("fast-tun"), 45000)).play(ends_call)
        self.assertEqual(second.changed, 0)
        first.play()
        listener = self.network.listen("outside", OUTSIDE, 1720)
        self.addCleanup(listener.close)
        broken = self.network.tcp("inside", PRIVATE, 45001)
        self.addCleanup(broken.close)
        broken.connect((OUTSIDE, 1720))
        for _ in range(2):
            broken.sendall(SETUP_WITHOUT_CONTENT)
            time.sleep(0.2)
        missed = [call for call in gateway.status()["ended_calls"] if call["call"] == 0]
        self.assertEqual(
            {call["inside"]: call["verdict"] for call in missed},
            {PRIVATE + ":45000": "not translated: no record was free for it",
             PRIVATE + ":45001": "not translated: its Setup makes no sense"})
        self.assertEqual(len(missed), 2)
        self.assertEqual(gateway.counter("calls_missed"), 2)
        self.assertIn("not translated: its Setup makes no sense", self.ask(gateway)[0])
        self.assertEqual(gateway.log_text().count("call-missed"), 2)

    def test_nothing_is_kept_unless_asked_for(self):
        gateway = self.start()
        self.call(sample("fast-tun")).play()
        gateway.wait_for(lambda now: now["ended_calls"])
        self.assertIn("nothing is kept of call 1", self.ask(gateway, "--html", "1")[1])
        self.assertFalse(os.path.exists(os.path.join(self.folder, "calls")))

    def test_a_call_in_trouble_leaves_a_capture_with_remarks(self):
        folder = os.path.join(self.folder, "troubled")
        gateway = self.start("--capture-troubled", folder, "--keep-calls", "5",
                             "--lowest-inside-port", "6000", "--publish", PRIVATE)
        self.call(sample("in-fast-tun")).play()
        gateway.wait_for(lambda now: now["ended_calls"])
        number = gateway.status()["ended_calls"][0]["call"]
        gateway.wait_for(lambda now: os.path.isdir(folder) and os.listdir(folder))
        capture = os.path.join(folder, os.listdir(folder)[0])
        with open(capture, "rb") as file:
            content = file.read()
        self.assertIn(b"hears nothing", content)
        self.assertIn(b"10.0.0.5:5000 stays in h323-uu-pdu", content)
        decoded = subprocess.run([OPTIONS.program, "decode", "--json", capture],
                                 capture_output=True, text=True)
        self.assertGreaterEqual(len(json.loads(decoded.stdout)), 4, decoded.stderr)
        page, errors = self.ask(gateway, "--html", str(number))
        self.assertIn("media into the void", page, errors)


if __name__ == "__main__":
    main(__doc__)
