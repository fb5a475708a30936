"""A capture of a stream whose frames carry a VLAN tag, for tessary-send to send as they stand, and the times in a capture."""

import dataclasses
import itertools
import struct

HEADERS = 42  # Ethernet without the tag, IPv4 and UDP, as the measurement counts a frame
_PCAP = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)  # microseconds, Ethernet
_RECORD = struct.Struct("<IIII")
_PACKET = 188
_PER_DATAGRAM = 7
PAYLOAD = _PACKET * _PER_DATAGRAM
_NULL_PID = 0x1FFF


@dataclasses.dataclass
class Flow:
    """Where the datagrams go, and how many bit/s of transport stream they carry."""

    vlan: int
    group: str
    port: int
    bit_rate: int


def write(path, stream, flow, seconds, error_times=()):
    """Writes so many seconds of the transport stream (a file, again and again) as UDP datagrams in frames of that VLAN.
    Continuity counters go on over the file's end, and jump by 2 once at each of `error_times` (seconds, ascending)."""
    counters = _Counters()
    errors = list(error_times)
    with open(path, "wb") as capture:
        capture.write(_PCAP)
        for number, payload in enumerate(_payloads(stream)):
            time_us = number * PAYLOAD * 8 * 1_000_000 // flow.bit_rate
            if time_us >= seconds * 1_000_000:
                return
            if errors and time_us >= errors[0] * 1_000_000:
                del errors[0]
                counters.jump()
            frame = _frame(flow, counters.stamped(payload))
            capture.write(_RECORD.pack(1_000_000 + time_us // 1_000_000, time_us % 1_000_000, len(frame), len(frame)) + frame)


def gaps(path):
    """Microseconds between the frames of a capture as tcpdump writes it."""
    times = []
    with open(path, "rb") as capture:
        capture.read(len(_PCAP))
        while len(head := capture.read(_RECORD.size)) == _RECORD.size:
            seconds, microseconds, captured, _ = _RECORD.unpack(head)
            capture.seek(captured, 1)
            times.append(seconds * 1_000_000 + microseconds)
    return [later - earlier for earlier, later in itertools.pairwise(times)]


def _payloads(stream):
    with open(stream, "rb") as file:
        data = file.read()
    data = data[:len(data) // PAYLOAD * PAYLOAD]
    for at in itertools.cycle(range(0, len(data), PAYLOAD)):
        yield data[at:at + PAYLOAD]


class _Counters:
    """The continuity counters of all PIDs (ISO/IEC 13818-1, 2.4.3.3)."""

    def __init__(self):
        self._last = {}
        self._jump = False

    def jump(self):
        """The next packet with payload, but no null packet, misses one."""
        self._jump = True

    def stamped(self, payload):
        """The payload with its packets' counters set."""
        packets = bytearray(payload)
        for at in range(0, len(packets), _PACKET):
            pid = (packets[at + 1] & 0x1F) << 8 | packets[at + 2]
            step = packets[at + 3] >> 4 & 1  # only payload counts
            if self._jump and step and pid != _NULL_PID and pid in self._last:
                self._jump, step = False, 2
            self._last[pid] = self._last.get(pid, -1) + step
            packets[at + 3] = packets[at + 3] & 0xF0 | self._last[pid] % 16
        return bytes(packets)


def _frame(flow, payload):
    """Ethernet with an IEEE 802.1Q tag, IPv4, UDP without checksum (RFC 768)."""
    address = bytes(map(int, flow.group.split(".")))
    ethernet = bytes((0x01, 0x00, 0x5E, address[1] & 0x7F, address[2], address[3])) + bytes.fromhex("020000000001")
    ip = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 28 + len(payload), 0, 0x4000, 4, 17, 0, bytes((192, 168, 78, 1)), address)
    udp = struct.pack("!HHHH", flow.port, flow.port, 8 + len(payload), 0)
    return ethernet + struct.pack("!HHH", 0x8100, flow.vlan, 0x0800) + ip + udp + payload
