"""The virtual instrument: started, steered, looked into and stopped."""

from __future__ import annotations

import contextlib
import dataclasses
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import time
import typing
from collections.abc import Iterable, Mapping, Sequence
from types import TracebackType
from typing import Self

from . import places
from .background import Background
from .controller import Controller
from .errors import CommandFailedError, NoInstrumentError, NothingError, UsageError

__all__ = ["Background", "Behaviour", "Instrument", "NotedCommand", "Stream"]

DEFAULT_SERVER = "udp://239.0.0.1:1234"

_START_SECONDS = 1800.0  # the first start on a machine makes the instrument's package layer
_MACHINE_START_SECONDS = 4 * 3600.0  # or a machine's disk, which a foreign processor, emulated, installs itself
_STOP_SECONDS = 300.0  # a machine whose disk stays shuts down first
_LOGS = ("daemon", "line", "console", "commands", "services", "boot", "journal", "runner")
_KNOBS_INSIDE = "/run/fpga/knobs"  # of a booted instrument, whose FPGA is beside the daemon
_Path = typing.Union[str, "os.PathLike[str]"]


@dataclasses.dataclass(frozen=True)
class Behaviour:
    """How a program that the daemon runs shall behave, instead of really running."""

    status: int | None = None
    """Exit status; with None the real program runs, after the delay."""
    delay: float | None = None
    """Seconds to wait first."""
    stdout: str | None = None
    stderr: str | None = None
    times: int | None = None
    """Only the next so many calls."""
    when: str | None = None
    """Only calls with this argument."""


class NotedCommand(typing.NamedTuple):
    """A program that was run inside, as the command log noted it at its start."""

    argv: list[str]
    """With its name in front."""
    kind: str
    """"shell" of a text for /bin/sh, otherwise how the program stands in the log."""
    by_daemon: bool
    """The daemon ran it, or a program that the daemon ran."""
    time: float
    """Seconds since 1970."""


class Stream(typing.NamedTuple):
    """What is on the instrument's Ethernet: the pytest fixture `stream`."""

    url: str
    """The stream server that receives it."""
    file: pathlib.Path | None
    """What is sent; None with a real instrument."""
    sender: Background | None
    """None with a real instrument."""


class Instrument:
    """A virtual instrument: the daemon as it ships in a machine of its own, with Ethernet, display, sound, memory card.

    As a context manager it is started and stopped; nothing of it is left behind, also when this program is killed. Needs root.
    Start it from the main thread: it ends with the thread that started it.
    """

    def __init__(
        self,
        *,
        hardware: bool = False,
        knobs: Mapping[str, int] | None = None,
        bitfile: _Path | None = None,
        card: str = "256M",
        files: Mapping[str, _Path] | None = None,
        binds: Mapping[str, _Path] | None = None,
        build: _Path | None = None,
        daemon: _Path | None = None,
        start_daemon: bool = True,
        daemon_environment: Mapping[str, str] | None = None,
        machine: str | None = None,
        options: Sequence[str] = (),
        run_dir: _Path | None = None,
    ) -> None:
        """Nothing is started yet.

        hardware: with the counterparts of FPGA and DAB receiver, which a booted instrument always has; knobs and bitfile are the
        FPGA's.
        card: size of the memory card; "0" for none.
        files: {path inside: file of this machine} to copy in; binds: the same to show inside.
        build: folder of another build than this package's own; daemon: another daemon than the build's.
        machine: "amd64" or "arm64" for a booted instrument with the packages of build/packages, instead of the virtual one.
        options: further ones of `bench/instrument run`.
        run_dir: where logs and shared files lie; kept then. Otherwise a folder in /run that is gone in the end.
        """
        if (knobs or bitfile) and not hardware:
            raise UsageError("knobs and bitfile are the FPGA's", "give hardware=True, too")
        if (knobs or bitfile) and machine:
            raise UsageError("a booted instrument takes no knobs or bitfile at its start", "set_knobs() when it runs")
        self.build = pathlib.Path(build).resolve() if build is not None else places.build_folder()
        self._hardware = hardware and not machine
        self._given_run_dir = pathlib.Path(run_dir).resolve() if run_dir is not None else None
        self._options = _options_of(self.build, card, daemon, files, binds, daemon_environment)
        self._options += [f"--knob={name}={value}" for name, value in (knobs or {}).items()]
        self._options += ["--bitfile", os.fspath(bitfile)] if bitfile is not None else []
        self._options += [*([] if start_daemon else ["--no-daemon"]), *(["--machine", machine] if machine else []), *options]
        self._process: subprocess.Popen[bytes] | None = None
        self._run_dir: pathlib.Path | None = None
        self._state: dict[str, int] = {}
        self._helpers: list[Background] = []
        self._helpers_started = 0
        self._misbehaving: set[str] = set()
        self.server = DEFAULT_SERVER
        """URL of the stream that was sent last."""

    def __enter__(self) -> Self:
        self.start()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.stop()

    def __repr__(self) -> str:
        return f"<tessary.Instrument in {self._run_dir}>" if self.running else "<tessary.Instrument, not started>"

    # --- start and stop ---

    @property
    def running(self) -> bool:
        """True between start and stop, unless it was ended from outside."""
        return self._process is not None and self._process.poll() is None

    def start(self, timeout: float | None = None) -> None:
        """Returns when the instrument is there; its daemon may still be starting (controller() waits for it). The first start on
        a machine makes the instrument's package layer. `NoInstrumentError` with its last words when it does not come."""
        if os.geteuid() != 0:
            raise NoInstrumentError(
                "the virtual instrument needs root: it makes namespaces, mounts and network devices", "run it with sudo"
            )
        if self.running:
            raise UsageError("the instrument runs already", "stop() it first, or make another Instrument")
        self._run_dir = self._given_run_dir or pathlib.Path(tempfile.mkdtemp(prefix="tessary-", dir="/run"))
        self._run_dir.mkdir(parents=True, exist_ok=True)
        own = [] if self._given_run_dir else ["--remove-orphaned"]
        script = places.bench_folder() / ("hardware" if self._hardware else "instrument")
        command = [str(script), *([] if self._hardware else ["run"]), "--run-dir", str(self._run_dir), *own]
        command += self._options
        with open(self.log_path("runner"), "wb") as log:
            self._process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "TERM", *command],
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=subprocess.STDOUT,
                start_new_session=True,  # a Ctrl-C is this program's, which then stops it
            )
        try:
            self._await_ready(timeout or (_MACHINE_START_SECONDS if "--machine" in self._options else _START_SECONDS))
        except BaseException:
            self.stop()
            raise

    def _await_ready(self, timeout: float) -> None:
        assert self._process is not None
        deadline = time.monotonic() + timeout
        while not self.log("runner").endswith("ready\n"):
            if self._process.poll() is not None:
                raise NoInstrumentError(f"the virtual instrument did not start: {self.log('runner').strip()[-600:]}")
            if time.monotonic() > deadline:
                raise NoInstrumentError(f"the virtual instrument was not there within {timeout:g} s")
            time.sleep(0.02)
        self._state = json.loads((self.run_dir / "state.json").read_text(encoding="ascii"))

    def stop(self) -> None:
        """Ends it and everything in it; nothing happens when it does not run. Of a `run_dir` that was given the logs stay."""
        for helper in self._helpers:
            helper.stop()
        self._helpers.clear()
        if self._process is not None:
            self._process.terminate()
            try:
                self._process.wait(_STOP_SECONDS)
            except subprocess.TimeoutExpired:
                self._process.kill()
                self._process.wait()
            self._process = None
        if self._given_run_dir is None and self._run_dir is not None:
            shutil.rmtree(self._run_dir, ignore_errors=True)
            self._run_dir = None

    # --- where things are ---

    @property
    def run_dir(self) -> pathlib.Path:
        """Its run directory, with the ports, logs and shared files."""
        if self._run_dir is None:
            raise NoInstrumentError("the virtual instrument does not run", "start() it, or use it in a with statement")
        return self._run_dir

    @property
    def port(self) -> str:
        """The controller's end of the serial line."""
        return str(self.run_dir / "controller")

    def shared(self, name: str) -> pathlib.Path:
        """A file that both see: /run/bench/NAME inside. The display shows display.ppm (and display.json), the loudspeaker plays
        sound.wav, fpga-in.ts is the FPGA's stream."""
        return self.run_dir / "io" / name

    def inside(self, path: str) -> pathlib.Path:
        """The file at this absolute path inside, as this machine sees it; of a virtual instrument only."""
        if "init" not in self._state:
            raise UsageError("a booted instrument's files are seen inside only", 'run("cat", PATH) shows one')
        return pathlib.Path(f"/proc/{self._state['init']}/root") / path.lstrip("/")

    def log_path(self, name: str) -> pathlib.Path:
        """Path of a log: "daemon", "line", "console", "commands", "services" or "runner" (the instrument's own words), and "boot"
        and "journal" of a booted one."""
        if name not in _LOGS:
            raise UsageError(f"there is no log {name!r}", f"there are: {', '.join(_LOGS)}")
        return self.run_dir / f"{name}.log"

    def log(self, name: str) -> str:
        """The text of a log; "" while there is none."""
        with contextlib.suppress(FileNotFoundError):
            return self.log_path(name).read_text(encoding="utf-8", errors="replace")
        return ""

    def save_logs(self, folder: _Path) -> None:
        """Copies all logs into a folder."""
        os.makedirs(folder, exist_ok=True)
        for name in _LOGS:
            with contextlib.suppress(FileNotFoundError):
                shutil.copy(self.log_path(name), folder)

    # --- the controller, the daemon ---

    def controller(self, *, timeout: float = 10.0, wait: float = 60.0) -> Controller:
        """A controller on its line, once the daemon answers; `TimedOutError` when it does not within `wait` seconds."""
        controller = Controller(self.port, timeout=timeout)
        try:
            controller.wait_until_ready(wait)
        except BaseException:
            controller.close()
            raise
        return controller

    def daemon_pid(self) -> int:
        """PID of the daemon as this machine counts; 0 while it does not run."""
        try:
            return int(typing.cast(int, self._control("daemon pid")["pid"]))
        except NothingError:
            return 0

    def daemon_end(self) -> str:
        """How the daemon is, or ended, in words."""
        return str(self._control("status")["daemon"])

    def wait_for_daemon_end(self) -> str:
        """Waits until the daemon ends; how, in words."""
        return str(self._control("daemon wait")["end"])

    def start_daemon(self) -> None:
        """Starts the daemon, as the unit's init does."""
        self._control("daemon start")

    def stop_daemon(self) -> None:
        """Ends the daemon as a shutdown does (SIGTERM)."""
        self._control("daemon stop")

    def kill_daemon(self) -> None:
        """Ends the daemon as a power cut does (SIGKILL)."""
        self._control("daemon kill")

    def power(self, what: str) -> None:
        """Switches a booted instrument "on" (and waits for the boot's end), "off" as its power key does, or cuts its power:
        "cut"."""
        self._control("power", what=what)

    def card(self, what: str) -> None:
        """Puts a booted instrument's memory card "in", or pulls it: "out"."""
        self._control("card slot", what=what)

    def send_break(self) -> None:
        """Sends a break on a booted instrument's serial line, from the controller's end."""
        self._control("break")

    # --- faults ---

    def link(self, up: bool) -> None:
        """Plugs the Ethernet cable in or out."""
        self._control("link", up=up)

    def behave(self, program: str, behaviour: Behaviour | None) -> None:
        """Lets a program that the daemon runs (nmcli, smcroute, ping, ...) fail, stall or say something; None: the real one
        again. `UsageError` for one that is not recorded."""
        module = places.bench_module("behaviour")
        error = places.bench_module("errors").BenchError
        try:
            if behaviour is None:
                module.clear(self._state["init"], program)
                return
            matters: dict[str, object] = dataclasses.asdict(behaviour)
            delay = matters.pop("delay")
            matters["delay_ms"] = None if delay is None else round(1000 * typing.cast(float, delay))
            module.give(self._state["init"], program, **matters)
            self._misbehaving.add(program)
        except error as refused:
            raise UsageError(*_told_by(refused)) from refused

    def put_right(self) -> None:
        """Ends all faults and senders: the cable is in, every program is the real one, the daemon runs and answers, and the command
        log is empty. Knobs of the FPGA stay. No controller may be open."""
        for helper in self._helpers:
            helper.stop()
        self._helpers.clear()
        self.link(True)
        for program in self._misbehaving:
            self.behave(program, None)
        self._misbehaving.clear()
        if not self.daemon_pid():
            self.start_daemon()
        self.controller().close()
        self.forget_commands()

    def set_knobs(self, **knobs: int) -> None:
        """Turns knobs of the FPGA's counterpart (docs/bench.md), with `_` for `-`: set_knobs(export_rate=100000, configured=0)."""
        if not self._hardware and "machine" not in self._state:
            raise UsageError("this instrument has no FPGA", "make it with hardware=True")
        text = "".join(f"{name.replace('_', '-')}={value}\n" for name, value in knobs.items())
        try:
            if "machine" in self._state:
                self.run("sh", "-c", f'printf %s "$0" >{_KNOBS_INSIDE}', text)
            else:
                (self.run_dir / "fpga" / "knobs").write_text(text, encoding="ascii")
        except (OSError, CommandFailedError) as refused:
            raise UsageError(f"the FPGA refused {text.strip()!r}", "docs/bench.md lists its knobs") from refused

    def knobs(self) -> dict[str, int]:
        """The FPGA's knobs as they stand."""
        if "machine" in self._state:
            text = self.run("cat", _KNOBS_INSIDE)
        else:
            text = (self.run_dir / "fpga" / "knobs").read_text(encoding="ascii")
        pairs = (line.partition("=") for line in text.splitlines() if "=" in line)
        return {name: int(value) for name, _, value in pairs}

    # --- what the daemon did ---

    def commands(self, program: str | None = None) -> list[NotedCommand]:
        """The programs that were run inside, in order; those of one name when given."""
        noted = []
        for line in self.log("commands").splitlines():
            with contextlib.suppress(ValueError):  # a line that is being written
                record = json.loads(line)
                argv = [str(word) for word in record["argv"]]
                if program is None or os.path.basename(argv[0]) == program:
                    noted.append(NotedCommand(argv, record["kind"], record["by_daemon"], record["wall"]))
        return noted

    def forget_commands(self) -> None:
        """Empties the command log."""
        os.truncate(self.log_path("commands"), 0)

    # --- programs beside it ---

    def send(
        self,
        stream: _Path,
        url: str = DEFAULT_SERVER,
        *options: str,
        loop: bool = True,
        bitrate: str | None = None,
        log: _Path | None = None,
    ) -> Background:
        """Sends a stream (a file, or the name of one of make_streams()) to the instrument, again and again with `loop`, until
        the block ends or stop(). `options` are those of tessary-send, such as "--cc-errors-per-second", "3"."""
        command = [str(places.sender_program(self.build)), str(_stream_file(stream)), url.partition("?")[0].replace("+t2mi", "")]
        command += ["--interface", "uplink", *(["--loop"] if loop else [])]
        command += [*(["--bitrate", bitrate] if bitrate else []), *options]
        self.server = url
        return self.start_program(command, sender=True, log=log)

    def command_line(self, command: Iterable[_Path], *, sender: bool = False) -> list[str]:
        """The words that run a command inside; with `sender` at the other end of the Ethernet cable, with this machine's files."""
        where = ["--sender"] if sender else []
        enter = [str(places.bench_folder() / "instrument"), "exec", "--run-dir", str(self.run_dir), *where]
        return enter + [os.fspath(word) for word in command]

    def start_program(self, command: Iterable[_Path], *, sender: bool = False, log: _Path | None = None) -> Background:
        """Starts a command inside, or at the sender's end; ends with the instrument at the latest."""
        words = self.command_line(command, sender=sender)
        self._helpers_started += 1
        path = pathlib.Path(log) if log is not None else self.run_dir / f"program-{self._helpers_started}.log"
        helper = Background(words, path)
        self._helpers = [other for other in self._helpers if other.running] + [helper]
        return helper

    def run(self, *command: _Path, sender: bool = False, timeout: float = 60.0) -> str:
        """Runs a command inside (or at the sender's end) to its end and returns what it printed. `CommandFailedError`."""
        words = self.command_line(command, sender=sender)
        done = subprocess.run(
            words, stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace", timeout=timeout, check=False
        )
        if done.returncode:
            raise CommandFailedError(
                f"{os.fspath(command[0])} ended with status {done.returncode}: {(done.stderr or done.stdout).strip()[-300:]}"
            )
        return done.stdout

    def address(self, *, wait: float = 20.0) -> str:
        """The IPv4 address of eth0, once it has one. `NothingError` when it gets none."""
        deadline = time.monotonic() + wait
        while True:
            words = str(self._control("status")["eth0"]).split()
            for word in words[2:]:
                if word.count(".") == 3:
                    return word.partition("/")[0]
            if time.monotonic() >= deadline:
                raise NothingError(f"eth0 got no address within {wait:g} s", "is the link up, and does DHCP work?")
            time.sleep(0.1)

    @staticmethod
    def sender_address() -> str:
        """The address of the other end of the Ethernet cable, where streams come from."""
        return str(places.bench_module("network").SENDER_ADDRESS)

    def pid_of_first_process(self) -> int:
        """PID, as this machine counts, of the first process inside: its namespaces are the instrument's."""
        return self._state["init"]

    def _control(self, action: str, **more: object) -> dict[str, object]:
        module = places.bench_module("control")
        error = places.bench_module("errors").BenchError
        try:
            question: dict[str, object] = {"action": action, **more}
            reply: dict[str, object] = module.ask(str(self.run_dir / "control"), question)
            return reply
        except error as refused:
            kind = NothingError if self.running else NoInstrumentError
            raise kind(*_told_by(refused)) from refused


def _told_by(error: Exception) -> tuple[str, str]:
    """Cause and remedy of an error of the virtual instrument's."""
    return str(error.args[0]), str(getattr(error, "remedy", None) or "")


def _options_of(
    build: pathlib.Path,
    card: str,
    daemon: _Path | None,
    files: Mapping[str, _Path] | None,
    binds: Mapping[str, _Path] | None,
    environment: Mapping[str, str] | None,
) -> list[str]:
    options = ["--build", str(build), "--card", card]
    options += ["--daemon", os.fspath(daemon)] if daemon is not None else []
    for option, pairs in (("--file", files), ("--bind", binds)):
        for target, source in (pairs or {}).items():
            options += [option, f"{os.fspath(source)}={target}"]
    for name, value in (environment or {}).items():
        options += ["--daemon-env", f"{name}={value}"]
    return options


def _stream_file(stream: _Path) -> pathlib.Path:
    path = pathlib.Path(stream)
    if path.exists() or path.parent != pathlib.Path("."):
        found = path
    else:
        found = places.stream_folder() / path
    if not found.exists():
        raise UsageError(f"there is no stream {found}", "tessary.make_streams() makes the demo streams")
    return found.resolve()


