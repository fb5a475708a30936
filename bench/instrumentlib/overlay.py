"""Mounts that the instrument and the maker of its package layer share: an overlay of the host's root, and /dev."""

import os
import stat

from . import privilege, syscalls
from .errors import BenchError

_PROGRAM_MOUNTS = ("/usr", "/usr/local", "/etc", "/var", "/opt", "/home", "/root", "/srv")
_DEVICES = {"null": (1, 3), "zero": (1, 5), "full": (1, 7), "random": (1, 8), "urandom": (1, 9), "tty": (5, 0)}


def mount_root(scratch, fill=None):
    """Mounts an overlay of the host's root below `scratch` and returns its path.

    To be called in a mount namespace of its own. What is written lands in a tmpfs; where a user is root below `scratch`
    itself, for a tmpfs has their attributes, in which the overlay notes what was removed, since Linux 6.6 only. `fill(upper)` may put files
    into the upper directory first. File systems that the host mounts below its root are not part of an overlay
    of it; those that hold programs or settings get an overlay of their own, the others are empty folders.
    """
    syscalls.mount(None, "/", None, syscalls.MS_REC | syscalls.MS_PRIVATE)
    if not privilege.is_users_own():
        syscalls.mount("tessary-instrument", scratch, "tmpfs", 0, "mode=755")
    upper, root = os.path.join(scratch, "upper"), os.path.join(scratch, "root")
    for path in (upper, root):
        os.mkdir(path, 0o755)
    if fill:
        fill(upper)
    _overlay("/", upper, os.path.join(scratch, "work"), root)
    for number, point in enumerate(path for path in _PROGRAM_MOUNTS if os.path.ismount(path)):
        part = os.path.join(upper, point[1:])
        os.makedirs(part, exist_ok=True)
        _overlay(point, part, os.path.join(scratch, f"work{number}"), root + point)
    return root


def _overlay(lower, upper, work, target):
    os.mkdir(work, 0o700)
    marks = ",userxattr" if privilege.is_users_own() else ""
    try:
        syscalls.mount("overlay", target, "overlay", 0,
                       f"lowerdir={_escaped(lower)},upperdir={_escaped(upper)},workdir={_escaped(work)}{marks}")
    except OSError as error:
        raise BenchError(f"this kernel can not mount an overlay of {lower}: {error}",
                         "load it (modprobe overlay) or use a machine that lets root mount overlays") from error


def _escaped(path):
    return "".join("\\" + letter if letter in "\\:," else letter for letter in path)


def make_dev(path, host=""):
    """A /dev of its own: the harmless devices, pseudo-terminals and shared memory, nothing of the host's hardware. `host` is
    where the host's root is seen."""
    syscalls.mount("dev", path, "tmpfs", syscalls.MS_NOSUID, "mode=755")
    for name, (major, minor) in _DEVICES.items():
        _make_device(os.path.join(path, name), os.makedev(major, minor), f"{host}/dev/{name}")
    for name, options in (("pts", "newinstance,ptmxmode=0666,mode=620,gid=5"), ("shm", "mode=1777")):
        os.mkdir(os.path.join(path, name))
        syscalls.mount(name, os.path.join(path, name), "devpts" if name == "pts" else "tmpfs",
                       syscalls.MS_NOSUID | syscalls.MS_NOEXEC, options)
    for name, target in (("ptmx", "pts/ptmx"), ("fd", "/proc/self/fd"), ("stdin", "/proc/self/fd/0"),
                         ("stdout", "/proc/self/fd/1"), ("stderr", "/proc/self/fd/2")):
        os.symlink(target, os.path.join(path, name))


def _make_device(node, number, original):
    try:
        os.mknod(node, stat.S_IFCHR | 0o666, number)
        os.chmod(node, 0o666)
    except PermissionError:  # a user's own root: the host's is shown
        with open(node, "xb"):
            pass
        syscalls.bind(original, node)
