"""Service information (ETSI EN 300 468): builds NIT and SDT sections and puts them into a multiplex.

ffmpeg leaves the NIT's transport stream loop without descriptors and writes names in one coding only. A multiplex on air has a service
list, a delivery system and names in whichever character table its broadcaster likes, so the tables are made here.
"""
from . import packets

NIT_PID = 0x0010
SDT_PID = 0x0011
_NETWORK_NAME = 0x40
_SERVICE_LIST = 0x41
_SERVICE = 0x48
_TERRESTRIAL_DELIVERY = 0x5A
_RUNNING = 4

# Letters with an accent in the default table (EN 300 468 figure A.1): the accent's code comes before the plain letter.
_ISO_6937 = {"é": b"\xc2e", "è": b"\xc1e", "ü": b"\xc8u", "ö": b"\xc8o", "ä": b"\xc8a", "å": b"\xcaa"}


def encode_text(text, coding):
    """Text as EN 300 468 annex A codes it; `coding` is "iso6937" (default table), "latin1" or "utf8"."""
    if coding == "iso6937":
        return b"".join(_ISO_6937.get(letter) or letter.encode("ascii") for letter in text)
    if coding == "latin1":
        return b"\x10\x00\x01" + text.encode("iso8859-1")
    if coding == "utf8":
        return b"\x15" + text.encode("utf-8")
    raise ValueError(f"unknown text coding '{coding}'")


def _descriptor(tag, body):
    return bytes([tag, len(body)]) + body


def _loop(data):
    """A 12-bit length with four reserved bits, and the data."""
    return (0xF000 | len(data)).to_bytes(2, "big") + data


def _terrestrial_delivery():
    """474 MHz, 8 MHz wide, 64-QAM, rate 2/3, guard 1/8, 8k carriers (EN 300 468, 6.2.13.4)."""
    frequency_10hz = 474_000_000 // 10
    return _descriptor(_TERRESTRIAL_DELIVERY, frequency_10hz.to_bytes(4, "big") + b"\x1f\x81\x2a\xff\xff\xff\xff")


def nit(network, services):
    """The NIT of the actual network with one transport stream and its service list."""
    listed = b"".join(s["number"].to_bytes(2, "big") + bytes([s["type"]]) for s in services)
    stream = (network["stream_id"].to_bytes(2, "big") + network["original_id"].to_bytes(2, "big")
              + _loop(_descriptor(_SERVICE_LIST, listed) + _terrestrial_delivery()))
    name = _descriptor(_NETWORK_NAME, encode_text(network["name"], network["coding"]))
    return packets.section(0x40, network["id"], _loop(name) + _loop(stream))


def sdt(network, services, provider=None):
    """The SDT of the actual transport stream; service ids are the program numbers. The network provides all services unless
    `provider` says who does."""
    provider = encode_text(network["name"] if provider is None else provider, network["coding"])
    body = network["original_id"].to_bytes(2, "big") + b"\xff"
    for service in services:
        name = encode_text(service["name"], service["coding"])
        descriptor = _descriptor(_SERVICE, bytes([service["type"], len(provider)]) + provider
                                 + bytes([len(name)]) + name)
        status = (_RUNNING << 13) | len(descriptor)
        body += service["number"].to_bytes(2, "big") + b"\xfc" + status.to_bytes(2, "big") + descriptor
    return packets.section(0x42, network["stream_id"], body)


def replace(data, network, services, provider=None):
    """`data` with each packet of NIT and SDT carrying our tables instead; counters and timing stay."""
    ours = {NIT_PID: nit(network, services), SDT_PID: sdt(network, services, provider)}
    out = bytearray(data)
    for offset, pid, packet in packets.packets(data):
        if pid in ours:
            if packets.single_packet_section(packet) is None:
                raise packets.StreamError(f"PID {pid} has a packet that starts no section")
            out[offset:offset + packets.PACKET_BYTES] = packets.section_packet(packet, ours[pid])
    return bytes(out)


def announced(section, stream_type, descriptor):
    """A PMT section whose last stream is of this type and has just this descriptor."""
    at = last = 12 + (((section[10] & 0x0F) << 8) | section[11])
    while at + 5 <= len(section) - 4:
        last = at
        at += 5 + (((section[at + 3] & 0x0F) << 8) | section[at + 4])
    entry = bytes([stream_type]) + section[last + 1:last + 3] + _loop(descriptor)
    body = section[3:last] + entry
    length = 0xB000 | (len(body) + 4)
    return packets.with_crc(section[:1] + length.to_bytes(2, "big") + body)


def announce(data, kinds):
    """`data` with the PMTs of {program number: (stream type, descriptor)} saying that of their last stream."""
    out, map_pids = bytearray(data), {}
    for offset, pid, packet in packets.packets(data):
        if pid == 0:
            programs = packets.program_map_pids(packets.single_packet_section(packet))
            map_pids = {programs[number]: kind for number, kind in kinds.items()}
        elif pid in map_pids:
            section = announced(packets.single_packet_section(packet), *map_pids[pid])
            out[offset:offset + packets.PACKET_BYTES] = packets.section_packet(packet, section)
    return bytes(out)
