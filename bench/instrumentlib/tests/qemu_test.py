"""The booted instrument's board: QEMU takes each option, and nothing leads out of the run directory."""

import dataclasses
import os
import shutil
import socket
import subprocess
import tempfile
import unittest

import support  # noqa: F401  (the way to the modules)
from instrumentlib import accelerator, qemu
from instrumentlib.errors import BenchError
from instrumentlib.guest_link import Monitor

BOARD = qemu.Board(arch="amd64", accelerator="tcg", kernel="/k", initrd="/i", system="/run/a,b/system.qcow2", card="", files="",
                   controller="/dev/pts/1", console="/dev/pts/2", io_folder="/run/x/io", boot_log="/run/x/boot.log",
                   journal_log="/run/x/journal.log", daemon_log="/run/x/daemon.log", sound="/run/x/io/sound.wav")


class BoardTest(unittest.TestCase):
    def test_an_empty_slot_and_no_files_need_no_images(self):
        words = " ".join(qemu.command(BOARD, 3, 4))
        self.assertNotIn("sd-card", words)
        self.assertNotIn("serial=files", words)

    def test_commas_in_paths_are_not_taken_for_options(self):
        self.assertIn("file=/run/a,,b/system.qcow2", " ".join(qemu.command(BOARD, 3, 4)))

    def test_an_emulated_processor_has_a_name_and_the_machines_own_has_none(self):
        arm = dataclasses.replace(BOARD, arch="arm64", accelerator=accelerator.EMULATED)
        self.assertIn("-cpu cortex-a72", " ".join(qemu.command(arm, 3, 4)))
        self.assertIn("-cpu max", " ".join(qemu.command(dataclasses.replace(arm, accelerator="kvm"), 3, 4)))

    def test_a_machine_that_installs_itself_keeps_what_is_written_and_sees_the_work(self):
        words = qemu.installer_command("arm64", "/k", "/i", "init=/x", "/disk,1", "/shared")
        self.assertIn("-no-reboot", words)
        text = " ".join(words)
        self.assertIn("file=/disk,,1", text)
        self.assertIn("path=/shared", text)
        self.assertIn("console=ttyAMA0 panic=-1 init=/x", text)

    @unittest.skipUnless(shutil.which("qemu-system-x86_64") and os.geteuid() == 0, "needs root and script/bootstrap --with machine")
    def test_qemu_takes_the_board(self):
        with tempfile.TemporaryDirectory() as folder:
            board = self.board_in(folder)
            monitor, far = socket.socketpair()
            agent, far_agent = socket.socketpair()
            command = qemu.command(board, far.fileno(), far_agent.fileno())
            # Stopped before its first instruction; without kernel, and without the cable, which needs a namespace.
            command[command.index("-netdev") + 1] = f"user,id={qemu.CABLE}"
            for option in ("-kernel", "-initrd", "-append"):
                del command[command.index(option):command.index(option) + 2]
            with subprocess.Popen([*command, "-S"], pass_fds=(far.fileno(), far_agent.fileno()), stdin=subprocess.DEVNULL,
                                  stderr=subprocess.PIPE, text=True) as process, monitor, agent:
                far.close()
                far_agent.close()
                try:
                    status = Monitor(monitor).call("query-status")["status"]
                except BenchError:
                    status = process.communicate()[1]
                process.kill()
        self.assertEqual(status, "prelaunch")

    @staticmethod
    def board_in(folder):
        def path(name, size=1 << 20):
            full = os.path.join(folder, name)
            with open(full, "wb") as file:
                file.truncate(size)
            return full
        subprocess.run(["qemu-img", "create", "-q", "-f", "qcow2", os.path.join(folder, "system"), "1M"], check=True)
        terminal = os.ttyname(os.openpty()[1])
        return dataclasses.replace(
            BOARD, kernel="/bin/true", initrd=path("initrd"), system=os.path.join(folder, "system"), card=path("card"),
            files=path("files"), controller=terminal, console=terminal, io_folder=folder, boot_log=path("boot.log"),
            journal_log=path("journal.log"), daemon_log=path("daemon.log"), sound=path("sound.wav"))


if __name__ == "__main__":
    unittest.main()
