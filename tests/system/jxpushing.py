"""jxpush over HTTP, and the answers of an upload server."""

import re
import subprocess

import jxschema
import jxtest
from jxhttp import RESULT_HEAD, RESULT_TAIL
from jxtest import BIN, BUILD, HTTP_PORT

JXPUSH = BIN / "jxpush"
SANITIZED = re.search(r"^JX_SANITIZE:\w+=.", (BUILD / "CMakeCache.txt").read_text(), re.M) is not None
LARGE = 64 * 1024 * 1024  # more than the system buffers on the way
PAGE_200 = b"HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nContent-Length: %d\r\n\r\n"


def answer(page):
    return PAGE_200 % len(page) + page


def stored(log=b""):
    return answer(RESULT_HEAD + b"Upload successful<br>\n" + log + RESULT_TAIL)


class HttpPushCase(jxtest.Case):
    def file(self, name, content):
        path = self.root / name
        path.write_bytes(content)
        return path

    def sparse(self, name, size):
        path = self.root / name
        with path.open("wb") as stream:
            stream.truncate(size)
        return path

    def push(self, *args, to=f"http://127.0.0.1:{HTTP_PORT}", **kwargs):
        """Starts jxpush; ended by the test."""
        process = subprocess.Popen([str(JXPUSH), "--to", to, "--json", *map(str, args)], text=True, env=self.env,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, **kwargs)
        self.addCleanup(self.reap, process)
        return process

    @staticmethod
    def reap(process):
        if process.poll() is None:
            process.kill()
        process.communicate()

    def result(self, process, code, status):
        """Waits for jxpush; its result, and what it wrote on standard error from now on."""
        output, errors = process.communicate(timeout=240)
        self.assertEqual(process.returncode, code, output + errors)
        result = jxschema.read_all(output)[-1]
        self.assertEqual((result["event"], result["code"], result["status"]), ("result", code, status))
        if code != 0:
            self.assertIn(f"jxpush: {result['message']}\n", errors)
        return result

    def pushed(self, *args, code=0, status="sent", **kwargs):
        return self.result(self.push(*args, **kwargs), code, status)

    def wait_line(self, process, text):
        """Reads standard error up to a line with the text."""
        for line in process.stderr:
            if text in line:
                return line
        self.fail(f"ended without {text!r}")

    def texts(self, result):
        return [line["text"] for line in result["log"]]
