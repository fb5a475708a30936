"""Transport stream packets (ISO/IEC 13818-1, 2.4.3): reading, sections, CRC, and a check of a finished multiplex.

The tests' Python takes its CRC and its sections from here; C++ tests, and what they compare with, have those of tests/kit.
"""
import zlib

PACKET_BYTES = 188
SYNC_BYTE = 0x47
NULL_PID = 0x1FFF


class StreamError(Exception):
    """A stream is not what it should be; the text says what and what to do about it."""


_REVERSED = bytes(int(f"{value:08b}"[::-1], 2) for value in range(256))


def crc32(data):
    """CRC-32 of ISO/IEC 13818-1 annex A; 0 over a whole section with its CRC.

    zlib's is the mirror image of it, so bytes and result are mirrored: whole streams go through here.
    """
    mirrored = zlib.crc32(bytes(data).translate(_REVERSED)) ^ 0xFFFFFFFF
    return int(f"{mirrored:032b}"[::-1], 2)


def with_crc(data):
    """The bytes with their CRC-32 behind them."""
    return data + crc32(data).to_bytes(4, "big")


def section(table_id, extension, body, *, number=0, last=0, private=0x40):
    """A current section of version 0 in long form, with its CRC; `private` is the bit that PAT and PMT have as 0."""
    length = 5 + len(body) + 4
    head = bytes([table_id, 0x80 | private | 0x30 | length >> 8, length & 0xFF])
    return with_crc(head + extension.to_bytes(2, "big") + bytes([0xC1, number, last]) + body)


def packets(data):
    """Yield (offset, pid, packet) for each 188-byte packet of `data`."""
    if not data or len(data) % PACKET_BYTES:
        raise StreamError(f"{len(data)} bytes are no whole number of {PACKET_BYTES}-byte packets")
    for offset in range(0, len(data), PACKET_BYTES):
        packet = data[offset:offset + PACKET_BYTES]
        if packet[0] != SYNC_BYTE:
            raise StreamError(f"no sync byte at byte {offset}")
        yield offset, ((packet[1] & 0x1F) << 8) | packet[2], packet


def payload(packet):
    """The payload bytes of one packet; empty when it has none."""
    control = (packet[3] >> 4) & 3
    if not control & 1:
        return b""
    return packet[5 + packet[4]:] if control == 3 else packet[4:]


def single_packet_section(packet):
    """The section that starts in `packet`, or None; it must fit this one packet, as all tables of our streams do."""
    if not packet[1] & 0x40:
        return None
    data = payload(packet)
    data = data[1 + data[0]:]
    length = 3 + (((data[1] & 0x0F) << 8) | data[2])
    if length > len(data):
        raise StreamError(f"table 0x{data[0]:02x} needs {length} bytes and does not fit one packet")
    return data[:length]


def section_packet(header, table):
    """A packet with the four header bytes `header` that carries just the section `table`, padded with 0xFF."""
    body = b"\x00" + table
    room = PACKET_BYTES - 4
    if len(body) > room:
        raise StreamError(f"a section of {len(table)} bytes does not fit one packet")
    plain = bytes(header[:3]) + bytes([0x10 | (header[3] & 0x0F)])  # payload only, counter kept
    return plain + body + b"\xff" * (room - len(body))


def program_map_pids(pat):
    """{program number: PID of its PMT} of a PAT section; 0 stands for the NIT's PID."""
    found = {}
    for at in range(8, len(pat) - 4, 4):
        found[(pat[at] << 8) | pat[at + 1]] = ((pat[at + 2] & 0x1F) << 8) | pat[at + 3]
    return found


def elementary_stream_types(pmt):
    """The stream types (ISO/IEC 13818-1 table 2-34) of a PMT section, in its order."""
    at = 12 + (((pmt[10] & 0x0F) << 8) | pmt[11])
    types = []
    while at + 5 <= len(pmt) - 4:
        types.append(pmt[at])
        at += 5 + (((pmt[at + 3] & 0x0F) << 8) | pmt[at + 4])
    return types


def _count_continuity_errors(data):
    """Packets with payload whose counter is not the previous one of their PID plus 1."""
    last, errors = {}, 0
    for _, pid, packet in packets(data):
        counter = packet[3] & 0x0F
        if pid != NULL_PID and packet[3] & 0x10 and pid in last:
            errors += counter != (last[pid] + 1) & 0x0F
        last[pid] = counter
    return errors


def _sections_by_pid(data, wanted):
    found = {}
    for _, pid, packet in packets(data):
        if pid in wanted:
            table = single_packet_section(packet)
            if table is not None:
                if crc32(table):
                    raise StreamError(f"a section on PID {pid} has a wrong CRC")
                found.setdefault(pid, set()).add(bytes(table))
    return found


def check(data, programs):
    """Raise StreamError unless `data` is a clean multiplex.

    `programs` is {program number: [stream types]}. PAT, NIT, SDT and every PMT must be there, each in one version only,
    with right CRCs; no packet may be missing.
    """
    errors = _count_continuity_errors(data)
    if errors:
        raise StreamError(f"{errors} continuity errors")
    tables = _sections_by_pid(data, {0, 16, 17})
    for pid, name in ((0, "PAT"), (16, "NIT"), (17, "SDT")):
        if len(tables.get(pid, ())) != 1:
            raise StreamError(f"{len(tables.get(pid, ()))} versions of the {name}, wanted exactly one")
    map_pids = program_map_pids(next(iter(tables[0])))
    if map_pids.pop(0, None) != 16:
        raise StreamError("the PAT does not point to the NIT on PID 16")
    if sorted(map_pids) != sorted(programs):
        raise StreamError(f"the PAT lists programs {sorted(map_pids)}, wanted {sorted(programs)}")
    maps = _sections_by_pid(data, set(map_pids.values()))
    for number, pid in map_pids.items():
        types = [elementary_stream_types(table) for table in maps.get(pid, ())]
        if types != [programs[number]]:
            raise StreamError(f"program {number} has stream types {types}, wanted {[programs[number]]}")
