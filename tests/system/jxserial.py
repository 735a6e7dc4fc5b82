"""Serial lines for the system tests: pairs of pseudo-terminals with a rate and faults, under the terminal's device names."""

import json
import subprocess

import jxtest
from jxoperator import Operator, OperatorCase

JXPUSH = jxtest.BIN / "jxpush"
SIMULATOR = jxtest.BIN / "line_simulator"
WITH_DEVICES = jxtest.SOURCE / "tools/run/with-devices"
DEVICES = {2: "ttyGS0", 3: "ttyAMA0", 4: "ttyAMA1"}  # by the download menu's result


class Line:
    """A line; `host` and `terminal` are the paths of its ends."""

    def __init__(self, case, **settings):
        self.process = case.start(SIMULATOR, *(f"{name}={value}" for name, value in settings.items()),
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        case.addCleanup(self.process.stdin.close)
        case.addCleanup(self.process.stdout.close)
        ends = json.loads(self.process.stdout.readline())
        self.host, self.terminal = ends["host"], ends["terminal"]

    def give_free(self):
        """Does what closing a real port does after its user was killed, and waits until the line is quiet.

        The simulator keeps both ends open, and the bytes that are on their way go on."""
        self.process.stdin.write("\n")
        self.process.stdin.flush()
        self.process.stdout.readline()

    def hang_up(self):
        self.process.kill()
        self.process.wait()


class SerialCase(OperatorCase):
    def start_terminal_with_lines(self, lines):
        """Starts the program; `lines` maps results of the download menu to lines. Returns the operator."""
        folder = self.root / "lines"
        folder.mkdir()
        for result, line in lines.items():
            (folder / DEVICES[result]).symlink_to(line.terminal)
        self.env["JXPLATFORM_SCREEN"] = "127.0.0.1:0"
        self.program = self.start("unshare", "--mount", WITH_DEVICES, folder, jxtest.BIN / "jxdownloader")
        self.operator = Operator(self)
        return self.operator

    def push(self, line, *args, **kwargs):
        """Starts jxpush; ended by the test."""
        kwargs.setdefault("stdout", subprocess.PIPE)
        kwargs.setdefault("stderr", subprocess.PIPE)
        process = subprocess.Popen([str(JXPUSH), "--to", f"serial:{line.host}", *map(str, args)], text=True, env=self.env,
                                   **kwargs)
        self.addCleanup(self.reap, process)
        return process

    @staticmethod
    def reap(process):
        if process.poll() is None:
            process.kill()
        process.communicate()

    def pushed(self, line, *args, code=0):
        """Runs jxpush to its end and returns its standard output and error."""
        process = self.push(line, *args)
        output, errors = process.communicate(timeout=120)
        self.assertEqual(process.returncode, code, output + errors)
        return output, errors
