"""The streams on the air: good ones by tessary-send, disturbed ones by upset-sender."""

import dataclasses
import os

UPSET_SENDER = os.path.join(os.path.dirname(os.path.dirname(os.path.realpath(__file__))), "upset-sender")
OWN = "OWN"  # stands for the address of eth0 at the moment when the stream starts


@dataclasses.dataclass(frozen=True)
class Stream:
    """One stream: what the sender sends, and the text of "server=" that receives it."""

    name: str
    file: str
    scheme: str
    host: str
    port: int
    bitrate: str
    server_word: str
    plp: str = ""

    @property
    def server(self):
        """Text behind "server="; a unicast receiver takes what comes to its port, whatever the address says."""
        host = "192.168.77.100" if self.host == OWN else self.host
        return f"{self.server_word} {host} {self.port}{self.plp}"


STREAMS = [
    Stream("udp", "demo.ts", "udp", "239.0.0.1", 1234, "5M", "UDP"),
    Stream("udp-unicast", "mpeg4-mp3.ts", "udp", OWN, 5040, "4M", "UDP"),
    Stream("rtp", "demo.ts", "rtp", "239.0.0.2", 5004, "5M", "RTP"),
    Stream("rtp-h264", "h264-aac.ts", "rtp", "239.0.0.2", 5004, "6M", "RTP"),
    Stream("udp-h264", "h264-ac3.ts", "udp", "239.0.0.1", 1234, "6M", "UDP"),
    Stream("udp-h265", "h265-eac3.ts", "udp", "239.0.0.1", 1234, "8M", "UDP"),
    Stream("rtp-unicast", "demo.ts", "rtp", OWN, 5042, "5M", "RTP"),
    Stream("services", "services.ts", "udp", "239.0.0.5", 1238, "4M", "UDP"),
    Stream("rtp-services", "services.ts", "rtp", "239.0.0.6", 5008, "4M", "RTP"),
    Stream("t2mi", "demo-t2mi.ts", "udp", "239.0.0.3", 1236, "5500k", "UDP_T2MI", " 4096 1"),
    Stream("t2mi-normal", "demo-t2mi-normal.ts", "udp", "239.0.0.3", 1236, "5500k", "UDP_T2MI", " 4096 1"),
    Stream("t2mi-rtp", "demo-t2mi.ts", "rtp", "239.0.0.4", 5006, "5500k", "RTP_T2MI", " 4096 1"),
    Stream("t2mi-unicast", "demo-t2mi.ts", "udp", OWN, 5044, "5500k", "UDP_T2MI", " 4096 1"),
]
_WEIGHTS = [6, 2, 5, 2, 2, 0.5, 2, 4, 3, 4, 2, 3, 2]
DISTURBANCES = ["bit-errors", "noise", "sizes", "rtp-noise", "lost", "packets-of-noise"]


class Air:
    """What is sent at the moment: one stream or none, and at most one disturbance beside it."""

    def __init__(self, unit, folder, log_path):
        self._unit, self._folder, self._log = unit, folder, log_path
        self.stream = None
        self._sender = self._upset = None

    def choose(self, random):
        """Another stream, by the random numbers alone."""
        return random.choices(STREAMS, _WEIGHTS)[0]

    def send(self, stream, *options):
        """Puts a stream on the air in place of the one before; None for silence."""
        if self._sender:
            self._sender.stop()
        self._sender, self.stream = None, stream
        if stream is None:
            return
        self._sender = self._unit.send(
            os.path.join(self._folder, stream.file), f"{stream.scheme}://{self._host(stream)}:{stream.port}", *options,
            bitrate=stream.bitrate, log=self._log)

    def disturb(self, kind, seed):
        """Sends what no receiver expects to the port of the stream on the air, or to that of the first."""
        self.calm()
        stream = self.stream or STREAMS[0]
        self._upset = self._unit.start_program(
            [UPSET_SENDER, os.path.join(self._folder, stream.file), self._host(stream), str(stream.port), "--kind", kind,
             "--seed", str(seed), *(["--rtp"] if stream.scheme == "rtp" else [])], sender=True, log=self._log)

    def calm(self):
        """Ends the disturbance."""
        if self._upset:
            self._upset.stop()
        self._upset = None

    def _host(self, stream):
        return (self._unit.current_address() or "192.168.77.100") if stream.host == OWN else stream.host
