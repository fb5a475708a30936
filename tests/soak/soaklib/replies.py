"""What may come back for each command: parsers over the bytes up to the closing version line.

A parser takes (data, position) and returns the position behind its reply, the same position for silence where silence is
allowed, or None when the bytes are no reply of this command.
"""

import re

_SECTION_HEADER = 3


def silent(_, at):
    """A command without reply."""
    return at


def pattern(expression, optional=False):
    """A reply that matches a regular expression over bytes."""
    compiled = re.compile(expression, re.DOTALL)

    def parse(data, at):
        match = compiled.match(data, at)
        return match.end() if match else (at if optional else None)
    return parse


def sections(table_id, mark=b"", only_one=False):
    """PSI sections of one table, behind a mark; or silence."""
    def parse(data, at):
        if not data.startswith(mark, at):
            return at
        position = at + len(mark)
        while position < len(data) and data[position] == table_id:
            if position + _SECTION_HEADER > len(data):
                return None
            position += _SECTION_HEADER + ((data[position + 1] & 0x0F) << 8 | data[position + 2])
            if position > len(data):
                return None
            if only_one:
                break
        return position if position > at + len(mark) else (None if mark else at)
    return parse


def t2mi_packet(data, at):
    """One T2-MI packet (ETSI TS 102 773): header of 6 bytes, payload rounded up to bytes, CRC-32; or silence."""
    if at + 6 > len(data) or data.startswith(b"SV: mx8 ", at):
        return at
    bits = data[at + 4] << 8 | data[at + 5]
    position = at + 6 + (bits + 7) // 8 + 4
    return position if position <= len(data) else None


def anything_until_version(data, at):
    """Text of a host program; only for the last command of a burst."""
    position = data.find(b"SV: mx8 ", at)
    return None if position < 0 else position


def inverted_block(block):
    """The answer of the instrument's DAB receiver to a block, or silence outside DAB mode."""
    answer = bytes(byte ^ 0xFF for byte in block)

    def parse(data, at):
        return at + len(answer) if data.startswith(answer, at) else at
    return parse


def service_name(index):
    """The name made from an index; what follows it may begin with a digit, too."""
    return pattern(b"Service%d" % index)


VERSION_LINE = pattern(rb"SV: mx8 [0-9.]+ FPGA: [^\n]+\n")
INTERFACE_LINE = pattern(rb"not connected\n|[0-9.]+ [0-9.]+\n")
ARRIVALS = pattern(rb"not connected\n|(?:-?[0-9]+;)*")
MEASUREMENT = pattern(rb"not connected\n|[\x00\x01]\x00\x00\x00.{20}\x0a\x00\x00\x00")
STATUS_WORD = pattern(rb"running|stopped", optional=True)
PLAY_FRAME = pattern(rb"\*0C_d\.SX")
# The chosen index has two digits: what follows it may begin with digits, too.
STATUS_FRAME = pattern(rb"\*17_a\.FL:02_NS:[0-9a-f]{2,}\$_DS:[0-9a-f]{2}")
INFO_FRAME = pattern(rb"\*32_e\.DI:[0-9a-f]{4}_[0-9a-f]{4}_[0-9a-f]{4}_0000_[0-9a-f]{4}_0000_0000_0000_\$")
LEVEL_FRAME = pattern(rb"\*07_o\.\$")
RECORDING_SIZE = pattern(rb"reclist file:[0-9]+ Bytes")
EXPORT_LINE = pattern(rb"PVR_export_ok\n")


def check(data, parsers):
    """Splits what came for a burst: (length of each reply, None), or (lengths so far, index of the wrong one)."""
    at, lengths = 0, []
    for index, parse in enumerate(parsers):
        end = parse(data, at)
        if end is None:
            return lengths, index
        lengths.append(end - at)
        at = end
    return (lengths, None) if at == len(data) else (lengths, len(parsers) - 1)
