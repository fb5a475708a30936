"""GStreamer's registry of plug-ins, made once for each set of platform elements and kept beside the package layer.

Without it every start of the daemon would examine some hundred plug-ins anew, for the machine forgets all at its end.
It matters twice for builds with a sanitizer: GStreamer examines plug-ins in a helper program, which can not load a
plug-in with a sanitizer unless that sanitizer's library is preloaded.
"""

import contextlib
import hashlib
import os
import re
import shutil

from .errors import BenchError
from .machine_root import EMULATOR, EXAMINER

_INSIDE = "/root/.cache/gstreamer-1.0"
_KEPT = 6  # of the newest; one for each build that is in use
_TIMEOUT = 120
_EXAMINE = ("import ctypes, sys\n"
            "gst = ctypes.CDLL('libgstreamer-1.0.so.0')\n"
            "gst.gst_init(None, None)\n"
            "gst.gst_element_factory_find.restype = ctypes.c_void_p\n"
            "sys.exit(0 if gst.gst_element_factory_find(b'pciesrc') else 'the platform elements were not loaded')\n")


def provide(machine, settings, log):
    """Gives the machine a registry that fits its plug-ins; makes it when there is none yet."""
    plugin = os.path.join(settings.elements, "libgstinstrument.so")
    cached = os.path.join(os.path.dirname(settings.layer), f"registry-{_key(settings.layer, plugin)}")
    inside = f"/proc/{machine.init_pid}/root{_INSIDE}"
    if os.path.isdir(cached):
        shutil.copytree(cached, inside, dirs_exist_ok=True)
        return
    _examine(machine, plugin, settings.emulator, log)
    partial = f"{cached}.partial.{os.getpid()}"
    shutil.copytree(inside, partial)
    try:
        os.rename(partial, cached)
    except OSError:  # another instrument was quicker
        shutil.rmtree(partial)
    _forget_old(os.path.dirname(cached))


def _key(layer, plugin):
    """GStreamer goes by the time and size of a plug-in's file; the layer stands for all the others."""
    stat = os.stat(plugin)
    return hashlib.sha256(f"{os.path.basename(layer)} {stat.st_mtime_ns} {stat.st_size}".encode()).hexdigest()[:16]


def _examine(machine, plugin, emulator, log):
    command, environment = ["/usr/bin/python3", "-I", "-c", _EXAMINE], {}
    if emulator:  # no Python of that architecture; nor can GStreamer start its helper program for it
        command, environment = [EMULATOR, EXAMINER], {"GST_REGISTRY_FORK": "no"}
    with open(plugin, "rb") as file:
        sanitizer = re.search(rb"lib[at]san\.so\.\d+", file.read())
    if sanitizer:
        environment = {"LD_PRELOAD": sanitizer.group().decode(), "ASAN_OPTIONS": "detect_leaks=0",
                       "TSAN_OPTIONS": "report_bugs=0"}
        command = ["setarch", "-R", *command]
    program = machine.spawn(command, log, environment=environment)
    if not program.ended.wait(_TIMEOUT) or program.status != 0:
        raise BenchError("GStreamer does not take the platform elements", f"see {log.name}")


def _forget_old(folder):
    registries = [entry for entry in os.scandir(folder) if entry.name.startswith("registry-")]
    registries.sort(key=lambda entry: entry.stat().st_mtime, reverse=True)
    for entry in registries[_KEPT:]:
        with contextlib.suppress(OSError):
            shutil.rmtree(entry.path)
