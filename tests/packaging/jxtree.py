"""A clean Debian tree for one test: the base tree below a layer of its own in memory."""

import configparser
import os
import pathlib
import shlex
import shutil
import subprocess
import tempfile

import jxtest

HERE = pathlib.Path(__file__).parent
PACKAGES = sorted((jxtest.BUILD / "packages").glob("*.deb"))
WORK = jxtest.BUILD / "package-tree"

# What a package manager and its helpers keep for themselves.
NOT_COMPARED = ("proc", "dev", "run", "packages", "var/lib/dpkg", "var/log", "var/cache/ldconfig", "etc/ld.so.cache",
                "etc/passwd-", "etc/group-", "etc/shadow-", "etc/gshadow-", "etc/.pwd.lock")

FENCE = ("strict", "yes", "jxplatform")  # what the script "fenced" does


class Case(jxtest.Case):
    def setUp(self):
        super().setUp()
        layers = pathlib.Path(tempfile.mkdtemp(prefix="tree-", dir="/tmp"))
        self.addCleanup(layers.rmdir)
        subprocess.run(["mount", "-t", "tmpfs", "tree", layers], check=True)
        self.addCleanup(subprocess.run, ["umount", "--recursive", "--lazy", layers], check=True)
        self.tree = layers / "tree"
        for name in ("upper", "work", "tree"):
            (layers / name).mkdir()
        layers.chmod(0o755)
        subprocess.run(["mount", "-t", "overlay", "tree", "-o",
                        f"lowerdir={WORK}/base,upperdir={layers}/upper,workdir={layers}/work", self.tree], check=True)
        shutil.copytree(jxtest.BUILD / "packages", self.tree / "packages")
        self.run_in("true")

    def in_tree(self, *command, user=None, **environment):
        """The command line that runs `command` in the tree, with the privileges of a service when `user` is one."""
        if user is not None:
            command = ("setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups", "--no-new-privs",
                       "--bounding-set=-all", "--inh-caps=-all", *command)
        return [HERE / "in_tree", self.tree, "env", *(f"{k}={v}" for k, v in environment.items()), *command]

    def run_in(self, *command, user=None, succeeds=True):
        done = subprocess.run(self.in_tree(*command, user=user), capture_output=True, text=True, timeout=300)
        if succeeds is not None:
            self.assertEqual(done.returncode == 0, succeeds, done.stdout + done.stderr)
        return done

    def install_packages(self):
        self.run_in("dpkg", "--install", *(f"/packages/{package.name}" for package in PACKAGES))

    def listing(self):
        """Every file of the tree with its kind, mode, owner and size, and what stands in settings; the accounts line by line."""
        found = {}
        for folder, folders, files in os.walk(self.tree):
            below = os.path.relpath(folder, self.tree)
            folders[:] = [name for name in folders if os.path.normpath(f"{below}/{name}") not in NOT_COMPARED]
            for name in folders + files:
                path = os.path.normpath(f"{below}/{name}")
                if path not in NOT_COMPARED:
                    status = os.lstat(self.tree / path)
                    is_file = not os.path.isdir(self.tree / path)
                    found[path] = (oct(status.st_mode), status.st_uid, status.st_gid, status.st_size if is_file else None,
                                   self.settings(path))
        for name in ("passwd", "group", "shadow", "gshadow"):
            found[f"etc/{name}"] = (self.tree / "etc" / name).read_text().splitlines()
        return found

    def changed(self, before):
        """The paths that are not as an earlier listing had them."""
        now = self.listing()
        return {path for path in {*before, *now} if before.get(path) != now.get(path)}

    def settings(self, path):
        whole = self.tree / path
        return whole.read_bytes() if path.startswith(("etc/", "var/")) and whole.is_file() and not whole.is_symlink() else None

    def fenced(self, *command):
        """The command line that runs `command` where the tree cannot be written but for the state, and /tmp is another."""
        return [HERE / "fenced", self.tree, *command]

    def service_section(self, unit):
        """The [Service] section of an installed unit."""
        return self.service_section_of(self.tree / "usr/lib/systemd/system" / f"{unit}.service")

    @staticmethod
    def service_section_of(path):
        parser = configparser.ConfigParser(strict=False, interpolation=None, delimiters="=", comment_prefixes="#")
        parser.optionxform = str
        parser.read(path)
        return parser["Service"]

    def start_bus(self):
        """The system's bus, with its own configuration and the policies that are installed."""
        (self.tree / "run/dbus").mkdir(exist_ok=True)
        self.start(*self.in_tree("dbus-daemon", "--system", "--nofork", "--nopidfile", "--nosyslog"))
        jxtest.wait_until((self.tree / "run/dbus/system_bus_socket").exists, what="the bus")

    def start_unit(self, unit, before=(), **kwargs):
        """Starts what the unit starts, as its user and with its environment, fenced in as the unit fences it."""
        section = self.service_section(unit)
        command = [word for word in shlex.split(section["ExecStart"]) if not word.startswith("$")]
        environment = dict([section["Environment"].split("=", 1)])
        self.assertEqual((section["ProtectSystem"], section["PrivateTmp"], section["StateDirectory"]), FENCE)
        return self.start(*before, *self.fenced(*self.in_tree(*command, user=section["User"], **environment)), **kwargs)
