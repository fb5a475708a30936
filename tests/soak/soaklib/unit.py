"""The instrument that a soak runs on, and the processes in it."""

import contextlib
import os
import resource
import shutil
import signal

import tessary

from . import resources, services

REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__)))))
CARD = "/run/media/mmcblk1p1"
CARD_SIZE = "48M"
BITFILE = "/home/ondrak/Tessary/Tessary.bit"


class Unit(tessary.Instrument):
    """What both kinds of instrument have in common. `log_path` takes what the instrument says itself."""

    booted = False

    def __init__(self, log_path, **made_of):
        super().__init__(card=CARD_SIZE, **made_of)
        self._log_copy = log_path

    def stop(self):
        """Keeps what the instrument said."""
        super().stop()
        with contextlib.suppress(FileNotFoundError, tessary.NoInstrumentError):  # it may not have begun
            shutil.copy(self.log_path("runner"), self._log_copy)

    def current_address(self):
        """The IPv4 address of eth0, None without one."""
        with contextlib.suppress(tessary.NothingError):
            return self.address(wait=0)
        return None

    def shell(self, text):
        """Runs a text for the shell inside, whatever becomes of it."""
        with contextlib.suppress(tessary.CommandFailedError):
            self.run("sh", "-c", text)

    def fetch(self, path):
        """The content of a file inside."""
        self.run("cp", path, "/run/bench/fetched")
        return self.shared("fetched").read_bytes()

    def put(self, path, content):
        """Writes a file inside; what stood there is replaced."""
        self.shared("given").write_bytes(content)
        self.run("sh", "-c", f"rm -rf {path} && cp /run/bench/given {path}")


class VirtualUnit(Unit):
    """A virtual instrument with its hardware, whose processes are seen from here. `environment` is the daemon's."""

    def __init__(self, run_dir, build, daemon, environment, log_path):
        super().__init__(log_path, hardware=True, run_dir=run_dir, build=build, daemon=daemon, daemon_environment=environment)

    def start(self, timeout=600):
        """The daemon leaves a core when it fails."""
        resource.setrlimit(resource.RLIMIT_CORE, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))
        super().start(timeout)

    sample = staticmethod(resources.sample)
    start_time = staticmethod(resources.start_time)
    describe = staticmethod(resources.describe)

    def ask_heap(self, pid):
        """Bytes that the C library's heap holds for the daemon; None when it can not be asked."""
        return resources.ask_heap(pid, str(self.log_path("daemon")))

    def watch_service(self):
        """A look at display and loudspeaker for the service that is played next."""
        return services.Watch(services.FrameCount(self.shared("display.json")), self.shared("sound.wav"))

    def restart_daemon(self):
        """As the unit does when the daemon is stopped or the unit restarts."""
        self.kill_daemon()
        self.start_daemon()

    def start_network_manager(self, log_path):
        """As the unit's init does when it has died."""
        if not self.processes("NetworkManager"):
            self.start_program(["NetworkManager", "--debug"], log=log_path)

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

    def kill_inside(self, name):
        """Kills the processes of that name inside; returns how many there were."""
        pids = self.processes(name)
        for pid in pids:
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)
        return len(pids)

    def kill_children(self, pid):
        """Kills the programs that the daemon runs at this moment; returns their names."""
        names = []
        for child in resources.children_of(pid):
            with contextlib.suppress(OSError):
                names.append(_name_of(child))
                os.kill(child, signal.SIGKILL)
        return names


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
