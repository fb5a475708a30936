"""The virtual instrument itself: contained, steerable, gone without a trace. Needs root; the shipped daemon runs in it."""

import argparse
import json
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from support import BENCH, wait_until
from instrumentlib import kernel_setting, privilege

SCRIPT = os.path.join(BENCH, "instrument")
BUILD = None


class Instrument:
    """One running instrument without platform elements."""

    def __init__(self, *options):
        self._folder = tempfile.TemporaryDirectory(prefix="instrument-test-")
        self.run_dir = os.path.join(self._folder.name, "run")
        self.process = subprocess.Popen(
            [SCRIPT, "run", "--build", BUILD, "--run-dir", self.run_dir, "--no-elements", *options],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.output = []
        for line in self.process.stdout:
            self.output.append(line.rstrip("\n"))
            if self.output[-1] == "ready":
                return
        raise RuntimeError("\n".join(self.output) + self.end())

    def call(self, command, *arguments, options=()):
        return subprocess.run([SCRIPT, command, "--run-dir", self.run_dir, *options, *arguments],
                              capture_output=True, text=True, errors="surrogateescape", check=False)

    def inside(self, line, sender=False):
        return self.call("exec", "sh", "-c", line, options=["--sender"] if sender else [])

    def path(self, name):
        return os.path.join(self.run_dir, name)

    def commands(self):
        return [json.loads(line) for line in self.call("commands").stdout.splitlines()]

    def end(self, number=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(number)
        try:
            self.process.wait(60)
        finally:
            self.process.kill()
            self.process.stdout.close()
        errors = self.process.stderr.read()
        self.process.stderr.close()
        self._folder.cleanup()
        return errors


def processes_of(run_dir):
    """Processes on the host that still have a mount of the instrument's."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/mounts", encoding="utf-8", errors="replace") as mounts:
                if run_dir in mounts.read():
                    found.append(pid)
        except OSError:
            pass
    return found


class ContainmentTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.instrument = Instrument("--no-daemon")

    @classmethod
    def tearDownClass(cls):
        cls.instrument.end()

    def assert_refused(self, line):
        result = self.instrument.inside(line)
        self.assertNotEqual(result.returncode, 0, f"{line}: {result.stdout}")

    def test_what_is_written_to_the_root_stays_inside(self):
        name = f"/etc/written-by-{os.getpid()}"
        self.assertEqual(self.instrument.inside(f"echo x > {name} && rm /etc/passwd && cat {name}").stdout, "x\n")
        self.assertFalse(os.path.exists(name))
        self.assertTrue(os.path.exists("/etc/passwd"))

    def test_reach_for_the_host_is_refused(self):
        for line in ("mount -t tmpfs x /mnt", "mount -o remount,rw /sys", "mknod /tmp/disk b 254 0",
                     "date -s 2020-01-01", "echo 1 > /proc/sys/kernel/panic", "echo 1 > /sys/bus/pci/rescan",
                     "echo b > /proc/sysrq-trigger", "unshare -m true", "hostname other"):
            with self.subTest(line):
                self.assert_refused(line)

    def test_only_its_own_processes_are_seen(self):
        seen = self.instrument.inside("cat /proc/[0-9]*/comm").stdout.split()
        self.assertIn("NetworkManager", seen)
        self.assertNotIn("python3", seen)  # such as this test

    def test_there_is_no_way_out_of_its_networks(self):
        for sender in (False, True):
            devices = self.instrument.inside("ip -o link | cut -d: -f2 | cut -d@ -f1", sender).stdout.split()
            self.assertEqual(sorted(devices), sorted(["lo", "uplink" if sender else "eth0"]))

    def test_restarting_and_service_programs_are_noted_only(self):
        self.instrument.call("commands", "--clear")
        self.assertEqual(self.instrument.inside("reboot && systemctl start weston && /sbin/poweroff").returncode, 0)
        noted = self.instrument.commands()
        self.assertEqual([(n["kind"], n["argv"]) for n in noted],
                         [("stand-in", ["reboot"]), ("stand-in", ["systemctl", "start", "weston"]),
                          ("stand-in", ["/sbin/poweroff"])])
        self.assertIsNone(self.instrument.process.poll())

    def test_offloads_of_eth0_are_off(self):
        features = self.instrument.inside("ethtool -k eth0").stdout
        for feature in ("tcp-segmentation-offload", "generic-segmentation-offload", "generic-receive-offload",
                        "large-receive-offload"):
            self.assertIn(f"{feature}: off", features)


class SteeringTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        host = tempfile.TemporaryDirectory()
        cls.addClassCleanup(host.cleanup)
        bitstream, gpio = os.path.join(host.name, "a.bit"), os.path.join(host.name, "gpio")
        os.makedirs(os.path.join(gpio, "gpio14"))
        for path, text in ((bitstream, "bitstream"), (os.path.join(gpio, "export"), "")):
            with open(path, "w", encoding="ascii") as file:
                file.write(text)
        cls.instrument = Instrument("--file", f"{bitstream}=/home/ondrak/Tessary/Tessary.bit",
                                    "--bind", f"{gpio}=/sys/class/gpio", "--card", "3M",
                                    "--daemon-env", "GREETED=yes")
        cls.addClassCleanup(cls.instrument.end)

    def daemon_pid(self):
        result = self.instrument.call("daemon", "pid")
        return int(result.stdout) if result.returncode == 0 else None

    def ensure_daemon(self):
        if not self.daemon_pid():
            self.instrument.call("daemon", "start")

    def restart_and_wait_for_its_greeting(self):
        """What is sent to the daemon before that is lost: it empties the line when it opens it."""
        def greetings():
            with open(self.instrument.path("line.log"), encoding="ascii") as log:
                return log.read().count(b"HELLO !\r\n".hex())
        before = greetings()
        self.instrument.call("daemon", "restart")
        self.assertTrue(wait_until(lambda: greetings() > before))

    def test_ready_is_the_last_line_and_the_setting_of_the_kernel_is_named(self):
        self.assertEqual(self.instrument.output[-1], "ready")
        self.assertTrue(any(self.instrument.path("controller") in line for line in self.instrument.output))

    def test_eth0_gets_its_address_from_the_senders_side_and_answers(self):
        self.ensure_daemon()
        status = wait_until(lambda: "192.168.77." in self.instrument.call("status").stdout.partition("uplink")[0])
        self.assertTrue(status, self.instrument.call("status").stdout)
        self.assertTrue(wait_until(lambda: self.instrument.inside("ping -c 1 -W 5 192.168.77.1").returncode == 0))

    def test_link_down_takes_the_carrier_and_link_up_brings_it_and_the_multicast_route_back(self):
        carrier = "cat /sys/class/net/eth0/carrier"
        self.assertEqual(self.instrument.call("link", "down").stderr, "")
        self.assertTrue(wait_until(lambda: self.instrument.inside(carrier).stdout == "0\n"))
        self.assertEqual(self.instrument.call("link", "up").stderr, "")
        self.assertTrue(wait_until(lambda: self.instrument.inside(carrier).stdout == "1\n"))
        self.assertIn("uplink", self.instrument.inside("ip route get 239.1.2.3", sender=True).stdout)

    def test_exec_passes_status_and_signals_on(self):
        self.assertEqual(self.instrument.inside("exit 7").returncode, 7)
        self.assertEqual(self.instrument.call("exec", "no-such-program").returncode, 127)
        call = subprocess.Popen([SCRIPT, "exec", "--run-dir", self.instrument.run_dir, "sh", "-c",
                                 "trap 'exit 9' TERM; echo up; while :; do sleep 0.05; done"],
                                stdout=subprocess.PIPE, text=True)
        self.assertEqual(call.stdout.readline(), "up\n")
        call.terminate()
        self.assertEqual(call.wait(60), 9)
        call.stdout.close()

    def test_a_command_ends_with_the_killed_call_that_entered(self):
        call = subprocess.Popen([SCRIPT, "exec", "--run-dir", self.instrument.run_dir, "sleep", "987"])
        running = "grep -l 987 /proc/[0-9]*/cmdline 2>/dev/null | xargs -r cat | tr '\\0' ' '"
        self.assertTrue(wait_until(lambda: "sleep 987" in self.instrument.inside(running).stdout))
        call.kill()
        call.wait()
        self.assertTrue(wait_until(lambda: "sleep 987" not in self.instrument.inside(running).stdout))

    def test_kill_of_the_daemon_leaves_the_instrument_up(self):
        self.ensure_daemon()
        waiter = subprocess.Popen([SCRIPT, "daemon", "wait", "--run-dir", self.instrument.run_dir],
                                  stdout=subprocess.PIPE, text=True)
        time.sleep(0.3)  # so that it waits; without, it is told of the end all the same
        os.kill(self.daemon_pid(), signal.SIGKILL)
        self.assertEqual(waiter.communicate(timeout=60)[0], "killed by signal 9 (SIGKILL)\n")
        self.assertIsNone(self.daemon_pid())
        self.assertIsNone(self.instrument.process.poll())
        self.assertEqual(self.instrument.call("daemon", "start").returncode, 0)
        self.assertTrue(self.daemon_pid())

    def test_a_second_daemon_is_refused(self):
        self.ensure_daemon()
        result = self.instrument.call("daemon", "start")
        self.assertEqual(result.returncode, 1)
        self.assertIn("runs already", result.stderr)

    def test_the_daemon_has_a_clean_environment_and_what_was_given(self):
        self.ensure_daemon()
        with open(f"/proc/{self.daemon_pid()}/environ", encoding="utf-8") as file:
            environment = dict(entry.split("=", 1) for entry in file.read().split("\0") if entry)
        self.assertEqual(environment["HOME"], "/root")
        self.assertEqual(environment["GREETED"], "yes")
        self.assertFalse([name for name in environment if name.startswith(("SUDO_", "XDG_", "DISPLAY"))])
        self.assertEqual(os.readlink(f"/proc/{self.daemon_pid()}/cwd"), "/")

    def test_the_daemons_commands_are_noted_as_its_own(self):
        self.instrument.call("commands", "--clear")
        self.instrument.call("daemon", "restart")
        wanted = ["sh", "-c", "nmcli networking on"]
        self.assertTrue(wait_until(lambda: any(n["argv"] == wanted for n in self.instrument.commands())))
        note = next(n for n in self.instrument.commands() if n["argv"] == wanted)
        self.assertEqual((note["kind"], note["parent"], note["by_daemon"], note["cwd"]),
                         ("shell", "tessary", True, "/"))
        self.assertTrue(wait_until(lambda: any(n["argv"] == ["nmcli", "networking", "on"] and n["by_daemon"]
                                               for n in self.instrument.commands())))

    def test_a_text_behind_the_end_of_the_shells_options_is_noted_as_any_other(self):
        """As the C library of Debian 13 hands it over."""
        self.restart_and_wait_for_its_greeting()
        self.instrument.call("commands", "--clear")
        line = os.open(self.instrument.path("controller"), os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, line)
        os.write(line, b"command:exec sh -c -- 'true of Debian 13'\n")
        wanted = ["sh", "-c", "true of Debian 13"]
        self.assertTrue(wait_until(lambda: any(n["argv"] == wanted for n in self.instrument.commands())))

    def test_arguments_of_any_bytes_are_noted_exactly(self):
        self.instrument.call("commands", "--clear")
        odd = "a\"b\\c\n\x01\u00e9\udcff"
        self.instrument.call("exec", "/opt/commandlog/bin/ping", "-V", odd)
        note = next(n for n in self.instrument.commands() if n["argv"][0] == "ping")
        self.assertEqual(note["argv"], ["ping", "-V", odd])
        self.assertFalse(note["by_daemon"])

    def test_a_program_fails_as_often_as_asked_and_only_for_the_argument_named(self):
        self.instrument.call("behave", "smcroute", "--status", "3", "--stderr", "No such device", "--times", "1",
                             "--when=239.0.0.9")  # a group that the daemon never joins
        smcroute = "PATH=/opt/commandlog/bin:$PATH; smcroute -h >/dev/null; echo $?; smcroute -j x 239.0.0.9; echo $?"
        result = self.instrument.inside(smcroute)
        self.assertEqual((result.stdout, result.stderr), ("0\n3\n", "No such device"))
        self.assertNotIn("No such device", self.instrument.inside(smcroute).stderr)
        self.instrument.call("behave", "smcroute", "--real")

    def test_files_card_and_host_folders_are_where_they_were_asked_for(self):
        self.assertEqual(self.instrument.inside("cat /home/ondrak/Tessary/Tessary.bit").stdout, "bitstream")
        self.assertEqual(self.instrument.inside("ls /sys/class/gpio").stdout.split(), ["export", "gpio14"])
        self.assertIn("eth0", self.instrument.inside("ls /sys/class/net").stdout)
        full = self.instrument.inside("head -c 4M /dev/zero > /run/media/mmcblk1p1/record.ts")
        self.assertIn("No space left", full.stderr)


class StartAndEndTest(unittest.TestCase):
    def test_line_settings_are_the_daemons_only_after_its_start(self):
        instrument = Instrument("--no-daemon")
        self.addCleanup(instrument.end)
        self.assertIn("speed 9600", instrument.inside("stty -F /dev/ttymxc1").stdout)
        instrument.call("daemon", "start")
        self.assertTrue(wait_until(lambda: "speed 115200" in instrument.inside("stty -F /dev/ttymxc1").stdout))

    def test_the_greeting_waits_for_a_late_controller(self):
        instrument = Instrument()
        self.addCleanup(instrument.end)
        wait_until(lambda: os.path.getsize(instrument.path("line.log")))
        fd = os.open(instrument.path("controller"), os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, fd)
        self.assertEqual(os.read(fd, 100), b"HELLO !\r\n")

    def test_each_way_out_leaves_nothing(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGKILL):
            with self.subTest(number):
                instrument = Instrument()
                run_dir = instrument.run_dir
                self.assertTrue(processes_of(run_dir))
                instrument.end(number)
                self.assertTrue(wait_until(lambda run_dir=run_dir: not processes_of(run_dir)))

    def test_the_stop_command_waits_until_it_is_gone(self):
        instrument = Instrument()
        self.assertEqual(instrument.call("stop").returncode, 0)
        self.assertEqual(instrument.process.wait(60), 0)
        left = set(os.listdir(instrument.run_dir))
        self.assertFalse(left & {"controller", "console", "control", "state.json", ".machine"})
        self.assertIn("commands.log", left)
        instrument.end()

    def test_the_receive_buffer_limit_is_raised_for_two_and_put_back_after_both(self):
        if privilege.is_users_own():
            self.skipTest("a user's own root can not raise net.core.rmem_max")
        before = kernel_setting._read_setting()
        if before >= kernel_setting.NEEDED:
            self.skipTest("net.core.rmem_max is high already, or another instrument runs")
        first, second = Instrument("--no-daemon"), Instrument("--no-daemon")
        self.assertEqual(kernel_setting._read_setting(), kernel_setting.NEEDED)
        first.end()
        self.assertEqual(kernel_setting._read_setting(), kernel_setting.NEEDED)
        errors = second.end()
        # What it says, not the setting: another instrument may have started since.
        self.assertRegex(errors, f"rmem_max is {before} again|stays at {kernel_setting.NEEDED} for [0-9]+ other instrument")

    def test_a_start_that_fails_half_way_takes_down_what_it_had_set_up(self):
        with self.assertRaisesRegex(RuntimeError, "can not be made inside"):
            Instrument("--bind", "/etc/passwd=/proc/no/such/place")


def main():
    global BUILD  # pylint: disable=global-statement
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    options, rest = parser.parse_known_args()
    BUILD = options.build
    if os.geteuid() != 0:
        print("skipped: the virtual instrument needs root")
        return 77
    unittest.main(argv=[sys.argv[0], "-v", *rest])


if __name__ == "__main__":
    sys.exit(main())
