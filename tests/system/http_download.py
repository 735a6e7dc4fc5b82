"""The HTTP download as the operator sees it, with networks of the test's making."""

import json
import os
import socket
import subprocess
import unittest

import jxtest
from jxhttp import FORM_PAGE, Wire, exchange, package, request, upload
from jxoperator import OperatorCase

NO_ADDRESS = ("<span style='color:#f00'><b>Error:</b></span><br>Cannot fetch terminal IP address.<br>"
              "Network not (yet) running?")


def ip(*args):
    subprocess.run(["ip", *args], check=True)


class HttpDownloadTest(OperatorCase):
    def add_interface(self, name, *addresses, carrier=True):
        """Adds an interface that is up; its other end decides whether it has a carrier."""
        ip("link", "add", name, "type", "veth", "peer", "name", name + "peer")
        self.addCleanup(ip, "link", "del", name)
        ip("link", "set", name, "up")
        if carrier:
            ip("link", "set", name + "peer", "up")
        for address in addresses:
            ip("addr", "add", address, "dev", name, *(["nodad"] if ":" in address else []))

    def open_download(self):
        operator = self.start_terminal()
        operator.choose("mainmenu.html", 1)
        operator.choose("download.html", 1)
        return operator

    def see_urls(self, operator):
        """Waits for the screen with the URLs and returns its list."""
        operator.see_past(["wait.html"], "download-http.html")
        return json.loads(operator.last["vars"]["url_list"])

    def assert_urls(self, *expected):
        operator = self.open_download()
        urls = self.see_urls(operator)
        self.assertEqual([(entry["if_name"], entry["url"]) for entry in urls], list(expected))
        self.assertFalse(operator.last["sync"])
        self.assertEqual(list(operator.last["vars"]), ["url_list"])
        return operator

    def test_loopback_alone_is_an_error(self):
        operator = self.open_download()
        screen = operator.see("wait.html")
        self.assertEqual((screen["sync"], screen["vars"]), (False, {"text": "Checking network."}))
        screen = operator.choose("result.html", -1)
        self.assertEqual((screen["sync"], screen["vars"]), (True, {"text": NO_ADDRESS}))
        operator.see("download.html")
        self.assertFalse(jxtest.can_connect(jxtest.HTTP_PORT))

    def test_link_local_alone_is_an_error(self):
        self.add_interface("jxa")
        operator = self.open_download()
        operator.see_past(["wait.html"], "result.html")
        self.assertEqual(operator.last["vars"], {"text": NO_ADDRESS})

    def test_ipv4(self):
        self.add_interface("jxa", "192.168.1.20/24")
        self.assert_urls(("jxa", "http://192.168.1.20:6370"))

    def test_ipv4_and_global_ipv6_without_link_local(self):
        self.add_interface("jxa", "192.168.1.20/24", "2001:db8::1:20/64")
        self.assert_urls(("jxa", "http://192.168.1.20:6370"), ("jxa", "http://[2001:db8::1:20]:6370"))

    def test_interface_without_a_carrier_is_left_out(self):
        self.add_interface("jxa", "10.1.0.1/24", carrier=False)
        self.add_interface("jxb", "10.2.0.1/24")
        self.assert_urls(("jxb", "http://10.2.0.1:6370"))

    def test_interfaces_come_in_the_systems_order(self):
        self.add_interface("jxz", "10.9.0.1/24")
        self.add_interface("jxa", "10.1.0.1/24")
        self.assert_urls(("jxz", "http://10.9.0.1:6370"), ("jxa", "http://10.1.0.1:6370"))

    def test_address_that_comes_later_is_waited_for(self):
        operator = self.open_download()
        operator.see("wait.html")
        self.add_interface("jxa", "10.1.0.1/24")
        self.assertEqual([entry["url"] for entry in self.see_urls(operator)], ["http://10.1.0.1:6370"])

    def test_server_runs_until_the_screen_is_left(self):
        self.add_interface("jxa", "10.1.0.1/24", "2001:db8::1/64")
        operator = self.assert_urls(("jxa", "http://10.1.0.1:6370"), ("jxa", "http://[2001:db8::1]:6370"))
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the server listens")
        for host in ("10.1.0.1", "2001:db8::1"):
            jxtest.wait_until(lambda host=host: jxtest.can_connect(jxtest.HTTP_PORT, host), what=f"there is a way to {host}")
            self.assertTrue(exchange(request("GET", "/"), host=host).endswith(FORM_PAGE), host)
        for result in (0, 1, -2):
            operator.answer(result)  # an asynchronous page stays, and only its end stops the server
        self.assertIn(b"Installed hello 1.0.0", exchange(upload([("a.zip", package())]), host="10.1.0.1"))
        operator.answer(-1)
        operator.see("download.html")
        self.assertFalse(jxtest.can_connect(jxtest.HTTP_PORT))

    def test_server_without_its_page_runs_until_it_is_left(self):
        self.use_pages_without("download-http.html")
        self.add_interface("jxa", "10.1.0.1/24")
        operator = self.assert_urls(("jxa", "http://10.1.0.1:6370"))
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the server listens")
        operator.answer(1)
        operator.answer(-1)
        operator.see("download.html")

    def test_server_starts_again(self):
        self.add_interface("jxa", "10.1.0.1/24")
        operator = self.assert_urls(("jxa", "http://10.1.0.1:6370"))
        operator.answer(-1)
        operator.choose("download.html", 1)
        self.see_urls(operator)
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the server listens again")
        self.assertTrue(exchange(request("GET", "/")).endswith(FORM_PAGE))

    def test_upload_goes_on_after_the_screen_was_left(self):
        self.add_interface("jxa", "10.1.0.1/24")
        operator = self.assert_urls(("jxa", "http://10.1.0.1:6370"))
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the server listens")
        sent = upload([("a.zip", package(files={"data": os.urandom(100_000)}))])
        with Wire() as wire:
            wire.send(sent[:-50_000])
            jxtest.wait_until((self.root / "source/upload-0.zip").exists, what="the upload is under way")
            operator.answer(-1)
            operator.see("download.html")
            self.assertIn(b"Installed hello 1.0.0", wire.send(sent[-50_000:]).read_all())
        operator.answer(-1)
        operator.see("mainmenu.html")

    def test_port_in_use_returns_to_the_menu(self):
        self.add_interface("jxa", "10.1.0.1/24")
        errors = self.root / "errors"
        with socket.create_server(("", jxtest.HTTP_PORT)), errors.open("wb") as stderr:
            operator = self.start_terminal(stderr=stderr)
            operator.choose("mainmenu.html", 1)
            operator.choose("download.html", 1)
            operator.see_past(["wait.html", "download-http.html"], "download.html")
            self.assertIn("Failed to listen on port 6370\n", errors.read_text())


if __name__ == "__main__":
    unittest.main()
