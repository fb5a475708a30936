"""Programs that are measured, and programs that help."""

import contextlib
import json
import os
import select
import signal
import subprocess
import time

from .session import Failure

# A helper must not outlive a measurement that was killed.
END_WITH_THIS = ["setpriv", "--pdeathsig", "KILL"]


def run(command, seconds=60, **more):
    """Runs to the end; Failure with the program's last words when it fails. Returns what it printed."""
    try:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              errors="replace", timeout=seconds, check=False, **more)
    except subprocess.TimeoutExpired as error:
        raise Failure(f"{name_of(command)} has not ended within {seconds} s") from error
    if done.returncode:
        raise Failure(f"{name_of(command)} ended with status {done.returncode}: {last_words(done.stderr or done.stdout)}")
    return done.stdout


def run_json(command, seconds=60):
    """The JSON of a program's last line."""
    lines = run(command, seconds).strip().splitlines()
    if not lines:
        raise Failure(f"{name_of(command)} printed nothing")
    return json.loads(lines[-1])


def name_of(command):
    """The program's own name, whatever runs it."""
    for word in command:
        if word.startswith("-") or "=" in word or os.path.basename(word) in ("nsenter", "setpriv", "exec", "instrument"):
            continue
        if word in ("KILL", "TERM"):
            continue
        return os.path.basename(word)
    return command[0]


def last_words(text):
    """The last line that says something, shortened."""
    lines = [line.strip() for line in text.splitlines() if line.strip()]
    return lines[-1][:200] if lines else "it said nothing"


class Program:
    """A program that is started, waited for until it is ready, ended, and whose processor time is known then."""

    def __init__(self, command, ready=None, environment=None, seconds=20):
        """`ready` is a text on its output after which it works; both outputs are kept together."""
        self.command, self.output = command, ""
        self._process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                         env=environment)
        os.set_blocking(self._process.stdout.fileno(), False)
        try:
            if ready:
                self.wait_for(ready, seconds)
        except Failure:
            self.kill()
            raise

    @property
    def pid(self):
        """PID of what was started (the program itself, when nsenter started it)."""
        return self._process.pid

    def wait_for(self, text, seconds):
        """Until the text has been printed; Failure when the program ends or the time is over."""
        deadline = time.monotonic() + seconds
        while text not in self.output:
            if self._read(0.05):
                continue
            if time.monotonic() > deadline:
                raise Failure(f"{name_of(self.command)} was not ready within {seconds} s: {last_words(self.output)}")

    def _read(self, seconds):
        """Reads what there is; True when something came. Failure at the end of the output."""
        if not select.select([self._process.stdout], [], [], seconds)[0]:
            return False
        data = os.read(self._process.stdout.fileno(), 65536)
        if not data:
            raise Failure(f"{name_of(self.command)} ended early: {last_words(self.output)}")
        self.output += data.decode(errors="replace")
        return True

    def end(self, number=None, seconds=60):
        """Ends it by the end of its input, or by a signal; returns its processor seconds, children included."""
        if number is not None:
            os.kill(self.pid, number)
        with contextlib.suppress(OSError):
            self._process.stdin.close()
        deadline = time.monotonic() + seconds
        while True:
            with contextlib.suppress(Failure):
                self._read(0.01)
            pid, status, usage = os.wait4(self.pid, os.WNOHANG)
            if pid:
                break
            if time.monotonic() > deadline:
                self.kill()
                raise Failure(f"{name_of(self.command)} has not ended within {seconds} s")
        self._process.returncode = os.waitstatus_to_exitcode(status)
        with contextlib.suppress(Failure):
            while self._read(0):
                pass
        self._process.stdout.close()
        return usage.ru_utime + usage.ru_stime

    def kill(self):
        """Ends it at once."""
        with contextlib.suppress(ProcessLookupError):
            self._process.kill()
        self._process.wait()

    def last_json(self):
        """The JSON of its last line."""
        lines = self.output.strip().splitlines()
        if not lines or not lines[-1].startswith("{"):
            raise Failure(f"{name_of(self.command)}: {last_words(self.output)}")
        return json.loads(lines[-1])


class Background:
    """A helper that runs beside the measurement, such as a stream sender; ends with the block."""

    def __init__(self, command):
        self._command = command
        self._process = None

    def __enter__(self):
        self._process = subprocess.Popen([*END_WITH_THIS, *self._command], stdin=subprocess.DEVNULL,
                                         stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, errors="replace")
        return self

    def check(self):
        """Failure when it has ended already."""
        if self._process.poll() is not None:
            raise Failure(f"{name_of(self._command)} ended early: {last_words(self._process.stderr.read())}")

    @property
    def pid(self):
        """Its PID."""
        return self._process.pid

    def __exit__(self, *_):
        self._process.terminate()
        try:
            self._process.wait(5)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._process.stderr.close()


def processor_seconds(pid):
    """Processor time of all threads of a process so far; those that have ended are left out."""
    total = 0
    for thread in os.listdir(f"/proc/{pid}/task"):
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):
            with open(f"/proc/{pid}/task/{thread}/schedstat", encoding="ascii") as file:
                total += int(file.read().split()[0])
    return total / 1e9


def process_seconds(pid):
    """Processor time of a process so far with that of threads which have ended, in the kernel's ticks of 10 ms."""
    with open(f"/proc/{pid}/stat", encoding="ascii") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def resident_kib(pid):
    """What a process has in memory."""
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmRSS"))


INTERRUPT = signal.SIGINT
