"""The Debian packages in a clean system: installed, in use without systemd, and removed again."""

import http.client
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "system"))
import jxtest
import jxtree

UNITS = ("jxdownloader-http", "jxdownloader-terminal", "jxdownloader-controllerd", "jxdownloader-cloudproxyd")
HELLO = "usr/share/doc/jxdownloader/examples/hello-1.0.0.zip"
SCREEN_PORT = 6380
# Which the kernel's table writes otherwise, or which mean something to a shell or to find.
ODD_NAMES = ("certs [1]", "data 1", " blanks ", "back\\slash*", "two\nlines\n")


def upload(package):
    body = (b"--edge\r\nContent-Disposition: form-data; name=\"upload\"; filename=\"hello.zip\"\r\n"
            b"Content-Type: application/zip\r\n\r\n" + package + b"\r\n--edge--\r\n")
    connection = http.client.HTTPConnection("127.0.0.1", jxtest.HTTP_PORT, timeout=60)
    connection.request("POST", "/upload", body, {"Content-Type": "multipart/form-data; boundary=edge"})
    answer = connection.getresponse()
    return answer.status, answer.read().decode()


def allowed_calls():
    """The system calls that the units' SystemCallFilter= lets through, and those that systemd always does."""
    def members(group):
        told = subprocess.run(["systemd-analyze", "syscall-filter", group], check=True, capture_output=True, text=True).stdout
        for name in re.findall(r"^    (@?[\w-]+)$", told, re.M):
            yield from members(name) if name.startswith("@") else [name]
    return set(members("@system-service")) - set(members("@privileged")) - set(members("@resources"))


class InUseTest(jxtree.Case):
    def setUp(self):
        super().setUp()
        self.install_packages()

    def notify(self, user, succeeds):
        return self.run_in(
            "busctl", "--system", "call", "zoripc.App.a_5fmac", "/zoripc", "zoripc.Notification1", "Notify", "ssus",
            "_mac_control_trigger", '{"libmac_cmd":"libmac_show_desktop"}', "0", "tester", user=user, succeeds=succeeds)

    def request_name(self, user, application):
        return self.run_in("busctl", "--system", "call", "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", "RequestName", "su", f"zoripc.App.{application}", "4", user=user,
                           succeeds=None)

    def start_controller(self):
        controller = self.start_unit("jxdownloader-controllerd", stdout=subprocess.PIPE, text=True)
        self.addCleanup(controller.stdout.close)
        jxtest.wait_until(lambda: self.notify_result("root") == 0, what="the controller answers")
        self.assertEqual(controller.stdout.readline(), "The desktop is shown\n")
        return controller

    def notify_result(self, user):
        return self.notify(user, succeeds=None).returncode

    def test_upload_is_installed_and_the_controller_told(self):
        self.start_bus()
        controller = self.start_controller()
        self.start_unit("jxdownloader-http")
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the upload server accepts")
        status, page = upload((self.tree / HELLO).read_bytes())
        self.assertEqual(status, 200)
        self.assertIn("Installed hello 1.0.0", page)
        self.assertEqual(controller.stdout.readline(), "Installed applications:\n")
        self.assertEqual(controller.stdout.readline(), "hello 1.0.0\n")
        installed = self.run_in("/var/lib/jxplatform/apps/hello/bin/hello").stdout
        self.assertNotEqual(installed, "")
        self.assertEqual(self.run_in("stat", "-c", "%U:%G", "/var/lib/jxplatform/apps/hello").stdout,
                         "jxdownloader:jxdownloader\n")

    def test_tools_send_to_the_server(self):
        self.start_unit("jxdownloader-http")
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the upload server accepts")
        sent = self.run_in("jxpush", "--to", "http://127.0.0.1", "/" + HELLO)
        self.assertIn("Installed hello 1.0.0", sent.stdout + sent.stderr)

    def test_screen_shows_the_installed_pages_and_the_proxy_answers(self):
        self.start_bus()
        self.start_controller()
        self.start_unit("jxdownloader-cloudproxyd")
        jxtest.wait_until(lambda: self.has_owner("zoripc.App.a1"), what="the cloud proxy is on the bus")
        self.start_unit("jxdownloader-terminal")
        jxtest.wait_until(lambda: jxtest.can_connect(SCREEN_PORT), what="the screen")
        screen = jxtest.wait_until(self.first_screen, what="the main menu")
        self.assertEqual((screen["page"], screen["vars"]["show_cloudproxy"]), ("mainmenu.html", "1"))

    def has_owner(self, name):
        return "true" in self.run_in("busctl", "--system", "call", "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                     "org.freedesktop.DBus", "NameHasOwner", "s", name).stdout

    def first_screen(self):
        connection = http.client.HTTPConnection("127.0.0.1", SCREEN_PORT, timeout=60)
        connection.request("GET", "/api/screen?after=0&wait=5")
        answer = connection.getresponse()
        text = answer.read()
        return json.loads(text) if answer.status == 200 else None

    def test_bus_policy_lets_the_programs_alone_play_applications(self):
        self.start_bus()
        self.start_controller()
        self.notify("jxdownloader", succeeds=True)
        refused = self.notify("games", succeeds=False)
        self.assertIn("Access denied", refused.stderr)
        owned = self.request_name("jxdownloader", "a2")
        self.assertEqual((owned.returncode, owned.stdout), (0, "u 1\n"))
        for user in ("games", "root"):
            refused = self.request_name(user, "a2")
            self.assertNotEqual(refused.returncode, 0, user)
            self.assertIn("Access denied", refused.stderr)

    def test_serial_lines_belong_to_a_group_of_the_user(self):
        self.assertIn("dialout", self.run_in("id", "-Gn", "jxdownloader").stdout.split())
        self.assertIn("nologin", self.run_in("getent", "passwd", "jxdownloader").stdout)

    def test_services_are_fenced_in_here_as_by_their_units(self):
        def touch(path, user=None):
            return subprocess.run(self.fenced(*self.in_tree("touch", path, user=user)), capture_output=True).returncode
        self.assertNotEqual(touch("/etc/written"), 0)
        self.assertNotEqual(touch("/run/written"), 0)
        self.assertEqual(touch("/tmp/written"), 0)
        self.assertFalse((self.tree / "tmp/written").exists())
        self.assertEqual(touch("/var/lib/jxplatform/written", user="jxdownloader"), 0)
        self.assertTrue((self.tree / "var/lib/jxplatform/written").exists())
        self.assertNotEqual(touch("/var/lib/jxplatform/written", user="games"), 0)

    def test_services_keep_to_the_system_calls_of_their_units(self):
        self.start_bus()
        self.start_controller()
        allowed = allowed_calls()
        self.assertIn("openat", allowed)
        self.assertNotIn("chown", allowed)
        trace = self.root / "trace"
        tracer = self.start_unit("jxdownloader-http", before=("strace", "-f", "-qq", "-o", trace))
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the upload server accepts")
        self.assertIn("Installed hello", upload((self.tree / HELLO).read_bytes())[1])
        lines = trace.read_text().splitlines()
        begin = next(n for n, line in enumerate(lines) if 'execve("/usr/bin/jxdownloader"' in line)
        os.kill(int(lines[begin].split()[0]), signal.SIGTERM)
        tracer.wait(60)
        used = {match[1] for line in lines[begin:] if (match := re.match(r"\d+ +(\w+)\(", line))}
        self.assertIn("rename", {call[:6] for call in used})
        self.assertEqual(used - allowed, set())


class InstallationTest(jxtree.Case):
    def test_installation_enables_nothing_and_leaves_settings_alone(self):
        before = self.listing()
        self.install_packages()
        elsewhere = {path for path in self.changed(before) if not path.startswith("usr/") and path != "var/lib/jxplatform"}
        self.assertEqual(elsewhere, {"etc/passwd", "etc/group", "etc/shadow", "etc/gshadow"})
        self.assertEqual(set(before) - set(self.listing()), set())

    def test_second_installation_over_the_first_keeps_state_and_choices(self):
        self.install_packages()
        self.run_in("systemctl", "enable", "jxdownloader-http")
        kept = self.tree / "var/lib/jxplatform/terminal.json"
        kept.write_text("{}")
        before = self.listing()
        self.install_packages()
        self.assertEqual(self.changed(before), set())
        self.assertEqual(kept.read_text(), "{}")
        self.run_in("systemctl", "is-enabled", "jxdownloader-http")
        self.run_in("systemctl", "is-enabled", "jxdownloader-terminal", succeeds=False)

    def test_an_update_restarts_what_runs_and_the_first_installation_nothing(self):
        (self.tree / "run/systemd/system").mkdir(parents=True)
        told = self.tree / "usr/local/bin/told"
        stand_in = self.tree / "usr/bin/systemctl"
        stand_in.write_text('#!/bin/sh\necho "$@" >>/usr/local/bin/told\n')
        self.install_packages()
        self.assertEqual(told.read_text(), "daemon-reload\n")
        self.install_packages()
        again = told.read_text().splitlines()[1:]
        self.assertEqual(again[0], "daemon-reload")
        self.assertEqual(sorted(again[1].split()), sorted(["try-restart", *(f"{unit}.service" for unit in UNITS)]))
        self.assertEqual(again[2:], [])

    def test_units_start_again_what_ends_for_whatever_reason(self):
        self.install_packages()
        for unit in UNITS:
            section = self.service_section(unit)
            self.assertEqual((section["Restart"], section["RestartSec"]), ("always", "2"), unit)


class RemovalTest(jxtree.Case):
    STATE = "var/lib/jxplatform"

    def setUp(self):
        super().setUp()
        self.before = self.listing()
        self.install_packages()
        self.assertNotEqual(self.changed(self.before), set())

    def install_hello(self):
        server = self.start_unit("jxdownloader-http")
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the upload server accepts")
        self.assertIn("Installed hello", upload((self.tree / HELLO).read_bytes())[1])
        self.stop(server)

    def mount(self, *options, below=""):
        place = self.tree / self.STATE / below
        place.mkdir(exist_ok=True)
        subprocess.run(["mount", *options, place], check=True)
        self.addCleanup(subprocess.run, ["umount", place], check=True)
        return place

    def purge(self):
        return self.run_in("dpkg", "--purge", "jxdownloader", "jxdownloader-tools")

    def test_purge_leaves_nothing_of_the_settings_either(self):
        self.run_in("systemctl", "enable", *UNITS)
        for path in ("etc/default/jxdownloader-cloudproxyd", "etc/systemd/system/jxdownloader-http.service.d/override.conf"):
            (self.tree / path).parent.mkdir(exist_ok=True)
            (self.tree / path).write_text("")
        self.run_in("systemctl", "mask", "jxdownloader-terminal")
        self.install_hello()
        self.assertEqual(self.purge().stderr, "")
        self.assertEqual(self.changed(self.before), set())

    def test_purge_empties_the_state_s_own_file_system_and_names_what_is_mounted(self):
        user = self.run_in("id", "-u", "jxdownloader").stdout.strip()
        state = self.mount("-t", "tmpfs", "-o", f"uid={user},gid={user},mode=0755", "state")
        source = self.mount("-t", "tmpfs", "-o", f"uid={user},gid={user},mode=0755", "uploads", below="source")
        self.install_hello()
        (state / "lost+found").mkdir()
        elsewhere = self.root / "else where[1]"
        elsewhere.mkdir()
        (elsewhere / "certificate.pem").write_text("shared")
        for name in ODD_NAMES:
            self.mount("--bind", elsewhere, below=name)
        (source / "foreign").write_text("")
        with open(self.tree / "etc/fstab", "a", encoding="utf-8") as table:
            table.write("tmpfs /var/lib/jxplatform/source tmpfs uid=jxdownloader 0 0\n")
        said = self.purge().stderr
        self.assertEqual({path.name for path in state.iterdir()}, {*ODD_NAMES, "lost+found", "source"})
        self.assertEqual((elsewhere / "certificate.pem").read_text(), "shared")
        self.assertTrue((source / "foreign").exists())
        self.assertEqual(sorted(f"\n{said}".removesuffix("\n").split("\njxdownloader: ")), sorted([
            "", *(f"/var/lib/jxplatform/{name} stays as it is, since it is mounted" for name in (*ODD_NAMES, "source")),
            "/var/lib/jxplatform stays, since a file system is mounted there",
            "take the lines with /var/lib/jxplatform out of /etc/fstab before the next start"]))
        self.run_in("getent", "passwd", "jxdownloader", succeeds=False)

    def test_purge_below_a_folder_that_is_a_link_leaves_what_is_mounted(self):
        self.run_in("sh", "-c", "cp -a /var/lib /srv/lib && rm -r /var/lib && ln -s ../srv/lib /var/lib")
        (self.mount("-t", "tmpfs", "certs", below="certs") / "certificate.pem").write_text("shared")
        self.assertEqual(self.purge().stderr, "jxdownloader: /srv/lib/jxplatform/certs stays as it is, since it is mounted\n")
        self.assertEqual((self.tree / self.STATE / "certs/certificate.pem").read_text(), "shared")

    def test_purge_removes_a_link_in_the_state_s_place_and_says_where_it_led(self):
        (self.tree / self.STATE).rename(self.tree / "srv/state")
        (self.tree / self.STATE).symlink_to("/srv/state")
        self.assertEqual(self.purge().stderr, "jxdownloader: what /var/lib/jxplatform led to stays: /srv/state\n")
        self.assertFalse((self.tree / self.STATE).is_symlink())
        self.assertTrue((self.tree / "srv/state").is_dir())

    def test_remove_keeps_the_state_and_a_second_installation_finds_it(self):
        kept = self.tree / "var/lib/jxplatform/terminal.json"
        kept.write_text("{}")
        self.run_in("dpkg", "--remove", "jxdownloader", "jxdownloader-tools")
        self.assertFalse((self.tree / "usr/bin/jxdownloader").exists())
        self.assertEqual(kept.read_text(), "{}")
        self.install_packages()
        self.assertEqual(kept.read_text(), "{}")


if __name__ == "__main__":
    unittest.main()
