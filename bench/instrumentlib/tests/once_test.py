"""What is made once: by one maker, while others make other things."""

import os
import tempfile
import threading
import unittest

import support  # noqa: F401  (the way to the modules)
from instrumentlib import once


class MadeOnce(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = os.path.join(folder.name, "build", "made")
        self.begun, self.go_on = threading.Event(), threading.Event()
        self.made = []

    def make(self, name):
        """Makes it as soon as it may."""
        self.begun.set()
        self.assertTrue(self.go_on.wait(60))
        self.made.append(name)
        os.mkdir(os.path.join(self.folder, name))

    def maker(self, name):
        """A thread that wants it made."""
        thread = threading.Thread(target=lambda: once.made_once(os.path.join(self.folder, name), lambda: self.make(name), "a thing"),
                                  daemon=True)
        thread.start()
        return thread

    def test_another_thing_does_not_wait(self):
        first = self.maker("first")
        self.assertTrue(self.begun.wait(60))
        self.begun.clear()
        second = self.maker("second")
        self.assertTrue(self.begun.wait(10), "the second waits for the first")
        self.go_on.set()
        first.join()
        second.join()
        self.assertEqual(sorted(self.made), ["first", "second"])

    def test_the_same_thing_is_made_by_one_alone(self):
        makers = [self.maker("one"), self.maker("one")]
        self.assertTrue(self.begun.wait(60))
        self.go_on.set()
        for maker in makers:
            maker.join()
        self.assertEqual(self.made, ["one"])


if __name__ == "__main__":
    unittest.main()
