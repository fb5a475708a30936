#!/usr/bin/python3
"""The panel's server for tests of its page: serves the page and the answers of docs/api.md from recorded documents.

usage: standin.py [--port N] [--hostile] [--real] [--quiet-line] [--pace SECONDS]

It listens on 127.0.0.1 (a free port without --port) and prints the URL. What is ordered of it changes its state as an
instrument would: measuring begins and ends, senders come and go, commands run for a moment. --hostile puts HTML and scripts
into the names of the stream, --real says that the instrument is no virtual one, --quiet-line begins with an instrument that does not answer.
A test turns these while it runs: POST /test with {"answers": false}, {"busy": "export"}, {"idle": true} and so on.
"""

import argparse
import datetime
import http.server
import json
import math
import pathlib
import queue
import random
import socket
import subprocess
import sys
import threading
import time
import urllib.parse

HERE = pathlib.Path(__file__).resolve().parent
WWW = HERE.parents[1] / "client" / "panel" / "www"
DYGRAPHS = pathlib.Path("/usr/share/javascript/dygraphs")
TYPES = {
    ".html": "text/html; charset=utf-8",
    ".js": "text/javascript; charset=utf-8",
    ".css": "text/css; charset=utf-8",
    ".svg": "image/svg+xml",
}
POLICY = (
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; media-src 'self' blob:; "
    "font-src 'self'; "
    "connect-src 'self'; base-uri 'none'; form-action 'self'; frame-ancestors 'none'"
)
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


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    instrument = None

    def log_message(self, *_):
        pass

    def answer(self, status, kind, body):
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Content-Security-Policy", POLICY)
        self.send_header("Cache-Control", "no-store")
        self.end_headers()
        self.wfile.write(body)

    def json(self, value, status=200):
        self.answer(status, "application/json", json.dumps(value).encode())

    def refuse(self, status, cause, remedy=""):
        self.json({"error": {"cause": cause, "remedy": remedy}}, status)

    def stream(self, kind, **more):
        self.close_connection = True
        self.send_response(200)
        self.send_header("Content-Type", kind)
        self.send_header("Cache-Control", "no-store")
        for name, value in more.items():
            self.send_header(name.replace("_", "-"), str(value))
        self.send_header("Connection", "close")
        self.end_headers()

    def do_GET(self):
        url = urllib.parse.urlsplit(self.path)
        query = dict(urllib.parse.parse_qsl(url.query))
        path = url.path
        self.server.awake.wait()
        try:
            if path == "/" and "token" in query:
                self.give_cookie(query["token"])
            elif path.startswith("/api/") and not self.may_ask():
                self.refuse(401, "the token is missing or wrong")
            elif path == "/api/events":
                self.events()
            elif path == "/api/state":
                self.json({**self.instrument.topics, **self.instrument.logs})
            elif path == "/api/history":
                self.history(query)
            elif path.startswith("/api/table/"):
                data = bytes.fromhex(recorded("sdt")["hex"])[5:]
                self.json({"hex": data.hex(), "decoded": sdt_tree(data)})
            elif path == "/api/desk":
                self.json(self.instrument.desk)
            elif path == "/api/display.json":
                self.json(
                    {"width": 720, "height": 576, "pictures_per_second": 12, "video": "MPEG-2", "audio": "MPEG-1 layer 2"}
                )
            elif path in ("/api/display", "/api/sound"):
                self.flow(self.display if path == "/api/display" else self.sound)
            else:
                self.file(path)
        except (BrokenPipeError, ConnectionResetError):
            self.close_connection = True

    def may_ask(self):
        token = self.instrument.token
        return token is None or f"token={token}" in self.headers.get("Cookie", "")

    def give_cookie(self, token):
        if token != self.instrument.token:
            self.refuse(401, "the token is wrong")
            return
        self.send_response(303)
        self.send_header("Location", "/")
        self.send_header("Set-Cookie", f"token={token}; HttpOnly; SameSite=Strict; Path=/")
        self.send_header("Content-Length", "0")
        self.end_headers()

    def file(self, path):
        place = DYGRAPHS / path[5:] if path.startswith("/lib/") else WWW / (path.lstrip("/") or "index.html")
        if ".." in path or not place.is_file():
            self.refuse(404, f"there is no {path}")
            return
        self.answer(200, TYPES.get(place.suffix, "application/octet-stream"), place.read_bytes())

    def events(self):
        mine = queue.Queue()
        self.stream("text/event-stream")
        with self.instrument.lock:
            first = list(self.instrument.topics.items()) + list(self.instrument.logs.items())
            self.instrument.listeners.append(mine)
        try:
            for number, (topic, value) in enumerate(self.each(first, mine)):
                self.server.awake.wait()
                mark = "" if topic == "heartbeat" else f"id: {number}\n"
                self.wfile.write(f"{mark}event: {topic}\ndata: {json.dumps(value)}\n\n".encode())
                self.wfile.flush()
        finally:
            with self.instrument.lock:
                self.instrument.listeners.remove(mine)

    @staticmethod
    def each(first, more):
        yield from first
        while True:
            try:
                yield more.get(timeout=2)
            except queue.Empty:
                yield "heartbeat", {"time": iso()}

    def history(self, query):
        begin, end = (datetime.datetime.fromisoformat(query[key]).timestamp() for key in ("from", "to"))
        step = max(1, math.ceil((end - begin) / int(query.get("points", 3600))))
        self.json({"columns": COLUMNS, "rows": [history_row(second) for second in range(int(begin), int(end) + 1, step)]})

    def flow(self, send):
        self.server.begun += 1
        try:
            send()
        finally:
            self.server.flows.release()

    def display(self):
        pictures = self.instrument.jpegs()
        self.stream("multipart/x-mixed-replace; boundary=picture")
        at = 0
        while True:
            picture = pictures[at % len(pictures)]
            self.wfile.write(
                b"--picture\r\nContent-Type: image/jpeg\r\nContent-Length: %d\r\n\r\n%s\r\n" % (len(picture), picture)
            )
            at += 1
            time.sleep(1 / 12)

    def sound(self):
        self.stream("application/octet-stream", X_Rate=RATE, X_Channels=CHANNELS)
        at, block = 0, RATE // 20
        while True:
            samples = bytearray()
            for frame in range(at, at + block):
                left = int(6000 * math.sin(2 * math.pi * 1000 * frame / RATE))
                samples += left.to_bytes(2, "little", signed=True) + (left // 3).to_bytes(2, "little", signed=True)
            self.wfile.write(bytes(samples))
            at += block
            time.sleep(1 / 20)

    def body(self):
        return self.rfile.read(int(self.headers.get("Content-Length", 0)))

    def do_POST(self):
        path = urllib.parse.urlsplit(self.path).path
        body = self.body()
        if path == "/api/upload":
            self.json({"file": "/tmp/uploaded.deb"})
            return
        value = json.loads(body or b"{}")
        it = self.instrument
        if path == "/api/run":
            if value["words"][0] in ("command", "update"):
                self.refuse(403, f"{value['words'][0]} is off", f"start tessary-panel with --allow-{value['words'][0]}")
            else:
                self.json({"id": it.run(value["words"], value.get("who", "127.0.0.1"))}, 202)
        elif path == "/api/measure":
            it.set_measuring(value["on"])
            self.json({})
        elif path == "/test":
            it.test(value)
            self.json({})
        elif path.startswith("/api/desk/"):
            self.turn(path.rsplit("/", 1)[1], value)
        else:
            self.refuse(404, f"there is no {path}")

    def turn(self, part, value):
        desk = self.instrument.desk
        if part == "senders":
            desk["senders"].append({**value, "id": len(desk["senders"]) + 1, "running": True, "since": iso(), "said": ""})
        elif part == "link":
            desk["link"] = value
        elif part == "daemon":
            desk["daemon"] = {"running": value["action"] in ("start", "restart"), "pid": 4712}
        elif part == "knobs":
            desk["knobs"].update(value)
        elif part == "behave":
            desk["behaviours"] = [each for each in desk["behaviours"] if each["program"] != value["program"]] + (
                [] if value.get("real") else [value]
            )
        elif part == "dab":
            desk["dab"].update(value)
        self.instrument.log("marks", {"time": iso(), "text": f"{part}: {value}"})
        self.json({"id": len(desk["senders"])})

    def do_DELETE(self):
        number = int(self.path.rsplit("/", 1)[1])
        if self.path.startswith("/api/desk/senders/"):
            self.instrument.desk["senders"] = [each for each in self.instrument.desk["senders"] if each["id"] != number]
            self.json({})
        else:
            self.instrument.test({"idle": True})
            self.json({})


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    request_queue_size = 64

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.connections = set()
        self.flows = threading.Semaphore(0)  # one up for each flow of pictures or sound that has ended
        self.begun = 0
        self.awake = threading.Event()  # cleared, the server hangs: it takes connections and says nothing
        self.awake.set()

    def finish_request(self, request, client_address):
        self.connections.add(request)
        self.awake.wait()
        try:
            super().finish_request(request, client_address)
        finally:
            self.connections.discard(request)

    def handle_error(self, request, client_address):
        if not isinstance(sys.exc_info()[1], OSError):  # a browser that goes is no error
            super().handle_error(request, client_address)

    def all_flows_end(self, patience=60):
        """Waits until no pictures and no sound are sent any more."""
        return all(self.flows.acquire(timeout=patience) for _ in range(self.begun))

    def stop(self):
        """As if the panel's process had ended: nothing listens, and every connection is cut."""
        self.awake.set()
        self.shutdown()
        self.server_close()
        for connection in list(self.connections):
            try:
                connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass  # gone by itself


def serve(arguments):
    """The server for these command-line arguments, not yet running."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--hostile", action="store_true")
    parser.add_argument("--real", action="store_true")
    parser.add_argument("--quiet-line", action="store_true")
    parser.add_argument("--pace", type=float, default=0.3, help="seconds that a command takes")
    parser.add_argument("--token", help="that a browser has to give first")
    options = parser.parse_args(arguments)
    instrument = Instrument(options)
    handler = type("OwnHandler", (Handler,), {"instrument": instrument})
    server = Server(("127.0.0.1", options.port), handler)
    server.instrument = instrument
    threading.Thread(target=instrument.live, daemon=True).start()
    return server


if __name__ == "__main__":
    it = serve(sys.argv[1:])
    print(f"http://127.0.0.1:{it.server_port}/", flush=True)
    it.serve_forever()
