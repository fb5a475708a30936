"""Where the parts of the virtual instrument lie: in a source tree and one of its builds, or installed from a package."""

import os

from .errors import BenchError

HERE = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))  # bench/ of a tree, /usr/lib/tessary-bench installed
_TREE = os.path.dirname(HERE)
INSTALLED = not os.path.exists(os.path.join(_TREE, "CMakeLists.txt"))

# What stands in messages for this program, and for what installs missing programs.
COMMAND = "tessary-instrument" if INSTALLED else "bench/instrument"
REPAIR = "apt-get install --reinstall tessary-bench" if INSTALLED else "run script/bootstrap"
GET_ROOT = "run it with sudo" if INSTALLED else "run it with sudo, or in a Debian of your own: script/clean-root run --desk"
DEFAULT_BUILD = HERE if INSTALLED else os.path.join(_TREE, "build", "release")
# Package layers and plug-in registries are kept here; they can be made again at any time.
LAYER_FOLDER = "/var/cache/tessary-bench/layer" if INSTALLED else os.path.join(_TREE, "build", "bench-layer")
# Disks of booted instruments, and the packages that are installed on them, of a source tree.
MACHINE_FOLDER = os.path.join(_TREE, "build", "machine")
PACKAGES = os.path.join(_TREE, "build", "packages")
EXAMINER = "examine-plugins"  # beside the platform elements; needed where these are for another architecture
SHOWN = "" if INSTALLED else _TREE  # sources and suppressions, which sanitizer builds name by this path

# Part -> (path in a build, path in the installed folder).
_PARTS = {
    "daemon": ("src/tessary", "tessary"),
    "commandlog": ("bench/commandlog/commandlog", "commandlog"),
    "elements": ("bench/elements", "elements"),
    "fpga": ("bench/counterparts/tessary-fpga", "tessary-fpga"),
}


def part(name, build):
    """Path of a part of `build`, the folder of a build or the installed one."""
    build = os.path.realpath(build)
    return os.path.join(build, _PARTS[name][1 if build == HERE and INSTALLED else 0])


def not_there(missing, build):
    """The error that names missing files and how to get them."""
    build = os.path.realpath(build)
    if INSTALLED and build == HERE:
        return BenchError("missing: " + ", ".join(missing), REPAIR)
    preset = os.path.basename(build)
    where = "the source tree" if INSTALLED else _TREE
    return BenchError("not built: " + ", ".join(missing),
                      f"cmake --preset {preset} && cmake --build --preset {preset}   (in {where})")
