"""QEMU's monitor and the guest agent: answers are told from events and from answers that come too late."""

import base64
import json
import socket
import threading
import unittest

import support  # noqa: F401  (the way to the modules)
from instrumentlib.errors import BenchError
from instrumentlib.guest_link import Agent, Monitor


def far_end(case, answer):
    """A socket whose other end sends `answer(request)`, bytes, for each line that it gets."""
    ours, theirs = socket.socketpair()
    case.addCleanup(ours.close)

    def serve():
        with theirs, theirs.makefile("rb") as lines:
            theirs.sendall(answer(None))
            for line in lines:
                theirs.sendall(answer(json.loads(line.lstrip(b"\xff"))))
    threading.Thread(target=serve, daemon=True).start()
    return ours


def line(message):
    return json.dumps(message).encode() + b"\n"


class MonitorTest(unittest.TestCase):
    def test_events_are_passed_over_and_a_refusal_is_an_error(self):
        def answer(request):
            if request is None:
                return line({"QMP": {}})
            if request["execute"] == "set_link":
                return line({"error": {"class": "DeviceNotFound", "desc": "Device 'x' not found"}})
            return line({"event": "RESET"}) + line({"return": request["arguments"]})
        monitor = Monitor(far_end(self, answer))
        self.assertEqual(monitor.call("query_x", a_b=1), {"a-b": 1})
        with self.assertRaisesRegex(BenchError, "set_link.*Device 'x' not found"):
            monitor.call("set_link", name="x")


class AgentTest(unittest.TestCase):
    def agent(self, replies, before=b""):
        def answer(request):
            if request is None:
                return b""
            if request["execute"] == "guest-sync-delimited":
                return before + b"\xff" + line({"return": request["arguments"]["id"]})
            return line(replies[request["execute"]](request["arguments"]))
        return Agent(far_end(self, answer))

    def test_a_programs_status_and_output(self):
        started = []

        def execute(arguments):
            started.append(arguments)
            return {"return": {"pid": 7}}
        text = base64.b64encode(b"hello\n").decode()
        agent = self.agent({"guest-exec": execute,
                            "guest-exec-status": lambda _: {"return": {"exited": True, "exitcode": 3, "out-data": text}}})
        self.assertEqual(agent.run(["echo", "x"], {"LANG": "C"}), (3, b"hello\n", b""))
        self.assertEqual(started[0]["arg"], ["-i", "--chdir=/", "LANG=C", "echo", "x"])

    def test_a_program_that_a_signal_ended(self):
        agent = self.agent({"guest-exec-status": lambda _: {"return": {"exited": True, "signal": 9}}})
        self.assertEqual(agent.poll(7), (137, b"", b""))

    def test_an_answer_that_came_too_late_is_passed_over(self):
        agent = self.agent({"guest-exec-status": lambda _: {"return": {"exited": False}}},
                           before=line({"return": {"pid": 99}}) + b"\xff" + line({"return": 0}))
        self.assertIsNone(agent.poll(7))

    def test_a_machine_without_agent_is_told(self):
        agent = Agent(far_end(self, lambda _: b""))
        self.assertFalse(agent.answers(0.05))


if __name__ == "__main__":
    unittest.main()
