"""The unit tests' cases: which there are, in which order they are worth running, and how they run in the containment."""

import json
import os
import shutil
import subprocess

from .report import SEEN

# Test folders that are most likely to see a change of a source folder, or of a source whose path begins so.
_TOPICS = {
    "src/app/": ["app", "dab"],
    "src/app/worker_dab": ["dab"],
    "src/commands/": ["app"],
    "src/commands/crc32": ["update"],
    "src/commands/decoderinfo": ["ebs"],
    "src/commands/ebs": ["ebs"],
    "src/commands/maintenance": ["maintenance"],
    "src/commands/network": ["network"],
    "src/commands/player": ["player"],
    "src/commands/pvr": ["pvr"],
    "src/commands/reply": ["player", "update"],
    "src/commands/sourceselection": ["player"],
    "src/commands/update": ["update"],
    "src/link/": ["link", "app"],
    "src/link/socketcom": ["dab"],
    "src/measure/": ["measure", "network"],
    "src/media/": ["media", "diagnostics", "player"],
    "src/system/": ["system", "network", "app"],
    "src/system/fpga": ["fpga"],
}
_MEMORY = 8 << 30  # what a process may ask for; a sanitizer's asks for terabytes of addresses


def topics_of(file):
    """Test folders to begin with, by the longest path that fits the source."""
    fitting = [path for path in _TOPICS if file.startswith(path)]
    return _TOPICS[max(fitting, key=len)] if fitting else []


class Cases:
    """All cases of the build that script/test runs as unit tests of the daemon."""

    def __init__(self, tree, jobs):
        self.tree, self.jobs = tree, jobs
        self.seconds = {}
        self._cases = []

    def find(self):
        """Asks the unchanged programs for their cases."""
        listing = subprocess.run(["ctest", "--test-dir", os.path.join(self.tree.build_folder, "tests", "unit"),
                                  "--show-only=json-v1"], check=True, capture_output=True, stdin=subprocess.DEVNULL)
        for test in json.loads(listing.stdout)["tests"]:
            properties = {entry["name"]: entry["value"] for entry in test["properties"]}
            if properties.get("LABELS") == ["unit"] and test["command"][-2].startswith("--gtest_filter="):
                self._cases.append({"name": test["name"].removeprefix("unit.").split("  #")[0], "command": test["command"],
                                    "directory": properties["WORKING_DIRECTORY"], "limit": properties["TIMEOUT"]})

    def keep_programs(self):
        """Copies the unchanged programs: a case that fails with a change has to pass with them at the same time."""
        kept = os.path.join(self.tree.scratch, f"unchanged-{self.tree.preset}")
        shutil.rmtree(kept, ignore_errors=True)
        for case in self._cases:
            program = os.path.join(kept, os.path.basename(case["command"][-3]))
            if not os.path.exists(program):
                os.makedirs(kept, exist_ok=True)
                shutil.copy(case["command"][-3], program)
            case["control"] = [*case["command"][:-3], program, *case["command"][-2:]]

    def measure(self):
        """Runs all on the unchanged code: how long each takes. Returns the names of those that fail or skip themselves."""
        results = self.run(self._cases, keep_going=True, keep=True)
        self.seconds = {name: result["seconds"] for name, result in results.items()}
        return {name: result["result"] for name, result in results.items() if result["result"] != "passed"}

    def remember(self, path):
        """Keeps the times for the next run on the same sources."""
        with open(path, "w", encoding="utf-8") as file:
            json.dump({"digest": self.tree.digest, "seconds": self.seconds}, file)

    def recall(self, path):
        """True when the times of these very sources are known."""
        try:
            with open(path, encoding="utf-8") as file:
                kept = json.load(file)
        except (FileNotFoundError, ValueError):
            return False
        self.seconds = kept["seconds"]
        return kept["digest"] == self.tree.digest

    def see(self, change, keep_going):
        """The cases that fail with the change that is built: those of its topic first, the shortest of them first, then all
        others, the longest first, which takes the least time when none fails."""
        first = tuple(f"{self.tree.build_folder}/tests/unit/{topic}/" for topic in topics_of(change.file))
        near, far = [], []
        for case in sorted(self._cases, key=lambda case: -self.seconds.get(case["name"], 0)):
            (near if case["command"][-3].startswith(first) else far).append(self._limited(case))
        failed = {}
        for cases in (near[::-1], far):
            if cases and (keep_going or not failed):
                results = self.run(cases, keep_going)
                failed.update((name, result) for name, result in results.items() if result["result"] in SEEN)
        return failed

    def _limited(self, case):
        """With a limit well above the time that it takes on the unchanged code."""
        return {**case, "limit": min(case["limit"], 20 + 5 * self.seconds.get(case["name"], 20))}

    def run(self, cases, keep_going, keep=False):
        """Runs cases in the containment; the results by name. Without `keep_going` it ends with the first that fails."""
        runner = os.path.join(self.tree.copy, "tests", "mutation")
        sanitized = self.tree.preset != "release"
        order = {"cases": cases, "jobs": self.jobs, "keep_going": keep_going, "memory": None if sanitized else _MEMORY}
        root = [] if os.geteuid() == 0 else ["sudo", "-n", "-E", "--"]
        command = [*root, os.path.join(runner, "contain"), *(["--keep"] if keep else []), self.tree.scratch,
                   "/usr/bin/python3", "-B", os.path.join(runner, "run_cases.py")]
        done = subprocess.run(command, input=json.dumps(order).encode(), stdout=subprocess.PIPE, check=False)
        results = [json.loads(line) for line in done.stdout.splitlines()]
        if done.returncode != 0 or not results:
            raise RuntimeError(f"the containment ended with status {done.returncode}")
        return {result["name"]: result for result in results}
