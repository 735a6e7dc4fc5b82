"""What the upload server does when it runs out of memory or descriptors, and what memory a large notification takes. Not for
sanitizer builds: they reserve terabytes of addresses, have an allocator of their own, and look at objects through descriptors
of their own."""

import pathlib
import re
import resource
import unittest

import jxtest
from jxhttp import FORM_PAGE, Wire, exchange, request
from jxservice import ServiceCase

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


class NotificationTest(ServiceCase):
    def peak_mib(self, process):
        status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
        return int(re.search(r"VmHWM:\s+(\d+) kB", status)[1]) / 1024

    def test_a_quarter_of_a_million_environments_take_64_mib(self):
        service = self.start_service()
        environments = [{"name": f"environment-{n:06}", "prod": False, "certs": ["auth-ex", "jx-basic"]} for n in range(250_000)]
        for _ in range(3):  # what one has taken is there for the next
            answer = self.ask("writeconfig", cloud_env_list2=environments, cloud_env="test", auth_ex=0)
            self.assertEqual(answer, {"command": "writeconfig", "result": "success"})
        self.assertLess(self.peak_mib(service), 64)


if __name__ == "__main__":
    unittest.main()
