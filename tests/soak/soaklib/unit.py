"""The virtual instrument that a soak runs on, and the processes in it."""

import contextlib
import os
import resource
import shutil
import signal

import tessary

REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__)))))
CARD = "run/media/mmcblk1p1"
CARD_SIZE = "48M"
BITFILE = "home/ondrak/Tessary/Tessary.bit"


class Unit(tessary.Instrument):
    """One instrument with its hardware. `environment` is the daemon's, `log_path` takes what the instrument says itself."""

    def __init__(self, run_dir, build, daemon, environment, log_path):
        super().__init__(hardware=True, run_dir=run_dir, build=build, daemon=daemon, card=CARD_SIZE,
                         daemon_environment=environment)
        self._log_copy = log_path

    def start(self, timeout=600):
        """The daemon leaves a core when it fails."""
        resource.setrlimit(resource.RLIMIT_CORE, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))
        super().start(timeout)

    def stop(self):
        """Keeps what the instrument said."""
        super().stop()
        with contextlib.suppress(FileNotFoundError, tessary.NoInstrumentError):  # it may not have begun
            shutil.copy(self.log_path("runner"), self._log_copy)

    def restart_daemon(self):
        """As the unit does when the daemon is stopped or the unit restarts."""
        self.kill_daemon()
        self.start_daemon()

    def current_address(self):
        """The IPv4 address of eth0, None without one."""
        with contextlib.suppress(tessary.NothingError):
            return self.address(wait=0)
        return None

    def processes(self, name):
        """PIDs, as this machine counts, of the processes of that name inside this instrument and nowhere else."""
        ours = os.readlink(f"/proc/{self.pid_of_first_process()}/ns/pid")
        found = []
        for entry in os.listdir("/proc"):
            if not entry.isdigit():
                continue
            with contextlib.suppress(OSError):
                if os.readlink(f"/proc/{entry}/ns/pid") == ours and _name_of(entry) == name:
                    found.append(int(entry))
        return found

    def kill_inside(self, name, number=signal.SIGKILL):
        """Ends the processes of that name inside; returns how many there were."""
        pids = self.processes(name)
        for pid in pids:
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, number)
        return len(pids)

    def kill_children(self, pid):
        """Kills the programs that the daemon runs at this moment; returns their names."""
        names = []
        for child in children_of(pid):
            with contextlib.suppress(OSError):
                names.append(_name_of(child))
                os.kill(child, signal.SIGKILL)
        return names


def children_of(pid):
    """PIDs of a process's children, of all its threads."""
    children = []
    with contextlib.suppress(OSError):
        for thread in os.listdir(f"/proc/{pid}/task"):
            with contextlib.suppress(OSError):
                children += [int(word) for word in _file(f"/proc/{pid}/task/{thread}/children").split()]
    return children


def _name_of(pid):
    """As the program was started: "comm" is cut at 15 characters and names a script's interpreter."""
    words = _file(f"/proc/{pid}/cmdline").split(b"\0")
    names = [os.path.basename(word).decode(errors="replace") for word in words[:2] if word]
    if names and names[0].startswith("python") and len(names) > 1:
        return names[1]
    return names[0] if names else ""


def _file(path):
    with open(path, "rb") as file:
        return file.read()
