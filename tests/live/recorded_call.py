"""The signalling of a recorded call: who said what to whom, in order."""

import dataclasses
import socket
import struct

RAS_PORT = 1719


@dataclasses.dataclass
class Message:
    protocol: str  # "tcp" or "udp"
    source: tuple  # (address, port), as captured on the private side
    destination: tuple
    client: tuple  # end that opened the connection (TCP), or the source (UDP)
    data: bytes  # a whole TPKT packet, or a datagram's payload


def _packets(path):
    with open(path, "rb") as file:
        raw = file.read()
    order = "<" if struct.unpack("<I", raw[:4])[0] in (0xA1B2C3D4, 0xA1B23C4D) else ">"
    at = 24
    while at + 16 <= len(raw):
        length = struct.unpack(order + "4I", raw[at : at + 16])[2]
        yield raw[at + 16 + 14 : at + 16 + length]  # behind the Ethernet header
        at += 16 + length


def messages(path):
    """Call signalling, H.245 and RAS messages of a capture; media is left out."""
    found, streams, clients = [], {}, {}
    for packet in _packets(path):
        if packet[0] >> 4 != 4:
            continue
        header = (packet[0] & 15) * 4
        packet = packet[: struct.unpack("!H", packet[2:4])[0]]
        ports = struct.unpack("!2H", packet[header : header + 4])
        source = (socket.inet_ntoa(packet[12:16]), ports[0])
        destination = (socket.inet_ntoa(packet[16:20]), ports[1])
        if packet[9] == socket.IPPROTO_UDP and RAS_PORT in ports:
            found.append(Message("udp", source, destination, source, packet[header + 8 :]))
        if packet[9] != socket.IPPROTO_TCP:
            continue
        if packet[header + 13] & 0x12 == 0x02:
            clients[frozenset((source, destination))] = source
        payload = packet[header + (packet[header + 12] >> 4) * 4 :]
        sequence = struct.unpack("!I", packet[header + 4 : header + 8])[0]
        stream = streams.setdefault((source, destination), {"next": None, "held": b""})
        if not payload or stream["next"] not in (None, sequence):
            continue  # empty, or sent again
        stream["next"] = (sequence + len(payload)) % 2**32
        stream["held"] += payload
        while len(stream["held"]) >= 4:
            length = struct.unpack("!H", stream["held"][2:4])[0]
            if len(stream["held"]) < length:
                break
            client = clients[frozenset((source, destination))]
            found.append(
                Message("tcp", source, destination, client, stream["held"][:length])
            )
            stream["held"] = stream["held"][length:]
    return found


def endpoint_bytes(endpoint):
    """An address and a port as they stand in a message: six octets."""
    return socket.inet_aton(endpoint[0]) + struct.pack("!H", endpoint[1])


def patched(found, replacements):
    """The messages with other endpoints in them; both ends and the contents change."""

    def change(endpoint):
        return replacements.get(endpoint, endpoint)

    result = []
    for message in found:
        data = message.data
        for before, after in replacements.items():
            data = data.replace(endpoint_bytes(before), endpoint_bytes(after))
        result.append(
            Message(message.protocol, change(message.source), change(message.destination),
                    change(message.client), data)
        )
    return result
