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
import socket
import sys
import threading
import time
import urllib.parse

from standininstrument import CHANNELS, COLUMNS, RATE, Instrument, history_row, iso, recorded, sdt_tree

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
