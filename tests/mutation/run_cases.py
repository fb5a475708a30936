#!/usr/bin/python3
"""Runs cases of the unit tests, several at a time, each in a process of its own. Called in the containment by cases.py."""

import json
import os
import re
import resource
import signal
import subprocess
import sys
import threading
import time

FAILING = ("failed", "time-out")
_FAILURE = re.compile(r"Failure\n(?:.*\n){1,3}|runtime error: .*|ERROR: \w+: .*")


def outcome(case, command):
    """One run: passed, skipped, failed or time-out, and the first words of a failure."""
    began = time.monotonic()
    with subprocess.Popen(command, cwd=case["directory"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, start_new_session=True) as process:
        try:
            said = process.communicate(timeout=case["limit"])[0].decode(errors="replace")
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            return {"result": "time-out", "seconds": time.monotonic() - began, "said": ""}
    words = _FAILURE.search(said)
    told = {"seconds": time.monotonic() - began, "said": words.group().strip() if words else f"status {process.returncode}"}
    if process.returncode != 0:
        return {"result": "failed", **told}
    return {"result": "skipped" if "[  SKIPPED ]" in said else "passed", **told}


def steady_outcome(case):
    """A failure counts when it comes twice and not with the unchanged program: a change is not seen by chance, nor by a
    machine that is too busy for the case."""
    result = outcome(case, case["command"])
    if result["result"] in FAILING:
        again = outcome(case, case["command"])["result"] in FAILING
        unchanged = outcome(case, case["control"])["result"] in FAILING if again and "control" in case else False
        if unchanged or not again:
            result["result"] = "unsteady"
    return result


class Runner:
    """Takes the cases one after another, in several threads."""

    def __init__(self, order):
        self._order = order
        self._left = list(reversed(order["cases"]))
        self._lock = threading.Lock()
        self.ended = threading.Event()
        self._working = order["jobs"]

    def work(self):
        """Body of a thread."""
        while (case := self._next()) is not None:
            self._tell(case, steady_outcome(case))
        with self._lock:
            self._working -= 1
            if self._working == 0:
                self.ended.set()

    def _next(self):
        with self._lock:
            return self._left.pop() if self._left else None

    def _tell(self, case, result):
        with self._lock:
            if self.ended.is_set():
                return
            print(json.dumps({"name": case["name"], **result}), flush=True)
            if result["result"] in FAILING and not self._order["keep_going"]:
                self.ended.set()


def main():
    order = json.load(sys.stdin)
    if order["memory"]:
        resource.setrlimit(resource.RLIMIT_AS, (order["memory"], order["memory"]))
    runner = Runner(order)
    for _ in range(order["jobs"]):
        threading.Thread(target=runner.work, daemon=True).start()
    runner.ended.wait()
    os._exit(0)  # what still runs ends with the containment


if __name__ == "__main__":
    main()
