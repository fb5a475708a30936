"""What the tests of this folder share."""

from __future__ import annotations

from collections.abc import Callable, Iterator

import pytest
from farend import FarEnd

import tessary


class Desk:
    """A controller and the far end of its line; `answers` by command."""

    def __init__(self) -> None:
        self.answers: dict[str, bytes | Callable[[], bytes]] = {}
        self.far = FarEnd(self._answer)
        self.controller = tessary.Controller(self.far.path, timeout=5)

    def _answer(self, text: str) -> bytes:
        answer = self.answers.get(text, b"")
        return answer if isinstance(answer, bytes) else answer()

    def close(self) -> None:
        self.controller.close()
        self.far.hang_up()


@pytest.fixture
def desk() -> Iterator[Desk]:
    """Both ends of a line."""
    made = Desk()
    yield made
    made.close()
