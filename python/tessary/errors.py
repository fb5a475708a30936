"""What can go wrong. Each error says why (`cause`) and what to do (`remedy`), and `kind` is the word that `tessaryctl --json`
has for the same."""

from __future__ import annotations

__all__ = [
    "BadAnswerError",
    "CommandFailedError",
    "HungUpError",
    "NoInstrumentError",
    "NoLinkError",
    "NothingError",
    "TessaryError",
    "TimedOutError",
    "UpdateError",
    "UsageError",
]

_HOW_TO_START = (
    "plug in the serial adapter and name it (port=\"/dev/ttyUSB0\", or TESSARY_PORT in the environment), "
    "or start a virtual instrument: tessary.Instrument()"
)


class TessaryError(Exception):
    """Base of all errors of this package. As text: cause and remedy."""

    kind = "internal"

    def __init__(self, cause: str, remedy: str = "") -> None:
        super().__init__(cause, remedy)
        self.cause = cause
        self.remedy = remedy

    def __str__(self) -> str:
        return f"{self.cause}; {self.remedy}" if self.remedy else self.cause


class UsageError(TessaryError, ValueError):
    """An argument that can not be taken as it stands; nothing was sent."""

    kind = "usage"


class NoInstrumentError(TessaryError, OSError):
    """The port can not be opened: no such port, no permission, another program has it, or a virtual instrument that did not
    start."""

    kind = "no-instrument"

    def __init__(self, cause: str, remedy: str = "") -> None:
        super().__init__(cause, _HOW_TO_START if "No such" in cause else remedy)


class TimedOutError(TessaryError, TimeoutError):
    """No answer in time."""

    kind = "timed-out"


class HungUpError(TessaryError, ConnectionError):
    """The far end of the line is gone (adapter unplugged, virtual instrument ended), or the line is closed."""

    kind = "hung-up"


class NothingError(TessaryError, LookupError):
    """The instrument answers, but has nothing of what was asked for."""

    kind = "nothing"


class NoLinkError(TessaryError):
    """The instrument's Ethernet has no link."""

    kind = "no-link"

    def __init__(
        self,
        cause: str = "the instrument's Ethernet is not connected",
        remedy: str = "plug the cable in (virtual instrument: Instrument.link(True))",
    ) -> None:
        super().__init__(cause, remedy)


class BadAnswerError(TessaryError):
    """An answer that is damaged or not what the protocol says."""

    kind = "bad-answer"


class CommandFailedError(TessaryError):
    """A program ended with an error: one inside a virtual instrument, or one of its senders."""

    kind = "command-failed"


class UpdateError(TessaryError):
    """A software update that was not carried out; `kind` says at which point it ended: "update-not-started",
    "update-refused", "update-bytes-lost", "update-restarted", "update-unconfirmed"."""

    def __init__(self, kind: str, cause: str, remedy: str = "") -> None:
        super().__init__(cause, remedy)
        self.kind = kind
