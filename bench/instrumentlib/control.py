"""Requests from other calls of the script to the supervisor: one JSON line each way over a UNIX socket."""

import json
import os
import socket
import threading

from . import places
from .errors import BenchError


def _address(path, folder_fd):
    """A short name for the socket, whatever the length of the run directory (a UNIX address holds 107 bytes)."""
    return f"/proc/self/fd/{folder_fd}/{os.path.basename(path)}"


class ControlServer:
    """Answers requests with `handle(request) -> reply` (dicts), each connection in a thread of its own."""

    def __init__(self, path, handle):
        self._handle = handle
        folder = os.open(os.path.dirname(path), os.O_PATH | os.O_DIRECTORY | os.O_CLOEXEC)
        try:
            self._sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            self._sock.bind(_address(path, folder))
        finally:
            os.close(folder)
        os.chmod(path, 0o600)
        self._sock.listen(16)
        threading.Thread(target=self._accept, name="control", daemon=True).start()

    def _accept(self):
        while True:
            try:
                connection, _ = self._sock.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        with connection, connection.makefile("rw", encoding="utf-8") as stream:
            try:
                reply = self._handle(json.loads(stream.readline()))
            except BenchError as error:
                reply = {"error": error.args[0], "remedy": error.remedy}
            except (OSError, ValueError, KeyError) as error:
                reply = {"error": f"{type(error).__name__}: {error}", "remedy": None}
            try:
                stream.write(json.dumps(reply) + "\n")
            except OSError:
                pass  # the asker has gone away

    def close(self):
        """Takes no more requests."""
        self._sock.close()


def ask(path, request):
    """Sends one request to a running supervisor and returns its reply; an error there is raised here."""
    folder = os.open(os.path.dirname(path), os.O_PATH | os.O_DIRECTORY | os.O_CLOEXEC)
    try:
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as sock:
            sock.connect(_address(path, folder))
            with sock.makefile("rw", encoding="utf-8") as stream:
                stream.write(json.dumps(request) + "\n")
                stream.flush()
                answer = stream.readline()
    except OSError as error:
        raise BenchError(f"the instrument does not answer at {path}: {error}",
                         f"see {places.COMMAND} status; it may be starting or stopping") from error
    finally:
        os.close(folder)
    if not answer:
        raise BenchError("the instrument ended before it answered")
    reply = json.loads(answer)
    if "error" in reply:
        raise BenchError(reply["error"], reply.get("remedy"))
    return reply
