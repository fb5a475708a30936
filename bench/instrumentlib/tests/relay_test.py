"""The serial relay: nothing lost towards the daemon, the daemon never held up, all of it in the log."""

import json
import os
import tempfile
import termios
import threading
import time
import tty
import unittest

from support import wait_until
from instrumentlib import relay


class LineTest(unittest.TestCase):
    """One line and its relay."""

    BITS_PER_SECOND = None

    def setUp(self):
        self._folder = tempfile.TemporaryDirectory()
        self.addCleanup(self._folder.cleanup)
        self._log = os.path.join(self._folder.name, "line.log")
        self.line = relay.SerialLine(self._log, raw_from_start=False, bits_per_second=self.BITS_PER_SECOND)
        self.addCleanup(self.line.close)
        server = relay.Relay([self.line])
        server.start()
        self.addCleanup(server.stop)

    def open(self, device):
        fd = os.open(device, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
        self.addCleanup(os.close, fd)
        return fd

    def open_as_daemon(self):
        fd = self.open(self.line.device)
        tty.setraw(fd, termios.TCSANOW)
        return fd

    def read(self, fd, count, seconds=60):
        data = bytearray()

        def more():
            try:
                while len(data) < count:
                    data.extend(os.read(fd, 65536))
            except BlockingIOError:
                pass
            return len(data) >= count
        wait_until(more, seconds)
        return bytes(data)

    def logged(self, direction):
        with open(self._log, encoding="ascii") as log:
            entries = [json.loads(line) for line in log]
        return b"".join(bytes.fromhex(e["hex"]) for e in entries if e["dir"] == direction), entries


class RelayTest(LineTest):
    def test_all_byte_values_pass_both_ways_unchanged(self):
        daemon, far = self.open_as_daemon(), self.open(self.line.far_device)
        data = bytes(range(256))
        os.write(far, data)
        self.assertEqual(self.read(daemon, 256), data)
        os.write(daemon, data[::-1])
        self.assertEqual(self.read(far, 256), data[::-1])
        self.assertEqual(self.logged("to_daemon")[0], data)
        self.assertEqual(self.logged("from_daemon")[0], data[::-1])

    def test_what_was_written_before_the_controller_came_waits_for_it(self):
        os.write(self.open_as_daemon(), b"HELLO !\r\n")
        wait_until(lambda: self.logged("from_daemon")[0])
        self.assertEqual(self.read(self.open(self.line.far_device), 9), b"HELLO !\r\n")

    def test_the_daemons_side_starts_with_settings_that_the_daemon_does_not_use(self):
        iflag, oflag, cflag, lflag, ispeed, ospeed, _ = self.line.settings()
        self.assertTrue(iflag & termios.IXON)
        self.assertTrue(oflag & termios.OPOST)
        self.assertFalse(cflag & termios.CLOCAL)
        self.assertFalse(lflag & (termios.ECHO | termios.ICANON | termios.ISIG))
        self.assertEqual((ispeed, ospeed), (termios.B9600, termios.B9600))

    def test_a_daemon_that_does_not_read_makes_the_controller_wait_and_loses_nothing(self):
        daemon, far = self.open_as_daemon(), os.open(self.line.far_device, os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, far)
        data = os.urandom(relay.TO_DAEMON_CAP * 2)

        def send():
            position = 0
            while position < len(data):
                position += os.write(far, data[position:position + 4096])
        sender = threading.Thread(target=send, daemon=True)
        sender.start()
        sender.join(0.5)
        self.assertTrue(sender.is_alive(), "the controller was not held up")
        self.assertEqual(self.read(daemon, len(data)), data)
        sender.join()

    def test_a_controller_that_does_not_read_holds_nobody_up_and_loses_the_oldest(self):
        daemon = self.open_as_daemon()
        os.set_blocking(daemon, True)
        data = os.urandom(relay.FROM_DAEMON_CAP + (1 << 20))
        position = 0
        while position < len(data):
            position += os.write(daemon, data[position:position + 65536])
        far, got = self.open(self.line.far_device), b""

        def unread():
            return sum(entry.get("unread", 0) for entry in self.logged("from_daemon")[1])
        deadline = time.monotonic() + 60
        while (more := self.read(far, 1 << 20, seconds=1)) or len(got) + unread() < len(data):
            got += more
            self.assertLess(time.monotonic(), deadline)
        self.assertGreater(unread(), 0)
        self.assertEqual(len(got) + unread(), len(data))
        self.assertEqual(got[-relay.FROM_DAEMON_CAP // 2:], data[-relay.FROM_DAEMON_CAP // 2:])


class PacedLineTest(LineTest):
    BITS_PER_SECOND = 115_200

    def test_all_bytes_pass_and_none_before_its_time(self):
        daemon, far = self.open_as_daemon(), self.open(self.line.far_device)
        data = os.urandom(2000)
        for writer, reader in ((far, daemon), (daemon, far)):
            began = time.monotonic()
            os.write(writer, data)
            self.assertEqual(self.read(reader, len(data)), data)
            self.assertGreaterEqual(time.monotonic() - began, (len(data) - 64) * 10 / self.BITS_PER_SECOND)


class ConsoleTest(unittest.TestCase):
    def test_the_console_shows_bytes_as_they_were_written(self):
        with tempfile.TemporaryDirectory() as folder:
            line = relay.SerialLine(os.path.join(folder, "console.log"), raw_from_start=True)
            self.assertFalse(line.settings()[1] & termios.OPOST)
            line.close()


if __name__ == "__main__":
    unittest.main()
