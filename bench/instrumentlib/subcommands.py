"""Option parsing and the sub-commands other than `exec`."""

import argparse
import os
import sys
import time

from . import control, elf, places, qemu
from .enter import USAGE as EXEC_USAGE
from .errors import BenchError
from .run_dir import DEFAULT, RunDir

_STOP_SECONDS = 20
_STOP_SECONDS_OF_A_MACHINE = 240  # one whose disk stays shuts down first


def main(arguments):
    """Returns the exit status."""
    options = _parser().parse_args(arguments)
    return options.action(options)


def _parser():
    parser = argparse.ArgumentParser(
        prog=places.COMMAND, formatter_class=argparse.RawDescriptionHelpFormatter,
        description="The virtual instrument: the shipped daemon at its absolute paths, in namespaces over an overlay "
                    "of this machine's root.\nNothing that the daemon does reaches the machine. With --machine, a machine of its "
                    "own in QEMU. See docs/bench.md.")
    commands = parser.add_subparsers(metavar="COMMAND", required=True)
    _add_run(_command(commands, "run", _run, "start an instrument and stay until Ctrl-C"))
    commands.add_parser("exec", help="run a command inside, or in the stream sender's network", usage=EXEC_USAGE[7:])
    daemon = _command(commands, "daemon", _daemon, "start, stop, kill (SIGKILL), restart the daemon, print its PID, "
                                                   "or wait for its end")
    daemon.add_argument("what", choices=["start", "stop", "kill", "restart", "pid", "wait"])
    daemon.add_argument("--inside", action="store_true", help="pid: as it counts inside the instrument")
    link = _command(commands, "link", _link, "plug the Ethernet cable in or out, at the sender's end")
    link.add_argument("what", choices=["up", "down"])
    power = _command(commands, "power", _power, "switch a booted instrument on, off as its power key does, or cut its power")
    power.add_argument("what", choices=["on", "off", "cut"])
    card = _command(commands, "card", _card, "put a booted instrument's memory card into its slot, or pull it")
    card.add_argument("what", choices=["in", "out"])
    _command(commands, "break", _break, "send a break on a booted instrument's serial line, from the controller's end")
    noted = _command(commands, "commands", _commands, "print the commands the command log noted, as JSON lines")
    noted.add_argument("--clear", action="store_true", help="forget them instead")
    _add_behave(_command(commands, "behave", _behave,
                         "let a program fail, stall or say something when the daemon runs it"))
    _command(commands, "status", _status, "tell whether an instrument runs, and how it is")
    _command(commands, "stop", _stop, "stop the instrument and wait until it is gone")
    return parser


def _command(commands, name, action, text):
    parser = commands.add_parser(name, help=text, description=text[0].upper() + text[1:] + ".")
    parser.add_argument("--run-dir", default=None, metavar="DIR",
                        help=f"the instrument's run directory (default: {DEFAULT})")
    parser.set_defaults(action=action)
    return parser


def _add_run(run):
    run.add_argument("--machine", metavar="ARCH", choices=qemu.ARCHITECTURES,
                     help="a booted instrument instead of the virtual one: a machine with this processor in QEMU, with Debian "
                          f"and the instrument's packages ({', '.join(qemu.ARCHITECTURES)})")
    run.add_argument("--packages", metavar="DIR", default=places.PACKAGES,
                     help=f"folder with the packages for the machine (default: {places.PACKAGES})")
    run.add_argument("--disk", metavar="FILE", help="the machine's disk, which keeps what is written; made when it is not "
                                                    "there (default: one that is gone in the end)")
    run.add_argument("--build", metavar="DIR", default=places.DEFAULT_BUILD,
                     help=f"build to take daemon, command log and platform elements from (default: {places.DEFAULT_BUILD})")
    run.add_argument("--daemon", metavar="FILE", help="another daemon than the build's")
    run.add_argument("--no-daemon", action="store_true", help="do not start the daemon (daemon start does later)")
    run.add_argument("--daemon-env", metavar="K=V", nargs="+", action="extend", default=[],
                     help="environment of the daemon, beyond the clean one")
    run.add_argument("--setarch", action="store_true",
                     help="run the daemon through setarch -R, as ThreadSanitizer needs it")
    run.add_argument("--wrapper", metavar="COMMAND", default="",
                     help="run the daemon through this command, such as 'strace -f -o /run/bench/strace'")
    run.add_argument("--emulator", metavar="FILE",
                     help="run the daemon, which is for another architecture, through this user-mode emulator, such as "
                          "/usr/bin/qemu-aarch64-static; the daemon's libraries must be installed on this machine")
    run.add_argument("--elements", metavar="DIR", help="folder of other platform elements than the build's: those for the "
                                                       "daemon's architecture")
    run.add_argument("--no-elements", action="store_true",
                     help="without the platform's GStreamer elements and sound card")
    run.add_argument("--file", metavar="SRC=DEST", action="append", default=[],
                     help="copy a file or folder of this machine to an absolute path inside, before the daemon starts")
    run.add_argument("--bind", metavar="SRC=DEST", action="append", default=[],
                     help="show a file, folder, pipe or device of this machine at an absolute path inside")
    run.add_argument("--remove-orphaned", action="store_true",
                     help="in the end remove the run directory, when the program that started this one has ended before")
    run.add_argument("--card", metavar="SIZE", default="256M",
                     help="size of the memory card at /run/media/mmcblk1p1 (default: 256M; 0 for no card)")


def _add_behave(behave):
    behave.add_argument("program", help="one that the command log notes, such as smcroute")
    behave.add_argument("--status", type=int, metavar="N", help="end with this status instead of running the program")
    behave.add_argument("--delay", type=float, metavar="S", help="wait so many seconds first")
    behave.add_argument("--stdout", metavar="TEXT", help="write this to standard output")
    behave.add_argument("--stderr", metavar="TEXT", help="write this to standard error")
    behave.add_argument("--times", type=int, metavar="N", help="only the next N calls")
    behave.add_argument("--when", metavar="ARG", help="only calls with this argument; write --when=-j for a dashed one")
    behave.add_argument("--real", action="store_true", help="back to the real program")


def _run_dir(options):
    return RunDir(options.run_dir or DEFAULT)


def _run(options):
    from . import supervisor
    supervisor.check_host()
    paths = _run_dir(options)
    module = _booted(paths, options) if options.machine else _virtual(paths, options)
    parent = os.getppid()
    try:
        return supervisor.Supervisor(paths, module, run_dir_given=options.run_dir is not None).run()
    finally:
        if options.remove_orphaned and os.getppid() != parent:
            paths.remove()


def _virtual(paths, options):
    from . import virtual
    from .machine import MachineSettings
    virtual.check_host()
    built = _built_files(options)
    machine = MachineSettings(
        scratch=paths.scratch, layer="", io_folder=paths.io, commands_log=paths.commands_log, terminals={},
        repository=places.SHOWN,
        files=_pairs("--file", options.file), binds=_pairs("--bind", options.bind), card_size=_card_size(options),
        multiarch=elf.multiarch(built["daemon"]), **built)
    return virtual.VirtualModule(paths, virtual.VirtualSettings(
        machine=machine, layer_folder=places.LAYER_FOLDER, daemon_env=_environment(options.daemon_env),
        wrapper=options.wrapper, setarch=options.setarch, start_daemon=not options.no_daemon))


def _card_size(options):
    return "" if options.card in ("0", "") else options.card


def _booted(paths, options):
    from . import booted
    for name in ("daemon", "no_daemon", "daemon_env", "setarch", "wrapper", "emulator", "elements", "no_elements", "bind"):
        if getattr(options, name):
            raise BenchError(f"--{name.replace('_', '-')} is the virtual instrument's; a machine boots the packages as they are",
                             "leave it out, or --machine")
    if places.INSTALLED:
        raise BenchError("a machine is made from a source tree's packages", "run it there: bench/instrument run --machine")
    booted.check_host(options.machine)
    return booted.BootedModule(paths, booted.BootedSettings(
        arch=options.machine, packages=os.path.realpath(options.packages),
        disk=os.path.realpath(options.disk) if options.disk else "", card_size=_card_size(options),
        files=_pairs("--file", options.file)))


def _built_files(options):
    """The files of the build; BenchError that says how to get them when one is missing."""
    elements = os.path.realpath(options.elements or places.part("elements", options.build))
    found = {
        "daemon": os.path.realpath(options.daemon or places.part("daemon", options.build)),
        "commandlog": places.part("commandlog", options.build),
        "elements": "" if options.no_elements else elements,
        "emulator": os.path.realpath(options.emulator) if options.emulator else "",
        "asound_conf": os.path.join(places.HERE, "elements", "asound.conf"),
    }
    wanted = [found["daemon"], found["commandlog"], *([found["emulator"]] if options.emulator else [])]
    if not options.no_elements:
        wanted += [os.path.join(elements, "libgstinstrument.so"),
                   os.path.join(elements, "libasound_module_pcm_instrumentdac.so"), found["asound_conf"]]
        if options.emulator:
            wanted.append(os.path.join(elements, places.EXAMINER))
    missing = [path for path in wanted if not os.path.isfile(path)]
    if missing:
        raise places.not_there(missing, options.build)
    return found


def _pairs(option, texts):
    pairs = []
    for text in texts:
        source, equals, target = text.partition("=")
        if not equals or not target.startswith("/"):
            raise BenchError(f"{option} {text}: expected SOURCE=/ABSOLUTE/PATH/INSIDE")
        if not os.path.exists(source):
            raise BenchError(f"{option} {text}: {source} does not exist")
        pairs.append((os.path.realpath(source), os.path.normpath(target)))
    return pairs


def _environment(texts):
    environment = {}
    for text in texts:
        key, equals, value = text.partition("=")
        if not equals:
            raise BenchError(f"--daemon-env {text}: expected NAME=VALUE")
        environment[key] = value
    return environment


def _ask(options, action, **more):
    paths = _run_dir(options)
    paths.read_state()
    return control.ask(paths.control, {"action": action, **more})


def _daemon(options):
    reply = _ask(options, f"daemon {options.what}")
    if options.what == "pid":
        print(reply["inside" if options.inside else "pid"])
    elif options.what == "wait":
        print(reply["end"])
    return 0


def _link(options):
    _ask(options, "link", up=options.what == "up")
    return 0


def _power(options):
    for name, value in _ask(options, "power", what=options.what).items():
        print(f"{name}: {value}")
    return 0


def _card(options):
    _ask(options, "card slot", what=options.what)
    return 0


def _break(options):
    _ask(options, "break")
    return 0


def _commands(options):
    path = _run_dir(options).commands_log
    try:
        if options.clear:
            os.truncate(path, 0)
        else:
            with open(path, "rb") as log:
                noted = log.read()
            sys.stdout.buffer.write(noted[:noted.rfind(b"\n") + 1])  # the rest is still being written
    except FileNotFoundError as error:
        raise BenchError(f"there is no {path}", f"start an instrument: sudo {places.COMMAND} run") from error
    return 0


def _behave(options):
    from . import behaviour
    state = _run_dir(options).read_state()
    if "init" not in state:
        raise BenchError("a booted instrument runs its programs as they are", "let them fail in the virtual instrument")
    if options.real:
        behaviour.clear(state["init"], options.program)
    else:
        behaviour.give(state["init"], options.program, status=options.status, stdout=options.stdout,
                       stderr=options.stderr, times=options.times, when=options.when,
                       delay_ms=None if options.delay is None else round(options.delay * 1000))
    return 0


def _status(options):
    paths = _run_dir(options)
    if not paths.in_use():
        print(f"no instrument runs with the run directory {paths.path}")
        return 3
    state = paths.read_state()  # an instrument that is starting has none yet, which is said
    print(f"run directory: {paths.path}\nsupervisor: PID {state['supervisor']}")
    for name, value in control.ask(paths.control, {"action": "status"}).items():
        print(f"{name}: {value}")
    return 0


def _stop(options):
    paths = _run_dir(options)
    seconds = _STOP_SECONDS_OF_A_MACHINE if "machine" in paths.read_state() else _STOP_SECONDS
    _ask(options, "stop")
    deadline = time.monotonic() + seconds
    while paths.in_use():
        if time.monotonic() > deadline:
            raise BenchError(f"the instrument has not stopped within {seconds} s",
                             f"see its terminal; its supervisor is PID {paths.read_state()['supervisor']}")
        time.sleep(0.02)
    return 0
