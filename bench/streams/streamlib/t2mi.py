"""Encapsulates a transport stream into T2-MI (ETSI TS 102 773), as the link to a DVB-T2 transmitter carries it.

Baseband frames of one PLP only (ETSI EN 302 755 mode adaptation: one transport stream, constant coding, no ISSY, nulls kept).
L1 signalling and time stamps, which steer a modulator, are left out: a receiver of the stream reads none of them.
"""
from . import packets

STREAM_PID = 0x1000
CLOCK_PID = 0x0FFF
MAP_PID = 0x0020
PROGRAM = 1
FRAME_BYTES = 38688 // 8   # K_bch of the long code at rate 3/5
_HEADER_BYTES = 10
_FRAMES_PER_T2_FRAME = 16
_CLOCK_EVERY = 32          # packets; at 5 Mbit/s 10 ms, well below the 100 ms that are allowed
_TABLES_EVERY = 256        # packets; at 5 Mbit/s 77 ms


def _crc8_table():
    table = []
    for value in range(256):
        for _ in range(8):
            value = ((value << 1) ^ 0xD5 if value & 0x80 else value << 1) & 0xFF
        table.append(value)
    return table


_CRC8 = _crc8_table()


def crc8(data):
    """CRC-8 of EN 302 755, 5.1.4 (polynomial 0xD5, start 0)."""
    value = 0
    for byte in data:
        value = _CRC8[value ^ byte]
    return value


def _user_packets(data, high_efficiency):
    """The packets without sync byte; in normal mode the CRC-8 of the previous packet stands in its place."""
    if high_efficiency:
        return b"".join(packet[1:] for _, _, packet in packets.packets(data))
    out, check = [], 0
    for _, _, packet in packets.packets(data):
        out.append(bytes([check]) + packet[1:])
        check = crc8(packet[1:])
    return b"".join(out)


def baseband_frames(data, high_efficiency):
    """Yield the BBFRAMEs that carry `data`; the last one is padded."""
    unit = 187 if high_efficiency else 188
    stream, room = _user_packets(data, high_efficiency), FRAME_BYTES - _HEADER_BYTES
    for at in range(0, len(stream), room):
        field = stream[at:at + room]
        first = -at % unit   # bytes to the first packet that starts in this field
        distance = first * 8 if first < len(field) else 0xFFFF
        length, sync = (b"\0\0", b"\0") if high_efficiency else ((unit * 8).to_bytes(2, "big"), b"\x47")
        header = b"\xf0\0" + length + (len(field) * 8).to_bytes(2, "big") + sync + distance.to_bytes(2, "big")
        check = crc8(header) ^ (1 if high_efficiency else 0)
        yield (header + bytes([check]) + field).ljust(FRAME_BYTES, b"\0")


def t2mi_packets(frames, plp):
    """Yield one T2-MI packet of type 0x00 for each BBFRAME."""
    for number, frame in enumerate(frames):
        t2_frame = number // _FRAMES_PER_T2_FRAME
        start = 0x80 if number % _FRAMES_PER_T2_FRAME == 0 else 0
        body = bytes([t2_frame & 0xFF, plp, start]) + frame
        packet = bytes([0x00, number & 0xFF, (t2_frame >> 8 & 0x0F) << 4, 0]) + (len(body) * 8).to_bytes(2, "big") + body
        yield packets.with_crc(packet)


def _carriers(chain):
    """TS packets (counter still 0) of STREAM_PID for a list of T2-MI packets, each found by its pointer field."""
    stream = b"".join(chain)
    starts, at = [], 0
    for packet in chain:
        starts.append(at)
        at += len(packet)
    out, at, following = [], 0, 0
    while at < len(stream):
        while following < len(starts) and starts[following] < at:
            following += 1
        begins = following < len(starts) and starts[following] - at < 183
        pointer = bytes([starts[following] - at]) if begins else b""
        body = pointer + stream[at:at + 184 - len(pointer)]
        at += 184 - len(pointer)
        head = bytes([packets.SYNC_BYTE, (0x40 if begins else 0) | STREAM_PID >> 8, STREAM_PID & 0xFF])
        out.append(head + b"\x10" + body if len(body) == 184 else head + b"\x30" + _stuffing(184 - len(body)) + body)
    return out


def _stuffing(size):
    """An adaptation field of `size` bytes that says nothing."""
    return b"\0" if size == 1 else bytes([size - 1, 0]) + b"\xff" * (size - 2)


def _section_packet(pid, table_id, extension, body):
    head = bytes([packets.SYNC_BYTE, 0x40 | pid >> 8, pid & 0xFF, 0x10])
    return packets.section_packet(head, packets.section(table_id, extension, body, private=0))


def _clock_packet(ticks):
    base, extension = divmod(ticks, 300)
    field = (base % (1 << 33) << 15 | 0x3F << 9 | extension).to_bytes(6, "big")
    head = bytes([packets.SYNC_BYTE, CLOCK_PID >> 8, CLOCK_PID & 0xFF, 0x20])
    return head + bytes([183, 0x10]) + field + b"\xff" * 176


def _tables():
    """PAT and PMT; the PMT names the stream by the T2-MI descriptor (EN 300 468, 6.4.14)."""
    pat = PROGRAM.to_bytes(2, "big") + (0xE000 | MAP_PID).to_bytes(2, "big")
    descriptor = b"\x7f\x04\x11\xf8\xf8\xfe"
    pmt = ((0xE000 | CLOCK_PID).to_bytes(2, "big") + b"\xf0\0\x06" + (0xE000 | STREAM_PID).to_bytes(2, "big")
           + (0xF000 | len(descriptor)).to_bytes(2, "big") + descriptor)
    return [_section_packet(0, 0x00, 1, pat), _section_packet(MAP_PID, 0x02, PROGRAM, pmt)]


def encapsulate(data, muxrate, plp, high_efficiency):
    """A transport stream that carries `data` (muxrate bit/s) as T2-MI on STREAM_PID, with tables and a clock of its own."""
    carriers = _carriers(list(t2mi_packets(baseband_frames(data, high_efficiency), plp)))
    multiplex = []
    for packet in carriers:
        if len(multiplex) % _TABLES_EVERY == 0:
            multiplex += _tables()
        if len(multiplex) % _CLOCK_EVERY == _CLOCK_EVERY // 2:
            multiplex.append(None)   # a clock packet: its time is known when all packets are counted
        multiplex.append(packet)
    ticks_per_packet = len(data) * 8 / muxrate * 27e6 / len(multiplex)
    out, counters = bytearray(), {}
    for index, packet in enumerate(multiplex):
        packet = bytearray(packet or _clock_packet(round(index * ticks_per_packet)))
        pid = (packet[1] & 0x1F) << 8 | packet[2]
        if packet[3] & 0x10:
            counters[pid] = (counters.get(pid, -1) + 1) & 0x0F
            packet[3] |= counters[pid]
        out += packet
    return bytes(out)
