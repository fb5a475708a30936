"""What is kept of a failure: the last commands, the logs, what was shown and played, the daemon's stacks or core."""

import contextlib
import glob
import json
import os
import shutil
import subprocess

import tessary

_LOG_TAIL = 20_000_000
_GDB_SECONDS = 90
# Where there is no debugger: twice, what each thread does (state, ticks in user's and kernel's code, where it waits) and what came
# over the network.
_LOOK = """for seconds in 0 10; do
    sleep $seconds; date +%T
    for task in /proc/$0/task/*; do
        echo "$(cat $task/comm): $(sed 's/.*) //' $task/stat | cut -d' ' -f1,12,13) $(cat $task/wchan)"
    done
    ip maddr show eth0; ip -s link show eth0; ss -uanmp; grep ^Udp: /proc/net/snmp
done 2>&1"""


def write_text(path, text):
    """Writes a text file."""
    with open(path, "w", encoding="utf-8", errors="backslashreplace") as file:
        file.write(text)


def write_json(path, content):
    """Writes a JSON file whole: a reader sees the old content or the new one."""
    write_text(path + ".new", json.dumps(content, indent=2) + "\n")
    os.rename(path + ".new", path)


def keep(folder, unit, pid, last, reason):
    """Gathers everything in `folder`; what can not be had is left out."""
    os.makedirs(folder, exist_ok=True)
    write_text(os.path.join(folder, "reason.txt"), reason + "\n")
    write_text(os.path.join(folder, "commands.jsonl"), "".join(json.dumps(entry) + "\n" for entry in last))
    for name in ("daemon.log", "line.log", "commands.log", "services.log", "journal.log", "boot.log"):
        _keep_tail(os.path.join(unit.run_dir, name), os.path.join(folder, name))
    for name in ("display.ppm", "sound.wav"):
        _keep_tail(unit.shared(name), os.path.join(folder, name))
    if unit.booted:
        _keep_look(folder, pid, unit)  # its processes are seen inside only
        return
    with contextlib.suppress(OSError):
        shutil.copyfile(unit.inside("usr/bin/tessary"), os.path.join(folder, "tessary"))
    cores = []
    with contextlib.suppress(OSError):
        for core in glob.glob(str(unit.inside("core*"))):
            cores.append(shutil.copyfile(core, os.path.join(folder, os.path.basename(core))))
    where = ["-p", str(pid)] if os.path.exists(f"/proc/{pid}") else cores[:1]
    if where:
        _backtrace(folder, where, unit)


def _keep_look(folder, pid, unit):
    try:
        found = unit.run("sh", "-c", _LOOK, str(pid))
    except tessary.TessaryError as error:
        found = f"nobody could look: {error}\n"
    write_text(os.path.join(folder, "threads.txt"), found)


def _backtrace(folder, where, unit):
    if not shutil.which("gdb"):
        write_text(os.path.join(folder, "backtrace.txt"), "no gdb on this machine; install it: apt-get install gdb\n")
        return
    command = ["gdb", "-nx", "-batch", "-ex", f"set sysroot {unit.inside('')}", "-ex", "thread apply all bt 40",
               os.path.join(folder, "tessary"), *where]
    with open(os.path.join(folder, "backtrace.txt"), "wb") as output, contextlib.suppress(subprocess.TimeoutExpired):
        subprocess.run(command, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT, timeout=_GDB_SECONDS,
                       check=False)


def _keep_tail(source, target):
    with contextlib.suppress(OSError), open(source, "rb") as file, open(target, "wb") as copy:
        file.seek(max(0, os.path.getsize(source) - _LOG_TAIL))
        shutil.copyfileobj(file, copy)
