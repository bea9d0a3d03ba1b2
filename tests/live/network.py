"""A private host, a router and the outside, as network namespaces of this machine."""

import contextlib
import ctypes
import os
import socket
import subprocess
import uuid

PRIVATE = "10.0.0.5"
SECOND_PRIVATE = "10.0.0.6"
OTHER_PRIVATE = "10.0.1.5"  # behind another inside interface
PUBLIC = "203.0.113.1"
OUTSIDE = "203.0.113.9"
GATEKEEPER = "203.0.113.8"
TIMEOUT = 5

CLONE_NEWNET = 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)


def run(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


def why_not():
    """What this machine lacks for the tests; empty if nothing."""
    if os.geteuid() != 0:
        return "network namespaces need root"
    for program in ("ip", "nft", "setpriv"):
        if subprocess.run(["which", program], capture_output=True).returncode != 0:
            return f"the program '{program}' is not installed"
    name = "h323nat-probe-" + uuid.uuid4().hex[:8]
    try:
        run("ip", "netns", "add", name)
    except subprocess.CalledProcessError as error:
        return "network namespaces are not allowed here: " + error.stderr.strip()
    try:
        run("ip", "netns", "exec", name, "nft", "add", "table", "ip", "probe")
    except subprocess.CalledProcessError as error:
        return "nftables is not allowed here: " + error.stderr.strip()
    finally:
        run("ip", "netns", "del", name)
    return ""


class Network:
    """Names are unique, so that test runs never meet; `close` leaves nothing behind. The router has
    an ordinary firewall: what is not wanted does not pass."""

    def __init__(self):
        unique = uuid.uuid4().hex[:8]
        self.names = {side: f"h323nat-{unique}-{side}" for side in ("inside", "other", "router", "outside")}
        try:
            for name in self.names.values():
                run("ip", "netns", "add", name)
                self._ip_in(name, "link", "set", "lo", "up")
            self._connect("inside", "in0", "10.0.0.1/24", [PRIVATE, SECOND_PRIVATE])
            self._connect("outside", "out0", PUBLIC + "/24", [OUTSIDE, GATEKEEPER])
            self._connect("other", "in1", "10.0.1.1/24", [OTHER_PRIVATE])
            self._ip_in(self.names["inside"], "route", "add", "default", "via", "10.0.0.1")
            self._ip_in(self.names["other"], "route", "add", "default", "via", "10.0.1.1")
            self.on_router("sysctl", "-qw", "net.ipv4.ip_forward=1")
            # What an operator's router does anyway, in a table of its own.
            self.on_router(
                "nft",
                "table ip operator { chain out { type nat hook postrouting priority srcnat;"
                ' oifname "out0" masquerade; };'
                " chain through { type filter hook forward priority filter; policy drop;"
                " ct state established,related accept; ct status dnat accept;"
                ' iifname { "in0", "in1" } accept; }; }',
            )
        except BaseException:
            self.close()
            raise

    def _ip_in(self, name, *arguments):
        run("ip", "-n", name, *arguments)

    def _connect(self, side, router_end, router_address, addresses):
        host, router = self.names[side], self.names["router"]
        self._ip_in(router, "link", "add", router_end, "type", "veth", "peer", "name", "eth0",
                    "netns", host)
        self._ip_in(router, "addr", "add", router_address, "dev", router_end)
        self._ip_in(router, "link", "set", router_end, "up")
        for address in addresses:
            self._ip_in(host, "addr", "add", address + "/24", "dev", "eth0")
        self._ip_in(host, "link", "set", "eth0", "up")

    def close(self):
        for name in self.names.values():
            subprocess.run(["ip", "netns", "del", name], capture_output=True)

    def on_router(self, *command):
        return run("ip", "netns", "exec", self.names["router"], *command)

    def run_in(self, side, *command):
        return run("ip", "netns", "exec", self.names[side], *command)

    def spawn_on_router(self, command, **options):
        return subprocess.Popen(["ip", "netns", "exec", self.names["router"], *command], **options)

    @contextlib.contextmanager
    def inside_of(self, side):
        """Sockets made in this block belong to the given side."""
        with open("/proc/thread-self/ns/net") as before:
            with open("/run/netns/" + self.names[side]) as wanted:
                self._enter(wanted)
            try:
                yield
            finally:
                self._enter(before)

    @staticmethod
    def _enter(namespace):
        if _libc.setns(namespace.fileno(), CLONE_NEWNET) != 0:
            raise OSError(ctypes.get_errno(), "setns")

    def raw(self, side):
        """For packets that a host would not send by itself; IP header included."""
        with self.inside_of(side):
            return socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_RAW)

    def udp(self, side, address, port):
        with self.inside_of(side):
            made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        made.settimeout(TIMEOUT)
        made.bind((address, port))
        return made

    def tcp(self, side, address, port=0):
        with self.inside_of(side):
            made = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        made.settimeout(TIMEOUT)
        made.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        made.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        made.bind((address, port))
        return made

    def listen(self, side, address, port):
        made = self.tcp(side, address, port)
        made.listen(128)
        return made
