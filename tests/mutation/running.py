"""Runs a test program with a limit for each of its tests."""

import array
import os
import re
import select
import subprocess
import time

START = 20.0  # seconds for what comes before the first test and after the last
LEAST = 2.0  # seconds that any test may take
TIMES = 10.0  # a test may take so many times as long as it takes with the original
RUN = re.compile(rb"^\[ RUN      \] (\S+)", re.M)
PLACE = "/tmp/run"


def limit(seconds, patience=1.0):
    return patience * (LEAST + TIMES * seconds)


class Runner:
    def __init__(self, command, libraries, sweep, environment=()):
        """`command` is the program with its arguments; `sweep` ends what it leaves behind."""
        self.command, self.sweep = command, sweep
        self.environment = {"PATH": os.environ["PATH"], "HOME": PLACE, "TMPDIR": PLACE, "LD_LIBRARY_PATH": libraries, "LC_ALL": "C",
                            **dict(environment)}

    def start(self, arguments, more=()):
        os.makedirs(PLACE, exist_ok=True)
        return subprocess.Popen([*self.command, *arguments], cwd=PLACE, env={**self.environment, **dict(more)},
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)

    def tests(self, tests, patience=1.0):
        """Runs the tests, pairs of a name and its normal seconds, until one fails: None when all of them pass."""
        seconds = dict(tests)
        names = ":".join(seconds)
        process = self.start([f"--gtest_filter={names}", "--gtest_fail_fast", "--gtest_color=no"])
        watch = Watch(process, lambda name: limit(seconds.get(name, 0.0), patience))
        late = watch.follow()
        if late:
            process.kill()
        status = process.wait()
        process.stdout.close()
        self.sweep()
        if late:
            return {"outcome": "timeout", "by": watch.name, "patience": patience}
        if status == 0 and re.search(rb"^\[  PASSED  \] %d tests?\.$" % len(seconds), watch.tail, re.M):
            return None
        return {"outcome": "killed", "by": watch.name, "status": status}

    def alone(self, found, tests):
        """Whether the program, the original here, passes in time the test at which a mutant was late."""
        chosen = [[name, seconds] for name, seconds in tests if name == found["by"]] or tests[:1]
        return self.tests(chosen, found["patience"]) is None

    def whole(self, seconds, patience=1.0):
        """Runs a command that has no tests of its own to name, such as the comparison with the model: None when it passes."""
        os.makedirs(PLACE, exist_ok=True)
        process = subprocess.Popen(self.command, cwd=PLACE, env=self.environment, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            status = process.wait(START + limit(seconds, patience))
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            return {"outcome": "timeout", "by": "the model", "patience": patience}
        finally:
            self.sweep()
        return {"outcome": "killed", "by": "the model", "status": status} if status != 0 else None

    def timed(self):
        begun = time.monotonic()
        found = self.whole(600.0)
        return {"seconds": time.monotonic() - begun, "passed": found is None}

    def reach(self, place):
        """Each test by itself: its seconds, whether it passed, the offsets of what it reached."""
        found = {}
        for name in listed(subprocess.run([*self.command, "--gtest_list_tests"], env=self.environment, check=True,
                                          capture_output=True, text=True).stdout):
            begun = time.monotonic()
            process = self.start([f"--gtest_filter={name}"], {"JX_REACH": place}.items())
            output, _ = process.communicate()
            seconds = time.monotonic() - begun
            self.sweep()
            offsets = array.array("I")
            if os.path.exists(place):
                with open(place, "rb") as file:
                    offsets.frombytes(file.read())
                os.unlink(place)
            found[name] = {"seconds": seconds, "passed": process.returncode == 0 and b"[  PASSED  ] 1 test." in output,
                           "skipped": b"[  SKIPPED ]" in output, "offsets": sorted(set(offsets))}
        return {"tests": found}


def listed(text):
    """The names of the tests that a program lists."""
    suite = ""
    for line in text.splitlines():
        line = line.split("#")[0].rstrip()
        if line and not line.startswith(" "):
            suite = line if line.endswith(".") else ""
        elif suite and line.strip() and "DISABLED_" not in suite + line:
            yield suite + line.strip()


class Watch:
    """Follows what a test program prints, and holds each test to its limit."""

    def __init__(self, process, allowed):
        self.process, self.allowed = process, allowed
        self.name, self.tail = "start", b""

    def follow(self):
        """Until the program closes its output; whether it was late."""
        descriptor = self.process.stdout.fileno()
        deadline = time.monotonic() + START
        while True:
            ready, _, _ = select.select([descriptor], [], [], max(0.0, deadline - time.monotonic()))
            if not ready:
                return True
            read = os.read(descriptor, 1 << 16)
            if not read:
                break
            self.tail = (self.tail + read)[-1 << 16 :]
            begun = RUN.findall(read) or RUN.findall(self.tail[-len(read) - 256 :])
            if begun and begun[-1].decode() != self.name:
                self.name = begun[-1].decode()
                deadline = time.monotonic() + self.allowed(self.name)
            if time.monotonic() > deadline:
                return True
        try:
            self.process.wait(max(0.1, deadline - time.monotonic()))
        except subprocess.TimeoutExpired:
            return True
        return False
