"""The wall clock jumps by a day, there and back, while the upload server waits."""

import struct
import unittest

import jxtest
from jxhttp import FORM_PAGE, Wire, exchange, package, request, upload

DAY = 86400


class ClockTest(jxtest.Case):
    def setUp(self):
        super().setUp()
        self.offset = self.root / "offset"
        self.offset.write_bytes(struct.pack("=q", 0))
        self.env.update(self.preloading("libclock_shim.so"), JX_CLOCK_OFFSET=str(self.offset))
        self.start_http_server()

    def jump(self, seconds):
        with open(self.offset, "r+b") as file:
            file.write(struct.pack("=q", seconds))
        # Whoever waits for a time of the wall clock has been woken when a whole exchange has gone by.
        self.assertTrue(exchange(request("GET", "/")).endswith(FORM_PAGE))

    def test_request_goes_on_where_it_stood(self):
        wanted = request("GET", "/", keep=True)
        with Wire() as wire:
            for seconds in (DAY, 0, -DAY):
                wire.send(wanted[:10])
                self.jump(seconds)
                wire.send(wanted[10:])
                self.assertEqual(wire.read_reply()[1], FORM_PAGE)

    def test_upload_goes_on_where_it_stood(self):
        wanted = upload([("a.zip", package())])
        for seconds in (DAY, -DAY):
            with Wire() as wire:
                wire.send(wanted[:-100])
                self.jump(seconds)
                wire.send(wanted[-100:])
                self.assertIn(b"nstalled hello 1.0.0", wire.read_all())


if __name__ == "__main__":
    unittest.main()
