"""The cloud proxy service as a process, and a peer that asks it."""

import json
import signal
import subprocess

import jxbus
import jxtest

DAEMON = jxtest.BIN / "cloudproxyd"


class ServiceCase(jxtest.Case):
    def setUp(self):
        super().setUp()
        self.address = self.start_bus()
        self.state = self.root / "cloudproxy.json"
        self.client = jxbus.Peer(self, self.address, "tester")

    def start_service(self, *options, **kwargs):
        service = self.start(DAEMON, *options, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **kwargs)
        self.addCleanup(service.stdout.close)
        self.addCleanup(service.stderr.close)
        jxtest.wait_until(lambda: self.is_there(), what="the service is on the bus")
        return service

    def is_there(self):
        return self.client.bus_call("NameHasOwner", "s", "zoripc.App.a1") == [1]

    def tell(self, message):
        text = message if isinstance(message, str) else json.dumps(message)
        self.client.notify("1", "CloudProxyConf", text, sender="tester")

    def answer(self):
        name, text, flags, sender = self.client.notification()
        self.assertEqual((name, flags, sender), ("CloudProxyConfResponse", 0, "1"))
        response = json.loads(text)
        self.assertEqual(list(response), ["proxy"])
        return response["proxy"]

    def ask(self, command, **members):
        self.tell({"proxy": {"command": command, **members}})
        return self.answer()

    def restart(self, service, *options, sig=signal.SIGTERM):
        self.stop(service, sig)
        jxtest.wait_until(lambda: not self.is_there(), what="the service is off the bus")
        return self.start_service(*options)
