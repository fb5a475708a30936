"""Services of every kind, played where nothing goes wrong around the daemon: what they have must be seen and heard."""

import contextlib
import dataclasses
import json
import os
import time

from . import streams

_PATIENCE = 30.0          # seconds until a service must be seen and heard
_ADDRESS_SECONDS = 30.0
_SOUND_BYTES = 96_000     # that must be played, half a second's
_NO_SOUND_BYTES = 100     # a file's header


class Missing(Exception):
    """A service is not seen or heard as it should be, or seen or heard as it should not."""


@dataclasses.dataclass(frozen=True)
class Service:
    """A program of services.ts."""

    number: int
    name: str
    picture: bool = False
    sound: bool = False


SERVICES = [
    Service(1, "television", picture=True, sound=True),
    Service(2, "radio, layer 2", sound=True),
    Service(3, "radio, AAC", sound=True),
    Service(4, "radio, AC-3", sound=True),
    Service(5, "radio, E-AC-3", sound=True),
    Service(6, "picture only", picture=True),
    Service(7, "picture, sound in AC-4", picture=True),
]


class Growth:
    """How far a figure has grown since the lowest that was seen: both begin anew when display and sound card are opened."""

    def __init__(self, read):
        self._read = read
        self._lowest = read()
        self.amount = 0

    def update(self):
        """Reads it; returns the growth."""
        latest = self._read()
        self._lowest = min(self._lowest, latest)
        self.amount = latest - self._lowest
        return self.amount


class FrameCount:
    """The pictures that the virtual instrument's display has shown, as it reports them."""

    wanted = 25  # a second's
    exact = True

    def __init__(self, path):
        self._path = path

    def __call__(self):
        with contextlib.suppress(OSError, ValueError):  # not there yet
            with open(self._path, encoding="ascii") as file:
                return json.load(file)["frames"]
        return 0


class ScreenChanges:
    """The changes of a booted instrument's screen, of which a copy is made each second. When a service ends, the screen goes back
    to the console and the sound card plays what it still has: such a change says nothing about the next service."""

    wanted = 5
    exact = False

    def __init__(self, path):
        self._path = path
        self._last, self._count = None, 0

    def __call__(self):
        with contextlib.suppress(OSError):
            with open(self._path, "rb") as file:
                shown = hash(file.read())
            self._count += shown != self._last
            self._last = shown
        return self._count


class Watch:
    """The display and the loudspeaker, from the moment when a service was chosen. `display` counts pictures."""

    def __init__(self, display, sound_file):
        self._display = display
        self._pictures = Growth(display)
        self._sound = Growth(lambda: _size(sound_file))

    def find(self, service):
        """What is still missing of the service, "" when all of it is there. Missing when there is what it has not."""
        pictures, sound = self._pictures.update(), self._sound.update()
        exact = self._display.exact
        if pictures and exact and not service.picture:
            raise Missing(f"{pictures} pictures are shown of a service without picture ({service.name})")
        if sound > _NO_SOUND_BYTES and exact and not service.sound:
            raise Missing(f"{sound} bytes of sound are played of a service without ({service.name})")
        missing = []
        if service.picture and pictures < self._display.wanted:
            missing.append(f"picture ({pictures} shown)")
        if service.sound and sound < _SOUND_BYTES:
            missing.append(f"sound ({sound} bytes played)")
        return " and ".join(missing)


def play_some(soak):
    """Puts everything right, then plays some services in any order on one source, scanned once. Draws as many random numbers,
    whatever the daemon does."""
    stream = soak.random.choice([stream for stream in streams.STREAMS if stream.file == "services.ts"])
    chosen = soak.random.sample(SERVICES, soak.random.randint(3, len(SERVICES)))
    soak.stop_everything()
    _await_address(soak)
    soak.tune(stream)
    soak.say(f"server={stream.server}")
    soak.say("scancur")
    for service in chosen:
        soak.say(f"play={service.number}")
        _await(soak, service)
        soak.figures.services[service.name] += 1


def _await(soak, service):
    watch = soak.unit.watch_service()
    deadline = time.monotonic() + soak.options.patience * _PATIENCE
    while missing := watch.find(service):
        if time.monotonic() > deadline:
            raise Missing(f"program {service.number} of services.ts ({service.name}) plays without {missing}")
        soak.sleep(0.2)


def _await_address(soak):
    """Without one no group can be joined. What broke it may have outlived the fault, so the controller sets it once more."""
    for _ in range(2):
        deadline = time.monotonic() + soak.options.patience * _ADDRESS_SECONDS
        while time.monotonic() < deadline:
            if soak.unit.current_address():
                return
            soak.sleep(0.5)
        soak.say("interface=dhcp", 90.0)
    raise Missing("the instrument has no address although nothing is wrong any more")


def _size(path):
    with contextlib.suppress(OSError):
        return os.path.getsize(path)
    return 0
