"""What the system tests share: the built programs, started and ended by id, with their own platform root."""

import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest

BUILD = pathlib.Path(os.environ["JX_BUILD_DIR"])
SOURCE = pathlib.Path(os.environ["JX_SOURCE_DIR"])
BIN = pathlib.Path(os.environ.get("JX_BIN_DIR", BUILD / "bin"))
HTTP_PORT = 6370


def wait_until(condition, seconds=30, what="condition"):
    """Polls until `condition()` is true and returns its value; fails after `seconds`."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"not within {seconds} s: {what}")
        time.sleep(0.02)


def can_connect(port, host="127.0.0.1"):
    try:
        socket.create_connection((host, port), 1).close()
        return True
    except OSError:
        return False


class Case(unittest.TestCase):
    """A test with a platform root of its own, whose processes end with it."""

    maxDiff = None

    def setUp(self):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="jxroot-"))
        self.addCleanup(shutil.rmtree, self.root, ignore_errors=True)
        self.env = dict(os.environ, JXPLATFORM_ROOT=str(self.root), JXPLATFORM_BUS="unix:path=/nonexistent")

    def start(self, *args, **kwargs):
        """Starts a program; it is ended, and its sanitizer verdict checked, when the test ends."""
        kwargs.setdefault("env", self.env)
        process = subprocess.Popen([str(a) for a in args], **kwargs)
        self.addCleanup(self.stop, process)
        return process

    def stop(self, process, sig=signal.SIGTERM):
        if process.poll() is None:
            process.send_signal(sig)
        try:
            code = process.wait(20)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            self.fail(f"{process.args[0]} did not end")
        # A sanitizer that found something ends the process with a code of its own.
        self.assertIn(code, (0, 1, -signal.SIGTERM, -signal.SIGINT, -signal.SIGKILL), f"{process.args[0]} ended with {code}")
        return code

    def preloading(self, library):
        """The environment variable that has a library of the build loaded into a program."""
        sanitizers = []
        if BIN == BUILD / "bin":  # else the program is a foreign one, behind an emulator, and has no sanitizer
            # A sanitizer wants to be loaded first.
            linked = subprocess.run(["ldd", BIN / "jxdownloader"], capture_output=True, text=True, check=True).stdout
            sanitizers = [line.split()[2] for line in linked.splitlines() if "libasan" in line or "libtsan" in line]
        return {"LD_PRELOAD": " ".join([*sanitizers, str((BUILD / "lib" / library).resolve())])}

    def instruct_sanitizer(self, option):
        """Adds an option of the address sanitizer for the programs started from now on."""
        self.env["ASAN_OPTIONS"] = ":".join(filter(None, [self.env.get("ASAN_OPTIONS"), option]))

    def speed_up(self, rate):
        """Has the programs started from now on live `rate` times as fast; "1/60" is sixty times slower."""
        self.env.update(self.preloading("libfast_clock.so"), JX_CLOCK_RATE=str(rate))

    def start_bus(self):
        """Starts a private D-Bus and points the programs at it; returns its address."""
        address_read, address_write = os.pipe()
        bus = subprocess.Popen(
            ["dbus-daemon", "--session", "--nofork", "--nosyslog", f"--print-address={address_write}"],
            pass_fds=[address_write])
        os.close(address_write)
        self.addCleanup(self.stop, bus)
        with os.fdopen(address_read) as stream:
            address = stream.readline().strip()
        self.env["JXPLATFORM_BUS"] = address
        self.env["DBUS_SESSION_BUS_ADDRESS"] = address
        return address

    def start_http_server(self, **kwargs):
        """Starts `jxdownloader --http` and waits until it accepts."""
        server = self.start(BIN / "jxdownloader", "--http", **kwargs)
        wait_until(lambda: can_connect(HTTP_PORT), what="the upload server accepts")
        return server


if __name__ == "__main__":
    unittest.main()
