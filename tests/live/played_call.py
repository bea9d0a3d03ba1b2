"""Plays a recorded call between real sockets on both sides of the router."""

import struct
import time

from network import OTHER_PRIVATE, PRIVATE, PUBLIC, SECOND_PRIVATE
from recorded_call import endpoint_bytes

PRIVATE_ADDRESSES = (PRIVATE, SECOND_PRIVATE, OTHER_PRIVATE)
SIGNALLING_PORT = 1720


def is_private(endpoint):
    return endpoint[0] in PRIVATE_ADDRESSES


def read_exactly(connection, length):
    data = b""
    while len(data) < length:
        part = connection.recv(length - len(data))
        if not part:
            raise ConnectionError("the other end closed")
        data += part
    return data


class PlayedCall:
    """`announced` tells, for each private endpoint that a private host wrote into a message, what
    the outside party read there."""

    def __init__(self, network, found, keep_client_ports=True, piece=None, public=PUBLIC,
                 patience=None):
        """`piece`: octets of each segment; `public`: the address that outsiders call."""

        self.network = network
        self.found = found
        self.keep_client_ports = keep_client_ports
        self.piece = piece
        self.public = public
        self.patience = patience  # seconds
        self.received = []  # what private hosts read
        self.announced = {}
        self.connections = {}
        self.sockets = []
        self.datagram_sockets = {}
        self.changed = 0
        self.position = 0

    def close(self):
        for made in self.sockets:
            made.close()

    def play(self, stop_before=None):
        """Up to the end, or to the first message for which `stop_before` is true."""
        while self.position < len(self.found):
            message = self.found[self.position]
            if stop_before is not None and stop_before(message):
                return self
            self.position += 1
            if message.protocol == "udp":
                self._datagram(message)
            else:
                self._stream(message)
        return self

    def _keep(self, made):
        self.sockets.append(made)
        if self.patience is not None:
            made.settimeout(self.patience)
        return made

    @staticmethod
    def _side(endpoint):
        if endpoint[0] == OTHER_PRIVATE:
            return "other"
        return "inside" if is_private(endpoint) else "outside"

    def _target(self, endpoint):
        """Where the other side must send to reach an endpoint."""
        if not is_private(endpoint):
            return endpoint
        if endpoint in self.announced:
            return self.announced[endpoint]
        if endpoint[1] == SIGNALLING_PORT:
            return (self.public, SIGNALLING_PORT)
        raise AssertionError("nobody was told of %s:%d" % endpoint)

    def _connect(self, client, server):
        listener = self._keep(self.network.listen(self._side(server), *server))
        port = client[1] if self.keep_client_ports else 0
        opening = self._keep(self.network.tcp(self._side(client), client[0], port))
        opening.connect(self._target(server))
        accepted = self._keep(listener.accept()[0])
        accepted.settimeout(opening.gettimeout())
        listener.close()
        self.connections[client, server] = (opening, accepted)

    def connect(self, message):
        """The connection that a message goes over; it may be there already."""
        client = message.client
        server = message.destination if message.source == client else message.source
        if (client, server) not in self.connections:
            self._connect(client, server)
        return self.connections[client, server]

    def _stream(self, message):
        client = message.client
        opening, accepted = self.connect(message)
        sender, reader = (opening, accepted) if message.source == client else (accepted, opening)
        for at in range(0, len(message.data), self.piece or len(message.data)):
            if at != 0:
                time.sleep(0.002)  # the kernel sends each piece by itself
            sender.sendall(message.data[at : at + (self.piece or len(message.data))])
        self._compare(message, read_exactly(reader, len(message.data)))

    def datagram_socket(self, endpoint):
        if endpoint not in self.datagram_sockets:
            made = self._keep(self.network.udp(self._side(endpoint), *endpoint))
            self.datagram_sockets[endpoint] = made
        return self.datagram_sockets[endpoint]

    def _datagram(self, message):
        reader = self.datagram_socket(message.destination)
        sender = self.datagram_socket(message.source)
        target = message.destination
        if is_private(target):
            target = self.seen_ras_source
        sender.sendto(message.data, target)
        data, seen = reader.recvfrom(65535)
        if is_private(message.source):
            self.seen_ras_source = seen
        self._compare(message, data)

    def _compare(self, message, received):
        """The message must be what was sent, but for endpoints that became public."""
        if len(received) != len(message.data):
            raise AssertionError("the length of a message changed")
        rebuilt = bytearray(message.data)
        for address in PRIVATE_ADDRESSES:
            sought = endpoint_bytes((address, 0))[:4]
            at = message.data.find(sought)
            while at >= 0:
                port = struct.unpack("!H", message.data[at + 4 : at + 6])[0]
                if received[at : at + 4] != sought:
                    public = ".".join(map(str, received[at : at + 4]))
                    public_port = struct.unpack("!H", received[at + 4 : at + 6])[0]
                    self.announced.setdefault((address, port), (public, public_port))
                    rebuilt[at : at + 6] = received[at : at + 6]
                at = message.data.find(sought, at + 1)
        if not is_private(message.source):
            # What an outside party says about public endpoints becomes private.
            self.received.append(received)
            known = {(self.public, SIGNALLING_PORT): (message.destination[0], SIGNALLING_PORT)}
            known.update({public: inside for inside, public in self.announced.items()})
            for public, inside in known.items():
                rebuilt = rebuilt.replace(endpoint_bytes(public), endpoint_bytes(inside))
        if bytes(rebuilt) != received:
            raise AssertionError("octets changed that are no translated endpoint")
        self.changed += received != message.data

    def media_arrives(self, inside, outside):
        """Sends RTP both ways between a private endpoint and an outside one. Returns two truths:
        outside got it from the announced port, inside got it."""
        private, remote = self.datagram_socket(inside), self.datagram_socket(outside)
        rtp = b"\x80\x00" + b"\0\1" + bytes(8) + b"voice"
        for made in (private, remote):
            made.settimeout(0.5)
        sent = received = False
        public = self.announced.get(inside)
        try:
            private.sendto(rtp, outside)
            data, seen = remote.recvfrom(2048)
            sent = data == rtp and public is not None and seen == public
        except TimeoutError:
            pass
        try:
            # Without a translated address there is only the private one, which leads nowhere.
            remote.sendto(rtp, public if public is not None else inside)
            received = private.recvfrom(2048)[0] == rtp
        except OSError:
            pass
        return sent, received
