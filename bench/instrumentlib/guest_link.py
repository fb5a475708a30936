"""How the booted instrument is spoken to from outside: QEMU's monitor and the guest agent, both lines of JSON."""

import base64
import contextlib
import itertools
import json
import socket
import threading
import time

from .errors import BenchError

_SENTINEL = b"\xff"  # before the agent's answer to a synchronisation


class _Silence(Exception):
    """Nothing came in time."""


class _Lines:
    """A socket as a sequence of lines."""

    def __init__(self, sock):
        self._sock = sock
        self._rest = b""

    def write(self, message, before=b""):
        self._sock.settimeout(10)
        self._sock.sendall(before + json.dumps(message).encode() + b"\n")

    def read(self, deadline):
        """The next line; _Silence at the deadline, OSError when the other side is gone."""
        while b"\n" not in self._rest:
            self._sock.settimeout(max(0.001, deadline - time.monotonic()))
            try:
                data = self._sock.recv(65536)
            except TimeoutError as error:
                raise _Silence from error
            if not data:
                raise ConnectionError("the machine is off")
            self._rest += data
        line, _, self._rest = self._rest.partition(b"\n")
        return line

    def close(self):
        with contextlib.suppress(OSError):
            self._sock.shutdown(socket.SHUT_RDWR)
        self._sock.close()


class Monitor:
    """QEMU's monitor (QMP). Thread-safe."""

    _SECONDS = 30

    def __init__(self, sock):
        self._lines = _Lines(sock)
        self._lock = threading.Lock()
        self._greeted = False

    def call(self, command, **arguments):
        """Returns what the command returns; BenchError when it is refused."""
        try:
            with self._lock:
                if not self._greeted:
                    self._lines.read(time.monotonic() + self._SECONDS)
                    self._ask("qmp_capabilities", {})
                    self._greeted = True
                return self._ask(command, arguments)
        except (_Silence, OSError) as error:
            raise BenchError(f"QEMU does not answer to {command}: {error}", "is the machine on? see its power") from error

    def _ask(self, command, arguments):
        self._lines.write({"execute": command, "arguments": {name.replace("_", "-"): value for name, value in arguments.items()}})
        deadline = time.monotonic() + self._SECONDS
        while True:
            reply = json.loads(self._lines.read(deadline))
            if "error" in reply:
                raise BenchError(f"QEMU refuses {command}: {reply['error']['desc']}")
            if "return" in reply:  # others are events
                return reply["return"]

    def close(self):
        """Lets go of it."""
        self._lines.close()


class Agent:
    """The guest agent, which runs programs inside. Thread-safe."""

    _SECONDS = 60  # an emulated machine that has other work takes its time

    def __init__(self, sock):
        self._lines = _Lines(sock)
        self._lock = threading.Lock()
        self._numbers = itertools.count(1)

    def answers(self, seconds):
        """Whether it is there; waits so long for it."""
        try:
            with self._lock:
                self._synchronise(time.monotonic() + seconds)
            return True
        except (_Silence, OSError):
            return False

    def call(self, command, **arguments):
        """Returns what the command returns; BenchError when it is refused or the agent does not answer."""
        deadline = time.monotonic() + self._SECONDS
        try:
            with self._lock:
                self._synchronise(deadline)
                self._lines.write({"execute": command, "arguments": {name.replace("_", "-"): value
                                                                     for name, value in arguments.items()}})
                reply = json.loads(self._lines.read(deadline))
        except (_Silence, OSError) as error:
            raise BenchError("the machine's agent does not answer",
                             "is the machine on? boot.log and journal.log in the run directory tell") from error
        if "error" in reply:
            raise BenchError(f"the machine's agent refuses {command}: {reply['error']['desc']}")
        return reply["return"]

    def _synchronise(self, deadline):
        """Answers to questions that nobody waits for any more are passed over."""
        number = next(self._numbers)
        self._lines.write({"execute": "guest-sync-delimited", "arguments": {"id": number}}, before=_SENTINEL)
        while True:
            _, sentinel, answer = self._lines.read(deadline).partition(_SENTINEL)
            if sentinel and json.loads(answer).get("return") == number:
                return

    def start(self, argv, environment):
        """Starts a program inside, cwd "/"; returns its PID there."""
        words = ["-i", "--chdir=/", *(f"{name}={value}" for name, value in environment.items()), *argv]
        return self.call("guest-exec", path="/usr/bin/env", arg=words, capture_output=True)["pid"]

    def poll(self, pid):
        """None while it runs, then (status, standard output, standard error); 128 + n when signal n ended it."""
        state = self.call("guest-exec-status", pid=pid)
        if not state["exited"]:
            return None
        status = 128 + state["signal"] if "signal" in state else state["exitcode"]
        return status, *(base64.b64decode(state.get(name, "")) for name in ("out-data", "err-data"))

    def run(self, argv, environment, seconds=600):
        """Runs it to its end; as poll()."""
        pid = self.start(argv, environment)
        deadline = time.monotonic() + seconds
        while (ended := self.poll(pid)) is None:
            if time.monotonic() > deadline:
                raise BenchError(f"{' '.join(argv)} did not end inside within {seconds} s")
            time.sleep(0.1)
        return ended

    def close(self):
        """Lets go of it."""
        self._lines.close()
