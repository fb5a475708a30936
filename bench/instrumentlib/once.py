"""What is made once and kept below the build folder: by one maker at a time, and the caller's own in the end."""

import fcntl
import os

from .say import say


def made_once(path, make, what):
    """Calls `make()`, which brings `path` into being, unless it is there already.

    Two makers at once: the second waits for the first and takes what that made. `what` names it in words.
    """
    folder = os.path.dirname(path)
    os.makedirs(folder, exist_ok=True)
    if os.path.exists(path):
        return
    with open(path + ".lock", "w", encoding="ascii") as lock:  # of its own: other things are made meanwhile
        give_to_owner(folder, lock.name)
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            say(f"another instrument is making {what}; waiting for it")
            fcntl.flock(lock, fcntl.LOCK_EX)
        if not os.path.exists(path):
            make()


def give_to_owner(folder, *made):
    """A build folder made with sudo stays removable by the one whose checkout it is: build/FOLDER and what was made in it."""
    owner = os.stat(os.path.dirname(os.path.dirname(folder)))
    for path in (os.path.dirname(folder), folder, *made):
        os.chown(path, owner.st_uid, owner.st_gid)
