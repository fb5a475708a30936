"""Transport streams for the measurements: tables of any number of services, recordings of any size, stuffed streams."""

import os
import sys

PACKET = 188
_NULL = b"\x47\x1f\xff\x10" + b"\xff" * 184
LARGEST_PAT = 253  # programs: a section holds 1021 bytes behind its length field (ISO/IEC 13818-1, 2.4.4.3)


def tables_module(repository):
    """bench/streams' builders of sections; no byte code of root's is left in the tree."""
    sys.dont_write_bytecode = True
    folder = f"{repository}/bench/streams"
    if folder not in sys.path:
        sys.path.insert(0, folder)
    from streamlib import packets  # pylint: disable=import-outside-toplevel
    return packets


def _split(items, most):
    """Groups of at most so many."""
    return [items[at:at + most] for at in range(0, len(items), most)] or [[]]


def _pat(packets, services):
    groups = _split(list(range(1, services + 1)), LARGEST_PAT)
    return [packets.section(0x00, 1, b"".join(n.to_bytes(2, "big") + (0xE000 | 0x100 + n).to_bytes(2, "big") for n in group),
                     number=index, last=len(groups) - 1, private=0) for index, group in enumerate(groups)]


def _pmt(packets, number):
    pid = 0x1000 + number
    streams = b"".join(bytes([kind]) + (0xE000 | pid).to_bytes(2, "big") + b"\xf0\x00" for kind in (0x1B, 0x0F))
    return packets.section(0x02, number, (0xE000 | pid).to_bytes(2, "big") + b"\xf0\x00" + streams, private=0)


def _sdt(packets, services):
    def entry(number):
        name = b"Service %d" % number
        descriptor = bytes([0x48, 3 + 5 + len(name), 0x01, 5]) + b"Session" + bytes([len(name)]) + name
        return number.to_bytes(2, "big") + b"\xfc" + (0x8000 | len(descriptor)).to_bytes(2, "big") + descriptor

    groups = _split([entry(number) for number in range(1, services + 1)], 35)
    return [packets.section(0x42, 1, b"\xff\x01\xff" + b"".join(group), number=index, last=len(groups) - 1)
            for index, group in enumerate(groups)]


class _Writer:
    """Packets with running continuity counters, for sections of any length: those of bench/streams fit one packet."""

    def __init__(self):
        self._counters = {}
        self.data = bytearray()

    def packet(self, pid, payload, start):
        """One packet; payload of 184 bytes at most, filled up."""
        counter = self._counters.get(pid, 0)
        self._counters[pid] = (counter + 1) & 15
        self.data += bytes([0x47, (0x40 if start else 0) | pid >> 8, pid & 0xFF, 0x10 | counter])
        self.data += payload + b"\xff" * (184 - len(payload))

    def section(self, pid, section):
        """A section in packets of its own."""
        data = b"\x00" + section
        for at in range(0, len(data), 184):
            self.packet(pid, data[at:at + 184], at == 0)


def multiplex(repository, services, cycle_packets, cycles=16):
    """`cycles` repetitions of all tables (PAT, SDT and a PMT for each service), each filled up with elementary stream packets
    to `cycle_packets` or what the tables need. After 16 cycles the counters are back where they began."""
    packets = tables_module(repository)
    pats, sdts = _pat(packets, services), _sdt(packets, services)
    pmts = [_pmt(packets, number) for number in range(1, services + 1)]
    writer = _Writer()
    fill = bytes(range(184))
    for cycle in range(cycles):
        for section in pats:
            writer.section(0x0000, section)
        for number, section in enumerate(pmts, 1):
            writer.section(0x100 + number, section)
        for section in sdts:
            writer.section(0x0011, section)
        while len(writer.data) < (cycle + 1) * cycle_packets * PACKET:
            writer.packet(0x1001, fill, False)
    return bytes(writer.data)


def write(path, data, size=None):
    """Writes the data, over and over up to `size` whole packets when given. Returns the path."""
    with open(path, "wb") as file:
        left = len(data) if size is None else size // PACKET * PACKET
        while left > 0:
            file.write(data[:left])
            left -= len(data)
    return path


def stuff(path, source, factor, packets):
    """The first packets of a stream, each followed by null packets: its clocks keep their pace at `factor` times its rate."""
    with open(source, "rb") as file:
        data = file.read(packets * PACKET)
    between = _NULL * (factor - 1)
    with open(path, "wb") as file:
        for at in range(0, len(data), PACKET):
            file.write(data[at:at + PACKET] + between)
    return path


def size_of(path):
    """Bytes, 0 for no such file."""
    try:
        return os.path.getsize(path)
    except FileNotFoundError:
        return 0
