"""The booted instrument that a soak runs on: its daemon is seen from inside alone, by programs that are run there."""

import contextlib
import json
import shutil
import subprocess
import time

import tessary

from . import resources, services
from .unit import Unit

_TIME_BETWEEN_LOOKS = 5   # seconds; each costs an emulated processor some tenths of a second
_ATTEMPTS = 3             # to look: the agent inside may be busy
_LOOK = ("import json, sys; sys.path.insert(0, '/run/bench'); sys.dont_write_bytecode = True; import resources; "
         "print(json.dumps(getattr(resources, sys.argv[1])(int(sys.argv[2]))))")


class BootedUnit(Unit):
    """One machine of that architecture, with the packages of build/packages."""

    booted = True

    def __init__(self, machine, run_dir, build, log_path):
        super().__init__(log_path, machine=machine, run_dir=run_dir, build=build)
        self._born, self._looked = None, 0.0

    def start(self, timeout=None):
        """With the program that looks at the daemon."""
        super().start(timeout)
        shutil.copy(resources.__file__, self.shared("resources.py"))

    def _look(self, function, pid):
        """What that function of resources.py says inside. Raises what went wrong when nobody can look."""
        for attempt in range(_ATTEMPTS):
            try:
                return json.loads(self.run("python3", "-I", "-c", _LOOK, function, str(pid)))
            except (tessary.TessaryError, subprocess.TimeoutExpired, json.JSONDecodeError):
                if attempt == _ATTEMPTS - 1:
                    raise
        return None

    def sample(self, pid):
        return self._look("sample", pid)

    def describe(self, pid):
        return self._look("describe", pid)

    def start_time(self, pid):
        """Looked at every few seconds only."""
        if time.monotonic() - self._looked > _TIME_BETWEEN_LOOKS:
            self._born = self._look("start_time", pid)
            self._looked = time.monotonic()
        return self._born

    def ask_heap(self, _):
        """No debugger inside."""

    def watch_service(self):
        return services.Watch(services.ScreenChanges(self.shared("display.ppm")), self.shared("sound.wav"))

    def restart_daemon(self):
        self._looked = 0.0
        self.run("systemctl", "restart", "tessary")

    def start_network_manager(self, _):
        """systemd has done so already, or gave up."""
        self.run("systemctl", "reset-failed", "NetworkManager")
        self.run("systemctl", "start", "NetworkManager")

    def _kill(self, *which):
        with contextlib.suppress(tessary.CommandFailedError):  # there is none
            return int(self.run("pkill", "-KILL", "-c", *which))
        return 0

    def kill_inside(self, name):
        """By the command line, whose first word may be an interpreter."""
        return self._kill("-f", rf"^([^ ]*python3[^ ]* )?([^ ]*/)?{name}( |$)")

    def kill_children(self, pid):
        return [f"{self._kill('-P', str(pid))} killed"]
