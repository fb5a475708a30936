"""A program that runs beside: a stream sender, a command inside the instrument."""

from __future__ import annotations

import pathlib
import signal
import subprocess
from collections.abc import Sequence
from types import TracebackType
from typing import Self

from .errors import CommandFailedError

_END_SECONDS = 5.0


class Background:
    """A running program; ends with the block, with stop(), or with the program that started it (even one that is killed)."""

    def __init__(self, command: Sequence[str], log: pathlib.Path) -> None:
        """Starts it; what it says is appended to the log. Made by Instrument.start() and Instrument.send()."""
        self.command = list(command)
        self.log_path = log
        self._process = self._started()

    def _started(self) -> subprocess.Popen[bytes]:
        words = ["setpriv", "--pdeathsig", "TERM", *self.command]
        with open(self.log_path, "ab") as output:
            return subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=output, stderr=output)

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.stop()

    @property
    def pid(self) -> int:
        """PID of the program that was started, as this machine counts."""
        return self._process.pid

    @property
    def running(self) -> bool:
        """False once it has ended."""
        return self._process.poll() is None

    @property
    def output(self) -> str:
        """What it has said so far."""
        return self.log_path.read_text(encoding="utf-8", errors="replace")

    def check(self) -> None:
        """`CommandFailedError` with its last words when it has ended already."""
        if not self.running:
            raise CommandFailedError(
                f"{pathlib.Path(self.command[0]).name} ended early, with status {self._process.returncode}: "
                f"{self.output.strip()[-300:]}",
                f"all it said is in {self.log_path}",
            )

    def restart(self) -> None:
        """Ends it and starts the same anew."""
        self.stop()
        self._process = self._started()

    def wait(self, timeout: float | None = None) -> int:
        """Waits for its own end; the exit status. TimeoutError of the subprocess module when it does not come."""
        return self._process.wait(timeout)

    def stop(self, number: int = signal.SIGTERM) -> int:
        """Ends it, by this signal and, when that does not help within 5 s, by force. The exit status."""
        if self.running:
            self._process.send_signal(number)
            try:
                self._process.wait(_END_SECONDS)
            except subprocess.TimeoutExpired:
                self._process.kill()
        return self._process.wait()
