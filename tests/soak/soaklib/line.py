"""The controller's end of the serial line."""

import array
import contextlib
import fcntl
import json
import os
import termios
import time

import tessary

VERSION = b"SV: mx8 "
GREETING = b"HELLO !\r\n"
_PIECE = 4096  # bytes written at a time
_UNSEEN_SECONDS = 0.2  # a booted instrument's daemon has read by then, or the question comes together with the burst
_FULL_SECONDS = 300.0  # that a full line may stay full: longer than any command keeps the daemon from reading


class NoAnswer(Exception):
    """What was waited for did not come in time; `received` is what did."""

    def __init__(self, what, received):
        super().__init__(what)
        self.received = received


class Relayed:
    """Counts the bytes that have reached the daemon's terminal, by the log of the relay between the two terminals."""

    def __init__(self, log_path):
        self._log = open(log_path, "rb")  # pylint: disable=consider-using-with  # closed with the line
        self._log.seek(0, os.SEEK_END)
        self._rest = b""
        self.count = 0

    def update(self):
        """Takes what was written to the log since the last look."""
        lines = (self._rest + self._log.read()).split(b"\n")
        self._rest = lines.pop()
        for line in lines:
            if b'"to_daemon"' in line:
                self.count += len(json.loads(line)["hex"]) // 2

    def close(self):
        """Closes the log."""
        self._log.close()


class Line:
    """Raw bytes both ways. `alive()` is asked while waiting, and raises when waiting is pointless."""

    def __init__(self, path, relay_log, alive):
        self._line = tessary.Line(path)
        self._alive = alive
        self._daemons_end = None
        self._relayed = Relayed(relay_log)
        self._written = 0

    def close(self):
        """Closes what this end has open."""
        self._relayed.close()
        self._line.close()
        if self._daemons_end is not None:
            os.close(self._daemons_end)

    def watch_daemon(self, pid):
        """Opens the daemon's own terminal a second time, only to see how many bytes it has not read yet."""
        if self._daemons_end is not None:
            os.close(self._daemons_end)
        self._daemons_end = None
        for name in os.listdir(f"/proc/{pid}/fd"):
            with contextlib.suppress(OSError):
                if os.readlink(f"/proc/{pid}/fd/{name}").endswith("ttymxc1"):
                    self._daemons_end = os.open(f"/proc/{pid}/fd/{name}",
                                                os.O_RDONLY | os.O_NOCTTY | os.O_NONBLOCK | os.O_CLOEXEC)
                    return
        raise NoAnswer("the daemon has no serial line open", b"")

    def unread(self):
        """Bytes that the daemon has not taken from its terminal; 0, after a while, when that can not be seen."""
        if self._daemons_end is None:
            time.sleep(_UNSEEN_SECONDS)
            return 0
        count = array.array("i", [0])
        fcntl.ioctl(self._daemons_end, termios.FIONREAD, count)
        return count[0]

    def write(self, data):
        """All of it; waits when the line is full. NoAnswer when it stays so."""
        for at in range(0, len(data), _PIECE):
            piece = data[at:at + _PIECE]
            try:
                self._line.write(piece, _FULL_SECONDS)
            except tessary.TimedOutError as error:
                raise NoAnswer(f"the daemon did not read within {_FULL_SECONDS:.0f} s, and the line is full", b"") from error
            self._written += len(piece)
            self._alive()

    def read_while(self, wanting, what, seconds, received=b""):
        """Reads until `wanting(bytes)` is false. NoAnswer when the time is up first."""
        deadline = time.monotonic() + seconds
        while wanting(received):
            left = deadline - time.monotonic()
            if left <= 0:
                raise NoAnswer(f"{what} did not come within {seconds:.0f} s", received)
            received += self._line.read_some(min(left, 0.5))
            self._alive()
        return received

    def wait_until_taken(self, seconds):
        """Returns when the daemon has read everything that was written, so that what is written next is a burst of its own.
        NoAnswer when it does not."""
        deadline = time.monotonic() + seconds
        seen_empty = 0  # twice: the kernel hands bytes from one terminal's end to the other by a thread of its own
        while seen_empty < 2:
            seen_empty = seen_empty + 1 if self._has_arrived() and self.unread() == 0 else 0
            if time.monotonic() > deadline:
                raise NoAnswer(f"the daemon did not read what was sent within {seconds:.0f} s", b"")
            time.sleep(0.01)
            self._alive()

    def _has_arrived(self):
        self._relayed.update()
        return self._relayed.count >= self._written


def has_versions(received, count):
    """True when so many version lines have come, the last one whole and at the end."""
    return received.count(VERSION) >= count and received.endswith(b"\n")
