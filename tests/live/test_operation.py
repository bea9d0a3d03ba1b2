"""The live gateway as its administrator meets it. Usage: test_operation.py --program PATH --samples
DIRECTORY [unittest arguments]"""

import contextlib
import os
import signal
import socket
import subprocess
import time

from gateway import BOTH_WAYS, OPTIONS, RTCP, RTP, GatewayTest, ends_call, main, sample
from network import OUTSIDE, PRIVATE, PUBLIC, SECOND_PRIVATE
from recorded_call import patched


def other_call(port_offset=100, client_port=45000):
    found = sample("fast-tun")
    places = {(PRIVATE, port): (PRIVATE, port + port_offset) for port in (5000, 5001)}
    places[found[0].client] = (PRIVATE, client_port)
    return patched(found, places)


class OperationTest(GatewayTest):
    def test_dry_run_changes_nothing(self):
        before = self.ruleset()
        with self.network.inside_of("router"):
            peer = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(peer.close)
        peer.bind(("127.0.0.1", 1722))
        gateway = self.start("--dry-run", "--feed", "127.0.0.1:1721, 127.0.0.1:1722")
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual(call.changed, 0)
        time.sleep(1.2)
        self.assertRaises(BlockingIOError, peer.recv, 99, socket.MSG_DONTWAIT)
        self.assertEqual(gateway.counter("packets_rewritten"), 1)
        gateway.stop()
        self.assertEqual(self.ruleset(), before)

    def test_other_rules_stay_and_ours_go(self):
        before = self.ruleset()
        gateway = self.start()
        self.call(sample("fast-tun")).play()
        self.assertIn("table ip operator", self.ruleset())
        self.assertEqual(gateway.stop(), 0)
        self.assertEqual(self.ruleset(), before)

    def test_refused_mappings_leave_the_message(self):
        gateway = self.start("--mappings-per-host", "1")
        self.call(sample("fast-tun")).play(ends_call)
        other = {(PRIVATE, port): (PRIVATE, port + 100) for port in (5000, 5001)}
        found = sample("fast-tun")
        other[found[0].client] = (PRIVATE, 45000)
        refused = self.call(patched(found, other)).play(ends_call)
        self.assertEqual(refused.changed, 0)
        self.assertGreaterEqual(gateway.counter("refused_host_limit"), 1)

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

    def test_warns_of_the_kernels_helper_and_of_missing_translation(self):
        try:
            self.network.on_router(
                "nft", "table ip help { ct helper q931 { type \"Q.931\" protocol tcp; l3proto ip; };"
                " chain pre { type filter hook prerouting priority 0;"
                " tcp dport 1720 ct helper set \"q931\"; }; }")
        except subprocess.CalledProcessError:
            self.skipTest("this kernel has no H.323 helper")
        self.network.on_router("nft", "delete", "table", "ip", "operator")
        self.network.run_in("outside", "ip", "route", "add", "10.0.0.0/24", "via", PUBLIC)
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

    def test_idle_mappings_end_with_their_flows(self):
        # In a container's view of processes the gateway's number is not the kernel's.
        gateway = self.start("--media-idle", "1",
                             through=("unshare", "--pid", "--fork", "--kill-child"))
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        call.play()
        for connection in call.connections.values():
            for end in connection:
                end.close()
        gateway.wait_for(lambda now: now["mapping_total"] == 0)
        self.assertEqual(gateway.counter("table_remade"), 0)
        self.assertNotIn("5000", self.network.on_router("nft", "list", "map", "ip", "h323nat",
                                                        "media_in"))
        # No way in is left, not even for the party that was in the call.
        outside, inside = (call.datagram_socket((OUTSIDE, 5000)),
                           call.datagram_socket((PRIVATE, 5000)))
        outside.sendto(b"late", call.announced[PRIVATE, 5000])
        with self.assertRaises(TimeoutError):
            inside.recvfrom(99)

    def test_reload_keeps_calls(self):
        path = os.path.join(self.folder, "h323nat.conf")
        with open(path, "w", encoding="utf-8") as file:
            file.write("ports = 20000-20999\ncount-packets = no\n")
        gateway = self.start("--config", path)
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertIn(call.announced[PRIVATE, 5000][1], range(20000, 21000))
        with open(path, "w", encoding="utf-8") as file:
            file.write("ports = 30000-30999\npublish = " + SECOND_PRIVATE + "\n")
        gateway.process.send_signal(signal.SIGHUP)
        gateway.wait_for(lambda now: now.get("published") == SECOND_PRIVATE)
        listener = self.network.listen("inside", SECOND_PRIVATE, 1720)
        caller = self.network.tcp("outside", OUTSIDE)
        for made in (listener, caller):
            self.addCleanup(made.close)
        caller.connect((PUBLIC, 1720))
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        other = {(PRIVATE, port): (PRIVATE, port + 100) for port in (5000, 5001)}
        found = sample("fast-tun")
        other[found[0].client] = (PRIVATE, 45000)
        later = self.call(patched(found, other)).play(ends_call)
        self.assertIn(later.announced[PRIVATE, 5100][1], range(30000, 31000))
        refused = ["ports = everything", "queue-number = 2", "queue-length = 99", "calls = 9",
                   "scope = listed", "strict = yes",
                   "table = other", "feed = 10.0.0.1:5, 10.0.0.2:5"]
        for number, setting in enumerate(refused):
            with open(path, "w", encoding="utf-8") as file:
                file.write(setting + "\npublish = " + PRIVATE + "\n")
            gateway.process.send_signal(signal.SIGHUP)
            gateway.wait_for(lambda _: gateway.log_text().count("reload-refused") > number, 2)
        self.assertEqual(gateway.status()["published"], SECOND_PRIVATE)
        with open(path, "w", encoding="utf-8") as file:
            file.write("\n")
        gateway.process.send_signal(signal.SIGHUP)
        gateway.wait_for(lambda now: "published" not in now)
        self.assertNotIn("1720", self.network.on_router("nft", "list", "map", "ip", "h323nat",
                                                        "control_in"))

    def test_killed_and_restarted_in_mid_call(self):
        gateway = self.start()
        call = self.call(sample("fast-tun")).play(ends_call)
        gateway.stop(signal.SIGKILL)
        # The rules are still there and nobody listens: traffic flows, known media ports work.
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        gateway = self.start()
        self.assertGreaterEqual(gateway.counter("mappings_adopted"), 1)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        self.assertEqual(call.media_arrives(*RTCP), BOTH_WAYS)
        other = {(PRIVATE, port): (PRIVATE, port + 100) for port in (5000, 5001)}
        found = sample("fast-tun")
        other[found[0].client] = (PRIVATE, 45000)
        later = self.call(patched(found, other)).play(ends_call)
        self.assertNotEqual(later.announced[PRIVATE, 5100], call.announced[PRIVATE, 5000])
        self.assertEqual(later.media_arrives((PRIVATE, 5100), (OUTSIDE, 5100)), BOTH_WAYS)
        call.play()

    def test_only_one_gateway_at_a_time(self):
        """Neither a second one nor a dry run touches what belongs to the first."""
        self.start()
        before = self.ruleset()
        shared = ["--status-socket", os.path.join(self.folder, "other")]
        for arguments, wrong in [
                (shared, "another gateway uses the nftables table 'h323nat'"),
                ([*shared, "--table", "second"], "queue 1720"),
                (["--dry-run", *shared], "queue 1720"),
                (["--table", "second", "--queue-number", "1", "--status-socket",
                  os.path.join(self.folder, "status")], "another gateway answers there"),
                (["--table", "second", "--queue-number", "1", "--status-socket",
                  os.path.join(self.folder, "log")], "a file that is no socket is there")]:
            with self.subTest(wrong):
                second = self.network.spawn_on_router(
                    [OPTIONS.program, "gateway", "--inside", "in0", "--outside", "out0",
                     *arguments], stderr=subprocess.PIPE, text=True)
                self.assertIn(wrong, second.communicate(timeout=10)[1])
                self.assertEqual(second.returncode, 1)
        self.assertEqual(self.ruleset(), before)

    def test_log_and_counters_tell_of_a_call(self):
        gateway = self.start()
        call = self.call(sample("fast-tun")).play()
        gateway.wait_for(lambda now: now["call_total"] == 0)
        log = gateway.log_text()
        public = "%s:%d" % call.announced[PRIVATE, 5000]
        for line in ("event=call-start call=1 direction=out", "event=mapping-open kind=media",
                     "event=rewrite direction=sent message=setup",
                     f"mediaChannel {PRIVATE}:5000 -> {public}", "verdict=translated"):
            self.assertIn(line, log)
        ended = gateway.status()["ended_calls"]
        self.assertEqual(len(ended), 1)
        self.assertEqual((ended[0]["end"], ended[0]["from"], len(ended[0]["identifier"])),
                         ("released", "alice", 32))

    def test_only_calls_are_shown_to_the_gateway(self):
        """A web connection of a host that is in a call never comes to the queue, nor one to a host that
        the operator forwards, from whatever port; a knock at a host that accepts calls neither."""
        self.network.on_router(
            "nft", "table ip operator { chain in { type nat hook prerouting priority dstnat;"
            f' iifname "out0" meta l4proto {{ tcp, udp }} th dport 8080 dnat to {PRIVATE}; }}; }}')
        self.start("--publish", "10.0.0.99")  # nobody answers there
        self.call(sample("h245")).play(ends_call)
        connections = []
        for client, server, target in (
                (("inside", PRIVATE, 0), ("outside", OUTSIDE, 8080), OUTSIDE),
                (("outside", OUTSIDE, 1720), ("inside", PRIVATE, 8080), PUBLIC)):
            listener, opening = self.network.listen(*server), self.network.tcp(*client)
            opening.connect((target, 8080))
            connections.append((opening, listener.accept()[0]))
            for made in (listener, *connections[-1]):
                self.addCleanup(made.close)
        before = self.shown()
        for _ in range(20):
            for opening, accepted in connections:
                opening.sendall(b"GET / HTTP/1.1\r\n\r\n")
                accepted.recv(100)
            connections[0][1].sendall(b"HTTP/1.1 200 OK\r\n\r\n")
            connections[0][0].recv(100)
        gatekeeper = self.network.udp("outside", OUTSIDE, 1719)
        host = self.network.udp("inside", PRIVATE, 8080)
        knocking = self.network.tcp("outside", OUTSIDE)
        for made in (gatekeeper, host, knocking):
            self.addCleanup(made.close)
        gatekeeper.sendto(b"request", (PUBLIC, 8080))
        host.recv(99)
        knocking.settimeout(0.1)
        self.assertRaises(TimeoutError, knocking.connect, (PUBLIC, 1720))
        self.assertEqual(self.shown(), before)

    def test_a_call_that_runs_when_the_gateway_starts_is_followed(self):
        for piece in (None, 4):  # octets of a segment: TPKT's header may come alone
            with self.subTest(piece=piece):
                self.new_network()
                call = self.call(sample("tun"), piece=piece)
                call.play(lambda message: b"\x10\x13" in message.data or len(call.connections) == 1
                          and call.position == 6)
                gateway = self.start()
                call.play(ends_call)
                self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
                self.assertEqual(gateway.counter("connections_adopted"), 1)
                gateway.stop()
                call.close()

    def test_a_registration_older_than_the_gateway_is_confirmed_again(self):
        """Its flow left from another port before there was a mapping."""
        found = sample("gk-in")
        early = self.call([message for message in found[:4]])
        early.play()
        early.close()
        gateway = self.start()
        call = self.call(found).play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        self.assertEqual(gateway.counter("addresses_left"), 0)

    def test_restart_keeps_registrations(self):
        """The host only renews its registration, and is called."""
        state = os.path.join(self.folder, "state")
        gateway = self.start("--state-file", state)
        found = sample("gk-in")
        call = self.call(found)
        call.play(lambda message: message.protocol == "tcp")
        before = dict(call.announced)
        gateway.wait_for(lambda now: os.path.exists(state))
        time.sleep(1.2)
        gateway.stop()
        gateway = self.start("--state-file", state)
        renewal = self.call(found[2:])  # without discovery
        for name in ("datagram_sockets", "sockets"):
            setattr(renewal, name, getattr(call, name))
        renewal.play(ends_call)
        self.assertEqual(renewal.announced[PRIVATE, 1720], before[PRIVATE, 1720])
        self.assertEqual(renewal.media_arrives(*RTP), BOTH_WAYS)
        self.assertEqual(gateway.counter("addresses_left"), 0)
        self.assertEqual(gateway.counter("messages_undecodable"), 0)

    def test_restart_keeps_mappings_and_their_ports(self):
        state = os.path.join(self.folder, "state")
        gateway = self.start("--state-file", state)
        gateway.wait_for(lambda now: os.path.exists(state))
        with open(state, encoding="utf-8") as file:
            forgetful = file.read()
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual(gateway.stop(), 0)
        self.assertNotIn("table ip h323nat", self.ruleset())
        gateway = self.start("--state-file", state)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        self.assertEqual(call.media_arrives(*RTCP), BOTH_WAYS)
        gateway.stop()
        # Forgotten, and mapped anew: the same ports, by the seed alone.
        with open(state, "w", encoding="utf-8") as file:
            file.write(forgetful)
        gateway = self.start("--state-file", state)
        again = patched(sample("fast-tun"), {sample("fast-tun")[0].client: (PRIVATE, 45001)})
        later = self.call(again).play(ends_call)
        self.assertEqual(later.announced[PRIVATE, 5000], call.announced[PRIVATE, 5000])
        gateway.stop()
        for text, wrong in (("{\"version\": 99}", "another version"), ("x", "cannot be read"),
                            (forgetful.replace("seed", "seek"), "is damaged")):
            with open(state, "w", encoding="utf-8") as file:
                file.write(text)
            with self.assertRaisesRegex(AssertionError, wrong):
                self.start("--state-file", state)

    def test_a_flushed_table_comes_back_with_its_mappings(self):
        gateway = self.start()
        call = self.call(sample("tun")).play(ends_call)
        operator = self.network.on_router("nft", "list", "table", "ip", "operator")
        for number, command in enumerate((["flush", "ruleset"], ["delete", "table", "ip", "h323nat"],
                                          ["flush", "chain", "ip", "h323nat", "sent"],
                                          ["flush", "map", "ip", "h323nat", "media_in"])):
            with self.subTest(" ".join(command)):
                self.network.on_router("nft", *command)
                gateway.wait_for(lambda now: now["counters"]["table_remade"] > number, 5)
                if command[1] == "ruleset":
                    self.network.on_router("nft", operator)
                stranger = self.network.udp("outside", OUTSIDE, 7000 + number)
                self.addCleanup(stranger.close)
                self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        self.assertIn("event=table-remade", gateway.log_text())

    def test_media_that_begins_while_the_table_is_gone(self):
        """Its flow knows no translation, and would go on without."""
        gateway = self.start()
        call = self.call(sample("tun")).play(ends_call)
        time.sleep(2.5)  # flows that are older than the mapping have been looked for
        before = gateway.counter("flows_removed")
        gateway.process.send_signal(signal.SIGSTOP)
        self.network.on_router("nft", "delete", "table", "ip", "h323nat")
        outside, inside = call.datagram_socket(RTP[1]), call.datagram_socket(RTP[0])
        outside.sendto(b"early", call.announced[RTP[0]])
        inside.sendto(b"early", RTP[1])
        gateway.process.send_signal(signal.SIGCONT)
        gateway.wait_for(lambda now: now["counters"]["flows_removed"] >= before + 2)
        outside.recv(99)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)

    def test_interfaces_and_addresses_are_followed_at_once(self):
        gateway = self.start("--outside", "out0", "--sweep", "3600")
        moved = "203.0.113.77"
        self.network.on_router("ip", "addr", "flush", "dev", "out0")
        gateway.wait_for(lambda now: "event=waiting" in gateway.log_text(), 5)
        self.network.on_router("ip", "addr", "add", moved + "/24", "dev", "out0")
        gateway.wait_for(lambda now: now["public"] == moved, 5)
        call = self.call(sample("fast-tun"), public=moved).play(ends_call)
        self.assertEqual(call.announced[PRIVATE, 5000][0], moved)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)

    def test_waits_for_an_interface_that_is_not_there_yet(self):
        gateway = self.start("--inside", "in0, late*")
        self.assertIn("event=start", gateway.log_text())
        other = self.start_again("--outside", "ppp0", "--table", "second", "--queue-number", "2")
        other.wait_for(lambda now: "there is no outside interface 'ppp0'" in other.log_text(), 5)

    def test_a_log_that_nobody_reads_stops_nothing(self):
        read, write = os.pipe()
        os.set_blocking(write, False)
        try:
            while True:
                os.write(write, b"x" * 4096)
        except BlockingIOError:
            os.set_blocking(write, True)
        gateway = self.start(log=write)
        os.close(write)
        self.addCleanup(os.close, read)
        call = self.call(sample("fast-tun")).play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        self.assertGreater(gateway.counter("log_suppressed"), 0)

    def test_a_disk_that_hangs_stops_nothing(self):
        for number, setting in enumerate(("--state-file", "--metrics-file")):
            path = os.path.join(self.folder, setting)
            os.mkfifo(path + ".new")  # nobody reads: whoever writes waits for ever
            gateway = self.start(setting, path)
            time.sleep(1.5)
            call = self.call(other_call(200 * number, 45000 + number)).play(ends_call)
            self.assertEqual(call.media_arrives((PRIVATE, 5000 + 200 * number),
                                                (OUTSIDE, 5000)), BOTH_WAYS, setting)
            call.close()
            gateway.stop(signal.SIGKILL)

    def test_the_service_manager_is_told(self):
        manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(manager.close)
        manager.bind(os.path.join(self.folder, "notify"))
        manager.settimeout(5)
        through = ("env", "NOTIFY_SOCKET=" + manager.getsockname(), "WATCHDOG_USEC=1000000")
        path = os.path.join(self.folder, "h323nat.conf")

        def write(settings):
            with open(path, "w", encoding="utf-8") as file:
                file.write(settings)

        def told(what):
            while not (text := manager.recv(4096).decode()).startswith(what):
                self.assertEqual(text, "WATCHDOG=1")
            return text

        write("")
        gateway = self.start("--config", path, "--sweep", "3600", through=through)
        told("READY=1")
        self.assertIn("table ip h323nat", self.ruleset())
        time.sleep(2)  # nothing happens, and it lives
        manager.setblocking(False)
        beats = []
        with contextlib.suppress(BlockingIOError):
            while True:
                beats.append(manager.recv(99))
        self.assertGreaterEqual(beats.count(b"WATCHDOG=1"), 4)
        manager.settimeout(5)
        for settings, outcome in (("ports = 30000-30999", "READY=1\nSTATUS=Translating"),
                                  ("ports = none", "READY=1\nSTATUS=Reload refused: " + path)):
            write(settings)
            gateway.process.send_signal(signal.SIGHUP)
            self.assertIn("MONOTONIC_USEC=", told("RELOADING=1"))
            told(outcome)
        with self.assertRaisesRegex(AssertionError, "queue 1720"):
            self.start_again("--table", "second", through=through)
        gateway.stop()
        told("STOPPING=1")

    def test_a_large_foreign_ruleset_costs_nothing(self):
        """Processor time of the daemon, idle and in calls, beside 100,000 elements of another table."""
        path = os.path.join(self.folder, "big")
        with open(path, "w", encoding="utf-8") as file:
            file.write("table ip foreign { set big { type ipv4_addr; }; }\n")
            addresses = (f"10.{7 + (n >> 16)}.{n >> 8 & 255}.{n & 255}" for n in range(100000))
            file.write("add element ip foreign big { " + ", ".join(addresses) + " }\n")
        gateway = self.start()
        ports = iter(range(200))

        def idle():
            time.sleep(3)

        def calls():
            for number in (next(ports) for _ in range(20)):
                self.call(other_call(100 + 2 * number, 45000 + number)).play(ends_call).close()

        def milliseconds(work):
            before = gateway.processor_milliseconds()
            work()
            return gateway.processor_milliseconds() - before

        calls()
        alone = [milliseconds(work) for work in (idle, calls)]
        self.network.on_router("nft", "-f", path)
        time.sleep(1)  # the kernel's news of them
        beside = [milliseconds(work) for work in (idle, calls)]
        # Whoever reads the ruleset as a whole, as nft does for some commands, takes 0.5 s a time.
        for before, after in zip(alone, beside):
            self.assertLess(after, 2 * before + 20, (alone, beside))
        self.assertEqual(gateway.counter("table_remade"), 0)

    def test_metrics_are_for_everybody_to_read(self):
        path = os.path.join(self.folder, "h323nat.prom")
        gateway = self.start("--metrics-file", path)
        self.call(sample("fast-tun")).play(ends_call)
        gateway.wait_for(lambda now: os.path.exists(path))
        self.assertEqual(os.stat(path).st_mode & 0o777, 0o644)
        time.sleep(1.2)
        with open(path, encoding="utf-8") as file:
            text = file.read()
        for line in ("h323nat_calls 1", "h323nat_packet_delay_seconds_sum ",
                     "h323nat_packet_delay_seconds_bucket{le=\"0.001024\"} "):
            self.assertIn(line, text)

    def test_status_has_a_time_limit(self):
        gateway = self.start()
        gateway.process.send_signal(signal.SIGSTOP)
        began = time.monotonic()
        asked = subprocess.run([OPTIONS.program, "status", "--socket", gateway.socket],
                               capture_output=True, text=True)
        gateway.process.send_signal(signal.SIGCONT)
        self.assertIn("did not answer within 3 seconds", asked.stderr)
        self.assertNotEqual(asked.returncode, 0)
        self.assertLess(time.monotonic() - began, 10)


if __name__ == "__main__":
    main(__doc__)
