"""The run directory: where a running instrument leaves what people and tests connect to."""

import contextlib
import fcntl
import json
import os
import shutil
import stat

from . import places
from .errors import BenchError

DEFAULT = "/run/tessary-instrument"
# Written by the platform elements; those of the last run must not be taken for this one's.
_PRODUCED = ("display.ppm", "display.json", "sound.wav", "sound.json", "fpga-out.ts", "display.watched")


class RunDir:
    """Paths below one run directory (absolute, symbolic links resolved)."""

    def __init__(self, path):
        self.path = os.path.realpath(path)
        self._lock = None

    def __getattr__(self, name):
        """`controller`, `console`, `commands_log`, ... are the files of the directory."""
        names = {"controller": "controller", "console": "console", "line_log": "line.log",
                 "console_log": "console.log", "commands_log": "commands.log", "daemon_log": "daemon.log",
                 "services_log": "services.log", "boot_log": "boot.log", "journal_log": "journal.log",
                 "io": "io", "control": "control", "state": "state.json", "lock": "lock", "scratch": ".machine"}
        if name not in names:
            raise AttributeError(name)
        return os.path.join(self.path, names[name])

    def claim(self):
        """Makes the directory and locks it for this supervisor; logs of an earlier run are emptied."""
        try:
            os.makedirs(self.path, exist_ok=True)
            self._lock = open(self.lock, "a", encoding="ascii")  # pylint: disable=consider-using-with
        except OSError as error:
            raise BenchError(f"{self.path} can not be used as run directory: {error.strerror}",
                             "give another one with --run-dir") from error
        try:
            fcntl.flock(self._lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError as error:
            self._lock.close()
            raise BenchError(f"an instrument runs already with the run directory {self.path}",
                             f"stop it ({places.COMMAND} stop) or give this one another --run-dir") from error
        self.clean()
        for path in (self.io, self.scratch):
            os.makedirs(path, exist_ok=True)
        os.chmod(self.io, 0o777)
        for name in _PRODUCED:
            with contextlib.suppress(FileNotFoundError):
                os.unlink(os.path.join(self.io, name))
        for path in (self.commands_log, self.daemon_log, self.services_log, self.boot_log, self.journal_log):
            with open(path, "w", encoding="ascii"):
                pass

    def clean(self):
        """Removes what only a running instrument has; logs and what the daemon produced stay for reading."""
        for path in (self.controller, self.console, self.control, self.state):
            with contextlib.suppress(FileNotFoundError):
                os.unlink(path)
        shutil.rmtree(self.scratch, ignore_errors=True)  # what a user's instrument wrote is in it
        with contextlib.suppress(FileNotFoundError):
            for entry in os.scandir(self.io):
                if stat.S_ISFIFO(entry.stat(follow_symlinks=False).st_mode):
                    os.unlink(entry.path)

    def release(self):
        """Cleans and gives the directory free."""
        self.clean()
        self._lock.close()

    def remove(self):
        """Takes it away with all its logs."""
        shutil.rmtree(self.path, ignore_errors=True)

    def in_use(self):
        """True while a supervisor holds the directory."""
        try:
            with open(self.lock, "r", encoding="ascii") as lock:
                fcntl.flock(lock, fcntl.LOCK_SH | fcntl.LOCK_NB)
        except FileNotFoundError:
            return False
        except BlockingIOError:
            return True
        return False

    def write_state(self, state):
        """What other calls of the script need to enter the machine."""
        partial = self.state + ".partial"
        with open(partial, "w", encoding="ascii") as file:
            json.dump(state, file)
        os.rename(partial, self.state)

    def read_state(self):
        """The state of the running instrument; BenchError without one."""
        try:
            with open(self.state, encoding="ascii") as file:
                state = json.load(file)
        except FileNotFoundError:
            state = None
        if not state and self.in_use():
            raise BenchError(f"the instrument with the run directory {self.path} is starting or stopping",
                             "wait for the line \"ready\"")
        if not state or not self.in_use():
            raise BenchError(f"no instrument runs with the run directory {self.path}",
                             f"start one: sudo {places.COMMAND} run")
        return state
