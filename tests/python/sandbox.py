"""What the tests of the binding have in common."""

import json
import pathlib
import subprocess
import sys
import tempfile
import urllib.request

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "examples/python"))
import varo  # noqa: E402, F401

LIBRARY, PROGRAM = sys.argv[1:3]


class Sandbox:
    """A sandbox in a process of its own, with a directory to work in."""

    def __init__(self, *arguments):
        self._directory = tempfile.TemporaryDirectory()
        self.path = pathlib.Path(self._directory.name)
        self._process = subprocess.Popen(
            [PROGRAM, "--json", "sandbox", *[argument.format(self.path) for argument in arguments]],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.ready = json.loads(self._process.stdout.readline())

    def fault(self, rule):
        origin = self.ready["url"].split("/services")[0]
        urllib.request.urlopen(f"{origin}/control/faults", json.dumps(rule).encode()).close()

    def close(self):
        self._process.terminate()
        self._process.communicate()
        self._directory.cleanup()
