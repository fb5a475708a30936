"""What the instrument says while it runs."""

import contextlib
import sys


def say(text):
    """To standard error: "ready" stays the last line of standard output."""
    with contextlib.suppress(OSError):  # nobody may be listening any more
        print(f"instrument: {text}", file=sys.stderr, flush=True)
