"""Every command of the protocol: how likely, which text, which reply, how long it may take."""

import dataclasses
import typing

from . import replies

# Seconds for the poll cycle around a command: its link watch may restart the routing daemon, up to three times 1.1 s and the
# programs' own time, on a busy machine.
CYCLE_SECONDS = 15.0
_NMCLI_SECONDS = 30.0
_PIPELINE_SECONDS = 15.0  # stopping a source waits for its bus thread, up to 5 s, and its streaming threads
_DAB_BLOCK = 117


@dataclasses.dataclass
class Command:
    """One command as it is sent. `last`: only at the end of a burst; `update`: the package of a software update."""

    kind: str
    text: bytes
    parse: typing.Callable = replies.silent
    seconds: float = 1.0
    last: bool = False
    update: typing.Any = None
    source: bool = False  # replaces, starts or ends a stream source


def _plain(kind, word, parse=replies.silent, seconds=1.0, **more):
    return lambda _random, _scene: Command(kind, word + b"\n", parse, seconds, **more)


def _interface(random, scene):
    what = random.choice(["dhcp", "dhcp", "static", "static", "vlan", "ethtool"])
    address = f"192.168.77.{random.randint(20, 60)} 255.255.255.0"
    text = {"dhcp": "dhcp", "static": address, "vlan": f"vlan_id={random.randint(2, 4094)};dhcp",
            "ethtool": "ethtool -s eth0 speed 1000 duplex full autoneg on;dhcp"}[what]
    scene.network = what
    return Command("interface=", f"interface={text}\n".encode(), seconds=3 * _NMCLI_SECONDS)


def _server(random, scene):
    text = scene.on_air.server if scene.on_air and random.random() < 0.9 else random.choice(scene.servers)
    return Command("server=", f"server={text}\n".encode(), seconds=5)


def _play(random, _scene):
    text = random.choice(["1", "2", "3", "1", "2", "3", "1", "2", "3", "1", "2", "1", "2", "4", "5", "6", "7",
                          "65535", "0", ""])
    return Command("play=", f"play={text}\n".encode(), seconds=_PIPELINE_SECONDS, source=True)


def _ping(random, scene):
    count = random.randint(1, 3)
    target = random.choice([scene.sender_address, scene.sender_address, "192.168.77.250", "sender", "127.0.0.1"])
    size = random.choice(["", "", " -s 1400"])
    return Command("ping", f"ping -c {count} -w {count + 2}{size} {target}\n".encode(),
                   replies.anything_until_version, count + 15.0, last=True)


def _index(kind, word, parse, seconds=1.0, source=False):
    def make(random, _scene):
        # The NUL that the daemon writes over the eleventh byte falls on the carriage return, or on the burst's own NUL.
        index = random.randint(0, 12)
        return Command(kind, word + b"%02X" % index + b"\r\n", parse(index), seconds, source=source)
    return make


def _level(random, _scene):
    return Command("!16_O_AX:", b"!16_O_AX:%02X\n" % random.randint(0, 255), replies.LEVEL_FRAME)


def _dab(random, _scene):
    # No NUL: it would cut the burst. The line feed is the burst's end.
    block = b"dab" + bytes(random.randint(1, 255) for _ in range(random.choice([1, 20, _DAB_BLOCK - 4])))
    block = block.replace(b"\n", b"~") + b"\n"
    return Command("dab", block, replies.inverted_block(block.ljust(_DAB_BLOCK, b"\0")), 8.0, last=True)


_SHELL = ["true", "false", "exit 3", "sleep 1", "sync", "ls -l /tmp >/dev/null", "nmcli device >/dev/null",
          "date +%s > /tmp/soak", "head -c 100000 /dev/urandom > /tmp/noise; rm /tmp/noise", "kill -TERM $$",
          "kill -KILL $$", "no-such-program", "sleep 2 &", "cat /proc/self/status | wc -l", "ulimit -v 1000; ls",
          "'", "echo \\377", "while read x; do :; done"]


def _shell(random, scene):
    text = "reboot" if random.random() < 0.02 else random.choice(_SHELL)
    if scene.booted and text == "reboot":
        text = "true"  # a machine would, and the daemon with it
    return Command("command:", f"command:{text}\n".encode(), seconds=10)


def _unknown(random, _scene):
    letters = "abcdefghijklmnopqrstuvwxyz?=:!_ 0123456789"
    text = "x" + "".join(random.choice(letters) for _ in range(random.randint(0, 300)))
    return Command("unknown", text.encode() + b"\n")


def _update(random, scene):
    package = scene.packages.choose(random)
    reply = rb"waiting update\n" + (rb"update ok\n" if package.ok else b"")
    return Command("update", b"update %d\n" % package.size, replies.pattern(reply), package.seconds + _NMCLI_SECONDS,
                   last=True, update=package)


# kind: (weight, maker). The weights give each state of the daemon time to be in.
TABLE = {
    "interface?": (5, _plain("interface?", b"interface?", replies.INTERFACE_LINE)),
    "interface=": (1.5, _interface),
    "server?": (2, _plain("server?", b"server?")),
    "server=": (8, _server),
    "scancur": (6, _plain("scancur", b"scancur", seconds=_PIPELINE_SECONDS, source=True)),
    "streaminfo?": (9, _plain("streaminfo?", b"streaminfo?", replies.sections(0x42, b"<SDT>"))),
    "videostatus?": (8, _plain("videostatus?", b"videostatus?", replies.STATUS_WORD)),
    "getnit?": (6, _plain("getnit?", b"getnit?", replies.sections(0x40))),
    "getpmt?": (8, _plain("getpmt?", b"getpmt?", replies.sections(0x02, only_one=True))),
    "play=": (6, _play),
    "getiat?": (4, _plain("getiat?", b"getiat?", replies.ARRIVALS, _PIPELINE_SECONDS)),
    "getethernetmes?": (8, _plain("getethernetmes?", b"getethernetmes?", replies.MEASUREMENT, _PIPELINE_SECONDS)),
    "ping": (2, _ping),
    "version?": (6, _plain("version?", b"version?", replies.VERSION_LINE)),
    "update": (0.8, _update),
    "sendts": (3, _plain("sendts", b"sendts", seconds=_PIPELINE_SECONDS, source=True)),
    "t2miframe?": (6, _plain("t2miframe?", b"t2miframe?", replies.t2mi_packet, 3.0, last=True)),
    "ipstatus?": (3, _plain("ipstatus?", b"ipstatus?", replies.anything_until_version, 10.0, last=True)),
    "!07_S_&": (3, _plain("!07_S_&", b"!07_S_&", seconds=_PIPELINE_SECONDS, source=True)),
    "!0C_D_IX:": (3, _index("!0C_D_IX:", b"!0C_D_IX:", lambda _: replies.PLAY_FRAME, _PIPELINE_SECONDS, True)),
    "!0C_L_IX:": (2, _index("!0C_L_IX:", b"!0C_L_IX:", replies.service_name)),
    "!07_A_&": (3, _plain("!07_A_&", b"!07_A_&", replies.STATUS_FRAME)),
    "!07_E_&": (5, _plain("!07_E_&", b"!07_E_&", replies.INFO_FRAME)),
    "!16_O_AX:": (2, _level),
    "!07_V_&": (2, _plain("!07_V_&", b"!07_V_&", replies.VERSION_LINE)),
    "PVR_record": (4, _plain("PVR_record", b"PVR_record", seconds=_PIPELINE_SECONDS, source=True)),
    "PVR_stop": (3, _plain("PVR_stop", b"PVR_stop", seconds=_PIPELINE_SECONDS, source=True)),
    "PVR_scan": (4, _plain("PVR_scan", b"PVR_scan", seconds=_PIPELINE_SECONDS, source=True)),
    "PVR_reclist": (5, _plain("PVR_reclist", b"PVR_reclist", replies.RECORDING_SIZE)),
    "PVR_export": (1.5, _plain("PVR_export", b"PVR_export", replies.EXPORT_LINE, 100.0, source=True)),
    # A start that fails takes 80 attempts of 0.5 s.
    "START_DAB": (0.7, _plain("START_DAB", b"START_DAB", seconds=75.0, source=True)),
    "STOP_DAB": (0.7, _plain("STOP_DAB", b"STOP_DAB", seconds=20.0)),
    "dab": (4, _dab),
    "command:": (5, _shell),
    "unknown": (3, _unknown),
}
# Those whose reply is none, whatever happens; the others answer always, or when there is something to tell.
SILENT = {"interface=", "server?", "server=", "scancur", "play=", "sendts", "!07_S_&", "PVR_record", "PVR_stop", "PVR_scan",
          "START_DAB", "STOP_DAB", "command:", "unknown"}
# Those that only ask, or do what leaves the stream alone.
PEACEFUL = ["interface?", "server?", "streaminfo?", "videostatus?", "getnit?", "getpmt?", "version?", "t2miframe?", "ipstatus?",
            "!0C_L_IX:", "!07_A_&", "!07_E_&", "!16_O_AX:", "!07_V_&", "PVR_reclist", "dab", "command:", "unknown", "ping"]


def make(kind, random, scene):
    """One command of that kind."""
    return TABLE[kind][1](random, scene)


def choose(random, scene, kinds=None):
    """One command of any kind, or of these."""
    kinds = kinds or list(TABLE)
    return make(random.choices(kinds, [TABLE[kind][0] for kind in kinds])[0], random, scene)


def burst(commands):
    """The bytes of a burst: a NUL byte between two commands, and no line end in front of it. The daemon takes a burst to end where
    a read ends with a line feed, and on a real line that happens anywhere."""
    return b"\0".join([*(command.text.rstrip(b"\r\n") for command in commands[:-1]), commands[-1].text])


MOST_BYTES = 600  # a burst of the daemon's is at most 640
