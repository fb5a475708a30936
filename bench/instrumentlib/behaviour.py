"""Faults on demand: how a recorded program shall behave, as small files that the command log reads at each call."""

import os
import shutil
import tempfile

from . import places
from .errors import BenchError
from .machine_root import RECORDED_PROGRAMS, STAND_INS


def _folder(init_pid, program):
    stand_ins = [os.path.basename(path) for first, others in STAND_INS.items() for path in (first, *others)]
    if program not in RECORDED_PROGRAMS and program not in stand_ins:
        raise BenchError(f"{program} is not among the recorded programs",
                         "one of: " + " ".join(sorted({*RECORDED_PROGRAMS, *stand_ins})))
    return f"/proc/{init_pid}/root/run/commandlog/behaviour", program


def give(init_pid, program, **matters):
    """Replaces the program's behaviour. `matters`: status, delay_ms, stdout, stderr, times, when; or None."""
    parent, name = _folder(init_pid, program)
    given = {matter: value for matter, value in matters.items() if value is not None}
    if not given:
        raise BenchError(f"nothing is said about how {program} shall behave",
                         f"see {places.COMMAND} behave --help; --real ends it")
    partial = tempfile.mkdtemp(prefix=".", dir=parent)
    os.chmod(partial, 0o755)
    for matter, value in given.items():
        with open(os.path.join(partial, matter), "w", encoding="utf-8") as file:
            file.write(str(value))
    clear(init_pid, program)
    os.rename(partial, os.path.join(parent, name))


def clear(init_pid, program):
    """The real program again (for a stand-in: status 0 at once)."""
    parent, name = _folder(init_pid, program)
    shutil.rmtree(os.path.join(parent, name), ignore_errors=True)
