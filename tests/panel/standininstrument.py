"""The instrument behind the panel's stand-in: its state from recorded documents, changed as an instrument would change it."""

import datetime
import json
import math
import pathlib
import random
import subprocess
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
HOSTILE = "<img src=x onerror=document.title='owned'><script>document.title='owned'</script>"
COLUMNS = [
    "time",
    "present",
    "bit_rate",
    "delay_factor_ms",
    "continuity_errors",
    "iat_median_us",
    "iat_p95_us",
    "iat_p99_us",
    "iat_longest_us",
]
RATE, CHANNELS = 48000, 2


def recorded(name):
    return json.loads((HERE / "recorded" / f"{name}.json").read_text(encoding="utf-8"))


def lines_of(name):
    return (HERE / "recorded" / name).read_text(encoding="utf-8").splitlines()


def iso(seconds=None):
    return (
        datetime.datetime.fromtimestamp(time.time() if seconds is None else seconds)
        .astimezone()
        .isoformat(timespec="milliseconds")
    )


def history_row(second):
    """What was measured in this second: the same at each question. Every 20 minutes the stream is away for a while."""
    chance = random.Random(second)
    phase = second % 1200
    if 500 <= phase < 525:
        return [second, 0] + [None] * 7
    rate = 5159000 + 40000 * math.sin(second / 40) + chance.gauss(0, 9000)
    errors = chance.choice([1, 2, 4]) if 300 <= phase < 320 else 0
    longest = 6500 + abs(chance.gauss(0, 1500)) + (9000 if 300 <= phase < 320 else 0)
    return [
        second,
        1,
        round(rate),
        2 + (phase % 97 == 0) + 3 * (300 <= phase < 320),
        errors,
        round(2105 + chance.gauss(0, 6)),
        round(3150 + chance.gauss(0, 120)),
        round(4700 + chance.gauss(0, 300)),
        round(longest),
    ]


def node(name, value, offset, length, children=()):
    return {"name": name, "value": value, "offset": offset, "length": length, "children": list(children)}


def sdt_tree(data):
    """A decoded SDT section of `data`, as far as it takes to look at the page."""
    length = (data[1] & 0xF) << 8 | data[2]
    services, at = [], 11
    while at < 3 + length - 4:
        loop = (data[at + 3] & 0xF) << 8 | data[at + 4]
        parts, inside = [
            node("service_id", data[at] << 8 | data[at + 1], at, 2),
            node("running_status", data[at + 3] >> 5, at + 3, 1),
        ], at + 5
        while inside < at + 5 + loop:
            size = data[inside + 1]
            text = data[inside + 2 : inside + 2 + size][3:].decode("latin-1")
            parts.append(
                node(
                    f"descriptor 0x{data[inside]:02x}",
                    text,
                    inside,
                    2 + size,
                    [
                        node("descriptor_tag", f"0x{data[inside]:02x}", inside, 1),
                        node("descriptor_length", size, inside + 1, 1),
                    ],
                )
            )
            inside += 2 + size
        name = next((part["value"] for part in parts if part["name"] == "descriptor 0x48"), "")
        services.append(node("service", name, at, 5 + loop, parts))
        at += 5 + loop
    return [
        node(
            "SDT section",
            None,
            0,
            3 + length,
            [
                node("table_id", "0x42 (actual transport stream)", 0, 1),
                node("section_length", length, 1, 2),
                node("transport_stream_id", data[3] << 8 | data[4], 3, 2),
                node("version_number", data[5] >> 1 & 31, 5, 1),
                node("services", len(services), 11, length - 12, services),
                node("CRC_32", data[3 + length - 4 : 3 + length].hex(), length - 1, 4),
            ],
        )
    ]


def line_entry(entry, moment):
    return {"time": iso(moment), "direction": "to" if entry["dir"] == "to_daemon" else "from", "hex": entry["hex"]}


def logs():
    """What has been noted by now, in the topics that grow."""
    now = time.time()
    line = [line_entry(json.loads(text), now - 20 + at / 5) for at, text in enumerate(lines_of("line.jsonl"))]
    commands = [dict(entry, time=iso(entry["wall"])) for entry in map(json.loads, lines_of("commands.jsonl"))]
    said = [{"time": iso(now - 30 + at / 3), "text": text} for at, text in enumerate(lines_of("daemon.log"))]
    marks = [
        {"time": iso(now - 210), "text": "server udp://239.0.0.1:1234"},
        {"time": iso(now - 95), "text": "sender: 3 continuity errors a second"},
    ]
    return {"marks": marks, "line_log": line, "commands": commands, "daemon_log": said}


class Instrument:
    """The state, and those who are told of its changes."""

    def __init__(self, options):
        self.lock = threading.RLock()
        self.listeners = []
        self.topics = {}
        self.jobs = 0
        self.ran = []  # words of every command, for tests
        self.pace = options.pace
        self.token = options.token
        self.pictures = None
        scan = recorded("scan")
        if options.hostile:
            for service in scan["services"]:
                service["name"] = service["provider"] = HOSTILE
            scan["network"]["name"] = HOSTILE
        self.scan = scan
        self.set(
            "panel", {"version": "1.4.0", "allows": {"command": False, "update": False}, "upload_limit_bytes": 64_000_000}
        )
        self.set(
            "line",
            {
                "port": "/run/tessary-instrument/controller",
                "open": True,
                "answers": True,
                "error": None,
                "remedy": None,
                "since": iso(),
            },
        )
        self.set("instrument", {**recorded("instrument"), "server_time": iso(), "virtual": not options.real})
        self.set("stream", scan)
        self.set("play", None)
        self.set("recorder", {"recording": False, "bytes": 18_800_000})
        self.set("job", {"running": None, "waiting": []})
        self.set("arrivals", {"times_us": recorded("iat")["times_us"], "histogram": recorded("iat")["histogram"]})
        self.logs = logs()
        self.desk = recorded("desk")
        self.desk["senders"][0]["since"] = iso()
        self.set_measuring(False)
        if options.quiet_line:
            self.answer(False)

    def set(self, topic, value):
        with self.lock:
            self.topics[topic] = value
            self.tell(topic, value)

    def tell(self, topic, value):
        for listener in self.listeners:
            listener.put((topic, value))

    def log(self, topic, entry):
        with self.lock:
            self.logs[topic].append(entry)
            self.tell(topic, [entry])

    def answer(self, answers):
        trouble = (
            {}
            if answers
            else {"error": "the instrument does not answer", "remedy": "look whether it runs and the cable is plugged in"}
        )
        self.set(
            "line", {**self.topics["line"], "answers": answers, "error": None, "remedy": None, "since": iso(), **trouble}
        )

    def set_measuring(self, on):
        value = {
            "time": iso(),
            "measuring": on,
            "state": "absent",
            "link": True if on else None,
            "figures": None,
            "since_start": None,
            "inter_arrival": None,
        }
        if on:
            second = int(time.time())
            row = dict(zip(COLUMNS, history_row(second)))
            base = recorded("measure")
            if row["present"]:
                value.update(
                    state="valid",
                    since_start=dict(base["since_start"], periods=second % 3600, continuity_errors=17),
                    figures={
                        **{key: base[key] for key in base if key not in ("since_start", "inter_arrival", "time")},
                        "bit_rate": row["bit_rate"],
                        "delay_factor_ms": row["delay_factor_ms"],
                        "continuity_errors": row["continuity_errors"],
                        "received_bit_rate": row["bit_rate"] + 210000,
                    },
                    inter_arrival={
                        **base["inter_arrival"],
                        "median_us": row["iat_median_us"],
                        "percentile_95_us": row["iat_p95_us"],
                        "percentile_99_us": row["iat_p99_us"],
                        "longest_us": row["iat_longest_us"],
                    },
                )
        self.set("measurement", value)

    def run(self, words, who):
        with self.lock:
            self.jobs += 1
            self.ran.append(words)
            job = {"id": self.jobs, "words": words, "who": who, "since": iso(), "progress": None}
            self.topics["job"]["waiting"].append(job)
        threading.Thread(target=self.work, args=(job,), daemon=True).start()
        return job["id"]

    def work(self, job):
        with self.lock:
            self.topics["job"]["waiting"].remove(job)
            self.set("job", {**self.topics["job"], "running": job})
        self.log("line_log", {"time": iso(), "direction": "to", "hex": (" ".join(job["words"]) + "\n").encode().hex()})
        began = time.time()
        time.sleep(self.pace)
        result = self.result(job["words"])
        done = {
            **job,
            "status": 2 if "error" in result else 0,
            "seconds": time.time() - began,
            "result": result,
            "remarks": [],
            "ended": iso(),
        }
        self.set("job", {**self.topics["job"], "running": None})
        with self.lock:
            self.tell("done", done)

    def result(self, words):
        command, rest = words[0], words[1:]
        if command == "play":
            play = {
                **recorded("play"),
                "program": int(rest[0]),
                "name": next((each["name"] for each in self.scan["services"] if each["service_id"] == int(rest[0])), None),
            }
            self.set_measuring(False)
            self.set("instrument", {**self.topics["instrument"], "player": "running"})
            self.set("play", play)
            return play
        if command == "server":
            self.set("instrument", {**self.topics["instrument"], "server": rest[0]})
            return {"time": iso(), "server": rest[0], "command": "server=UDP"}
        if command in ("scan", "info"):
            self.set("stream", {**self.scan, "time": iso()})
            return self.scan
        known = {"ping": "ping", "version": "version", "raw": "sdt"}
        if command in known:
            return recorded(known[command])
        if command == "interface":
            return recorded("interface-status")
        if command == "record":
            self.set("recorder", {"recording": rest[0] == "start", "bytes": 18_800_000})
            return {"time": iso(), "recording_bytes": 18_800_000, "recording": rest[0] == "start"}
        if command in ("ebs", "dab", "export", "send-ts", "t2mi-frame", "status", "update"):
            return {"time": iso(), "seconds": 1.2}
        return {"error": {"kind": "usage", "cause": f"{command} is no command", "remedy": "tessaryctl --help lists them"}}

    def test(self, order):
        """What a test turns while it runs."""
        if "answers" in order:
            self.answer(order["answers"])
        if "topic" in order:
            self.set(order["topic"], order["value"])
        if "busy" in order:
            self.set(
                "job",
                {
                    "running": {
                        "id": 900,
                        "words": order["busy"].split(),
                        "who": "the test",
                        "since": iso(),
                        "progress": {"text": "40 of 100 MB", "share": 0.4},
                    },
                    "waiting": [{"id": 901, "words": ["ping", "192.168.77.1"], "who": "another", "since": iso()}],
                },
            )
        if "idle" in order:
            self.set("job", {"running": None, "waiting": []})

    def live(self):
        """Once a second what an instrument that measures has to tell."""
        while True:
            time.sleep(1 - time.time() % 1)
            if self.topics["measurement"]["measuring"] and self.topics["line"]["answers"]:
                self.set_measuring(True)
                self.log("line_log", {"time": iso(), "direction": "to", "hex": b"getethernetmes?\n".hex()})
                self.log(
                    "line_log",
                    {"time": iso(), "direction": "from", "hex": "0100000000127a0007000000000000000000bc00000007000000"},
                )
                times = [round(abs(random.gauss(2105, 600))) for _ in range(1024)]
                width = (max(times) - min(times)) // 20 + 1
                bars = [
                    {
                        "from_us": min(times) + at * width,
                        "to_us": min(times) + (at + 1) * width,
                        "count": 0,
                        "outliers": False,
                    }
                    for at in range(20)
                ]
                for each in times:
                    bars[(each - min(times)) // width]["count"] += 1
                self.set("arrivals", {"times_us": times, "histogram": bars})

    def jpegs(self):
        """Some seconds of a test picture, made once."""
        with self.lock:
            if self.pictures is None:
                made = subprocess.run(
                    [
                        "ffmpeg",
                        "-v",
                        "error",
                        "-f",
                        "lavfi",
                        "-i",
                        "smptebars=size=720x576:rate=12",
                        "-frames:v",
                        "36",
                        "-f",
                        "image2pipe",
                        "-c:v",
                        "mjpeg",
                        "-q:v",
                        "4",
                        "-",
                    ],
                    stdout=subprocess.PIPE,
                    check=True,
                    stdin=subprocess.DEVNULL,
                ).stdout
                self.pictures = [b"\xff\xd8" + part for part in made.split(b"\xff\xd8")[1:]]
            return self.pictures
