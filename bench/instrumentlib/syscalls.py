"""Linux calls that Python 3.11's standard library lacks: mount, unshare, setns, prctl, pivot_root."""

import ctypes
import os

_libc = ctypes.CDLL(None, use_errno=True)

CLONE_NEWNS = 0x00020000
CLONE_NEWUTS = 0x04000000
CLONE_NEWIPC = 0x08000000
CLONE_NEWPID = 0x20000000
CLONE_NEWNET = 0x40000000

MS_RDONLY = 0x1
MS_NOSUID = 0x2
MS_NODEV = 0x4
MS_NOEXEC = 0x8
MS_REMOUNT = 0x20
MS_BIND = 0x1000
MS_REC = 0x4000
MS_PRIVATE = 0x40000
MNT_DETACH = 0x2

_PR_SET_PDEATHSIG = 1
_PR_CAPBSET_DROP = 24
_SYS_PIVOT_ROOT = {"x86_64": 155, "aarch64": 41}

# What the machine inside may not do, though everything in it runs as root: reach the host's disks, clock,
# kernel and other mounts. Set-up work is done before these are dropped, by the instrument's first process.
_DENIED_CAPABILITIES = {
    "LINUX_IMMUTABLE": 9, "SYS_MODULE": 16, "SYS_RAWIO": 17, "SYS_PACCT": 20, "SYS_ADMIN": 21, "SYS_BOOT": 22,
    "SYS_TIME": 25, "MKNOD": 27, "AUDIT_CONTROL": 30, "MAC_OVERRIDE": 32, "MAC_ADMIN": 33, "SYSLOG": 34,
    "WAKE_ALARM": 35, "BLOCK_SUSPEND": 36, "PERFMON": 38, "BPF": 39, "CHECKPOINT_RESTORE": 40,
}


def _check(result, what):
    if result < 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{what}: {os.strerror(number)}")
    return result


def _bytes(text):
    return None if text is None else os.fsencode(text)


def mount(source, target, kind=None, flags=0, options=None):
    """mount(2); OSError names the target."""
    _check(_libc.mount(_bytes(source), _bytes(target), _bytes(kind), ctypes.c_ulong(flags), _bytes(options)),
           f"mount {kind or 'bind'} on {target}")


def bind(source, target, read_only=False):
    """Shows `source` at `target` as well; read-only for that view alone when asked."""
    mount(source, target, None, MS_BIND)
    if read_only:
        kept = os.statvfs(target).f_flag & (MS_NOSUID | MS_NODEV | MS_NOEXEC)  # a user's own root may not drop them
        mount(None, target, None, MS_BIND | MS_REMOUNT | MS_RDONLY | kept)


def umount_detached(target):
    """umount2(2) with MNT_DETACH: gone from the tree at once, freed when its last user is."""
    _check(_libc.umount2(_bytes(target), MNT_DETACH), f"umount {target}")


def unshare(flags):
    """unshare(2)."""
    _check(_libc.unshare(flags), "unshare")


def setns(fd, flag):
    """setns(2) with an open namespace file."""
    _check(_libc.setns(fd, flag), "setns")


def pivot_root(new_root, put_old):
    """Makes `new_root` (a mount point) the root of this mount namespace; the old root is then seen at `put_old`."""
    number = _SYS_PIVOT_ROOT[os.uname().machine]
    _check(_libc.syscall(ctypes.c_long(number), _bytes(new_root), _bytes(put_old)), f"pivot_root to {new_root}")
    os.chdir("/")


def die_with_parent(signal_number):
    """This process gets `signal_number` when the thread that forked it ends, however that happens."""
    _check(_libc.prctl(_PR_SET_PDEATHSIG, signal_number, 0, 0, 0), "prctl PDEATHSIG")


def confine():
    """Takes from this process and all it will execute what could reach beyond the instrument.

    Works on the bounding set: this process keeps what it holds, a program that it executes has it no more.
    """
    for capability in _DENIED_CAPABILITIES.values():
        _libc.prctl(_PR_CAPBSET_DROP, capability, 0, 0, 0)  # fails only for what this kernel does not know
