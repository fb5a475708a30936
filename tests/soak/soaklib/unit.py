"""The virtual instrument that a soak runs on: start, stop, the daemon's process, processes and files inside."""

import contextlib
import os
import resource
import signal
import subprocess
import time

from instrumentlib import behaviour, control, network
from instrumentlib.errors import BenchError
from instrumentlib.run_dir import RunDir

REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__)))))
INSTRUMENT = os.path.join(REPOSITORY, "bench", "instrument")
HARDWARE = os.path.join(REPOSITORY, "bench", "hardware")
CARD = "run/media/mmcblk1p1"
CARD_SIZE = "48M"
BITFILE = "home/ondrak/Tessary/Tessary.bit"
_START_SECONDS = 600  # the first start on a machine makes the instrument's package layer


class Unit:
    """One instrument with its hardware. `environment` are K=V texts for the daemon."""

    def __init__(self, run_dir, build, daemon, environment, log_path):
        self.run_dir = RunDir(run_dir)
        self.build = build
        self._command = [HARDWARE, "--run-dir", run_dir, "--build", build, "--daemon", daemon, "--card", CARD_SIZE]
        for text in environment:
            self._command += ["--daemon-env", text]
        self._log_path = log_path
        self._process = None
        self._helpers = []
        self.state = None

    def start(self):
        """Returns when the instrument is ready; its daemon may still be starting. BenchError when it does not come."""
        resource.setrlimit(resource.RLIMIT_CORE, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))
        with open(self._log_path, "wb") as log:
            self._process = subprocess.Popen(self._command, stdin=subprocess.DEVNULL, stdout=log,
                                             stderr=subprocess.STDOUT, start_new_session=True)
        deadline = time.monotonic() + _START_SECONDS
        while not _file(self._log_path).endswith(b"ready\n"):
            if self._process.poll() is not None or time.monotonic() > deadline:
                raise BenchError("the virtual instrument did not start: "
                                 + _file(self._log_path).decode(errors="replace"), f"see {self._log_path}")
            time.sleep(0.2)
        self.state = self.run_dir.read_state()

    def stop(self):
        """Takes everything down; nothing happens when it is down already."""
        for helper in self._helpers:
            end(helper)
        if self._process and self._process.poll() is None:
            self._process.terminate()
            try:
                self._process.wait(60)
            except subprocess.TimeoutExpired:
                self._process.kill()
                self._process.wait()

    # --- the daemon ---

    def daemon_pid(self):
        """PID of the daemon as this machine counts, 0 when it does not run."""
        try:
            return control.ask(self.run_dir.control, {"action": "daemon pid"})["pid"]
        except BenchError:
            return 0

    def restart_daemon(self):
        """As the unit does when the daemon is stopped or the unit restarts."""
        control.ask(self.run_dir.control, {"action": "daemon kill"})
        control.ask(self.run_dir.control, {"action": "daemon start"})

    def daemon_end(self):
        """How the daemon ended, in words."""
        with contextlib.suppress(BenchError):
            return control.ask(self.run_dir.control, {"action": "status"})["daemon"]
        return "the instrument does not tell"

    # --- steering ---

    def set_link(self, up):
        """Plugs the cable in or out."""
        control.ask(self.run_dir.control, {"action": "link", "up": up})

    def behave(self, program, **matters):
        """Lets a recorded program fail or stall; without matters it is real again."""
        if matters:
            behaviour.give(self.state["init"], program, **matters)
        else:
            behaviour.clear(self.state["init"], program)

    def set_knob(self, text):
        """Writes a fault to the FPGA."""
        with open(os.path.join(self.run_dir.path, "fpga", "knobs"), "w", encoding="ascii") as knobs:
            knobs.write(text + "\n")

    def shared(self, name):
        """Path on this machine of a file in /run/bench inside."""
        return os.path.join(self.run_dir.io, name)

    def inside(self, path):
        """Path on this machine of a file inside, `path` without leading slash."""
        return f"/proc/{self.state['init']}/root/{path}"

    def address(self):
        """The IPv4 address of eth0, None without one."""
        for word in network.describe(self.state["init"], "eth0").split()[2:]:
            if word.count(".") == 3:
                return word.partition("/")[0]
        return None

    # --- processes ---

    def processes(self, name):
        """PIDs, as this machine counts, of the processes of that name inside this instrument and nowhere else."""
        ours = os.readlink(f"/proc/{self.state['init']}/ns/pid")
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

    def exec(self, command, *, sender=False, log=None):
        """Starts a command inside (or at the stream sender's end) that ends with the instrument at the latest."""
        where = ["--sender"] if sender else []
        output = open(log, "ab") if log else subprocess.DEVNULL  # pylint: disable=consider-using-with
        try:
            process = subprocess.Popen([INSTRUMENT, "exec", "--run-dir", self.run_dir.path, *where, *command],
                                       stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        finally:
            if log:
                output.close()
        self._helpers = [helper for helper in self._helpers if helper.poll() is None] + [process]
        return process


def end(process):
    """Ends a process started by Unit.exec and collects it."""
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(5)
        except subprocess.TimeoutExpired:
            process.kill()
    process.wait()


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
