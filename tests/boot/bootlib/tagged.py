"""A capture of a stream whose frames carry a VLAN tag, for tessary-send to send as they stand."""

import struct

_PCAP = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)  # microseconds, Ethernet
_PACKET = 188
_PER_DATAGRAM = 7


def write(path, stream, vlan, group, port, bit_rate):
    """Writes the transport stream (a file, at `bit_rate` of its packets) as UDP datagrams to `group` in frames of that VLAN."""
    payload_size = _PACKET * _PER_DATAGRAM
    with open(stream, "rb") as source, open(path, "wb") as capture:
        capture.write(_PCAP)
        number = 0
        while len(payload := source.read(payload_size)) == payload_size:
            frame = _frame(vlan, group, port, payload)
            time_us = number * payload_size * 8 * 1_000_000 // bit_rate
            capture.write(struct.pack("<IIII", 1_000_000 + time_us // 1_000_000, time_us % 1_000_000, len(frame), len(frame)))
            capture.write(frame)
            number += 1


def _frame(vlan, group, port, payload):
    """Ethernet with an IEEE 802.1Q tag, IPv4, UDP without checksum (RFC 768)."""
    address = bytes(map(int, group.split(".")))
    ethernet = bytes((0x01, 0x00, 0x5E, address[1] & 0x7F, address[2], address[3])) + bytes.fromhex("020000000001")
    ip = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 28 + len(payload), 0, 0x4000, 4, 17, 0, bytes((192, 168, 78, 1)), address)
    udp = struct.pack("!HHHH", port, port, 8 + len(payload), 0)
    return ethernet + struct.pack("!HHH", 0x8100, vlan, 0x0800) + ip + udp + payload
