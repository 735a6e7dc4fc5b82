"""What the upload server does when it runs out of memory or descriptors. Not for sanitizer builds: they reserve terabytes of
addresses, and look at objects through descriptors of their own."""

import resource
import unittest

import jxtest
from jxhttp import FORM_PAGE, Wire, exchange, request

ROOM = 256 << 20


class LimitsTest(jxtest.Case):
    def test_out_of_memory_drops_one_connection(self):
        server = self.start_http_server(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (ROOM, ROOM)))
        with Wire() as greedy:
            line = b"GET /" + b"a" * (1 << 20)
            with self.assertRaises(OSError):
                for _ in range(1000):
                    greedy.send(line)
        self.assertTrue(exchange(request("GET", "/")).endswith(FORM_PAGE))
        self.assertIsNone(server.poll())

    def test_out_of_descriptors_then_served_again(self):
        limit = 40
        server = self.start_http_server(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit)))
        held = [Wire() for _ in range(limit * 2)]
        for wire in held:
            wire.socket.close()
        jxtest.wait_until(lambda: exchange(request("GET", "/")).endswith(FORM_PAGE), what="served again")
        self.assertIsNone(server.poll())


if __name__ == "__main__":
    unittest.main()
