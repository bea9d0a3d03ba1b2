"""What the live gateway keeps of calls: records, pages, and captures of calls in trouble.
Usage: test_records.py --program PATH --samples DIRECTORY [unittest arguments]"""

import json
import os
import subprocess

from gateway import OPTIONS, GatewayTest, ends_call, main, sample
from network import PRIVATE


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
