"""What the instrument's tests share: the way to its modules."""

import os
import sys
import time

BENCH = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
sys.dont_write_bytecode = True
sys.path.insert(0, BENCH)


def wait_until(condition, seconds=60):
    """Polls until `condition()` is true and returns its last value."""
    deadline = time.monotonic() + seconds
    while not (value := condition()) and time.monotonic() < deadline:
        time.sleep(0.01)
    return value
