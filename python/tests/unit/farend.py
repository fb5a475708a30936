"""The far end of a line: reads bursts and parts them as the instrument does, and answers what the test says."""

from __future__ import annotations

import os
import pty
import select
import threading
import tty
from collections.abc import Callable

_BURST_SECONDS = 0.1


class FarEnd:
    """`answer(text)` is called with each command, without line feed; what it returns is sent. The names of services are made
    here, as the instrument makes them."""

    def __init__(self, answer: Callable[[str], bytes]) -> None:
        self._answer = answer
        self._far, self._near = pty.openpty()
        tty.setraw(self._near)
        self.path = os.ttyname(self._near)
        self.heard: list[str] = []
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def __enter__(self) -> FarEnd:
        return self

    def __exit__(self, *_: object) -> None:
        self.hang_up()

    def hang_up(self) -> None:
        """As unplugging the adapter does."""
        if not self._stop.is_set():
            self._stop.set()
            self._thread.join()
            os.close(self._near)
            os.close(self._far)

    def say(self, text: bytes) -> None:
        """Sends something unasked."""
        os.write(self._far, text)

    def _run(self) -> None:
        while not self._stop.is_set():
            burst = self._collect(0.02)
            while burst and not burst.endswith(b"\n") and (more := self._collect(_BURST_SECONDS)):
                burst += more
            for text in burst.split(b"\0"):
                self._carry_out(text.partition(b"\n")[0].decode())

    def _collect(self, seconds: float) -> bytes:
        return os.read(self._far, 640) if select.select([self._far], [], [], seconds)[0] else b""

    def _carry_out(self, text: str) -> None:
        if text.startswith("!0C_L_IX:"):
            self.say(b"Service%d" % int(text[9:11], 16))
        elif text.strip():
            self.heard.append(text)
            self.say(self._answer(text))
