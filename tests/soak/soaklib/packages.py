"""Software packages for the update command: whole ones, and every way in which a transfer goes wrong."""

import dataclasses
import os
import subprocess

from streamlib import packets

from .unit import REPOSITORY

_MAKER = os.path.join(REPOSITORY, "bench", "counterparts", "make-package")


@dataclasses.dataclass
class Package:
    """What is sent after the prompt. `ok` tells whether "update ok" must come, `gap` that the sending stops half-way."""

    kind: str
    size: int
    image: bytes
    crc: bytes
    ok: bool
    seconds: float
    gap: bool = False


class Packages:
    """One real package, and what can be made of it."""

    def __init__(self, folder, seed):
        path = os.path.join(folder, "update.deb")
        subprocess.run([_MAKER, "--bytes", "3000", "--seed", str(seed), path], check=True)
        with open(path, "rb") as file:
            self._real = file.read()

    def choose(self, random):
        """One transfer."""
        real = self._real
        kind = random.choices(["real", "damaged", "noise", "wrong crc", "no crc", "gap", "negative size"],
                              [4, 2, 2, 3, 1, 0.5, 1])[0]
        if kind == "real":
            return Package(kind, len(real), real, _crc_bytes(real), True, 60)
        if kind == "damaged":  # the CRC fits, the package manager has to refuse it
            image = bytearray(real)
            for _ in range(20):
                image[random.randrange(len(image))] ^= 1 << random.randrange(8)
            return Package(kind, len(image), bytes(image), _crc_bytes(image), True, 60)
        if kind == "noise":
            image = random.randbytes(random.randint(1, 5000))
            return Package(kind, len(image), image, _crc_bytes(image), True, 60)
        if kind == "wrong crc":
            return Package(kind, len(real), real, bytes(byte ^ 0x55 for byte in _crc_bytes(real)), False, 5)
        if kind == "no crc":
            return Package(kind, len(real), real, b"", False, 15)
        if kind == "gap":
            return Package(kind, len(real), real[:random.randrange(1, len(real))], b"", False, 25, gap=True)
        return Package(kind, -random.randint(1, 100000), b"", b"", False, 5)


def _crc_bytes(image):
    return packets.crc32(image).to_bytes(4, "little")
