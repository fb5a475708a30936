"""Where the virtual instrument and its tools lie: in a source tree and its build, or installed from the package tessary-bench."""

from __future__ import annotations

import functools
import importlib
import os
import pathlib
import subprocess
import sys
from types import ModuleType

from . import _tessary
from .errors import NoInstrumentError, NothingError

_TREE = pathlib.Path(__file__).resolve().parents[2]
_INSTALLED_BENCH = pathlib.Path("/usr/lib/tessary-bench")


def in_tree() -> bool:
    """True when this package is used out of a source tree's build."""
    return (_TREE / "bench" / "instrument").exists()


def bench_folder() -> pathlib.Path:
    """Folder of the virtual instrument's commands. `NoInstrumentError` when it is not installed."""
    if in_tree():
        return _TREE / "bench"
    if not (_INSTALLED_BENCH / "instrument").exists():
        raise NoInstrumentError("the virtual instrument is not installed", "sudo apt install tessary-bench")
    return _INSTALLED_BENCH


def build_folder() -> pathlib.Path:
    """The build that this package belongs to; installed, the folder that has the instrument's parts."""
    return pathlib.Path(_tessary.__file__).parents[2] if in_tree() else bench_folder()


def sender_program(build: pathlib.Path) -> pathlib.Path:
    """tessary-send of a build, or the installed one."""
    built = build / "bench" / "sender" / "tessary-send"
    return built if built.exists() else pathlib.Path("/usr/bin/tessary-send")


def stream_folder() -> pathlib.Path:
    """Where make_streams() puts the demo streams."""
    if in_tree():
        return _TREE / "build" / "streams"
    cache = os.environ.get("XDG_CACHE_HOME") or os.path.expanduser("~/.cache")
    return pathlib.Path(cache) / "tessary" / "streams"


def make_streams(folder: str | os.PathLike[str] | None = None) -> pathlib.Path:
    """Makes the demo streams with ffmpeg (a minute, once) and returns their folder: demo.ts has three programs of television,
    services.ts services of all kinds, demo-t2mi.ts the same in T2-MI. `NothingError` when it fails."""
    target = pathlib.Path(folder) if folder is not None else stream_folder()
    target.mkdir(parents=True, exist_ok=True)
    command = [bench_folder() / "streams" / "make-streams", target]
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    if done.returncode:
        raise NothingError(
            f"the streams could not be made: {done.stderr.strip()[-300:]}", "apt install ffmpeg; look at the room on the disk"
        )
    return target


@functools.cache
def bench_module(name: str) -> ModuleType:
    """A module of the virtual instrument's own: its control socket, its run directory, its faults on demand."""
    folder = str(bench_folder())
    if folder not in sys.path:
        sys.path.append(folder)
    writes = sys.dont_write_bytecode
    sys.dont_write_bytecode = True  # nothing of root's in a user's checkout
    try:
        return importlib.import_module(f"instrumentlib.{name}")
    finally:
        sys.dont_write_bytecode = writes
