"""The supervisor's side of the machine: starts it, starts programs in it, hears of their ends."""

import contextlib
import dataclasses
import os
import queue
import signal
import threading

from . import inner_init
from .errors import BenchError

CLEAN_ENVIRONMENT = {
    "HOME": "/root", "USER": "root", "LOGNAME": "root", "LANG": "C.UTF-8",
    "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
}


@dataclasses.dataclass
class MachineSettings:
    """What the machine is made of. All paths are the host's, absolute and without symbolic links."""

    scratch: str        # empty folder to mount upon
    layer: str          # archive of the package layer
    io_folder: str      # seen inside as /run/bench
    commands_log: str   # the command log, an existing file
    commandlog: str     # the program that writes it
    daemon: str         # becomes /usr/bin/tessary
    elements: str       # folder of the platform elements, "" for none
    asound_conf: str
    multiarch: str      # the daemon's, such as x86_64-linux-gnu
    emulator: str       # statically linked program that runs the daemon, "" when this machine's processor does
    repository: str     # shown inside, read-only, when the overlay does not show it anyway; "" for none
    terminals: dict     # device inside -> pty slave on the host
    files: list         # (host path, path inside) to copy
    binds: list         # (host path, path inside) to show
    card_size: str      # size option of a tmpfs, "" for no card


class Program:
    """A program started inside. `pid` counts inside, `host_pid` on the host; `ended` is set with `status`.

    `label` names it for messages; None for helpers whose end nobody needs to hear of.
    """

    def __init__(self, pid, pidfd, label):
        self.pid = pid
        self.label = label
        self.host_pid = host_pid_of(pidfd)
        self.status = None
        self.ended = threading.Event()
        self._pidfd = pidfd
        self._pidfd_lock = threading.Lock()

    def send_signal(self, number):
        """Signals the program; nothing happens once it has ended."""
        with self._pidfd_lock, contextlib.suppress(ProcessLookupError):
            if self._pidfd is not None:
                signal.pidfd_send_signal(self._pidfd, number)

    def describe_end(self):
        """The end in words; only after `ended`."""
        if os.WIFSIGNALED(self.status):
            number = os.WTERMSIG(self.status)
            return f"killed by signal {number} ({signal.Signals(number).name})"
        return f"exited with status {os.waitstatus_to_exitcode(self.status)}"

    def close(self):
        """Lets go of the descriptor that stands for the process."""
        with self._pidfd_lock:
            os.close(self._pidfd)
            self._pidfd = None


def host_pid_of(pidfd):
    """The PID, as this process sees it, of the process behind a pidfd; 0 once it is gone."""
    with open(f"/proc/self/fdinfo/{pidfd}", encoding="ascii") as info:
        for line in info:
            if line.startswith("Pid:"):
                return max(0, int(line.split()[1]))
    return 0


class Machine:
    """The running namespaces. `on_end(program)` is called from the reading thread for each program's end.

    `build_root()` is called inside, in the mount namespace, before anything else.
    """

    def __init__(self, build_root, on_end, on_gone):
        self._on_end, self._on_gone = on_end, on_gone
        self._programs = {}
        self._lock = threading.Lock()
        self._replies = queue.Queue()
        self._label = None  # of the program being started
        self._stopping = False
        self.init_pid, self._sock = inner_init.fork_init(build_root)
        try:
            message, fds = inner_init.receive(self._sock)
            if not message or "failed" in message:
                raise BenchError((message or {}).get("failed", "the instrument's first process ended at once"),
                                 (message or {}).get("remedy"))
        except BaseException:
            self._kill_init()
            self._sock.close()
            raise
        self.sender_pid = host_pid_of(fds[0])
        os.close(fds[0])
        self._reader = threading.Thread(target=self._read, name="machine", daemon=True)

    def start_reading(self):
        """From here on programs can be started. Separate, so that everything that forks comes first."""
        self._reader.start()

    def _read(self):
        while True:
            try:
                message, fds = inner_init.receive(self._sock)
            except OSError:
                message, fds = None, []
            if message is None:
                break
            if "started" in message:
                program = Program(message["started"], fds[0], self._label)
                self._programs[program.pid] = program
                self._replies.put(program)
            elif message["ended"] in self._programs:  # others are orphans that the first process took over
                self._note_end(message["ended"], message["status"])
        self._replies.put(None)
        if not self._stopping:
            self._on_gone()

    def _note_end(self, pid, status):
        program = self._programs.pop(pid)
        program.status = status
        program.ended.set()
        self._on_end(program)
        program.close()

    def spawn(self, argv, stdout, *, net="instrument", environment=None, label=None, more_files=()):
        """Starts a program inside, cwd "/", with a clean environment plus `environment`; output goes to `stdout`.

        `stdout` is an open file of the caller's, who keeps it, as are `more_files`, the program's descriptors from 3 on.
        Raises BenchError when the machine is gone.
        """
        request = {"argv": argv, "net": net, "env": {**CLEAN_ENVIRONMENT, **(environment or {})}}
        with self._lock, open(os.devnull, "rb") as nothing:
            self._label = label
            try:
                inner_init.send(self._sock, request, [file.fileno() for file in (nothing, stdout, stdout, *more_files)])
            except OSError as error:
                raise BenchError(f"the instrument is gone: {error}") from error
            program = self._replies.get()
        if program is None:
            raise BenchError("the instrument's first process has ended")
        return program

    def stop(self):
        """Ends everything inside; the mounts and interfaces vanish with their namespaces."""
        self._stopping = True
        self._kill_init()
        if self._reader.is_alive():
            self._reader.join()
        self._sock.close()

    def _kill_init(self):
        with contextlib.suppress(ProcessLookupError):
            os.kill(self.init_pid, signal.SIGKILL)
        with contextlib.suppress(ChildProcessError):
            os.waitpid(self.init_pid, 0)
