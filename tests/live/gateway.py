"""The gateway on a router made of network namespaces, and the base of the tests that use it."""

import argparse
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from network import OUTSIDE, PRIVATE, Network, why_not
from played_call import PlayedCall
from recorded_call import messages

SKIPPED = 77
OPTIONS = argparse.Namespace()
RTP = ((PRIVATE, 5000), (OUTSIDE, 5000))
RTCP = ((PRIVATE, 5001), (OUTSIDE, 5001))
BOTH_WAYS = (True, True)


def sample(name):
    return messages(os.path.join(OPTIONS.samples, name + ".pcap"))


def ends_call(message):
    """End of session (H.245), releaseComplete (Q.931), disengageRequest (RAS); tunnelled ones come
    in a facility that is the last message before the release."""
    if message.protocol == "udp":
        return message.data[:1] == b"\x3e"
    return message.data[4:6] == b"\x4a\x50" or message.data[8:9] == b"\x5a"


def copied_program(folder):
    """The command that runs a copy of the program: another user may not enter the build folder."""
    build = os.path.dirname(os.path.dirname(os.path.realpath(OPTIONS.program)))
    shown = subprocess.run(["ldd", OPTIONS.program], capture_output=True, text=True, check=True)
    for line in shown.stdout.splitlines():
        library = re.search(r"=> (.+) \(0x", line)
        if library and os.path.realpath(library[1]).startswith(build + os.sep):
            shutil.copy(library[1], folder)
    return ["env", "LD_LIBRARY_PATH=" + folder, shutil.copy(OPTIONS.program, folder)]


class Gateway:
    """The program on the router, with its status and its log."""

    DEFAULTS = {"--inside": "in0, in1", "--outside": "out0", "--sweep": "1"}

    def __init__(self, network, folder, *arguments, capability_only=False, name="", log=None,
                 through=()):
        self.socket = os.path.join(folder, "status" + name)
        self.log = open(os.path.join(folder, "log" + name), "a+", encoding="utf-8")
        program = [OPTIONS.program]
        if capability_only:
            capability = "-all,+net_admin"
            program = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                       "--inh-caps=" + capability, "--ambient-caps=" + capability,
                       "--bounding-set=" + capability, *copied_program(folder)]
            os.chown(folder, 65534, 65534)
        self.process = network.spawn_on_router(
            [*through, *program, "gateway", "--status-socket", self.socket, *arguments,
             *(word for name, value in self.DEFAULTS.items() if name not in arguments
               for word in (name, value))],
            stderr=self.log if log is None else log, stdout=self.log)
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

    def processor_milliseconds(self):
        """Of all its threads, the kernel's work for them included."""
        total = 0
        for thread in os.listdir(f"/proc/{self.process.pid}/task"):
            with open(f"/proc/{self.process.pid}/task/{thread}/schedstat",
                      encoding="ascii") as file:
                total += int(file.read().split()[0])
        return total / 1e6

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
        self.new_network()
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def new_network(self):
        """Hosts and a router that remember nothing."""
        self.network = Network()
        self.addCleanup(self.network.close)

    def start_again(self, *arguments, **options):
        """A second gateway beside the first."""
        return self.start(*arguments, name="2", **options)

    def start(self, *arguments, **options):
        gateway = Gateway(self.network, self.folder, *arguments, **options)
        self.addCleanup(lambda: (gateway.stop(signal.SIGKILL), gateway.log.close()))
        return gateway

    def call(self, found, **options):
        played = PlayedCall(self.network, found, **options)
        self.addCleanup(played.close)
        return played

    def shown(self):
        """Packets that the rules wanted shown to the gateway, queued or copied."""
        listed = self.network.on_router("nft", "list", "counters", "table", "ip", "h323nat")
        return sum(int(part.split()[0]) for part in listed.split("packets ")[1:])

    def ruleset(self):
        return self.network.on_router("nft", "list", "ruleset")


def main(description):
    parser = argparse.ArgumentParser(description=description)
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

