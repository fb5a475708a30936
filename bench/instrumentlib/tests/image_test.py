"""The disks of booted instruments: what makes another one necessary, and the first boot of one that installs itself."""

import io
import os
import subprocess
import tempfile
import unittest
from unittest import mock

import support  # noqa: F401  (the way to the modules)
from instrumentlib import accelerator, foreign_image, guest_image


def entries(data):
    """(name, mode, content) of a cpio archive in the "new" format, whose parts are padded to four bytes."""
    at = 0
    while at < len(data):
        assert data[at:at + 6] == b"070701", at
        fields = [int(data[at + 6 + 8 * number:at + 14 + 8 * number], 16) for number in range(13)]
        mode, size, name_size = fields[1], fields[6], fields[11]
        name = data[at + 110:at + 110 + name_size - 1].decode()
        content = at + (110 + name_size + 3) // 4 * 4
        yield name, mode, data[content:content + size]
        at = content + (size + 3) // 4 * 4


class Initramfs(unittest.TestCase):
    def test_each_entry_of_the_archive_begins_where_the_kernel_looks_for_it(self):
        archive = foreign_image._Archive()
        given = [("bin", 0o040755, b""), ("bin/odd", 0o100755, b"12345"), ("init", 0o100755, b"#!/bin/sh\n")]
        for entry in given:
            archive.add(*entry)
        self.assertEqual(list(entries(archive.bytes())), [*given, ("TRAILER!!!", 0, b"")])

    def test_modules_are_loaded_before_what_needs_them(self):
        with tempfile.TemporaryDirectory() as root:
            os.mkdir(os.path.join(root, "bin"))
            names = ["virtio.ko", "virtio_blk.ko", "ext4.ko"]
            for name in ["bin/busybox", *names]:
                with open(os.path.join(root, name), "wb") as file:
                    file.write(name.encode())
            shown = "".join(f"insmod {root}/{name} \n" for name in (names[0], names[1], names[0], names[2]))
            with mock.patch.object(foreign_image, "_run_quietly", lambda command: shown if "--show-depends" in command else ""):
                text = foreign_image._initramfs(root, "6.1").decode(errors="replace")
        self.assertEqual([line.split("/")[-1] for line in text.splitlines() if line.startswith("insmod")], names)

    def test_an_installation_that_has_not_ended_well_is_none(self):
        with tempfile.TemporaryDirectory() as shared, mock.patch.object(foreign_image, "_run", lambda *_, **__: None):
            with self.assertRaises(subprocess.CalledProcessError):
                foreign_image._boot("arm64", "/k", "/i", "/d", shared, io.StringIO())
            with open(os.path.join(shared, "done"), "wb"):
                pass
            foreign_image._boot("arm64", "/k", "/i", "/d", shared, io.StringIO())


class Disks(unittest.TestCase):
    def made_for(self, arch, processor):
        """Names of the two things that are made."""
        places = []
        with tempfile.NamedTemporaryFile() as deb, mock.patch.multiple(
                guest_image, _package=lambda *_: deb.name, _field=lambda *_: "libc6",
                made_once=lambda place, *_: places.append(os.path.basename(place))), \
                mock.patch.object(accelerator, "native", lambda: processor):
            guest_image.ensure("/build", arch, "/packages")
        return places

    def test_each_architecture_has_its_own_and_one_that_installs_itself_is_another(self):
        own, foreign = self.made_for("amd64", "amd64"), self.made_for("arm64", "amd64")
        self.assertTrue(own[0].startswith("debian-amd64-") and foreign[1].startswith("instrument-arm64-"))
        self.assertNotEqual(self.made_for("arm64", "arm64"), foreign)
        self.assertEqual(self.made_for("amd64", "amd64"), own)

    def test_a_program_that_makes_the_disk_asks_for_a_new_one(self):
        before = self.made_for("amd64", "amd64")
        with mock.patch.object(guest_image, "_scripts", lambda *names: [f"another {name}" for name in names]):
            after = self.made_for("amd64", "amd64")
        self.assertEqual(after[0], before[0])
        self.assertNotEqual(after[1], before[1])

    def test_of_a_dependency_the_first_name_counts(self):
        self.assertEqual(guest_image._names("libc6 (>= 2.34), python3:any, a1.0-x | b (<< 2), libstdc++6"),
                         ["libc6", "python3", "a1.0-x", "libstdc++6"])


if __name__ == "__main__":
    unittest.main()
