"""What becomes of a client that says nothing any more: the read time-out of half a minute, on a clock that runs faster."""

import select
import time
import unittest

import jxtest
from jxhttp import FORM_PAGE, Wire, form

RATE = 20
TIMEOUT = 30  # seconds


def refusal(version):
    return (version + b" 408 Request Time-out\r\nContent-Length: 0\r\nContent-Type: text/plain\r\n"
            b"Connection: Keep-Alive\r\n\r\n")


class SilenceTest(jxtest.Case):
    def setUp(self):
        super().setUp()
        self.speed_up(RATE)
        self.start_http_server()

    def answers(self, *requests):
        """What each client is told until its connection ends, all at the same time; none of them sooner than stated."""
        begin = time.monotonic()
        wires = [Wire() for _ in requests]
        for wire, sent in zip(wires, requests):
            self.addCleanup(wire.socket.close)
            wire.send(sent)
        told = [wire.read_all() for wire in wires]
        self.assertGreaterEqual(time.monotonic() - begin, TIMEOUT / RATE)
        return told

    def test_silence_in_a_head_is_408(self):
        sent = (b"", b"G", b"GET / HTTP/1.1", b"GET / HTTP/1.1\r\n", b"GET / FOO\r\nHost: a\r\nB")
        versions = (b"", b"", b"", b"HTTP/1.1", b"FOO")
        self.assertEqual(self.answers(*sent), [refusal(version) for version in versions])

    def test_idle_kept_connection_ends_with_408(self):
        kept = b"GET / HTTP/1.1\r\nConnection: keep-alive\r\n\r\n"
        for told in self.answers(kept, kept + kept):
            self.assertTrue(told.startswith(b"HTTP/1.1 200 OK\r\n"), told)
            self.assertTrue(told.endswith(FORM_PAGE + refusal(b"")), told)

    def test_silence_in_a_body_ends_without_a_word_and_leaves_no_file(self):
        body = form([("a", b"half")])[:-20]
        head = b"POST /upload HTTP/1.1\r\nContent-Type: multipart/form-data; boundary=xXboundaryXx\r\n"
        length = b"Content-Length: %d\r\n\r\n" % (len(body) + 1)
        chunked = b"Transfer-Encoding: chunked\r\n\r\n%x\r\n%s\r\n" % (len(body), body)
        elsewhere = b"POST /other HTTP/1.1\r\nContent-Length: 2\r\n\r\nx"
        self.assertEqual(self.answers(head + length + body, head + chunked, elsewhere), [b"", b"", b""])
        self.assertEqual(list((self.root / "source").glob("*")), [])

    def test_body_of_one_byte_a_second_ends_without_a_word_and_leaves_no_file(self):
        body = form([("a", b"x" * 200)])
        head = b"POST /upload HTTP/1.1\r\nContent-Type: multipart/form-data; boundary=xXboundaryXx\r\nContent-Length: %d\r\n\r\n"
        with Wire() as wire:
            wire.send(head % len(body))
            sent, told = 0, None
            while told is None:
                try:
                    wire.send(body[sent:sent + 1])
                    sent += 1
                    told = wire.socket.recv(1) if select.select([wire.socket], [], [], 1 / RATE)[0] else None
                except ConnectionError:
                    told = b""
            self.assertEqual(told, b"")
            self.assertLess(sent, len(body))
        self.assertEqual(list((self.root / "source").glob("*")), [])


if __name__ == "__main__":
    unittest.main()
