"""A scratch copy of the tree, its build, and one change at a time in it. The checkout itself is never touched."""

import hashlib
import os
import shutil
import subprocess

# Warnings would refuse changes that run; a value that is never returned is no change that anybody could make.
_WARNINGS = """add_library(tessary_warnings INTERFACE)
target_compile_options(tessary_warnings INTERFACE -w)
add_compile_options(-Werror=return-type)
"""
_NOT_COPIED = ("docs/", ".ci/")


class BuildFailed(Exception):
    """The unchanged tree does not build."""


class Tree:
    """The copy of `checkout` under `scratch`, and its build of one preset."""

    def __init__(self, checkout, scratch, preset):
        self.checkout, self.scratch, self.preset = checkout, scratch, preset
        self.copy = os.path.join(scratch, "tree")
        self.build_folder = os.path.join(scratch, f"build-{preset}")
        self.log = os.path.join(scratch, f"build-{preset}.log")
        self.digest = ""
        self._changed = None

    def refresh(self):
        """Makes the copy equal to the checkout, as far as it is built; only files that differ are written."""
        names = self._names()
        digest = hashlib.sha256()
        for name in names:
            with open(os.path.join(self.checkout, name), "rb") as file:
                content = _WARNINGS.encode() if name == "cmake/warnings.cmake" else file.read()
            digest.update(name.encode() + b"\0" + content)
            self._write(name, content)
            shutil.copymode(os.path.join(self.checkout, name), os.path.join(self.copy, name))
        self.digest = digest.hexdigest()
        for folder, _, files in os.walk(self.copy):
            for name in files:
                path = os.path.join(folder, name)
                if os.path.relpath(path, self.copy) not in names:
                    os.remove(path)

    def _names(self):
        listing = subprocess.run(["git", "-C", self.checkout, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                                 check=True, capture_output=True).stdout.decode().split("\0")
        return {name for name in listing
                if name and not name.startswith(_NOT_COPIED) and os.path.isfile(os.path.join(self.checkout, name))}

    def _write(self, name, content):
        path = os.path.join(self.copy, name)
        try:
            with open(path, "rb") as file:
                if file.read() == content:
                    return
        except FileNotFoundError:
            os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content)

    def configure(self):
        """The preset's build with the quickest linker; test programs are not asked for their cases while building."""
        os.makedirs(os.path.join(self.scratch, "home"), exist_ok=True)
        samples = os.path.realpath(os.path.join(self.checkout, "..", "shared", "samples"))
        self._run("cmake", "--preset", self.preset, "-B", self.build_folder, f"-DTESSARY_SAMPLES={samples}",
                  "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold", "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST")

    def build(self):
        """Builds the unit tests. False when the sources do not compile or link; the log says why."""
        try:
            self._run("cmake", "--build", self.build_folder, "-j", str(os.cpu_count()), "--target", "tests/unit/all")
        except BuildFailed:
            return False
        return True

    def _run(self, *command):
        with open(self.log, "w", encoding="utf-8") as log:
            done = subprocess.run(command, cwd=self.copy, stdin=subprocess.DEVNULL, stdout=log, stderr=log, check=False)
        if done.returncode != 0:
            raise BuildFailed(f"{' '.join(command[:3])} failed; see {self.log}")

    def text(self, name):
        """A source as it is in the checkout's copy."""
        with open(os.path.join(self.copy, name), encoding="utf-8") as file:
            return file.read()

    def apply(self, change):
        """Puts the change into the copy, in the place of one that is there."""
        self.restore()
        original = self.text(change.file)
        self._changed = (change.file, original)
        self._write(change.file, change.applied(original).encode())

    def restore(self):
        """Takes the change out of the copy."""
        if self._changed:
            name, original = self._changed
            self._write(name, original.encode())
            self._changed = None
