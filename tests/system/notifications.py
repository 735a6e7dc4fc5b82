"""Notifications between applications over a private bus, with a peer in another language at the other end."""

import pathlib
import queue
import signal
import subprocess
import threading
import unittest

import jxbus
import jxtest

OBJECT = ("/zoripc", "zoripc.Notification1")


class Application:
    """A running zoripc_peer: commands in, events out."""

    def __init__(self, case):
        self.process = case.start(jxtest.BIN / "zoripc_peer", stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        case.addCleanup(self.process.stdin.close)
        self.answers, self.events = queue.Queue(), queue.Queue()
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        with self.process.stdout as lines:
            for line in lines:
                (self.answers if line.startswith("= ") else self.events).put(line.rstrip("\n"))

    def ask(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        return self.answers.get(timeout=60)

    def do(self, *commands):
        for command in commands:
            answer = self.ask(command)
            assert answer == "= done", (command, answer)

    def event(self):
        return self.events.get(timeout=60)


def busctl(address, *words):
    run = subprocess.run(["busctl", f"--address={address}", *words], capture_output=True, text=True, timeout=60)
    return run.returncode, run.stdout + run.stderr


def notify(address, name, message, sender="tester", flags=7, to="zoripc.App.a_5fmac"):
    return busctl(address, "call", to, *OBJECT, "Notify", "ssus", name, message, str(flags), sender)


class NotificationsTest(jxtest.Case):
    def setUp(self):
        super().setUp()
        self.address = self.start_bus()

    def test_from_another_language(self):
        receiver = Application(self)
        receiver.do("want Greeting", "id _mac")
        code, output = notify(self.address, "Greeting", '{"b": [1, 2.5, null],\n "a": "\u00e4"}')
        self.assertEqual((code, output.strip()), (0, ""))
        self.assertEqual(receiver.event(), 'notified tester _mac Greeting {"a":"\u00e4","b":[1,2.5,null]} 7')

    def test_to_another_language(self):
        monitor = self.start("dbus-monitor", "--address", self.address, "interface='zoripc.Notification1'",
                             stdout=subprocess.PIPE, text=True)
        seen = queue.Queue()

        def read():
            with monitor.stdout as lines:
                for line in lines:
                    seen.put(line.rstrip("\n"))
        threading.Thread(target=read, daemon=True).start()
        receiver, sender = Application(self), Application(self)
        receiver.do("want Greeting", "id 1")

        # The monitor does not tell when it has begun to listen, so that the first ones may pass unseen.
        def head():
            sender.do('send 1 Greeting {"a":1} jxdownloader')
            receiver.event()
            while not seen.empty():
                line = seen.get()
                if line.startswith("method call") and "destination=zoripc.App.a1 " in line:
                    return line
        self.assertIn("path=/zoripc; interface=zoripc.Notification1; member=Notify", jxtest.wait_until(head))
        arguments = [seen.get(timeout=60).strip() for _ in range(4)]
        self.assertEqual(arguments, ['string "Greeting"', 'string "{"a":1}"', "uint32 9", 'string "jxdownloader"'])

    def test_error_reply_comes_back_with_what_was_sent(self):
        sender = Application(self)
        sender.do("failures", "id jxdownloader", 'send 1 CloudProxyConf {"proxy":{"command":"info"}}')
        self.assertEqual(sender.event(), 'failed jxdownloader 1 CloudProxyConf {"proxy":{"command":"info"}} 9')
        Application(self).do("id 1")
        sender.do("send 1 Unwanted [1]")
        self.assertEqual(sender.event(), "failed jxdownloader 1 Unwanted [1] 9")
        sender.do("nofailures")
        self.assertEqual(sender.ask("nofailures"), "= refused")

    def test_malformed_payloads_get_an_error_reply(self):
        receiver = Application(self)
        receiver.do("want Greeting", "id _mac")
        for message in ("", "{", "{}x", "[" * 101 + "]" * 101, "[" * 100_000):
            code, output = notify(self.address, "Greeting", message)
            self.assertNotEqual(code, 0)
            self.assertIn("not JSON", output)
        code, output = busctl(self.address, "call", "zoripc.App.a_5fmac", *OBJECT, "Notify", "s", "Greeting")
        self.assertNotEqual(code, 0)
        code, output = notify(self.address, "Other", "{}")
        self.assertIn("Nobody here has registered for Other", output)
        self.assertEqual(notify(self.address, "Greeting", "1")[0], 0)
        self.assertEqual(receiver.event(), "notified tester _mac Greeting 1 7")

    def test_sender_filter(self):
        receiver = Application(self)
        receiver.do("want Greeting friend", "id _mac")
        self.assertNotEqual(notify(self.address, "Greeting", "1", sender="stranger")[0], 0)
        self.assertEqual(notify(self.address, "Greeting", "2", sender="friend")[0], 0)
        self.assertEqual(receiver.event(), "notified friend _mac Greeting 2 7")

    def test_object_explains_itself(self):
        Application(self).do("id _mac")
        _, output = busctl(self.address, "introspect", "zoripc.App.a_5fmac", *OBJECT)
        self.assertRegex(output, r"\.Notify +method +ssus +-")

    def test_last_notification_before_the_end_arrives(self):
        receiver = Application(self)
        receiver.do("want Bye", "id 1")
        for count in range(10):
            sender = Application(self)
            sender.do(f"send 1 Bye {count} x")
            sender.process.stdin.write("exit\n")
            sender.process.stdin.flush()
            self.assertEqual(sender.process.wait(60), 0)
            self.assertEqual(receiver.event(), f"notified x 1 Bye {count} 9")

    def test_large_notification_before_the_end_arrives(self):
        receiver = Application(self)
        receiver.do("want Bye", "id 1")
        sender = Application(self)
        text = "x" * 3_000_000
        sender.do(f'send 1 Bye "{text}" x')
        sender.process.stdin.write("exit\n")
        sender.process.stdin.flush()
        self.assertEqual(sender.process.wait(60), 0)
        self.assertEqual(receiver.event(), f'notified x 1 Bye "{text}" 9')


class SecondProgramTest(jxtest.Case):
    """An id belongs to one program of a bus."""

    def setUp(self):
        super().setUp()
        self.address = self.start_bus()
        self.env.update(JXPLATFORM_SCREEN="127.0.0.1:0", JXPLATFORM_PAGES=str(jxtest.SOURCE / "pages"))
        self.watch = jxbus.Peer(self, self.address)

    def owner(self, application):
        """The process that has the id; none while there is none."""
        name = jxbus.bus_name(application)
        if self.watch.bus_call("NameHasOwner", "s", name) == [0]:
            return None
        return self.watch.bus_call("GetConnectionUnixProcessID", "s", name)[0]

    def start_owner(self, program, application):
        process = self.start(jxtest.BIN / program)
        jxtest.wait_until(lambda: self.owner(application), what=f"{program} is on the bus")
        self.assertEqual(self.owner(application), process.pid)
        return process

    def test_says_so_and_ends_while_the_first_goes_on(self):
        for program, application in (("jxdownloader", "jxdownloader"), ("controllerd", "_mac"), ("cloudproxyd", "1")):
            first = self.start_owner(program, application)
            root = self.root / f"second-{program}"
            second = subprocess.run([jxtest.BIN / program], env={**self.env, "JXPLATFORM_ROOT": str(root)},
                                    capture_output=True, text=True, timeout=60)
            self.assertEqual((second.returncode, second.stdout, second.stderr),
                             (1, "", f"libzoripc: process {first.pid} has the id {application} on this bus; end it first\n"))
            self.assertFalse((root / "screen.url").exists())
            self.assertEqual(self.owner(application), first.pid)

    def test_program_after_the_first_has_ended_however_takes_the_id(self):
        for sig in (signal.SIGTERM, signal.SIGKILL):
            self.stop(self.start_owner("jxdownloader", "jxdownloader"), sig)
        self.start_owner("jxdownloader", "jxdownloader")


class WithoutBusTest(jxtest.Case):
    def test_sending_is_refused(self):
        sender = Application(self)
        sender.do("failures", "id x")
        self.assertEqual(sender.ask("send 1 Name {}"), "= refused")
        self.env["JXPLATFORM_BUS"] = "session"
        for name in ("DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"):
            self.env.pop(name, None)
        self.assertEqual(Application(self).ask("send 1 Name {} x"), "= refused")


class RestartTest(jxtest.Case):
    def start_bus_at(self, path):
        pathlib.Path(path).unlink(missing_ok=True)
        bus = self.start("dbus-daemon", "--session", "--nofork", "--nosyslog", f"--address=unix:path={path}")
        jxtest.wait_until(lambda: pathlib.Path(path).exists(), what="the bus is there")
        return bus

    def test_restarted_bus_is_found_again(self):
        path = self.root / "bus"
        address = f"unix:path={path}"
        self.env["JXPLATFORM_BUS"] = address
        first = self.start_bus_at(path)
        receiver = Application(self)
        receiver.do("want Greeting", "id _mac")
        self.assertEqual(notify(address, "Greeting", "1")[0], 0)
        receiver.event()
        self.stop(first)
        self.assertEqual(receiver.ask("send 1 Name {}"), "= refused")
        self.start_bus_at(path)
        # By itself: nobody uses the library of the receiver meanwhile.
        jxtest.wait_until(lambda: notify(address, "Greeting", "2")[0] == 0, what="the name is back")
        self.assertEqual(receiver.event(), "notified tester _mac Greeting 2 7")
        receiver.do("failures", "send nobody Name {}")
        self.assertEqual(receiver.event(), "failed _mac nobody Name {} 9")


if __name__ == "__main__":
    unittest.main()
