"""Two routers, of which one stands in for the other: conntrackd copies connections, the gateways tell
each other of mappings, and the addresses move by hand or by keepalived's VRRP.
Usage: test_standby.py --program PATH --samples DIRECTORY [unittest arguments]"""

import os
import shutil
import subprocess
import time
import unittest

import network
from gateway import BOTH_WAYS, OPTIONS, RTCP, RTP, Gateway, GatewayTest, ends_call, main, sample
from network import OUTSIDE, PRIVATE, PUBLIC, run
from recorded_call import patched

INSIDE_ADDRESS = "10.0.0.1"
CONNTRACKD = """
Sync {{
    Mode NOTRACK {{ DisableExternalCache On }}
    UDP {{ IPv4_address {own} IPv4_Destination_Address {peer} Port 3780 Interface sync0
           SndSocketBuffer 1249280 RcvSocketBuffer 1249280 Checksum on }}
}}
General {{
    HashSize 8192
    HashLimit 65535
    LockFile {folder}/{name}.lock
    LogFile {folder}/{name}.log
    UNIX {{ Path {folder}/{name}.ctl }}
    NetlinkBufferSize 2097152
    NetlinkBufferSizeMaxGrowth 8388608
    Filter From Kernelspace {{
        Protocol Accept {{ TCP UDP }}
        Address Ignore {{ IPv4_address 127.0.0.1 IPv4_address {own} IPv4_address {peer} }}
    }}
}}
"""
KEEPALIVED = """
global_defs {{ router_id {name} }}
vrrp_instance pair {{
    state BACKUP
    interface in0
    virtual_router_id 51
    priority {priority}
    version 3
    advert_int 0.2
    virtual_ipaddress {{
        {inside}/24 dev in0
        {public}/24 dev out0
    }}
}}
"""


class TwoRouters(network.Network):
    """Both routers have all the cables; the addresses belong to the one that is active."""

    def __init__(self):
        super().__init__()
        try:
            self.names["second"] = self.names["router"].replace("-router", "-second")
            run("ip", "netns", "add", self.names["second"])
            self._ip_in(self.names["second"], "link", "set", "lo", "up")
            for side, end in (("inside", "in0"), ("outside", "out0")):
                self._join(side, end)
            self._ip_in(self.names["router"], "link", "add", "sync0", "type", "veth", "peer", "name",
                        "sync0", "netns", self.names["second"])
            for name, address in (("router", "192.0.2.1"), ("second", "192.0.2.2")):
                self._ip_in(self.names[name], "addr", "add", address + "/24", "dev", "sync0")
                self._ip_in(self.names[name], "link", "set", "sync0", "up")
            rules = self.on_router("nft", "list", "table", "ip", "operator")
            self.run_in("second", "nft", rules)
            self.run_in("second", "sysctl", "-qw", "net.ipv4.ip_forward=1")
        except BaseException:
            self.close()
            raise

    def _join(self, side, end):
        """A bridge where the hosts' interface was."""
        host, second = self.names[side], self.names["second"]
        addresses = [word for word in self.run_in(side, "ip", "-o", "-4", "addr", "show", "dev",
                                                  "eth0").split() if "/" in word]
        self._ip_in(host, "link", "add", "bridge", "type", "bridge")
        self._ip_in(host, "addr", "flush", "dev", "eth0")
        self._ip_in(second, "link", "add", end, "type", "veth", "peer", "name", "eth1", "netns", host)
        for part in ("eth0", "eth1"):
            self._ip_in(host, "link", "set", part, "master", "bridge", "up")
        self._ip_in(host, "link", "set", "bridge", "up")
        for address in addresses:
            self._ip_in(host, "addr", "add", address, "dev", "bridge")
        if side == "inside":
            self._ip_in(host, "route", "replace", "default", "via", INSIDE_ADDRESS)
        self._ip_in(second, "link", "set", end, "up")

    def cut_off(self):
        for end in ("in0", "out0", "sync0"):
            self._ip_in(self.names["router"], "link", "set", end, "down")

    def move_addresses(self):
        """What VRRP does when the active router is gone."""
        for address, end in ((INSIDE_ADDRESS, "in0"), (PUBLIC, "out0")):
            self._ip_in(self.names["second"], "addr", "add", address + "/24", "dev", end)
        for side in ("inside", "outside"):
            self._ip_in(self.names[side], "neigh", "flush", "all")

    def leave_addresses_to_vrrp(self):
        """But for those that it speaks from itself."""
        for end in ("in0", "out0"):
            self._ip_in(self.names["router"], "addr", "flush", "dev", end)
        for name, address in (("router", "10.0.0.2/24"), ("second", "10.0.0.3/24")):
            self._ip_in(self.names[name], "addr", "add", address, "dev", "in0")

    def has_addresses(self, side):
        return PUBLIC in self.run_in(side, "ip", "-4", "addr", "show", "dev", "out0")


class StandbyTest(GatewayTest):
    def new_network(self):
        self.network = TwoRouters()
        self.addCleanup(self.network.close)

    def written(self, name, text):
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def spawn(self, side, *command):
        process = subprocess.Popen(
            ["ip", "netns", "exec", self.network.names[side], *command],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (process.terminate(), process.wait()))
        return process

    def conntrackd(self, side, own, peer):
        path = self.written(side + ".conf", CONNTRACKD.format(own=own, peer=peer,
                                                              folder=self.folder, name=side))
        return self.spawn(side, "conntrackd", "-C", path)

    def keepalived(self, side, priority):
        path = self.written(side + ".vrrp", KEEPALIVED.format(
            name=side, priority=priority, inside=INSIDE_ADDRESS, public=PUBLIC))
        files = [f"--{kind}={self.folder}/{side}.{kind}" for kind in ("pid", "vrrp_pid")]
        process = self.spawn(side, "keepalived", "--dont-fork", "--vrrp", "--use-file=" + path,
                             *files)
        self.until(lambda: self.network.has_addresses("router"))
        return process

    def until(self, condition, seconds=10):
        deadline = time.monotonic() + seconds
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.05)

    def setUp(self):
        if shutil.which("conntrackd") is None:
            self.skipTest("conntrackd is not installed")
        super().setUp()

    def test_the_active_router_dies_in_mid_call(self):
        self.play_on_both(lambda: None, self.network.move_addresses)

    def test_keepalived_moves_the_addresses(self):
        if shutil.which("keepalived") is None:
            self.skipTest("keepalived is not installed")
        self.network.leave_addresses_to_vrrp()
        daemons = [self.keepalived("router", 150), self.keepalived("second", 100)]
        self.play_on_both(daemons[0].kill,
                          lambda: self.until(lambda: self.network.has_addresses("second")))

    def play_on_both(self, stop_moving, addresses_move):
        self.conntrackd("router", "192.0.2.1", "192.0.2.2")
        self.conntrackd("second", "192.0.2.2", "192.0.2.1")
        time.sleep(0.5)
        common = ["--public-address", PUBLIC, "--inside", "in0"]
        first = self.start(*common, "--feed", "192.0.2.1:1721, 192.0.2.2:1721")
        spawn = self.network.spawn_on_router
        self.network.spawn_on_router = lambda command, **options: subprocess.Popen(
            ["ip", "netns", "exec", self.network.names["second"], *command], **options)
        second = self.start_again(*common, "--feed", "192.0.2.2:1721, 192.0.2.1:1721")
        self.network.spawn_on_router = spawn
        call = self.call(sample("tun")).play(ends_call)
        self.assertEqual(call.media_arrives(*RTP), BOTH_WAYS)
        second.wait_for(lambda now: now["mapping_total"] >= 1, 8)
        time.sleep(0.5)
        # Power fails: nothing says goodbye.
        stop_moving()
        first.process.kill()
        self.network.cut_off()
        addresses_move()
        for pair in (RTP, RTCP):
            self.assertEqual(call.media_arrives(*pair), BOTH_WAYS)
        call.play()  # the rest of the signalling, to its end
        call.close()
        again = patched(sample("fast-tun"), {sample("fast-tun")[0].client: (PRIVATE, 45000)})
        later = self.call(again).play(ends_call)
        self.assertEqual(later.media_arrives(*RTP), BOTH_WAYS)
        self.assertEqual(second.status()["calls"][-1]["verdict"], "translated")


if __name__ == "__main__":
    main(__doc__)
