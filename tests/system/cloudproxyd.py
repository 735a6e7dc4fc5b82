"""The cloud proxy service as a process: what it answers over the bus, what it keeps."""

import json
import os
import re
import shlex
import signal
import subprocess
import threading
import time
import unittest

import jxbus
import jxtest
from jxservice import DAEMON, ServiceCase
from jxterminal import Terminal

MAN_PAGE = jxtest.SOURCE / "platform/linux/services/cloudproxyd/cloudproxyd.8"


class AnswersTest(ServiceCase):
    def test_information(self):
        self.start_service()
        answer = self.ask("info")
        self.assertRegex(answer.pop("version"), r"^\d+\.\d+\.\d+$")
        self.assertEqual(answer, {"command": "info", "result": "success", "device_type": "prod", "auth_ex_support": 1})

    def test_configuration_in_each_list_format(self):
        lists = {"cloud_env_list": ["prod", "test"],
                 "cloud_env_list2": [{"name": "prod", "prod": True, "certs": ["auth-ex"]},
                                     {"name": "test", "prod": False, "certs": ["jx-basic"]}]}
        common = {"command": "readconfig", "result": "success", "loglevel": 3, "cloud_env": "prod", "auth_ex": 1,
                  "cloud_hostname": "gateway.example"}
        for form, names in (("new", ["cloud_env_list2"]), ("old", ["cloud_env_list"]), ("both", list(lists))):
            service = self.start_service("--list-format", form)
            self.assertEqual(self.ask("readconfig"), {**common, **{name: lists[name] for name in names}})
            self.stop(service)
            jxtest.wait_until(lambda: not self.is_there(), what="the service is off the bus")

    def test_device_of_another_type(self):
        self.start_service("--device-type", "dev", "--gateway", "[::1]:8443")
        self.assertEqual(self.ask("info")["device_type"], "dev")
        answer = self.ask("readconfig")
        self.assertEqual([entry["certs"] for entry in answer["cloud_env_list2"]], [[], ["auth-ex", "jx-basic"]])
        self.assertEqual((answer["auth_ex"], answer["cloud_hostname"]), (0, "::1"))

    def test_environments_without_extended_authentication(self):
        self.start_service("--env", "a:one,two", "--env", "b")
        self.assertEqual(self.ask("info")["auth_ex_support"], 0)
        answer = self.ask("readconfig")
        self.assertNotIn("auth_ex", answer)
        self.assertEqual(answer["cloud_env_list2"], [{"name": "a", "prod": False, "certs": ["one", "two"]},
                                                     {"name": "b", "prod": False, "certs": []}])

    def test_no_information(self):
        self.start_service("--no-info")
        self.assertEqual(self.ask("info"), {"result": "error", "error_reason": "unknown command"})
        self.assertEqual(self.ask("readconfig")["loglevel"], 3)

    def test_log_level_is_set_without_an_answer(self):
        service = self.start_service()
        self.tell({"proxy": {"loglevel": 7}})
        self.assertEqual(service.stdout.readline(), "Log level 7, environment prod, auth-ex\n")
        # The next answer is that to the next request.
        self.assertEqual(self.ask("readconfig")["loglevel"], 7)
        for level in (-1, "5", None, True, [5]):
            self.tell({"proxy": {"loglevel": level}})
            self.assertEqual(service.stdout.readline(), "A log level that is none has been ignored\n")
        self.assertEqual(self.ask("readconfig")["loglevel"], 7)

    def test_each_sender_gets_its_own_answer(self):
        self.start_service()
        other = jxbus.Peer(self, self.address, "other-one")
        other.notify("1", "CloudProxyConf", '{"proxy":{"command":"info"}}', sender="other-one")
        self.assertEqual(json.loads(other.notification()[1])["proxy"]["command"], "info")
        self.assertEqual(self.ask("readconfig")["command"], "readconfig")
        self.assertTrue(self.client.notifications.empty())

    def test_bad_requests_get_an_answer(self):
        self.start_service()
        for message in ({}, [], 5, "null", '"x"', {"proxy": None}, {"proxy": []}, {"proxy": "info"}, {"proxy": {}},
                        {"proxy": {"command": None}}, {"proxy": {"command": 5}}, {"proxy": {"command": None, "loglevel": 5}}):
            self.tell(message)
            self.assertEqual(self.answer(), {"result": "error", "error_reason": "the request has no command"}, message)
        for command in ("", "INFO", "info ", "x" * 10_000_000, "<b>", "\u0000"):
            self.assertEqual(self.ask(command), {"result": "error", "error_reason": "unknown command"})
        self.tell({"proxy": {"command": "info", "x": json.loads("[" * 90 + "]" * 90), "y": "z" * 1_000_000}})
        self.assertEqual(self.answer()["result"], "success")
        for text in ("", "{", "[" * 101 + "]" * 101, '"\\udc00"'):
            with self.assertRaises(jxbus.BusError):
                self.tell(text)
        with self.assertRaises(jxbus.BusError):
            self.client.notify("1", "Other", "{}", sender="tester")
        self.assertEqual(self.ask("readconfig")["loglevel"], 3)

    def test_sender_without_a_name_loses_its_answer_alone(self):
        self.start_service()
        for sender in ("", "nobody", "\u00e4 \n"):
            self.client.notify("1", "CloudProxyConf", '{"proxy":{"command":"info"}}', sender=sender)
        self.assertEqual(self.ask("info")["result"], "success")


class SettingsTest(ServiceCase):
    def configuration(self):
        answer = self.ask("readconfig")
        return answer["loglevel"], answer["cloud_env"], answer.get("auth_ex")

    def test_settings_are_written_and_survive(self):
        service = self.start_service()
        self.assertEqual(self.ask("writeconfig", cloud_env="test", auth_ex=0), {"command": "writeconfig", "result": "success"})
        self.tell({"proxy": {"loglevel": 5}})
        self.assertEqual(self.configuration(), (5, "test", 0))
        self.assertEqual(json.loads(self.state.read_text()), {"loglevel": 5, "cloud_env": "test", "auth_ex": 0})
        service = self.restart(service)
        self.assertEqual(self.configuration(), (5, "test", 0))
        self.assertEqual(self.ask("writeconfig", cloud_env="prod", auth_ex=1)["result"], "success")
        self.restart(service, sig=signal.SIGKILL)
        self.assertEqual(self.configuration(), (5, "prod", 1))
        self.assertEqual([path.name for path in self.root.iterdir()], ["cloudproxy.json"])

    def test_settings_that_are_not_possible_are_refused(self):
        self.start_service("--env", "both:auth-ex,jx-basic", "--env", "basic:jx-basic", "--env", "ex:auth-ex", "--env", "none")
        refused = [({"cloud_env": "other", "auth_ex": 0}, "unknown environment"),
                   ({"cloud_env": "", "auth_ex": 0}, "unknown environment"),
                   ({"cloud_env": "x" * 1_000_000, "auth_ex": 0}, "unknown environment"),
                   ({"cloud_env": "basic", "auth_ex": 1}, "the environment has no certificate auth-ex"),
                   ({"cloud_env": "none", "auth_ex": 1}, "the environment has no certificate auth-ex"),
                   ({"cloud_env": "ex", "auth_ex": 0}, "the environment has no certificate but auth-ex"),
                   ({"cloud_env": "both", "auth_ex": "1"}, "auth_ex is not a number"),
                   ({"cloud_env": "both", "auth_ex": None}, "auth_ex is not a number"),
                   ({"cloud_env": 1, "auth_ex": 0}, "the request has no cloud_env"),
                   ({"auth_ex": 0}, "the request has no cloud_env")]
        for members, reason in refused:
            self.assertEqual(self.ask("writeconfig", **members),
                             {"command": "writeconfig", "result": "error", "error_reason": reason})
            self.assertFalse(self.state.exists())
            self.assertEqual(self.configuration(), (3, "both", 0))
        for members in ({"cloud_env": "both", "auth_ex": 1}, {"cloud_env": "both", "auth_ex": 0.0}, {"cloud_env": "none"},
                        {"cloud_env": "ex", "auth_ex": 2}, {"cloud_env": "both"}):
            self.assertEqual(self.ask("writeconfig", **members)["result"], "success", members)
        self.assertEqual(self.configuration(), (3, "both", 1))

    def test_settings_that_cannot_be_kept_are_refused(self):
        service = self.start_service("--state", self.root / "missing" / "state.json")
        answer = self.ask("writeconfig", cloud_env="test", auth_ex=0)
        self.assertEqual(answer["error_reason"], "the settings cannot be kept: No such file or directory")
        self.tell({"proxy": {"loglevel": 5}})
        self.assertEqual(service.stdout.readline(),
                         "The log level stays 3: the settings cannot be kept: No such file or directory\n")
        self.assertEqual(self.configuration(), (3, "prod", 1))

    def test_full_disk_leaves_the_old_settings(self):
        mount = self.root / "small"
        mount.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=8k", "tmpfs", mount], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", mount], check=True)
        service = self.start_service("--state", mount / "state.json")
        self.tell({"proxy": {"loglevel": 5}})
        self.assertEqual(self.configuration()[0], 5)
        with open(mount / "filler", "wb", buffering=0) as file, self.assertRaises(OSError):
            while True:
                file.write(bytes(4096))
        answer = self.ask("writeconfig", cloud_env="test", auth_ex=0)
        self.assertEqual(answer["error_reason"], "the settings cannot be kept: No space left on device")
        self.assertEqual(sorted(path.name for path in mount.iterdir()), ["filler", "state.json"])
        (mount / "filler").unlink()
        self.restart(service, "--state", mount / "state.json")
        self.assertEqual(self.configuration(), (5, "prod", 1))

    def test_unusable_state_is_told_and_replaced(self):
        for text in ("", "{", "[]", "5", '{"loglevel":"5"}', '{"loglevel":-1}', '{"cloud_env":5}', '{"auth_ex":2}', "\0", "x" * 100000,
                     '{"cloud_env":"gone","auth_ex":0}', '{"cloud_env":"test","auth_ex":1}'):
            self.state.write_text(text)
            service = self.start_service()
            self.assertEqual(self.configuration(), (3, "prod", 1), text)
            self.assertEqual(self.state.read_text(), text)
            self.stop(service)
            self.assertRegex(service.stderr.read(), r"^cloudproxyd: .*cloudproxy.json: .*; starting with environment prod\n$")
            jxtest.wait_until(lambda: not self.is_there(), what="the service is off the bus")

    def test_state_that_is_no_file_is_told_and_left_alone(self):
        fifo, folder, endless = self.root / "fifo", self.root / "folder", self.root / "endless"
        os.mkfifo(fifo)
        folder.mkdir()
        endless.symlink_to("/dev/zero")
        for state, reason in ((fifo, "it is not a regular file"), (folder, "Is a directory"), (endless, "it is not a regular file")):
            kind = os.stat(state).st_mode
            service = self.start_service("--state", state)
            self.assertEqual(self.configuration(), (3, "prod", 1))
            self.assertEqual(self.ask("writeconfig", cloud_env="test", auth_ex=0),
                             {"command": "writeconfig", "result": "error", "error_reason": f"the settings cannot be kept: {reason}"})
            self.assertEqual(self.stop(service), 0)
            self.assertEqual(service.stderr.read(), f"cloudproxyd: {state}: {reason}; starting with environment prod\n")
            self.assertEqual(os.stat(state).st_mode, kind)
            jxtest.wait_until(lambda: not self.is_there(), what="the service is off the bus")
        self.assertEqual(sorted(path.name for path in self.root.iterdir()), ["endless", "fifo", "folder"])

    def test_environment_that_is_gone_keeps_the_log_level(self):
        self.state.write_text('{"loglevel":8,"cloud_env":"gone","auth_ex":0}')
        self.start_service()
        self.assertEqual(self.configuration(), (8, "prod", 1))

    def test_partial_state_is_completed(self):
        self.state.write_text('{"loglevel":6}')
        self.start_service()
        self.assertEqual(self.configuration(), (6, "prod", 1))

    def test_kill_while_it_writes_leaves_a_whole_file(self):
        for rounds in range(10):
            service = self.start_service()
            done = threading.Event()

            def write():
                level = 0
                while not done.is_set():
                    level += 1
                    try:
                        self.tell({"proxy": {"loglevel": level}})
                    except (jxbus.BusError, OSError):
                        return
            writer = threading.Thread(target=write)
            writer.start()
            jxtest.wait_until(self.state.exists, what="settings are written")
            time.sleep(rounds * 0.003)  # only when it is hit, never whether it must hold
            service.kill()
            service.wait()
            done.set()
            writer.join()
            self.assertEqual(sorted(json.loads(self.state.read_text())), ["auth_ex", "cloud_env", "loglevel"])
            jxtest.wait_until(lambda: not self.is_there(), what="the service is off the bus")


class TerminalTest(ServiceCase):
    def test_settings_are_changed_from_the_screen(self):
        self.start_service("--list-format", "old")
        terminal = Terminal(self)
        terminal.next("mainmenu.html")
        terminal.press(4)
        terminal.next("cloudproxy.html")
        terminal.press(2)
        self.assertEqual(terminal.next("prx-settings.html"), {
            "cloud_env": "prod", "cert": "auth-ex", "auth_ex_support": "1",
            "cloud_env_list": '[{"certs":["auth-ex"],"name":"prod","prod":true},{"certs":["jx-basic"],"name":"test","prod":false}]'})
        terminal.press(0, cloud_env="test", cert="jx-basic")
        terminal.next("cloudproxy.html")
        self.assertEqual(json.loads(self.state.read_text()), {"loglevel": 3, "cloud_env": "test", "auth_ex": 0})
        terminal.press(2)
        terminal.next("prx-settings.html")
        terminal.press(0, cloud_env="nowhere", cert="jx-basic")
        self.assertEqual(terminal.next("result.html")["text"],
                         "<span style='color:#f00'><b>Error:</b></span><br>Cannot write settings.<br>Cloudproxy not running?")

    def test_log_level_is_changed_from_the_screen(self):
        self.start_service("--no-info")
        terminal = Terminal(self)
        self.assertEqual(terminal.next("mainmenu.html"), {"show_settings": "1", "show_cloudproxy": "0"})
        terminal.press(3)
        self.assertEqual(terminal.next("settings.html"), {"loglevel": "3"})
        terminal.press(0, loglevel="6")
        terminal.next("mainmenu.html")
        jxtest.wait_until(lambda: self.state.exists() and json.loads(self.state.read_text())["loglevel"] == 6, what="the level is set")


class DocumentTest(ServiceCase):
    def commands(self, application):
        """What docs/ipc.md says to type for this application, for the bus of the test."""
        lines = (jxtest.SOURCE / "docs/ipc.md").read_text().splitlines()
        found = [line for line in lines if line.startswith(f"busctl --user call {jxbus.bus_name(application)} ")]
        return [shlex.split(line.replace("--user", f"--address={self.address}")) for line in found]

    def run_command(self, words):
        run = subprocess.run(words, capture_output=True, text=True, timeout=60)
        self.assertEqual((run.returncode, run.stderr), (0, ""), words)

    def test_commands_to_the_proxy(self):
        service = self.start_service()
        request, setting = self.commands("1")
        self.run_command(request)
        self.assertEqual(self.answer()["command"], "readconfig")
        self.run_command(setting)
        self.assertEqual(service.stdout.readline(), "Log level 5, environment prod, auth-ex\n")

    def test_command_to_the_controller(self):
        controller = self.start(jxtest.BIN / "controllerd", stdout=subprocess.PIPE, text=True)
        self.addCleanup(controller.stdout.close)
        jxtest.wait_until(lambda: self.client.bus_call("NameHasOwner", "s", jxbus.bus_name("_mac")) == [1], what="the controller")
        (command,) = self.commands("_mac")
        self.run_command(command)
        self.assertEqual(controller.stdout.readline(), "Installed applications: none\n")

    def test_command_in_the_place_of_the_proxy(self):
        proxy = jxbus.Peer(self, self.address, "1")
        driver = self.start(jxtest.BIN / "cloudproxy_driver", stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.addCleanup(driver.stdout.close)
        self.addCleanup(driver.stdin.close)
        driver.stdin.write('request 120 {"proxy":{"command":"readconfig"}}\n')
        driver.stdin.flush()
        proxy.notification()
        (command,) = self.commands("jxdownloader")
        self.run_command(command)
        self.assertEqual(driver.stdout.readline(), '0 {"proxy":{"loglevel":3,"result":"success"}}\n')


class CommandLineTest(jxtest.Case):
    def run_with(self, *options):
        return subprocess.run([DAEMON, *options], capture_output=True, text=True, env=self.env, timeout=60)

    def test_help_and_man_page_agree(self):
        run = self.run_with("--help")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        page = MAN_PAGE.read_text().replace("\\-", "-")
        told = set(re.findall(r"--[a-z][a-z-]+", run.stdout))
        described = set(re.findall(r"^\.BI? (--[a-z][a-z-]+)", page, re.M))
        self.assertEqual(told, described)
        self.assertGreater(len(told), 7)

    def test_man_page_is_well_formed(self):
        run = subprocess.run(["man", "--warnings=w", "-l", MAN_PAGE], capture_output=True, text=True, env={**self.env, "MANWIDTH": "80"})
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn("CLOUDPROXYD(8)", run.stdout)

    def test_version(self):
        self.assertRegex(self.run_with("--version").stdout, r"^cloudproxyd \d+\.\d+\.\d+\n$")

    def test_wrong_command_lines(self):
        for options in (["--wrong"], ["extra"], ["--env"], ["--env", ""], ["--env", ":a"], ["--env", "a:,b"], ["--env", "a:b,"],
                        ["--env", "a", "--env", "a:b"], ["--env", "\u00e4"], ["--env", "x" * 65], ["--list-format", "newer"],
                        ["--gateway", ""], ["--gateway", "a:0"], ["--gateway", "a:65536"], ["--gateway", "a:b"], ["--gateway", "a:"],
                        ["--gateway", "[::1"], ["--gateway", "[::1]8"], ["--gateway", "https://a"], ["--gateway", "[]"],
                        ["--ca-file", "/nonexistent"], ["--device-type", ""]):
            run = self.run_with(*options)
            self.assertEqual((run.returncode, run.stdout), (2, ""), options)
            self.assertNotEqual(run.stderr, "")


if __name__ == "__main__":
    unittest.main()
