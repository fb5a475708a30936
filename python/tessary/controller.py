"""The controller of an instrument: every command of the serial protocol as a method."""

from __future__ import annotations

import os
import pathlib
import time
import warnings
from collections.abc import Callable, Iterator
from types import TracebackType
from typing import NamedTuple, Self, TypeVar

from . import _tessary
from .errors import NoLinkError, NothingError, TimedOutError, UpdateError, UsageError

_Found = TypeVar("_Found")

VIRTUAL_PORT = "/run/tessary-instrument/controller"

_POLL_SECONDS = 0.2  # between two questions of the same kind; three and more a second tell the measurement's periods apart
_SLOW_SECONDS = 60.0  # nmcli, a DHCP server that is slow, programs of the instrument
_DAB_SECONDS = 90.0  # a start that fails takes 43 s
_TABLE_SECONDS = 12.0  # the NIT is the slowest table: at least every 10 s
_SETTLING_SECONDS = 10.0  # of a measurement's periods


def default_port() -> str:
    """The environment's TESSARY_PORT, else the usual virtual instrument's port."""
    return os.environ.get("TESSARY_PORT") or VIRTUAL_PORT


class Period(NamedTuple):
    """One period of the measurement, a little longer than a second."""

    time: float
    """When it was first seen, seconds since 1970."""
    figures: _tessary.Measurement
    """The period's own; only `present` tells something while it is false."""
    total: _tessary.PeriodTotal
    """Since the first period; `total.periods` numbers them."""


class Played(NamedTuple):
    """What became of Controller.play()."""

    number: int
    """Of the program."""
    program: _tessary.Program
    presentation: _tessary.Presentation
    """What is to be seen and heard of it."""


class Controller:
    """Commands an instrument over its serial line: a real one's port, a pseudo terminal, a virtual instrument's.

    A command's method returns when the instrument has carried it out. While it waits other Python threads run, and Ctrl-C ends
    the waiting. Several threads may use one controller; they take turns.

    Every method may raise `TimedOutError` (no answer in time), `HungUpError` (the far end is gone) and `BadAnswerError` (an
    answer that is not what the protocol says). `timeout` is in seconds, as all times are; None takes the controller's own.
    """

    def __init__(self, port: str | os.PathLike[str] | _tessary.Line | None = None, *, timeout: float = 10.0) -> None:
        """Opens the port (default: `default_port()`) and keeps other controllers from it. With a `Line`, uses that and leaves
        it open. Raises `NoInstrumentError`."""
        self._owns_line = not isinstance(port, _tessary.Line)
        line = port if isinstance(port, _tessary.Line) else _tessary.Line(os.fspath(port or default_port()))
        if self._owns_line:
            line.lock()
        self._dialogue = _tessary.Dialogue(line, timeout)

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<tessary.Controller on {self.port}{'' if self.line.is_open else ', closed'}>"

    def close(self) -> None:
        """Closes the port; whatever the instrument does goes on."""
        if self._owns_line:
            self.line.close()

    # --- the line ---

    @property
    def port(self) -> str:
        """Path of the port."""
        return self.line.path

    @property
    def line(self) -> _tessary.Line:
        """The bare line. What is written there by hand must have been answered before the next command."""
        return self._dialogue.line

    @property
    def timeout(self) -> float:
        """Seconds to wait for an answer, and for the instrument to end what keeps it from answering."""
        return self._dialogue.timeout

    @timeout.setter
    def timeout(self, seconds: float) -> None:
        self._dialogue.timeout = seconds

    @property
    def starts_seen(self) -> int:
        """How often the instrument has greeted on this line: its starts since the controller began."""
        return self._dialogue.starts_seen

    def wait_for_greeting(self, timeout: float = 60.0) -> None:
        """Waits for the greeting of an instrument that starts; `TimedOutError` when it does not come."""
        self._dialogue.wait_for_greeting(timeout)

    def wait_until_ready(self, timeout: float = 60.0) -> None:
        """Waits until the instrument answers, started long ago or just now; `TimedOutError` when it does not."""
        deadline = time.monotonic() + timeout
        while True:
            try:
                self.settle(timeout=min(5.0, max(0.1, deadline - time.monotonic())))
                return
            except TimedOutError:
                if time.monotonic() >= deadline:
                    raise

    def settle(self, *, timeout: float | None = None) -> bytes:
        """Waits until everything sent so far has been carried out, by whomever it was sent. Returns what came before: the late
        answer to an earlier question."""
        return self._dialogue.settle(timeout)

    def ask(self, word: str, argument: str = "", *, timeout: float | None = None) -> bytes:
        """Sends a command of the protocol by its word (`tessary.COMMANDS`) and returns its answer, byte for byte. A question
        during which the instrument restarts is asked again. `UsageError` for a word that there is not."""
        return self._dialogue.ask(word, argument, timeout)

    # --- stream and player ---

    def set_server(self, server: str, *, timeout: float | None = None) -> None:
        """Sets the stream that is received over IP: "udp://239.0.0.1:1234", "rtp://...",
        "udp+t2mi://239.0.0.1:1234?pid=4096&plp=0", "rtp+t2mi://...". A running source is not touched: scan() and play() of a new source use it. `UsageError`."""
        self._dialogue.set_server(server, timeout)

    def ask_server(self, *, timeout: float | None = None) -> None:
        """The protocol's "server?": the instrument is meant to stay silent."""
        self._dialogue.ask("server?", "", timeout)

    def start_scan(self, *, timeout: float | None = None) -> None:
        """Makes a new source of the stream server and begins to collect its tables; returns at once. Ends playing and measuring."""
        self._dialogue.scan(timeout)

    def scan(self, server: str | None = None, *, wait: float = _TABLE_SECONDS) -> _tessary.ServiceTable:
        """Scans the stream (of `server`, when given) and returns its services as soon as all of them are known.

        `NothingError` when none came within `wait` seconds, `NoLinkError` without Ethernet link.
        """
        if server is not None:
            self.set_server(server)
        if self.interface() is None:
            raise NoLinkError
        self.start_scan()
        table = self._await(self.stream_info, _is_complete, wait)
        if table is None:
            raise NothingError(
                f"no service list came in within {wait:g} s",
                "measure() tells whether the stream arrives; a stream without SDT has none",
            )
        return table

    def stream_info(self, *, timeout: float | None = None) -> _tessary.ServiceTable | None:
        """The services as far as they have come in since the scan; None while there are none."""
        return self._dialogue.stream_info(timeout)

    def network(self, *, wait: float = 0.0, timeout: float | None = None) -> _tessary.NetworkTable | None:
        """The network as far as it has come in since the scan, waiting at most `wait` seconds for all of it; None while there
        is nothing. A stream repeats it every 10 s."""
        return self._await(lambda: self._dialogue.network(timeout), _is_complete, wait)

    def program(self, *, wait: float = 0.0, timeout: float | None = None) -> _tessary.Program | None:
        """The program that was played last, waiting at most `wait` seconds for its PMT; None while there is none."""
        return self._await(lambda: self._dialogue.program(timeout), lambda found: True, wait)

    def start_play(self, number: int, *, timeout: float | None = None) -> None:
        """Plays the program of that number on display and loudspeaker; returns at once, whether there is such a program or not.
        The source stays what it is; without one it is made of the stream server."""
        if not 0 <= number <= 65535:
            raise UsageError(f"{number} is no program number", "program numbers go from 0 to 65535")
        self._dialogue.play(number, timeout)

    def play(self, program: int | str, *, wait: float = 5.0) -> Played:
        """Plays a program by number or service name, and tells what is to be seen and heard of it once that is known, at the
        latest after `wait` seconds. `NothingError` when no such program comes in."""
        services = self.stream_info()
        number = program if isinstance(program, int) else _number_of(program, services)
        self.start_play(number)
        deadline = time.monotonic() + wait
        found = self.program(wait=wait)
        if found is None:
            raise NothingError(
                f"no program {number} came in within {wait:g} s",
                "scan() lists what is in the stream; measure() tells whether it arrives",
            )
        told = self.ebs_decoder_info()
        while _tessary.may_tell_more(found, told) and time.monotonic() < deadline:
            time.sleep(_POLL_SECONDS)
            told = self.ebs_decoder_info()
        service = next((entry for entry in services.services if entry.id == number), None) if services else None
        return Played(number, found, _tessary.presentation_of(found, told, service))

    def player_status(self, *, timeout: float | None = None) -> str:
        """"running", "stopped", or "" while no source has been selected."""
        return self._dialogue.player_status(timeout)

    def send_stream(self, *, timeout: float | None = None) -> None:
        """Sends the current source's stream to the FPGA ("sendts"). What ran before is stopped."""
        self._dialogue.send_stream(timeout)

    def t2mi_packet(self, *, wait: float = 0.0, timeout: float | None = None) -> _tessary.T2miPacket | None:
        """The last T2-MI packet of the current source, waiting at most `wait` seconds for one; None without."""
        return self._await(lambda: self._dialogue.t2mi_packet(timeout), lambda found: True, wait)

    # --- network and measurement ---

    def measurement(self, *, timeout: float | None = None) -> _tessary.Measurement:
        """How the stream arrives, at this moment; the first question starts the measurement and stops playing. Its first figures
        may be of what was before: measure() waits for those of a whole period. `NoLinkError` without Ethernet link."""
        figures = self._dialogue.measurement(timeout)
        if figures is None:
            raise NoLinkError
        return figures

    def measure(self, server: str | None = None, *, wait: float = 5.0) -> _tessary.Measurement:
        """The figures of a whole period of the stream (of `server`, when given): three to five seconds after it is there. Waits
        for the stream at most `wait` seconds; `present` is false when it did not come. `NothingError` when it comes and goes."""
        if server is not None:
            self.set_server(server)
        watch = _tessary.PeriodWatch()
        deadline = time.monotonic() + wait
        while True:
            figures, state = self._read_into(watch)
            now = time.monotonic()
            if state == "valid" or (state == "absent" and now >= deadline):
                return figures
            if now >= deadline + _SETTLING_SECONDS:
                raise NothingError(
                    "the stream comes and goes: no whole second of it was measured", "look at its course: periods()"
                )
            time.sleep(_POLL_SECONDS)

    def periods(self, server: str | None = None) -> Iterator[Period]:
        """Every period of the measurement, once, as long as it is asked for; about one a second. While no stream arrives one
        entry a second says so. To be read on at once: `total` tells what was missed otherwise."""
        if server is not None:
            self.set_server(server)
        watch = _tessary.PeriodWatch()
        seen, told_absent = 0, -1.0
        while True:
            figures, state = self._read_into(watch)
            now = time.monotonic()
            if state == "valid" and watch.total.periods != seen:
                seen = watch.total.periods
                yield Period(time.time(), figures, watch.total)
            elif state == "absent" and now - told_absent >= 1.0:
                told_absent = now
                yield Period(time.time(), figures, watch.total)
            time.sleep(_POLL_SECONDS)

    def inter_arrival_times(self, *, timeout: float | None = None) -> list[int]:
        """Microseconds between the last frames of the stream, at most 1024, the oldest first. The first question starts the
        measurement and has none. `NoLinkError` without Ethernet link. `statistics_of()` sums them up."""
        times = self._dialogue.inter_arrival_times(timeout)
        if times is None:
            raise NoLinkError
        return times

    def interface(self, *, timeout: float | None = None) -> _tessary.InterfaceAddress | None:
        """Address and mask of the wired interface; None without link."""
        return self._dialogue.interface(timeout)

    def set_interface(
        self,
        address: str | None = None,
        mask: str = "",
        *,
        vlan: int | None = None,
        ethtool: str = "",
        timeout: float | None = None,
    ) -> None:
        """Sets the wired interface: DHCP without address; else ("192.168.1.20", "255.255.255.0") or "192.168.1.20/24". A VLAN
        (1 to 4094) is used until the interface is set without. `ethtool`: a whole command that is run first. `UsageError`."""
        if vlan is not None and not 1 <= vlan <= 4094:
            raise UsageError(f"{vlan} is no VLAN", "VLANs go from 1 to 4094")
        if ethtool and not ethtool.startswith("ethtool "):
            raise UsageError("ethtool takes a whole command", "such as \"ethtool -s eth0 speed 100 duplex full\"")
        if address is not None and _tessary.is_miscounted(address, mask):
            warnings.warn("the instrument counts masks by whole octets; look at what interface() says", stacklevel=2)
        self._dialogue.set_interface(address or "", mask, vlan, ethtool, _slow(timeout))

    def ip_status(self, *, timeout: float | None = None) -> _tessary.IpStatus:
        """What the instrument's ifconfig and ethtool say of eth0."""
        return self._dialogue.ip_status(timeout)

    def ping(self, host: str, *, count: int = 3, timeout: float | None = None) -> _tessary.PingReport:
        """Lets the instrument ping a host `count` times, one a second."""
        if count < 1:
            raise UsageError(f"a count of {count}: the instrument would ping without end", "give 1 or more")
        seconds = timeout if timeout is not None else self.timeout + 2 * count
        return self._dialogue.ping(f"-c {count} {host}", seconds)

    # --- maintenance ---

    def version(self, *, timeout: float | None = None) -> _tessary.Version:
        """Versions of the instrument's software and FPGA."""
        return self._dialogue.version(timeout)

    def run_command(self, command: str, *, timeout: float | None = None) -> None:
        """Runs a shell command on the instrument and returns when it has ended (time-out: 60 s). Nothing tells how."""
        self._dialogue.run_command(command, _slow(timeout))

    def run_command_shown(self, command: str, *, timeout: float | None = None) -> _tessary.CommandOutcome:
        """The same with the command's output and exit status, which the instrument's shell writes to the line. One line."""
        return self._dialogue.run_command_shown(command, _slow(timeout))

    def update(
        self,
        package: str | os.PathLike[str] | bytes,
        *,
        bytes_per_second: int = 11520,
        installation: float = 180.0,
        progress: Callable[[int], None] | None = None,
    ) -> None:
        """Sends a software package (a .deb file, or its bytes) and has it installed: 10 MB take a quarter of an hour at the
        line's own speed. `progress` is told the bytes sent. `installation`: seconds to wait for that. `UpdateError` says at which
        point it ended. The instrument's networking is off from the beginning on until its next start. After Ctrl-C the
        instrument gives the package up by itself within some 12 s; run_command("nmcli networking on") is wanted then."""
        data = package if isinstance(package, bytes) else pathlib.Path(package).read_bytes()
        if not data:
            raise UsageError("the package is empty", "name a Debian package")
        word, cause, remedy = self._dialogue.update(data, bytes_per_second, installation, progress)
        if word != "installed":
            raise UpdateError(word, cause, remedy)

    # --- EBS ---

    def ebs_scan(self, *, timeout: float | None = None) -> None:
        """Scans the FPGA's stream, in place of the current source; stream_info() tells what it found."""
        self._dialogue.ebs_scan(timeout)

    def ebs_play(self, index: int, *, timeout: float | None = None) -> None:
        """Plays a service by its index, counted from 1 (at most 255). An index beyond the last plays nothing."""
        self._dialogue.ebs_play(_byte(index, "index"), timeout)

    def ebs_service_name(self, index: int, *, timeout: float | None = None) -> str:
        """The name that the instrument makes of an index: "Service5"."""
        return self._dialogue.ebs_service_name(_byte(index, "index"), timeout)

    def ebs_status(self, *, timeout: float | None = None) -> _tessary.EbsStatus:
        """Programs found and the index that was chosen last."""
        return self._dialogue.ebs_status(timeout)

    def ebs_decoder_info(self, *, timeout: float | None = None) -> _tessary.EbsDecoderInfo:
        """What picture and sound are decoded at the moment; codes 0 as long as that is not known."""
        return self._dialogue.ebs_decoder_info(timeout)

    def ebs_audio_level(self, level: int, *, timeout: float | None = None) -> None:
        """Sends a level from 0 to 255; the instrument acknowledges it and leaves the sound as it is."""
        self._dialogue.ebs_audio_level(_byte(level, "level"), timeout)

    def ebs_version(self, *, timeout: float | None = None) -> _tessary.Version:
        """The same as version(), by the EBS command."""
        return self._dialogue.ebs_version(timeout)

    # --- recording ---

    def record(self, *, timeout: float | None = None) -> None:
        """Begins to record the current source's stream, without one the FPGA's, in place of the recording that there is. Never
        while the recording itself is the source."""
        self._dialogue.record(timeout)

    def stop_recording(self, *, timeout: float | None = None) -> None:
        """Ends the recording, and with it the current source and a measurement."""
        self._dialogue.stop_recording(timeout)

    def recording_size(self, *, timeout: float | None = None) -> int:
        """Bytes of the recording; 0 when there is none."""
        return self._dialogue.recording_size(timeout)

    def scan_recording(self, *, timeout: float | None = None) -> None:
        """Makes the recording the current source and scans it; play() then plays of it. `NothingError` without a recording."""
        if self.recording_size(timeout=timeout) == 0:
            raise NothingError("there is no recording", "make one: record(), then stop_recording()")
        self._dialogue.scan_recording(timeout)

    def export_recording(self, *, wait: float = 600.0, timeout: float | None = None) -> int:
        """Sends the recording to the FPGA and waits at most `wait` seconds until that has ended. Returns its bytes; what the FPGA
        took of them is not told. `NothingError` without a recording."""
        size = self.recording_size(timeout=timeout)
        if size == 0:
            raise NothingError("there is no recording", "make one: record(), then stop_recording()")
        self._dialogue.export_recording(timeout)
        self.settle(timeout=wait)
        return size

    # --- DAB ---

    def start_dab(self, *, timeout: float | None = None) -> None:
        """Hands display and sound to the DAB receiver program; up to 43 s."""
        self._dialogue.start_dab(timeout if timeout is not None else _DAB_SECONDS)

    def stop_dab(self, *, timeout: float | None = None) -> None:
        """Takes them back; about 4 s."""
        self._dialogue.stop_dab(timeout if timeout is not None else _DAB_SECONDS)

    def dab(self, block: bytes, *, timeout: float | None = None) -> bytes:
        """Sends a block of at most 117 bytes that begins with "dab" to the receiver program and returns its 117 bytes; b"" when
        DAB mode is off or the receiver can not be reached. `UsageError`."""
        return self._dialogue.dab(block, timeout)

    # --- inside ---

    def _read_into(self, watch: _tessary.PeriodWatch) -> tuple[_tessary.Measurement, str]:
        asked = time.monotonic()
        figures = self.measurement()
        return figures, watch.add(asked, time.monotonic(), figures)

    @staticmethod
    def _await(
        question: Callable[[], _Found | None], enough: Callable[[_Found], bool], seconds: float
    ) -> _Found | None:
        """The last answer: that which is enough, or that after so many seconds."""
        deadline = time.monotonic() + seconds
        while True:
            found = question()
            if (found is not None and enough(found)) or time.monotonic() >= deadline:
                return found
            time.sleep(_POLL_SECONDS)


def _number_of(name: str, services: _tessary.ServiceTable | None) -> int:
    for service in services.services if services else []:
        if _tessary.same_name(service.name, name):
            return service.id
    known = ", ".join(f"{service.name!r}" for service in services.services) if services else "none: scan() first"
    raise NothingError(f"no service has the name {name!r}", f"known are {known}")


def _is_complete(table: _tessary.ServiceTable | _tessary.NetworkTable) -> bool:
    return table.complete


def _slow(timeout: float | None) -> float:
    return timeout if timeout is not None else _SLOW_SECONDS


def _byte(value: int, what: str) -> int:
    if not 0 <= value <= 255:
        raise UsageError(f"{value} is no {what}", "give a number from 0 to 255")
    return value
