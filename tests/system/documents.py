"""The documents against the program: commands are run, bytes are sent, links, options, paths and texts are looked up."""

import json
import os
import pathlib
import re
import runpy
import shutil
import signal
import socket
import subprocess
import tempfile
import unittest
import urllib.request

import jxdocuments
import jxmessages
import jxnginx
import jxtest

PROGRAMS = ("jxpush", "jxpack", "cloudproxyd", "controllerd")
# What stands before a document's commands, apart from a terminal that the document starts itself.
SERVER, TERMINAL = "the upload server alone", "the whole terminal"
NEEDS = {"docs/http-api.md": SERVER, "docs/security.md": SERVER, "docs/packager.md": SERVER, "docs/ipc.md": TERMINAL,
         "docs/screen.md": TERMINAL, "docs/technician.md": TERMINAL}
# The serial ports of the technician's computer, and which of the terminal's lines each is connected to.
CABLES = {"ttyACM0": "usb", "ttyUSB0": "com1"}


def source_text():
    """Every source file, with adjoining string literals joined."""
    text = ""
    for folder in ("program", "shell", "http", "upload", "serial", "cloudproxy", "platform", "tools", "pages"):
        for path in sorted((jxtest.SOURCE / folder).rglob("*")):
            if path.suffix in (".cpp", ".h", ".js", ".html", ".css") or path.name == "terminal":
                text += path.read_text()
    return re.sub(r'"\s*\n\s*"', "", text).replace('\\"', '"')


class FormTest(unittest.TestCase):
    """What can be said without running anything."""

    def test_every_block_says_what_it_is(self):
        for path in jxdocuments.documents():
            for block in jxdocuments.blocks(path):
                self.assertIn(block.language, jxdocuments.LANGUAGES, block.place)
                known = {**jxdocuments.RUN, **jxdocuments.NOT_RUN} if block.language == "sh" else {"": ""}
                self.assertIn(block.word, known, block.place)

    def test_commands_are_well_formed(self):
        for path in jxdocuments.documents():
            for block in jxdocuments.blocks(path):
                if block.language == "sh":
                    check = subprocess.run(["bash", "-n"], input=block.text, capture_output=True, text=True)
                    self.assertEqual(check.stderr, "", block.place)

    def test_json_is_json(self):
        for path in jxdocuments.documents():
            for block in jxdocuments.blocks(path):
                if block.language == "json":
                    json.loads(block.text)

    def test_links_lead_somewhere(self):
        for path in jxdocuments.documents():
            for link in jxdocuments.links(path):
                if re.match(r"^[a-z]+:", link):
                    continue
                file, _, anchor = link.partition("#")
                target = (path.parent / file).resolve() if file else path
                self.assertTrue(target.exists(), f"{path.name}: {link}")
                if anchor:
                    self.assertIn(anchor, jxdocuments.anchors(target), f"{path.name}: {link}")

    def test_every_document_is_reached_from_the_readme(self):
        reached, todo = set(), [jxtest.SOURCE / "README.md"]
        while todo:
            path = todo.pop()
            if path in reached or path.suffix != ".md" or not path.is_file():
                continue
            reached.add(path)
            todo += [(path.parent / link.partition("#")[0]).resolve() for link in jxdocuments.links(path)]
        self.assertEqual(set(jxdocuments.documents()) - reached, set())

    def test_paths_of_the_tree_exist(self):
        folders = [entry.name for entry in jxtest.SOURCE.iterdir() if entry.is_dir() and entry.name not in ("build", ".git")]
        pattern = re.compile(rf"^(?:{'|'.join(map(re.escape, folders))})/[\w./*-]*$")
        for path in jxdocuments.documents():
            for span in filter(pattern.match, jxdocuments.code_spans(path)):
                wanted = re.sub(r"\bNAME\b", "*", span)
                self.assertTrue(any(jxtest.SOURCE.glob(wanted.rstrip("/"))), f"{path.name}: {span}")

    def test_words_in_curly_quotes_stand_on_the_screen(self):
        shown = {word.strip() for path in (jxtest.SOURCE / "pages").glob("*.html") for word in
                 re.split(r"<[^>]*>|[“”]|data-\w+=", path.read_text())}
        quoted = {word for name in ("technician", "operating")
                  for word in re.findall("“([^”]*)”", (jxtest.SOURCE / f"docs/{name}.md").read_text())}
        self.assertGreater(len(quoted), 8)
        self.assertEqual(quoted - shown, set())

    def test_variables_are_read_by_the_program(self):
        text = source_text() + "".join(path.read_text() for path in (jxtest.SOURCE / "tests/browser").glob("*.js"))
        text += "".join(path.read_text() for path in (jxtest.SOURCE / "tests").rglob("CMakeLists.txt"))
        text += "".join(path.read_text() for path in jxtest.SOURCE.glob("CMake*"))
        for path in jxdocuments.documents():
            for name in set(re.findall(r"\b(?:JX|JXPLATFORM|GUIPRT)_[A-Z_]+\b", path.read_text())):
                self.assertTrue(name in text, f"{path.name}: {name}")

    def test_drawn_arrows_are_those_that_are_checked(self):
        text = (jxtest.SOURCE / "docs/architecture.md").read_text()
        drawn = {name: set(targets.split()) for name, targets in re.findall(r"(\w+)/ .*──▶ (.*)$", text, re.M)}
        rules = runpy.run_path(str(jxtest.SOURCE / "tests/check/arrows.py"))["ALLOWED"]
        self.assertIn("base/             under all of these but platform/include/", text)
        self.assertEqual({name for name, targets in rules.items() if "base" not in targets}, {"base", "platform/include"})
        others = {}
        for name, targets in rules.items():
            top = name.partition("/")[0]
            others.setdefault(top, set()).update(f"{target.partition('/')[0]}/" for target in targets)
        for name in ("tests", "fuzz", "bench"):  # are not drawn
            others.pop(name)
        others = {name: targets - {f"{name}/", "base/"} for name, targets in others.items()}
        self.assertEqual(drawn, {name: targets for name, targets in others.items() if targets})

    def test_firewall_rules_are_rules(self):
        rules = [block for block in jxdocuments.blocks(jxtest.SOURCE / "docs/security.md") if block.language == "nft"]
        self.assertEqual(len(rules), 1)
        check = subprocess.run(["/usr/sbin/nft", "--check", "--file", "-"], input=rules[0].text, capture_output=True, text=True)
        self.assertEqual((check.returncode, check.stderr), (0, ""), rules[0].place)


class FailureTest(unittest.TestCase):
    """The tables of failures against the sources, in both directions."""

    def test_explained_texts_are_the_program_s(self):
        text = source_text()
        explained = jxmessages.explained_failures()
        self.assertGreater(len(explained), 150)
        for piece, row in explained:
            self.assertTrue(piece in text, f"{piece!r} in {row}")  # assertIn would print the sources

    def assert_explained(self, texts, least):
        explained = {piece for piece, _ in jxmessages.explained_failures()} | jxmessages.explained_signatures()
        texts = set(texts)
        self.assertGreater(len(texts), least)
        self.assertEqual(sorted(texts - explained), [], "said by the program, and in no table of failures")

    def test_every_text_of_the_installer_is_explained(self):
        self.assert_explained(jxmessages.installer_texts(), 80)

    def test_every_text_of_jxpush_is_explained(self):
        self.assert_explained(jxmessages.sender_texts(), 50)

    def test_every_line_on_standard_error_is_explained(self):
        self.assert_explained(jxmessages.journal_texts(), 8)


class OptionTest(jxtest.Case):
    def test_options_exist(self):
        helps = {name: subprocess.run([jxtest.BIN / name, "--help"], capture_output=True, text=True, env=self.env).stdout
                 for name in PROGRAMS}
        helps["jx"] = subprocess.run([jxtest.SOURCE / "jx", "--help"], capture_output=True, text=True).stdout
        usage = subprocess.run([jxtest.BIN / "jxdownloader", "x"], capture_output=True, text=True, env=self.env)
        helps["jxdownloader"] = usage.stderr
        seen = 0
        for path in jxdocuments.documents():
            commands = jxdocuments.code_spans(path)
            commands += [line for block in jxdocuments.blocks(path) if block.language in ("sh", "console")
                         for line in block.text.replace("\\\n", " ").splitlines()]
            for command in commands:
                words = command.removeprefix("$ ").split()
                name = pathlib.PurePath(words[0]).name if words else ""
                if name not in helps:
                    continue
                options = [word.partition("=")[0] for word in words[1:] if word.startswith("--") and word != "--help"]
                if name == "jx" and len(words) > 1 and words[1].isalpha():
                    options.append(f"  {words[1]}")
                for option in options:
                    self.assertRegex(helps[name], re.escape(option) + r"(?![\w-])", f"{path.name}: {command}")
                    seen += 1
        self.assertGreater(seen, 20)


class ReadmeTest(unittest.TestCase):
    def test_readme_lists_every_command_of_jx_and_no_other(self):
        usage = subprocess.run([jxtest.SOURCE / "jx", "--help"], capture_output=True, text=True, check=True).stdout
        listed = re.findall(r"^\| (`\./jx .*?) \|", (jxtest.SOURCE / "README.md").read_text(), re.M)
        self.assertEqual(set(re.findall(r"\./jx (\w+)", "".join(listed))), set(re.findall(r"^  ([a-z]+)", usage, re.M)))

    def test_readme_lists_every_folder_once(self):
        listed = re.findall(r"^\| `([\w/]+)/` \|", (jxtest.SOURCE / "README.md").read_text(), re.M)
        self.assertEqual(len(listed), len(set(listed)), listed)
        ignored = (jxtest.SOURCE / ".gitignore").read_text().split()
        folders = {entry.name for entry in jxtest.SOURCE.iterdir()
                   if entry.is_dir() and not entry.name.startswith(".") and entry.name + "/" not in ignored}
        self.assertEqual({name.partition("/")[0] for name in listed}, folders)


class CommandTest(jxtest.Case):
    """Runs the commands of one document after another, each in a tree of its own."""

    def setUp(self):
        super().setUp()
        self.tree = jxdocuments.make_tree(self.root, jxtest.BUILD)
        hosts = self.root / "hosts"
        hosts.write_text("127.0.0.1 localhost terminal\n::1 localhost\n")
        subprocess.run(["mount", "--bind", hosts, "/etc/hosts"], check=True)
        self.addCleanup(subprocess.run, ["umount", "/etc/hosts"], check=True)
        self.state = self.tree / "build/run"
        self.env.update(PATH=f"{jxtest.BIN}:{self.env['PATH']}", JXPLATFORM_PAGES=str(jxtest.SOURCE / "pages"))
        for name in ("JXPLATFORM_ROOT", "JXPLATFORM_BUS"):
            del self.env[name]
        self.env["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={self.state}/bus"

    def join_network(self):
        """An address for the screen to show: it shows none where there is loopback alone."""
        for words in ("link add jxa type veth peer name jxb", "addr add 192.0.2.1/24 dev jxa", "link set jxa up", "link set jxb up"):
            subprocess.run(["ip", *words.split()], check=True)
        self.addCleanup(subprocess.run, ["ip", "link", "del", "jxa"], check=True)

    def start_command(self, command):
        """Starts what runs until it is ended, and waits until it says how to send the example."""
        process = subprocess.Popen(["bash", "-c", command], cwd=self.tree, env=self.env, stdout=subprocess.PIPE, text=True,
                                   start_new_session=True)
        self.addCleanup(self.end_group, process)
        said = []
        while not any(line.startswith(("Send the example", "   ")) for line in said):
            line = process.stdout.readline()
            self.assertTrue(line, f"{command} ended: {said}")
            said.append(line)

    def end_group(self, process):
        os.killpg(process.pid, signal.SIGTERM)
        process.communicate(timeout=60)

    def press(self, presses):
        for page, *result in presses:
            base = (self.state / "screen.url").read_text().strip()

            def shown():
                with urllib.request.urlopen(base + "api/screen", timeout=30) as answer:
                    screen = json.load(answer) if answer.status == 200 else {}
                return screen if screen.get("page") == page else None
            screen = jxtest.wait_until(shown, what=f"{page} on the screen")
            if not result:  # a page that stays; it is to be there, with what goes on behind it
                jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the upload server accepts")
                continue
            body = json.dumps({"result": int(result[0])}).encode()
            urllib.request.urlopen(f"{base}api/screen/{screen['id']}/result", body, timeout=30).close()

    def with_cables(self):
        """What a command line begins with that has the terminal's lines at serial ports of its own."""
        ports = pathlib.Path(tempfile.mkdtemp(prefix="ports-", dir=self.root))
        for port, line in CABLES.items():
            (ports / port).symlink_to(self.state / "lines" / line)
        return ["unshare", "--mount", jxtest.SOURCE / "tools/run/with-devices", ports]

    def run_block(self, block):
        before = self.with_cables() if "serial:/dev/" in block.text else []
        run = subprocess.run([*before, "bash", "-euo", "pipefail", "-c",
                              block.text + "\nkill $(jobs -p) 2>/dev/null || true"], cwd=self.tree, env=self.env, capture_output=True, text=True, timeout=120, stdin=subprocess.DEVNULL)
        self.assertEqual(run.returncode, 0, f"{block.place}\n{run.stdout}{run.stderr}")
        return run.stdout

    def run_transcript(self, block):
        """Lines behind `$ ` are run; those after them are what is printed, with … for anything."""
        steps = []
        for line in block.lines:
            if line.startswith("$ "):
                steps.append((line[2:], []))
            else:
                steps[-1][1].append(line)
        for command, expected in steps:
            run = subprocess.run(["bash", "-c", command], cwd=self.tree, env=self.env, stdout=subprocess.PIPE,
                                 stderr=subprocess.STDOUT, text=True, timeout=120, stdin=subprocess.DEVNULL)
            pattern = re.escape("\n".join(expected)).replace("…", ".*?")
            self.assertRegex(run.stdout.replace("\r", "").rstrip("\n"), re.compile(rf"\A{pattern}\Z", re.S),
                             f"{block.place}: {command}")

    def exchange(self, block):
        """Sends what stands behind `> ` and compares what comes with what stands behind `< `; the last answer ends the
        connection. `> (end)` closes the client's direction."""
        steps = []
        for line in block.lines:
            mark, text = line[:1], line[2:]
            self.assertIn(mark, "<>", f"{block.place}: {line}")
            if steps and steps[-1][0] == mark:
                steps[-1][1] += text
            else:
                steps.append([mark, text])
        with socket.create_connection(("127.0.0.1", jxtest.HTTP_PORT), 10) as connection:
            connection.settimeout(60)
            for number, (mark, text) in enumerate(steps):
                if mark == ">":
                    connection.sendall(self.raw(text.replace("(end)", "")))
                    if text.endswith("(end)"):
                        connection.shutdown(socket.SHUT_WR)
                else:
                    self.compare(connection, text, number == len(steps) - 1, block)

    @staticmethod
    def raw(text):
        replaced = {"\\r": b"\r", "\\n": b"\n", "\\t": b"\t", "\\\\": b"\\"}
        text = re.sub(r"\((\d+) (\w)\)", lambda match: match[2] * int(match[1]), text)
        return b"".join(replaced.get(piece, piece.encode()) for piece in re.split(r"(\\[rnt\\])", text))

    def compare(self, connection, text, last, block):
        expected = b"" if text == "(nothing)" else self.raw(text)
        pattern = re.compile(rb"\A" + re.escape(expected).replace("…".encode(), b".*?") + rb"\Z", re.S)
        got = b""
        while last or not pattern.match(got):
            data = connection.recv(65536)
            if not data:
                break
            got += data
        self.assertRegex(got, pattern, block.place)

    def run_document(self, path):
        name = str(path.relative_to(jxtest.SOURCE))
        if name == "docs/technician.md":
            self.join_network()
            shutil.copy(jxtest.BUILD / "examples/hello-1.0.0.zip", self.tree)
        if name in NEEDS:
            self.start_command("./jx run" + (" --http" if NEEDS[name] is SERVER else ""))
        for block in jxdocuments.blocks(path):
            self.press(block.presses)
            if block.language == "http":
                self.exchange(block)
            elif block.language == "console":
                self.run_transcript(block)
            elif block.language == "sh" and block.word == "stays":
                self.doCleanups()
                self.setUp()
                self.start_command(block.text)
            elif block.language == "sh" and not block.word:
                self.run_block(block)


class ProxyTest(jxtest.Case):
    """The proxy that docs/security.md puts before the upload server."""

    def start_proxy(self):
        [server] = [block.text for block in jxdocuments.blocks(jxtest.SOURCE / "docs/security.md") if block.language == "nginx"]
        for path, name in (("/etc/ssl/terminal.pem", "cert"), ("/etc/ssl/private/terminal.key", "key"),
                           ("/etc/nginx/terminal.users", "users")):
            self.assertIn(path, server)
            server = server.replace(path, str(self.root / name))
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=localhost", "-keyout",
                        self.root / "key", "-out", self.root / "cert"], check=True, capture_output=True)
        (self.root / "users").write_text("anna:{PLAIN}secret\n")
        folders = " ".join(f"{name}_temp_path {self.root}/{name};"
                           for name in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        configuration = self.root / "nginx.conf"
        configuration.write_text(f"daemon off; user root; pid {self.root}/pid; error_log {self.root}/log; events {{}}\n"
                                 f"http {{ access_log off; {folders}\n{server}}}\n")
        self.start(jxnginx.PROGRAM, "-c", configuration, "-e", self.root / "log", "-p", self.root)
        jxtest.wait_until(lambda: jxtest.can_connect(443), what="the proxy accepts")

    def upload(self, *options):
        return subprocess.run(["curl", "-sS", "--cacert", self.root / "cert", *options, "-F",
                               f"upload=@{jxtest.BUILD}/examples/hello-1.0.0.zip", "-w", "%{http_code}",
                               "https://localhost/upload"], capture_output=True, text=True, timeout=60, check=True).stdout

    def test_upload_through_the_proxy_is_installed(self):
        self.start_http_server()
        self.start_proxy()
        answer = self.upload("-u", "anna:secret")
        self.assertIn("Installed hello 1.0.0<br>", answer)
        self.assertTrue(answer.endswith("200"), answer)

    def test_upload_without_the_password_is_refused(self):
        self.start_http_server()
        self.start_proxy()
        self.assertTrue(self.upload().endswith("401"))
        self.assertFalse((self.root / "apps/hello").exists())


def add_tests():
    for path in jxdocuments.documents():
        kinds = {(block.language, block.word) for block in jxdocuments.blocks(path)}
        if kinds & {("sh", ""), ("sh", "stays"), ("console", ""), ("http", "")}:
            name = re.sub(r"\W", "_", str(path.relative_to(jxtest.SOURCE).with_suffix("")))
            setattr(CommandTest, f"test_{name}", lambda self, path=path: self.run_document(path))


add_tests()

if __name__ == "__main__":
    unittest.main()
