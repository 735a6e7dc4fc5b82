"""The cloud proxy client as a process, against proxies that are played in another language over a private bus."""

import json
import queue
import socket
import struct
import subprocess
import sys
import threading
import time
import unittest

import jxbus
import jxtest
from jxterminal import Terminal

INFO = '{"proxy":{"command":"info"}}'
SUCCESS = '{"proxy":{"result":"success"}}'
FAIL = '-3 {"result":"FAIL"}'
DAY = 86400
ERROR = "<span style='color:#f00'><b>Error:</b></span><br>"
PATIENCE = 120  # seconds for an answer that comes


class Driver:
    """A running cloudproxy_driver."""

    def __init__(self, case, **env):
        self.process = case.start(jxtest.BIN / "cloudproxy_driver", stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                  env={**case.env, **env})
        case.addCleanup(self.end)
        self.lines = queue.Queue()
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line.rstrip("\n"))

    def tell(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()

    def answer(self):
        return self.lines.get(timeout=60)

    def ask(self, command):
        self.tell(command)
        return self.answer()

    def end(self):
        self.process.stdin.close()
        self.process.wait(60)
        self.reader.join(60)
        self.process.stdout.close()


class ProxyCase(jxtest.Case):
    def setUp(self):
        super().setUp()
        self.address = self.start_bus()

    def proxy(self, answers=None):
        """A proxy on the bus; `answers` are its responses to commands, as JSON text or objects."""
        proxy = jxbus.Peer(self, self.address, "1")
        if answers is not None:
            threading.Thread(target=self.serve, args=(proxy, answers), daemon=True).start()
        return proxy

    def serve(self, proxy, answers):
        while True:
            name, text, _, sender = proxy.notifications.get()
            command = json.loads(text)["proxy"].get("command")
            if name == "CloudProxyConf" and command in answers:
                try:
                    self.respond(proxy, answers[command], sender)
                except OSError:
                    return

    def respond(self, proxy, response, application="jxdownloader"):
        text = response if isinstance(response, str) else json.dumps(response)
        proxy.notify(application, "CloudProxyConfResponse", text)

    def success(self, **members):
        return {"proxy": {"result": "success", **members}}


class ExchangeTest(ProxyCase):
    def test_request_and_response(self):
        proxy, driver = self.proxy(), Driver(self)
        for _ in range(3):
            driver.tell(f"request {PATIENCE} {INFO}")
            self.assertEqual(proxy.notification(), ("CloudProxyConf", INFO, 0, "jxdownloader"))
            self.respond(proxy, SUCCESS)
            self.assertEqual(driver.answer(), f"0 {SUCCESS}")

    def test_result_other_than_success(self):
        proxy, driver = self.proxy(), Driver(self)
        for response in ('{"proxy":{"result":"error"}}', '{"proxy":{"result":1}}', "{}", "[]", "7"):
            driver.tell(f"request {PATIENCE} {INFO}")
            proxy.notification()
            self.respond(proxy, response)
            self.assertEqual(driver.answer(), f"-3 {response}")

    def test_null_response(self):
        proxy, driver = self.proxy(), Driver(self)
        driver.tell(f"request {PATIENCE} {INFO}")
        proxy.notification()
        self.respond(proxy, "null")
        self.assertEqual(driver.answer(), FAIL)

    def test_without_a_proxy(self):
        driver = Driver(self)
        self.assertEqual(driver.ask(f"request {PATIENCE} {INFO}"), FAIL)
        self.assertEqual(driver.ask("probe"), "none")
        self.assertEqual(driver.ask("level"), "-1")
        self.proxy({"info": SUCCESS})
        self.assertEqual(driver.ask(f"request {PATIENCE} {INFO}"), f"0 {SUCCESS}")

    def test_without_a_bus(self):
        driver = Driver(self, JXPLATFORM_BUS="unix:path=/nonexistent")
        self.assertEqual(driver.ask(f"request {PATIENCE} {INFO}"), "-1 null")
        self.assertEqual(driver.ask("probe"), "none")

    def test_proxy_that_refuses(self):
        proxy, driver = self.proxy(), Driver(self)
        proxy.answer_calls = "refuse"
        self.assertEqual(driver.ask(f"request {PATIENCE} {INFO}"), FAIL)

    def test_silent_proxy(self):
        proxy, driver = self.proxy(), Driver(self)
        self.assertEqual(driver.ask(f"request 1 {INFO}"), "-2 null")
        proxy.notification()
        self.assertEqual(driver.ask(f"request 0 {INFO}"), "-2 null")

    def test_late_response_is_discarded(self):
        proxy, driver = self.proxy(), Driver(self)
        self.assertEqual(driver.ask(f"request 0 {INFO}"), "-2 null")
        proxy.notification()
        self.assertEqual(driver.ask("listen Marker"), "listening")
        self.respond(proxy, '{"proxy":{"result":"success","late":1}}')
        # The library delivers in order: with the marker the response has come, while nobody waits.
        proxy.notify("jxdownloader", "Marker", "{}")
        self.assertEqual(driver.answer(), "Marker")
        driver.tell(f"request {PATIENCE} {INFO}")
        proxy.notification()
        self.respond(proxy, SUCCESS)
        self.assertEqual(driver.answer(), f"0 {SUCCESS}")

    def test_proxy_dies_before_it_acknowledges(self):
        proxy, driver = self.proxy(), Driver(self)
        proxy.answer_calls = "hold"
        driver.tell(f"request {PATIENCE} {INFO}")
        proxy.notification()
        proxy.close()
        self.assertEqual(driver.answer(), FAIL)

    def test_proxy_dies_in_the_middle(self):
        proxy, driver = self.proxy(), Driver(self)
        driver.tell(f"request 2 {INFO}")
        proxy.notification()
        proxy.close()
        self.assertEqual(driver.answer(), "-2 null")
        self.assertEqual(driver.ask(f"request {PATIENCE} {INFO}"), FAIL)

    def test_proxy_restarts_in_the_middle(self):
        proxy, driver = self.proxy(), Driver(self)
        driver.tell(f"request {PATIENCE} {INFO}")
        proxy.notification()
        proxy.close()
        self.respond(self.proxy(), SUCCESS)
        self.assertEqual(driver.answer(), f"0 {SUCCESS}")

    def test_other_notifications_are_no_answer(self):
        proxy, driver = self.proxy(), Driver(self)
        driver.tell(f"request {PATIENCE} {INFO}")
        proxy.notification()
        with self.assertRaises(jxbus.BusError):
            proxy.notify("jxdownloader", "CloudProxyConf", SUCCESS)
        self.respond(proxy, '{"proxy":{"result":"success","n":2}}')
        self.assertEqual(driver.answer(), '0 {"proxy":{"n":2,"result":"success"}}')


class AcknowledgementTest(ProxyCase):
    """Proxies that do not acknowledge a request as they should; whole exchanges last their stated time all the same."""
    RATE = 10

    def setUp(self):
        super().setUp()
        self.speed_up(self.RATE)
        self.unhurried = PATIENCE * self.RATE
        self.proxy_, self.driver = self.proxy(), Driver(self)
        self.proxy_.answer_calls = "hold"

    def begin(self):
        self.driver.tell(f"request {self.unhurried} {INFO}")
        self.proxy_.notification()

    def answer(self):
        self.respond(self.proxy_, SUCCESS)
        self.assertEqual(self.driver.answer(), f"0 {SUCCESS}")

    def stays(self, seconds):
        with self.assertRaises(queue.Empty):
            self.driver.lines.get(timeout=seconds / self.RATE)

    def wait_out(self, seconds):
        """A request that nobody answers, on a clock that the machine can only make slower."""
        begin = time.monotonic()
        self.assertEqual(self.driver.ask(f"request {seconds} {INFO}"), "-2 null")
        self.assertGreaterEqual(time.monotonic() - begin, seconds / self.RATE)

    def test_neither_acknowledgement_nor_answer(self):
        for seconds in (5, 10):
            self.wait_out(seconds)

    def test_answer_without_an_acknowledgement_does_not_end_the_next_request(self):
        self.begin()
        self.answer()
        self.wait_out(10)

    def test_late_acknowledgements(self):
        self.begin()
        self.answer()
        self.begin()
        self.stays(6)
        self.proxy_.release()  # of both
        self.stays(1)
        self.answer()

    def test_late_refusal_ends_the_request(self):
        self.begin()
        self.stays(6)
        self.proxy_.answer_calls = "refuse"
        self.proxy_.release()
        self.assertEqual(self.driver.answer(), FAIL)


class BadResponsesTest(ProxyCase):
    def test_what_is_no_json_is_refused_and_the_request_goes_on(self):
        proxy, driver = self.proxy(), Driver(self)
        driver.tell(f"request {PATIENCE} {INFO}")
        proxy.notification()
        for response in ("", "{", "[" * 101 + "]" * 101, "[" * 1000000, '"\\ud800"', '{"proxy":{"result":"success"}}x',
                         '{"proxy":1e999}'):
            with self.assertRaises(jxbus.BusError):
                self.respond(proxy, response)
        self.respond(proxy, SUCCESS)
        self.assertEqual(driver.answer(), f"0 {SUCCESS}")

    def test_bytes_that_are_no_text_end_the_peer_alone(self):
        proxy, driver = self.proxy(), Driver(self)
        driver.tell(f"request {PATIENCE} {INFO}")
        proxy.notification()
        body = ("ssus", ("CloudProxyConfResponse", b'{"proxy":{"result":"\xff"}}', 0, "1"))
        fields = {jxbus.PATH: "/zoripc", jxbus.INTERFACE: "zoripc.Notification1", jxbus.MEMBER: "Notify",
                  jxbus.DESTINATION: jxbus.bus_name("jxdownloader")}
        proxy.send(jxbus.CALL, next(proxy.serials), fields, *body)
        proxy.reader.join(60)
        self.assertFalse(proxy.reader.is_alive())
        self.respond(self.proxy(), SUCCESS)
        self.assertEqual(driver.answer(), f"0 {SUCCESS}")

    def test_ten_megabytes(self):
        driver = Driver(self)
        environments = [{"name": f"n{i}", "certs": ["jx-basic"]} for i in range(250000)]
        configuration = self.success(loglevel=4, cloud_env="n7", cloud_hostname="h", cloud_env_list2=environments)
        text = json.dumps(configuration)
        self.assertGreater(len(text), 10_000_000)
        # What counts here is that it is taken; whether within 5 seconds is the machine's affair.
        proxy = self.proxy()
        driver.tell(f'request {PATIENCE} {{"proxy":{{"command":"readconfig"}}}}')
        proxy.notification()
        self.respond(proxy, text)
        self.assertTrue(driver.answer().startswith('0 {"proxy":{"cloud_env":"n7"'))

    def test_deep_nesting(self):
        deep = "[" * 90 + "]" * 90
        self.proxy({"readconfig": f'{{"proxy":{{"result":"success","loglevel":{deep},"cloud_env":"e","cloud_hostname":"h",'
                                  f'"cloud_env_list2":[{deep},{{"name":"e","certs":[{deep},"c"]}}]}}}}'})
        driver = Driver(self)
        self.assertEqual(driver.ask("level"), "-1")
        self.assertTrue(driver.ask("settings").startswith("0 e 0 c h "))

    def test_wrong_types(self):
        proxy, driver = self.proxy(), Driver(self)
        for change in ({"cloud_env": 1}, {"cloud_hostname": None}, {"cloud_env_list2": "[]"}, {"auth_ex": "1"}):
            members = {"cloud_env": "e", "cloud_hostname": "h", "cloud_env_list2": [], **change}
            driver.tell("settings")
            proxy.notification()
            self.respond(proxy, self.success(**members))
            self.assertEqual(driver.answer(), "-1", change)


class ClockTest(ProxyCase):
    def setUp(self):
        super().setUp()
        self.offset = self.root / "offset"
        self.set_clock(0)
        self.env["JX_CLOCK_OFFSET"] = str(self.offset)
        self.shim = self.preloading("libclock_shim.so")
        self.shim_alone = {"LD_PRELOAD": self.shim["LD_PRELOAD"].split()[-1]}

    def set_clock(self, seconds):
        mode = "r+b" if self.offset.exists() else "wb"
        with open(self.offset, mode) as file:
            file.write(struct.pack("=q", seconds))

    def test_the_clock_that_jumps_here_ends_waits_on_the_wall_clock(self):
        """What the other tests of this class rest on."""
        code = """if True:
            import ctypes, sys, time
            class Time(ctypes.Structure): _fields_ = [("s", ctypes.c_long), ("ns", ctypes.c_long)]
            c = ctypes.CDLL(None)
            condition, mutex = ctypes.create_string_buffer(256), ctypes.create_string_buffer(256)
            c.pthread_mutex_lock(mutex)
            end = Time(int(time.time()) + 3600, 0)
            print("waiting", flush=True)
            print(c.pthread_cond_timedwait(condition, mutex, ctypes.byref(end)), flush=True)"""
        waiter = self.start(sys.executable, "-c", code, stdout=subprocess.PIPE, text=True,
                            env={**self.env, **self.shim_alone})
        self.addCleanup(waiter.stdout.close)
        self.assertEqual(waiter.stdout.readline(), "waiting\n")
        self.set_clock(DAY)
        self.assertEqual(waiter.stdout.readline(), "110\n")  # ETIMEDOUT

    def test_jump_ahead_ends_no_wait(self):
        proxy, driver = self.proxy(), Driver(self, **self.shim)
        driver.tell(f"request {PATIENCE} {INFO}")
        proxy.notification()
        self.set_clock(DAY)
        with self.assertRaises(queue.Empty):  # a wait on the wall clock would be over at once
            driver.lines.get(timeout=1)
        self.respond(proxy, SUCCESS)
        self.assertEqual(driver.answer(), f"0 {SUCCESS}")

    def test_jump_back_prolongs_no_wait(self):
        proxy, driver = self.proxy(), Driver(self, **self.shim)
        driver.tell(f"request 2 {INFO}")
        proxy.notification()
        self.set_clock(-DAY)
        self.assertEqual(driver.answer(), "-2 null")


class MuteBusTest(jxtest.Case):
    """A bus that takes every connection and never says a word."""

    def setUp(self):
        super().setUp()
        path = str(self.root / "mute")
        self.listener = socket.socket(socket.AF_UNIX)
        self.addCleanup(self.listener.close)
        self.listener.bind(path)
        self.listener.listen(100)  # which takes them; nobody has to accept
        self.env["JXPLATFORM_BUS"] = f"unix:path={path}"
        self.speed_up(10)

    def test_every_page_is_there_and_the_program_ends(self):
        terminal = Terminal(self)
        entries = {"show_settings": "0", "show_cloudproxy": "0"}
        self.assertEqual(terminal.next("mainmenu.html"), entries)
        terminal.press(3)
        self.assertEqual(terminal.next("result.html"), {"text": ERROR + "Cannot read loglevel.<br>Cloudproxy not running?"})
        terminal.press(-1)
        self.assertEqual(terminal.next("mainmenu.html"), entries)
        terminal.press(4)
        for entry, what in ((1, "information"), (2, "settings"), (3, "settings")):
            terminal.next("cloudproxy.html")
            terminal.press(entry)
            self.assertEqual(terminal.next("result.html"), {"text": f"{ERROR}Cannot read {what}.<br>Cloudproxy not running?"})
            terminal.press(-1)
        terminal.next("cloudproxy.html")
        terminal.press(-1)
        terminal.next("mainmenu.html")
        terminal.press(-1)
        self.assertEqual(terminal.process.wait(60), 0)


class PagesTest(ProxyCase):
    MARKUP = "<script>alert(1)</script>"

    def test_probe_offers_the_menu_to_a_proxy_that_tells_its_information(self):
        self.proxy({"info": self.success(version="1", device_type="dev", auth_ex_support=0)})
        terminal = Terminal(self)
        self.assertEqual(terminal.next("mainmenu.html"), {"show_settings": "0", "show_cloudproxy": "1"})
        # What the proxy became in the meantime is not looked at again.
        terminal.press(7)
        self.assertEqual(terminal.next("mainmenu.html"), {"show_settings": "0", "show_cloudproxy": "1"})

    def test_probe_offers_the_log_level_to_an_older_proxy(self):
        proxy = self.proxy()
        terminal = Terminal(self)
        for command, response in (("info", {"proxy": {"result": "error"}}), ("readconfig", self.success(loglevel=12))):
            self.assertEqual(json.loads(proxy.notification()[1])["proxy"]["command"], command)
            self.respond(proxy, response)
        self.assertEqual(terminal.next("mainmenu.html"), {"show_settings": "1", "show_cloudproxy": "0"})
        terminal.press(3)
        self.assertEqual(json.loads(proxy.notification()[1]), {"proxy": {"command": "readconfig"}})
        self.respond(proxy, self.success(loglevel=12))
        self.assertEqual(terminal.next("settings.html"), {"loglevel": "3"})
        terminal.press(0, loglevel="3")
        self.assertEqual(proxy.notification(), ("CloudProxyConf", '{"proxy":{"loglevel":3}}', 0, "jxdownloader"))
        terminal.next("mainmenu.html")

    def test_probe_offers_nothing_of_a_silent_proxy(self):
        self.speed_up(10)
        proxy = self.proxy()
        self.assertEqual(Terminal(self).next("mainmenu.html"), {"show_settings": "0", "show_cloudproxy": "0"})
        commands = [json.loads(proxy.notification()[1])["proxy"]["command"] for _ in range(2)]
        self.assertEqual(commands, ["info", "readconfig"])

    def test_markup_in_what_the_proxy_says_stays_text(self):
        self.proxy({
            "info": self.success(version=self.MARKUP, device_type=self.MARKUP, auth_ex_support=1),
            "readconfig": self.success(cloud_env=self.MARKUP, cloud_hostname=self.MARKUP,
                                       cloud_env_list2=[{"name": self.MARKUP, "certs": [self.MARKUP]}]),
            "cloudcheck": self.success(error_code=204, error_reason=self.MARKUP)})
        terminal = Terminal(self)
        terminal.next("mainmenu.html")
        terminal.press(4)
        for entry, pages in ((1, ["prx-info.html"]), (2, ["prx-settings.html"]), (3, ["wait.html", "result.html"])):
            terminal.next("cloudproxy.html")
            terminal.press(entry)
            for page in pages:
                terminal.next(page)
                self.assertNotIn("<script>alert", terminal.html)
                self.assertIn("&lt;script>alert" if page in ("result.html", "wait.html") else "&lt;script&gt;alert",
                              terminal.html)
            terminal.press(-1)
        terminal.next("cloudproxy.html")


if __name__ == "__main__":
    unittest.main()
