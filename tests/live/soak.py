"""Mixed calls, floods, reloads and table flushes for as long as told: soak.py SECONDS --program PATH
--samples DIRECTORY. Ends with an error at the first call that is not translated, and when something
has grown or was left over."""

import os
import random
import signal
import socket
import sys
import threading
import time

import gateway
from gateway import BOTH_WAYS, RTP, GatewayTest, ends_call, sample
from network import OUTSIDE, PRIVATE, PUBLIC, SECOND_PRIVATE
from recorded_call import patched
from test_strangers import ACK, RST, SYN, segment

KINDS = ["fast-tun", "h245", "tun", "gk-direct", "gk-in", "in-fast-tun", "fast-h245"]
SECONDS = 60.0


class Soak(GatewayTest):
    def flood(self):
        """Packets of strangers, under ever new addresses."""
        made = self.network.raw("outside")
        number = 0
        while not self.over.is_set():
            for _ in range(200):
                number += 1
                source = (f"203.0.113.{20 + number % 200}", 1024 + number % 60000)
                flags, ports = random.choice([(SYN, (source[1], 1720)),
                                              (SYN | ACK, (1720, 20000 + number % 10000)),
                                              (RST, (source[1], 1720)),
                                              (ACK, (1720, 20000 + number % 10000))])
                made.sendto(segment((source[0], ports[0]), (PUBLIC, ports[1]), flags, number,
                                    number), (PUBLIC, 0))
            time.sleep(0.05)
        made.close()

    def give_strangers_a_place(self):
        """Answers to them leave, to nobody. While a router looks for their addresses, answers wait
        there, and hold the room that the kernel has for answers of closed connections: all hosts
        of this machine share it, and calls end late or not at all."""
        for number in range(200):
            self.network.on_router("ip", "neigh", "replace", f"203.0.113.{20 + number}", "lladdr",
                                   "02:00:00:00:00:01", "dev", "out0", "nud", "permanent")

    def disturb(self, running):
        """What an administrator does meanwhile."""
        running.process.send_signal(signal.SIGHUP)
        if random.random() < 0.3:
            before = running.counter("table_remade")
            self.network.on_router("nft", "flush", "table", "ip", "h323nat")
            running.wait_for(lambda now: now["counters"]["table_remade"] > before)

    def one_call(self, number, kind):
        host = random.choice([PRIVATE, SECOND_PRIVATE])
        if kind.startswith("in-"):
            host = PRIVATE  # the published one
        found = sample(kind)
        places = {}
        for message in found:
            for end in (message.source, message.destination, message.client):
                if end[0] == PRIVATE:
                    keep = end[1] in (1719, 1720)
                    places[end] = (host, end[1] if keep else 30000 + (end[1] + number * 8) % 30000)
                if end[0] == OUTSIDE and end[1] not in (1719, 1720):
                    places[end] = (OUTSIDE, 30000 + (end[1] + number * 8) % 30000)
        inside = (host, 10000 + number * 2 % 20000)
        own = socket.inet_aton(PRIVATE)
        for message in found:  # what else it says of itself
            for at in range(len(message.data) - 5):
                if message.data[at : at + 4] == own:
                    port = int.from_bytes(message.data[at + 4 : at + 6], "big")
                    places.setdefault((PRIVATE, port), (host, port))
        for port in (5000, 5001):
            places[PRIVATE, port] = (host, inside[1] + port - 5000)
        call = self.call(patched(found, places))
        try:
            call.play(ends_call)
            self.assertEqual(call.media_arrives(inside, RTP[1]), BOTH_WAYS, kind)
            call.play()
        except BaseException:
            print(f"call {number}, {kind}, of {host}, at message {call.position}", flush=True)
            raise
        finally:
            call.close()

    def test_soak(self):
        path = os.path.join(self.folder, "h323nat.conf")
        with open(path, "w", encoding="utf-8") as file:
            file.write(f"publish = {PRIVATE}\nmedia-idle = 5\n")
        running = self.start("--config", path, "--state-file", os.path.join(self.folder, "state"))
        self.give_strangers_a_place()
        self.over = threading.Event()
        flooding = threading.Thread(target=self.flood)
        flooding.start()
        began = time.monotonic()
        number, resident, shown = 0, None, began
        try:
            while time.monotonic() - began < SECONDS:
                self.one_call(number, KINDS[number % len(KINDS)])
                number += 1
                if number % 50 == 0:
                    self.disturb(running)
                    time.sleep(0.3)
                if number == 3000:
                    resident = running.status()["resident_kib"]
                if time.monotonic() - shown > 60:
                    shown = time.monotonic()
                    now = running.status()
                    print(f"{shown - began:6.0f} s  {number} calls  {now['resident_kib']} KiB  "
                          f"{now['mapping_total']} mappings", flush=True)
        except BaseException:
            print("\n".join(running.log_text().splitlines()[-25:]))
            print({name: value for name, value in running.status()["counters"].items() if value})
            for name in ("ras_in", "ras_hosts", "answering"):
                print(self.network.on_router("nft", "list", "set", "ip", "h323nat", name))
            raise
        finally:
            self.over.set()
            flooding.join()
        running.wait_for(lambda now: now["call_total"] == 0
                         and all(mapping["kind"] == "ras" or mapping["kind"] == "signalling"
                                 for mapping in now["mappings"]), 30)
        status = running.status()
        counters = status["counters"]
        bad = [call for call in status["ended_calls"] if call["verdict"] != "translated"]
        print(f"{number} calls in {time.monotonic() - began:.0f} s, {resident} KiB after 3000, "
              f"{status['resident_kib']} KiB at the end; " +
              ", ".join(f"{name} {value}" for name, value in counters.items() if value))
        self.assertEqual(bad, [])
        self.assertEqual(counters["calls_started"], number)
        self.assertEqual(counters["calls_ended"], number)
        if resident is not None:
            # Lists with a bound fill: connections seen lately, records, the last calls.
            self.assertLess(status["resident_kib"], resident + 16384)
        self.assertEqual(running.stop(), 0)
        self.assertNotIn("h323nat", self.ruleset())


if __name__ == "__main__":
    SECONDS = float(sys.argv.pop(1))
    gateway.main(__doc__)
