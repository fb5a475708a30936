"""The instrument's serial lines: a pseudo-terminal for the daemon, one for whoever is at the far end, and a log.

The daemon's pty slave is the device inside the instrument; the far pty's slave is what a terminal program opens
on the host. The relay keeps both slaves open, so that settings stay and no end of the line ever "hangs up".
"""

import collections
import json
import os
import selectors
import termios
import threading
import time
import tty

# The daemon's bytes wait here for a controller that reads slowly or not at all; then the oldest are lost, as they
# are on a wire that nobody listens to. The daemon is never held up.
FROM_DAEMON_CAP = 4 << 20
# Bytes for the daemon that its pty does not take yet. When full, the relay stops reading from the far end, so that
# the controller's own writes wait and nothing is lost.
TO_DAEMON_CAP = 1 << 20
_CHUNK = 64 * 1024
_FIFO = 64  # bytes that a paced line lets through at once
_PAUSE_SECONDS = 0.002  # some 23 bytes at 115,200 bit/s


def _unlike_the_daemon(slave):
    """Line settings of a port that nobody has set up: 9600 baud, software flow control, output processing.

    None of it is what the daemon sets, so what is read back later was set by the daemon. It does not disturb the
    line either: no echo and no line editing, and output is processed only for what is written to the slave.
    """
    settings = termios.tcgetattr(slave)
    settings[0] = termios.IXON | termios.ICRNL | termios.IXANY
    settings[1] = termios.OPOST | termios.ONLCR
    settings[2] = termios.CS8 | termios.CREAD | termios.B9600
    settings[3] = termios.IEXTEN
    settings[4] = settings[5] = termios.B9600
    termios.tcsetattr(slave, termios.TCSANOW, settings)


class _Log:
    """Chunks that passed the line, one JSON object a line, written through at once."""

    def __init__(self, path):
        self._fd = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_APPEND | os.O_CLOEXEC, 0o644)

    def note(self, direction, data, **more):
        entry = {"t": time.monotonic_ns(), "dir": direction, "hex": data.hex(), **more}
        os.write(self._fd, (json.dumps(entry) + "\n").encode())

    def close(self):
        os.close(self._fd)


class _Queue:
    """Bytes in order, taken from the front."""

    def __init__(self):
        self._chunks = collections.deque()
        self.size = 0

    def put(self, data):
        self._chunks.append(data)
        self.size += len(data)

    def front(self):
        return self._chunks[0]

    def drop(self, count):
        """Removes `count` bytes, at most those of the front chunk."""
        chunk = self._chunks.popleft()
        self.size -= count
        if count < len(chunk):
            self._chunks.appendleft(chunk[count:])


class _Pace:
    """What a line of so many bit/s carries in one direction: ten bits a byte, as with a start and a stop bit."""

    def __init__(self, bits_per_second):
        self._ns_per_byte = 10 * 10**9 // bits_per_second
        self._carried_at = 0  # when all that was let through has passed the line

    def room(self):
        """Bytes that may pass now."""
        return _FIFO - max(0, self._carried_at - time.monotonic_ns()) // self._ns_per_byte

    def took(self, count):
        self._carried_at = max(self._carried_at, time.monotonic_ns()) + count * self._ns_per_byte


class _Unpaced:
    """A line that carries whatever comes."""

    @staticmethod
    def room():
        return _CHUNK

    def took(self, count):
        pass


class SerialLine:
    """One line. `device` is the daemon's pty slave, `far_device` the other's, both paths on the host."""

    def __init__(self, log_path, *, raw_from_start, bits_per_second=None):
        """`raw_from_start` is for the console, where the daemon writes without settings of its own.

        With `bits_per_second` either end's bytes are taken at that rate, so that writers wait as on a wire.
        """
        self._daemon, self._daemon_slave = os.openpty()
        self._far, self._far_slave = os.openpty()
        tty.setraw(self._far_slave, termios.TCSANOW)
        if raw_from_start:
            tty.setraw(self._daemon_slave, termios.TCSANOW)
        else:
            _unlike_the_daemon(self._daemon_slave)
        os.set_blocking(self._daemon, False)
        os.set_blocking(self._far, False)
        self.device = os.ttyname(self._daemon_slave)
        self.far_device = os.ttyname(self._far_slave)
        self._log = _Log(log_path)
        self._to_daemon, self._to_far = _Queue(), _Queue()
        self._events = {}
        self.pauses = False  # bytes may wait for their time, of which no event will tell
        self._paces = {fd: _Pace(bits_per_second) if bits_per_second else _Unpaced() for fd in (self._daemon, self._far)}

    def register(self, selector):
        """Puts both ends under the selector of the relay's thread, with this line as data."""
        for fd in (self._daemon, self._far):
            self._events[fd] = selectors.EVENT_READ
            selector.register(fd, selectors.EVENT_READ, self)

    def handle(self, selector, fd, events):
        """Moves what can be moved without waiting."""
        if events & selectors.EVENT_READ:
            self._read(fd)
        self._write(self._daemon, self._to_daemon, "to_daemon")
        self._write(self._far, self._to_far, None)
        # Half a FIFO: a paced line is served in pieces, not byte by byte.
        rooms = {fd: pace.room() >= _FIFO // 2 for fd, pace in self._paces.items()}
        self.pauses = not all(rooms.values())
        self._watch(selector, self._daemon, rooms[self._daemon], self._to_daemon.size > 0)
        self._watch(selector, self._far, rooms[self._far] and self._to_daemon.size < TO_DAEMON_CAP, self._to_far.size > 0)

    def _read(self, fd):
        try:
            data = os.read(fd, self._paces[fd].room())
        except (BlockingIOError, OSError):
            return
        if not data:
            return
        self._paces[fd].took(len(data))
        if fd == self._far:
            self._to_daemon.put(data)
            return
        self._log.note("from_daemon", data)
        self._to_far.put(data)
        while self._to_far.size > FROM_DAEMON_CAP:
            lost = self._to_far.front()
            self._to_far.drop(len(lost))
            self._log.note("from_daemon", b"", unread=len(lost))

    def _write(self, fd, waiting, direction):
        while waiting.size > 0:
            try:
                count = os.write(fd, waiting.front())
            except (BlockingIOError, OSError):
                return
            if count == 0:
                return
            if direction:
                self._log.note(direction, waiting.front()[:count])
            waiting.drop(count)

    def _watch(self, selector, fd, reading, writing):
        events = (selectors.EVENT_READ if reading else 0) | (selectors.EVENT_WRITE if writing else 0)
        if events == self._events[fd]:
            return
        if self._events[fd] == 0:
            selector.register(fd, events, self)
        elif events == 0:
            selector.unregister(fd)
        else:
            selector.modify(fd, events, self)
        self._events[fd] = events

    def settings(self):
        """tcgetattr of the daemon's side, as the daemon left it."""
        return termios.tcgetattr(self._daemon_slave)

    def close(self):
        """Closes both terminals and the log."""
        for fd in (self._daemon, self._daemon_slave, self._far, self._far_slave):
            os.close(fd)
        self._log.close()


class Relay:
    """One thread that serves all lines."""

    def __init__(self, lines):
        self._lines = lines
        self._wake, self._waker = os.pipe2(os.O_CLOEXEC)
        self._thread = threading.Thread(target=self._run, name="relay", daemon=True)

    def start(self):
        """To be called after everything that forks."""
        self._thread.start()

    def _run(self):
        with selectors.DefaultSelector() as selector:
            selector.register(self._wake, selectors.EVENT_READ, None)
            for line in self._lines:
                line.register(selector)
            while True:
                pausing = [line for line in self._lines if line.pauses]
                for key, events in selector.select(_PAUSE_SECONDS if pausing else None):
                    if key.data is None:
                        return
                    key.data.handle(selector, key.fd, events)
                for line in pausing:
                    line.handle(selector, None, 0)

    def stop(self):
        """Ends the thread; the lines stay open and are their owner's."""
        if self._thread.is_alive():
            os.write(self._waker, b"q")
            self._thread.join()
        os.close(self._wake)
        os.close(self._waker)
