"""The memory card of the booted instrument: an image with one partition, as a card has it."""

import os
import re
import subprocess

from .errors import BenchError

_START = 1 << 20  # of the partition, where tools put it
_UNITS = {"": 1, "K": 1 << 10, "M": 1 << 20, "G": 1 << 30}


def size_in_bytes(text):
    """The size that `--card` names, as for a tmpfs: digits with K, M or G."""
    match = re.fullmatch(r"([0-9]+)([KMG]?)", text.upper())
    if not match:
        raise BenchError(f"--card {text}: expected a size such as 256M")
    return int(match[1]) * _UNITS[match[2]]


def make(path, text):
    """Makes the image; its file system has this size, and the card the next power of two, for SD cards come so."""
    size = size_in_bytes(text)
    if size < _START:
        raise BenchError(f"--card {text}: a card has 1M or more")
    with open(path, "wb") as image:
        image.truncate(1 << (size + _START - 1).bit_length())
    _run(["sfdisk", "--quiet", path], f"start={_START // 512}, size={size // 512}, type=83\n")
    _run(["mke2fs", "-q", "-t", "ext4", "-L", "card", "-E", f"offset={_START},root_owner=0:0", path, f"{size >> 10}k"])


def _run(command, stdin=None):
    done = subprocess.run(command, input=stdin, text=True, capture_output=True, check=False)
    if done.returncode:
        raise BenchError(f"the memory card can not be made: {' '.join(command)}: {done.stderr.strip()}",
                         f"is there room for {os.path.dirname(command[-1]) or 'it'}?")
