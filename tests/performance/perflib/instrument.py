"""A virtual instrument of the measurement's own, seen from the controller's end of the line."""

import contextlib
import time

import tessary

from .session import Failure
from .processes import processor_seconds

MAC = "02:74:65:73:73:01"  # of its eth0, see bench/instrumentlib/network.py
CARD = "/run/media/mmcblk1p1"


class Instrument(tessary.Instrument):
    """A virtual instrument with a bare line: the moments at which bytes come are what is measured."""

    def __init__(self, session, *, card="256M", hardware=False, daemon=None):
        super().__init__(build=session.build, card=card, hardware=hardware, daemon=daemon)
        self._session = session
        self._line = None

    def start(self, timeout=600):
        """Opens the line, too."""
        super().start(timeout)
        try:
            self._line = tessary.Line(self.port)
        except tessary.TessaryError:
            self.stop()
            raise

    def stop(self):
        """Closes the line, too."""
        if self._line is not None:
            self._line.close()
            self._line = None
        super().stop()

    # The controller's line

    def write(self, text):
        """Sends a command."""
        self._line.write(text.encode())

    def read_until(self, end, seconds=10):
        """Bytes up to and with `end`; Failure when they do not come."""
        deadline = time.monotonic() + seconds
        data = b""
        while not data.endswith(end):
            left = deadline - time.monotonic()
            if left <= 0:
                raise Failure(f"no {end!r} from the daemon within {seconds} s, only {data[-60:]!r}")
            data += self._line.read_some(left)
        return data

    def drop_input(self, seconds=0.0):
        """Forgets what has come, and what still comes for a while."""
        deadline = time.monotonic() + seconds
        while self._line.read_some(deadline - time.monotonic()):
            pass

    def ask_version(self, seconds=30):
        """The version line: the daemon has taken everything before."""
        self.write("version?\n")
        return self.read_until(b"\n", seconds)

    def command(self, text, seconds=30):
        """Carries out a command without reply. A line feed does not separate commands, a NUL byte does; the version behind it
        tells that the command has been taken."""
        self.write(f"{text}\n\0version?\n")
        self.read_until(b"\n", seconds)

    def wait_for_daemon(self):
        """Until the daemon answers after its start, or the stand-in that knows no other question than the version; what it is
        asked before that may be lost."""
        for _ in range(30):
            with contextlib.suppress(Failure):
                if self.ask_version(2).startswith(b"SV:"):
                    self.drop_input(0.2)
                    return
        raise Failure("the daemon does not answer")

    # Its surroundings

    def in_network(self, command):
        """The command with this machine's files in the instrument's network; no further process is between."""
        return ["nsenter", f"--net=/proc/{self.pid_of_first_process()}/ns/net", *command]

    def card_file(self, name):
        """A file on the memory card as this machine sees it."""
        return str(self.inside(f"{CARD}/{name}"))


class CpuMeter:
    """Processor time of a process over a while."""

    def __init__(self, pid):
        self._pid, self._began, self._at = pid, processor_seconds(pid), time.monotonic()

    def used(self):
        """Seconds of processor time since the start."""
        return processor_seconds(self._pid) - self._began

    def share(self):
        """Percent of one processor."""
        return 100 * self.used() / (time.monotonic() - self._at)
