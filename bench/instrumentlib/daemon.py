"""The daemon under test as a program of the machine: start, stop, kill, wait."""

import os
import shlex
import signal
import threading

from . import places
from .errors import BenchError
from .machine_root import EMULATOR, COMMAND_LOG
from .machine import CLEAN_ENVIRONMENT

PATH_INSIDE = "/usr/bin/tessary"
LABEL = "the daemon"
_STOP_SECONDS = 60  # it goes at once; only a machine that has much other work takes its time


def not_running():
    """The error that says so."""
    return BenchError("the daemon does not run", f"start it: {places.COMMAND} daemon start")


class Daemon:
    """At most one running daemon. Thread-safe."""

    def __init__(self, machine, log_path, *, environment, wrapper, setarch, emulator):
        self._machine, self._log_path = machine, log_path
        self._environment = {"PATH": f"{COMMAND_LOG}:{CLEAN_ENVIRONMENT['PATH']}", **environment}
        # ThreadSanitizer needs an address space without randomisation on many kernels.
        self._command = [*(["setarch", "-R"] if setarch else []), *shlex.split(wrapper),
                         *([EMULATOR] if emulator else []), PATH_INSIDE]
        self._program = None
        self._lock = threading.RLock()

    def running(self):
        """The running Program, or None."""
        with self._lock:
            return self._program if self._program and not self._program.ended.is_set() else None

    def start(self):
        """Starts it as the unit's boot does: cwd "/", clean environment. BenchError if it runs already.

        Returns its PID as this machine counts.
        """
        with self._lock:
            if self.running():
                raise BenchError(f"the daemon runs already (PID {self._program.host_pid})",
                                 f"stop or restart it: {places.COMMAND} daemon restart")
            with open(self._log_path, "ab") as log:
                self._program = self._machine.spawn(self._command, log, environment=self._environment, label=LABEL)
            return {"pid": self._program.host_pid}

    def pids(self):
        """Its PIDs: as this machine counts, and inside. BenchError when it does not run."""
        program = self.running()
        if not program:
            raise not_running()
        return {"pid": program.host_pid, "inside": program.pid}

    def wait(self):
        """Waits for the end of the one last started; how it ended."""
        program = self._program
        if not program:
            raise BenchError("the daemon has not been started")
        program.ended.wait()
        return {"end": program.describe_end(), "status": os.waitstatus_to_exitcode(program.status)}

    def describe(self):
        """How it is, in words."""
        program = self.running()
        if program:
            return f"running, PID {program.host_pid} (inside {program.pid})"
        return f"not running: {self._program.describe_end()}" if self._program else "not started"

    def end(self, number):
        """Ends it with a signal and waits until it is gone; what it started goes on, as on the unit."""
        with self._lock:
            program = self.running()
            if not program:
                raise not_running()
            program.send_signal(number)
            if not program.ended.wait(_STOP_SECONDS):
                raise BenchError(f"the daemon did not end within {_STOP_SECONDS} s of "
                                 f"{signal.Signals(number).name}", f"end it for good: {places.COMMAND} daemon kill")
