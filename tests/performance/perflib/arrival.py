"""When the bytes came: what a stream itself makes a viewer wait, read from a capture of it."""

import statistics
import struct
import time

from . import streams

_MAGIC_NS = 0xA1B23C4D  # pcap with times in nanoseconds, in this machine's byte order
_HEADERS = 14 + 20 + 8  # of Ethernet, IP and UDP
_CLOCK = 90000  # ticks of a time stamp in a second


def datagrams(path, begin_ns):
    """(monotonic ns, payload) of the datagrams in a capture of tcpdump that came at or after `begin_ns`."""
    realtime_ahead = time.time_ns() - time.monotonic_ns()
    with open(path, "rb") as file:
        data = file.read()
    if len(data) < 24 or struct.unpack_from("=I", data)[0] != _MAGIC_NS:
        raise ValueError(f"{path} is no capture with times in nanoseconds")
    at = 24
    while at + 16 <= len(data):
        seconds, ns, size, _ = struct.unpack_from("=IIII", data, at)
        came = seconds * 1000000000 + ns - realtime_ahead
        if came >= begin_ns and at + 16 + size <= len(data):
            yield came, data[at + 16 + _HEADERS:at + 16 + size]
        at += 16 + size


def _stamp(data):
    """Ticks of a time stamp of five bytes (ISO/IEC 13818-1, 2.4.3.7)."""
    return (data[0] >> 1 & 7) << 30 | data[1] << 22 | data[2] >> 1 << 15 | data[3] << 7 | data[4] >> 1


def _flags(packet):
    """Flags of the adaptation field, 0 without one (2.4.3.4)."""
    return packet[5] if packet[3] & 0x20 and packet[4] else 0


class StreamWait:
    """Fed with a stream's packets from some moment on, it tells when there was what a receiver of a program needs:

    "map": PAT and PMT; "key": the first packet of the next key picture; "picture": that picture whole, and with it those
    that are decoded before its turn to be shown comes; "sound": the first whole packet of sound. That a picture is whole
    shows when the next one begins, for its length is not told."""

    def __init__(self, repository, program):
        self._tables, self._program = streams.tables_module(repository), program
        self.came = {}
        self._map_pid = self._video = self._audio = None
        self._picture_stamp = self._decoded_stamp = self._sound_stamp = self._sound_left = None
        self._references = []

    def complete(self):
        """True when nothing more is wanted."""
        return {"picture", "sound"} <= self.came.keys()

    def feed(self, ns, packet):
        """One packet, which came at `ns`."""
        pid, starts = (packet[1] & 0x1F) << 8 | packet[2], bool(packet[1] & 0x40)
        if _flags(packet) & 0x10:
            ticks = packet[6] << 25 | packet[7] << 17 | packet[8] << 9 | packet[9] << 1 | packet[10] >> 7
            self._references.append(ns - ticks * 1000000000 // _CLOCK)
        if pid == 0 and starts and self._map_pid is None:
            pat = self._tables.single_packet_section(packet)
            self._map_pid = self._tables.program_map_pids(pat)[self._program]
        elif pid == self._map_pid and starts and "map" not in self.came:
            self._read_map(self._tables.single_packet_section(packet))
            self.came["map"] = ns
        elif pid == self._video and starts:
            self._picture(ns, packet)
        elif pid == self._audio and "sound" not in self.came:
            self._sound(ns, self._tables.payload(packet), starts)

    def _read_map(self, section):
        """Our streams have one picture and one sound, in this order."""
        at = 12 + ((section[10] & 0x0F) << 8 | section[11])
        pids = []
        while at + 5 <= len(section) - 4:
            pids.append((section[at + 1] & 0x1F) << 8 | section[at + 2])
            at += 5 + ((section[at + 3] & 0x0F) << 8 | section[at + 4])
        self._video, self._audio = pids

    def _picture(self, ns, packet):
        data = self._tables.payload(packet)
        shown = _stamp(data[9:14])
        decoded = _stamp(data[14:19]) if data[7] & 0x40 else shown
        if "key" not in self.came:
            if not _flags(packet) & 0x40:  # random_access_indicator
                return
            self.came["key"], self._picture_stamp = ns, shown
        elif "picture" not in self.came and self._decoded_stamp >= self._picture_stamp:
            self.came["picture"] = ns
        self._decoded_stamp = decoded

    def _sound(self, ns, data, starts):
        if starts:
            self._sound_left, self._sound_stamp = 6 + (data[4] << 8 | data[5]), _stamp(data[9:14])
        if self._sound_left is not None:
            self._sound_left -= len(data)
            if self._sound_left <= 0:
                self.came["sound"] = ns

    def sound_due(self):
        """When the stream's clock, which its clock references set, reaches the time stamp of the first sound."""
        return statistics.median(self._references) + self._sound_stamp * 1000000000 // _CLOCK

    def picture_due(self):
        """Likewise for the key picture."""
        return statistics.median(self._references) + self._picture_stamp * 1000000000 // _CLOCK


def stream_wait(repository, path, begin_ns, program):
    """A complete StreamWait of a capture from `begin_ns` on; ValueError when the capture ends before."""
    wait = StreamWait(repository, program)
    for ns, data in datagrams(path, begin_ns):
        for at in range(0, len(data), streams.PACKET):
            wait.feed(ns, data[at:at + streams.PACKET])
        if wait.complete():
            return wait
    raise ValueError(f"the capture holds no {'picture' if 'picture' not in wait.came else 'sound'} after the command")
