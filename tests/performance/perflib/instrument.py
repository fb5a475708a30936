"""A virtual instrument of the measurement's own, seen from the controller's end of the line."""

import contextlib
import json
import os
import re
import select
import subprocess
import termios
import time
import tty

from .session import Failure
from .processes import Background, processor_seconds, run

MAC = "02:74:65:73:73:01"  # of its eth0, see bench/instrumentlib/network.py
CARD = "/run/media/mmcblk1p1"
_serial = 0


class Instrument:
    """Starts bench/instrument, or bench/hardware, and takes it down at the end of the block."""

    def __init__(self, session, *options, hardware=False, daemon=None):
        global _serial  # pylint: disable=global-statement
        _serial += 1
        self._session = session
        self.run_dir = f"/run/tessary-performance-{os.getpid()}-{_serial}"
        self._script = ([f"{session.repository}/bench/hardware"] if hardware
                        else [f"{session.repository}/bench/instrument", "run"])
        self._options = [*options, *(["--daemon", daemon] if daemon else [])]
        self._runner = self._log = self._line = None

    def __enter__(self):
        os.makedirs(self.run_dir, exist_ok=True)
        self._log = open(f"{self.run_dir}/runner.log", "w+", encoding="utf-8")
        # Asked to end when the measurement is killed; it takes everything down then.
        self._runner = subprocess.Popen(["setpriv", "--pdeathsig", "TERM", *self._script, "--build", self._session.build,
                                         "--run-dir", self.run_dir, *self._options],
                                        stdin=subprocess.DEVNULL, stdout=self._log, stderr=subprocess.STDOUT)
        try:
            self._wait_until_ready()
            self._line = os.open(f"{self.run_dir}/controller", os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
            tty.setraw(self._line, termios.TCSANOW)
            return self
        except BaseException:
            self.__exit__()
            raise

    def _wait_until_ready(self):
        deadline = time.monotonic() + 600  # the first start makes the package layer
        while True:
            with open(f"{self.run_dir}/runner.log", encoding="utf-8", errors="replace") as log:
                said = log.read()
            if said.endswith("ready\n"):
                return
            if self._runner.poll() is not None or time.monotonic() > deadline:
                raise Failure(f"the virtual instrument did not start: {said.strip()[-300:]}")
            time.sleep(0.05)

    def __exit__(self, *_):
        if self._line is not None:
            os.close(self._line)
        self._runner.terminate()
        try:
            self._runner.wait(30)
        except subprocess.TimeoutExpired:
            self._runner.kill()
            self._runner.wait()
        self._log.close()
        subprocess.run(["rm", "-rf", "--one-file-system", self.run_dir], check=False)

    # The controller's line

    def write(self, text):
        """Sends a command."""
        os.write(self._line, text.encode())

    def read_until(self, end, seconds=10):
        """Bytes up to and with `end`; Failure when they do not come."""
        deadline = time.monotonic() + seconds
        data = b""
        while not data.endswith(end):
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self._line], [], [], left)[0]:
                raise Failure(f"no {end!r} from the daemon within {seconds} s, only {data[-60:]!r}")
            with contextlib.suppress(BlockingIOError):
                data += os.read(self._line, 65536)
        return data

    def drop_input(self, seconds=0.0):
        """Forgets what has come, and what still comes for a while."""
        deadline = time.monotonic() + seconds
        while select.select([self._line], [], [], max(0.0, deadline - time.monotonic()))[0]:
            os.read(self._line, 65536)

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
        """Until the daemon answers after its start; what it is asked before that may be lost."""
        for _ in range(30):
            with contextlib.suppress(Failure):
                if self.ask_version(2).startswith(b"SV:"):
                    self.drop_input(0.2)
                    return
        raise Failure("the daemon does not answer")

    # Its surroundings

    def control(self, *arguments):
        """bench/instrument's own commands."""
        return run([f"{self._session.repository}/bench/instrument", *arguments, "--run-dir", self.run_dir])

    def inside(self, command):
        """The command as it runs inside the instrument."""
        return [f"{self._session.repository}/bench/instrument", "exec", "--run-dir", self.run_dir, *command]

    def at_sender(self, command):
        """The command as it runs at the other end of the cable."""
        return [f"{self._session.repository}/bench/instrument", "exec", "--run-dir", self.run_dir, "--sender", *command]

    def in_network(self, command):
        """The command with this machine's files in the instrument's network; no further process is between."""
        with open(f"{self.run_dir}/state.json", encoding="ascii") as file:
            return ["nsenter", f"--net=/proc/{json.load(file)['init']}/ns/net", *command]

    def daemon_pid(self):
        """PID on this machine."""
        return int(self.control("daemon", "pid").split()[0])

    def daemon_log(self):
        """What the daemon has printed."""
        with open(f"{self.run_dir}/daemon.log", encoding="utf-8", errors="replace") as file:
            return file.read()

    def card_file(self, name):
        """A file on the memory card as this machine sees it."""
        return f"/proc/{self.daemon_pid()}/root{CARD}/{name}"

    def address(self):
        """eth0's address; waits for it."""
        for _ in range(200):
            found = re.search(r"inet ([0-9.]+)/", run(self.in_network(["ip", "-4", "address", "show", "dev", "eth0"])))
            if found:
                return found[1]
            time.sleep(0.1)
        raise Failure("eth0 got no address")

    def stream(self, file, target, *options):
        """A stream sender at the other end of the cable, repeating the file; ends with its block."""
        return Background(self.at_sender([f"{self._session.build}/bench/sender/tessary-send", file, target, "--interface",
                                          "uplink", "--loop", *options]))


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
