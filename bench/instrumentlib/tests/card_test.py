"""The memory card: sizes as they are written, and an image that tools take for a card."""

import os
import subprocess
import tempfile
import unittest

import support  # noqa: F401  (the way to the modules)
from instrumentlib import card
from instrumentlib.errors import BenchError


class SizeTest(unittest.TestCase):
    def test_sizes_have_units(self):
        self.assertEqual([card.size_in_bytes(text) for text in ("4096", "64k", "20M", "2G")],
                         [4096, 64 << 10, 20 << 20, 2 << 30])

    def test_other_texts_are_refused(self):
        for text in ("", "M", "1.5G", "20MB", "-1M"):
            with self.assertRaisesRegex(BenchError, "expected a size"):
                card.size_in_bytes(text)


@unittest.skipUnless(os.path.exists("/usr/sbin/sfdisk") and os.path.exists("/usr/sbin/mke2fs"), "script/bootstrap --with machine")
class CardTest(unittest.TestCase):
    def test_one_partition_with_a_clean_file_system_of_the_size(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "card.img")
            card.make(path, "20M")
            self.assertEqual(os.path.getsize(path), 32 << 20)  # SD cards come in powers of two
            listing = subprocess.run(["sfdisk", "--dump", path], capture_output=True, text=True, check=True).stdout
            self.assertRegex(listing, r"start= *2048, size= *40960")
            checked = subprocess.run(["e2fsck", "-fn", f"{path}?offset={1 << 20}"], capture_output=True, text=True, check=False)
            self.assertEqual(checked.returncode, 0, checked.stdout)

    def test_a_card_that_would_have_no_room_is_refused(self):
        with self.assertRaisesRegex(BenchError, "1M or more"):
            card.make("/nowhere", "100K")


if __name__ == "__main__":
    unittest.main()
