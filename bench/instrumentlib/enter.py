"""`bench/instrument exec`: runs a command inside the instrument, or in the stream sender's network."""

import base64
import os
import signal
import sys
import time

from . import control, places, syscalls
from .errors import BenchError
from .run_dir import DEFAULT, RunDir

USAGE = f"""usage: {places.COMMAND} exec [--run-dir DIR] [--sender] COMMAND [ARGUMENT...]

Runs COMMAND inside the instrument, as root, cwd "/", with a clean environment; its exit status is passed on.
With --sender it runs with this machine's files and environment, in the stream sender's network (device "uplink",
192.168.77.1), from where streams reach the instrument's eth0.
The command ends when this call is ended, and when the instrument stops. On a booted instrument its input is empty, and its
output comes when it has ended.

  --run-dir DIR   the instrument's run directory (default: {DEFAULT})

examples: {places.COMMAND} exec nmcli device
          {places.COMMAND} exec --sender ping -c 1 192.168.77.100
"""
_FORWARDED = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT, signal.SIGUSR1, signal.SIGUSR2)


def _parse(arguments):
    run_dir, sender = DEFAULT, False
    rest = list(arguments)
    while rest and rest[0].startswith("-"):
        option = rest.pop(0)
        if option in ("-h", "--help"):
            print(USAGE, end="")
            sys.exit(0)
        elif option == "--sender":
            sender = True
        elif option == "--run-dir" and rest:
            run_dir = rest.pop(0)
        elif option.startswith("--run-dir="):
            run_dir = option.partition("=")[2]
        elif option == "--":
            break
        else:
            raise BenchError(f"exec: unknown option {option}", f"see {places.COMMAND} exec --help")
    if not rest:
        raise BenchError("exec: no command given", f"see {places.COMMAND} exec --help")
    return run_dir, sender, rest


def main(arguments):
    """Returns the command's exit status; 128 + n when signal n ended it."""
    run_dir, sender, command = _parse(arguments)
    if os.geteuid() != 0:
        raise BenchError("entering the instrument needs root", places.GET_ROOT)
    paths = RunDir(run_dir)
    state = paths.read_state()
    if "machine" in state and not sender:
        return _run_on_machine(paths.control, command)
    try:
        namespaces = _open_namespaces(state, sender)
        root = None if sender else os.open(f"/proc/{state['init']}/root", os.O_PATH | os.O_CLOEXEC)
    except OSError as error:
        raise BenchError(f"the instrument is going down: {error}") from error
    own_pid_namespace = os.open("/proc/self/ns/pid", os.O_RDONLY | os.O_CLOEXEC)
    for flag, fd in namespaces:
        if flag == syscalls.CLONE_NEWPID:
            syscalls.setns(fd, flag)
    # The other namespaces are entered by the child alone: this process keeps the machine's /proc in view.
    signal.pthread_sigmask(signal.SIG_BLOCK, _FORWARDED)  # until they are forwarded
    child = os.fork()
    if child == 0:
        signal.pthread_sigmask(signal.SIG_UNBLOCK, _FORWARDED)
        _become(command, namespaces, root)
    syscalls.setns(own_pid_namespace, syscalls.CLONE_NEWPID)
    return _wait(child)


def _run_on_machine(control_path, command):
    """Runs it by the booted instrument's agent."""
    signal.pthread_sigmask(signal.SIG_BLOCK, _FORWARDED)  # until they are forwarded
    running = control.ask(control_path, {"action": "exec start", "argv": command})["pid"]

    def forward(number, _):
        control.ask(control_path, {"action": "exec signal", "pid": running, "number": number})
    for number in _FORWARDED:
        signal.signal(number, forward)
    signal.pthread_sigmask(signal.SIG_UNBLOCK, _FORWARDED)
    while not (ended := control.ask(control_path, {"action": "exec poll", "pid": running})):
        time.sleep(0.1)
    for stream, name in ((sys.stdout, "out"), (sys.stderr, "err")):
        stream.buffer.write(base64.b64decode(ended[name]))
    return ended["status"]


def _open_namespaces(state, sender):
    """(flag, open file) in the order to enter them: the mount namespace last, for it takes /proc out of view."""
    inner = state["sender"] if sender else state["init"]
    wanted = [(syscalls.CLONE_NEWPID, inner, "pid"), (syscalls.CLONE_NEWNET, inner, "net")]
    if not sender:
        wanted += [(syscalls.CLONE_NEWUTS, inner, "uts"), (syscalls.CLONE_NEWIPC, inner, "ipc"),
                   (syscalls.CLONE_NEWNS, inner, "mnt")]
    return [(flag, os.open(f"/proc/{pid}/ns/{name}", os.O_RDONLY | os.O_CLOEXEC)) for flag, pid, name in wanted]


def _become(command, namespaces, root):
    """In the child: never returns. `root` is the instrument's root, None for the sender, who stays in the host's."""
    try:
        syscalls.die_with_parent(signal.SIGKILL)
        for flag, fd in namespaces:
            if flag != syscalls.CLONE_NEWPID:
                syscalls.setns(fd, flag)
        environment = dict(os.environ)
        if root is not None:
            # A mount namespace is entered at its topmost mount: not the instrument's when that was made in a chroot.
            os.fchdir(root)
            os.chroot(".")
            os.umask(0o022)
            environment = {"HOME": "/root", "USER": "root", "LOGNAME": "root", "LANG": "C.UTF-8",
                           "TERM": os.environ.get("TERM", "dumb"),
                           "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"}
        syscalls.confine()
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)
        os.execvpe(command[0], command, environment)
    except FileNotFoundError:
        print(f"instrument: {command[0]}: no such program", file=sys.stderr)
    except OSError as error:
        print(f"instrument: {command[0]}: {error}", file=sys.stderr)
    finally:
        sys.stderr.flush()
        os._exit(127)


def _wait(child):
    def forward(number, _):
        os.kill(child, number)

    for number in _FORWARDED:
        signal.signal(number, forward)
    signal.pthread_sigmask(signal.SIG_UNBLOCK, _FORWARDED)
    _, status = os.waitpid(child, 0)
    if os.WIFSIGNALED(status):
        return 128 + os.WTERMSIG(status)
    return os.WEXITSTATUS(status)
