"""The first process inside the instrument (PID 1 of its namespace): has the root built, starts programs, reaps.

It talks with the supervisor over a SOCK_SEQPACKET pair, one JSON object a message. When the supervisor ends,
however it ends, this process is killed by the kernel, and with it everything inside.
"""

import array
import contextlib
import json
import os
import select
import signal
import socket
import sys
import traceback

from . import syscalls
from .errors import BenchError

MESSAGE_LIMIT = 64 * 1024


def send(sock, message, fds=()):
    """Sends one message with open files; both sides use it."""
    ancillary = [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", fds))] if fds else []
    sock.sendmsg([json.dumps(message).encode()], ancillary)


def receive(sock):
    """Returns (message, fds); (None, []) when the other side is gone."""
    data, fds, _, _ = socket.recv_fds(sock, MESSAGE_LIMIT, 8)
    return (json.loads(data), fds) if data else (None, [])


class InnerInit:
    """Runs in a freshly forked child of the supervisor that is PID 1 of a new PID namespace."""

    def __init__(self, sock, build_root):
        self._sock = sock
        self._build_root = build_root
        self._sender_net = None

    def run(self):
        """Never returns."""
        try:
            self._set_up()
        except (BenchError, OSError) as error:
            remedy = error.remedy if isinstance(error, BenchError) else None
            cause = error.args[0] if isinstance(error, BenchError) else str(error)
            send(self._sock, {"failed": cause, "remedy": remedy})
            os._exit(1)
        except BaseException:
            send(self._sock, {"failed": traceback.format_exc(), "remedy": None})
            os._exit(1)
        self._serve()
        os._exit(0)

    def _set_up(self):
        syscalls.die_with_parent(signal.SIGKILL)
        os.setsid()  # a Ctrl-C at the supervisor's terminal is the supervisor's affair
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, signal.SIG_DFL)
        syscalls.unshare(syscalls.CLONE_NEWNS | syscalls.CLONE_NEWUTS | syscalls.CLONE_NEWIPC
                         | syscalls.CLONE_NEWNET)
        socket.sethostname("instrument")
        os.umask(0o022)
        self._build_root()
        holder = self._hold_sender_namespace()
        self._sender_net = os.open(f"/proc/{holder}/ns/net", os.O_RDONLY | os.O_CLOEXEC)
        pidfd = os.pidfd_open(holder)
        send(self._sock, {"up": True, "sender": holder}, [pidfd])
        os.close(pidfd)

    def _hold_sender_namespace(self):
        """Forks a process that does nothing but be in the sender's network namespace. Returns its PID."""
        here, there = os.pipe()
        holder = os.fork()
        if holder == 0:
            with contextlib.suppress(BaseException):
                self._sock.close()
                syscalls.unshare(syscalls.CLONE_NEWNET)
                os.write(there, b"1")
                while True:
                    signal.pause()
            os._exit(1)
        os.close(there)
        if not os.read(here, 1):
            raise BenchError("the stream sender's network namespace could not be made")
        os.close(here)
        return holder

    def _serve(self):
        wake, waker = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
        signal.signal(signal.SIGCHLD, lambda *_: None)
        signal.set_wakeup_fd(waker)
        poller = select.poll()
        poller.register(wake, select.POLLIN)
        poller.register(self._sock, select.POLLIN)
        while True:
            ready = dict(poller.poll())
            if wake in ready:
                os.read(wake, 512)
            self._reap()
            if self._sock.fileno() in ready:
                request, fds = receive(self._sock)
                if request is None:
                    return
                self._spawn(request, fds)

    def _reap(self):
        while True:
            try:
                pid, status = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return
            if pid == 0:
                return
            send(self._sock, {"ended": pid, "status": status})

    def _spawn(self, request, fds):
        """Starts request["argv"] with fds as standard input, output, error and so on; "net": "sender" puts it there.

        A program that can not be executed ends with status 127 and says why on its standard error.
        """
        pid = os.fork()
        if pid == 0:
            try:
                _become(request, fds, self._sender_net)
            except BaseException as error:
                with contextlib.suppress(OSError):
                    os.write(2, f"instrument: {request['argv'][0]}: {error}\n".encode())
            finally:
                os._exit(127)
        for fd in fds:
            os.close(fd)
        pidfd = os.pidfd_open(pid)
        send(self._sock, {"started": pid}, [pidfd])
        os.close(pidfd)


def _become(request, fds, sender_net):
    os.setsid()
    signal.set_wakeup_fd(-1)
    signal.signal(signal.SIGCHLD, signal.SIG_DFL)
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    if request.get("net") == "sender":
        syscalls.setns(sender_net, syscalls.CLONE_NEWNET)
    for target, fd in enumerate(fds):
        os.dup2(fd, target + 100, inheritable=False)
    for target in range(len(fds)):
        os.dup2(target + 100, target, inheritable=True)
    syscalls.confine()
    os.chdir("/")
    os.execvpe(request["argv"][0], request["argv"], request["env"])


def fork_init(build_root):
    """Forks the instrument's first process. Returns (its PID on the host, the supervisor's end of the socket).

    To be called by the supervisor's main thread before there are others.
    """
    ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    own_namespace = os.open("/proc/self/ns/pid", os.O_RDONLY | os.O_CLOEXEC)
    sys.stdout.flush()
    sys.stderr.flush()
    try:
        syscalls.unshare(syscalls.CLONE_NEWPID)
    except OSError as error:
        raise BenchError(f"namespaces can not be made here: {error.strerror}",
                         "use a real or virtual machine, or a container that may do this (--privileged)") from error
    pid = os.fork()
    if pid == 0:
        ours.close()
        InnerInit(theirs, build_root).run()
    theirs.close()
    syscalls.setns(own_namespace, syscalls.CLONE_NEWPID)  # later children belong to the host again
    os.close(own_namespace)
    return pid, ours
