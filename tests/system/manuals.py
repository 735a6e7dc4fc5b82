"""The manuals and completions of every program, held against what the program itself says."""

import os
import re
import subprocess
import unittest

import jxtest

MANUALS = {
    "jxdownloader": "program/jxdownloader.1",
    "controllerd": "platform/linux/services/controllerd/controllerd.8",
    "cloudproxyd": "platform/linux/services/cloudproxyd/cloudproxyd.8",
    "jxpush": "tools/jxpush/jxpush.1",
    "jxpack": "tools/jxpack/jxpack.1",
}
COMPLETIONS = {
    "jxdownloader": "program/jxdownloader.bash",
    "jxpush": "tools/jxpush/jxpush.bash",
    "jxpack": "tools/jxpack/jxpack.bash",
    "controllerd": "platform/linux/services/controllerd/controllerd.bash",
    "cloudproxyd": "platform/linux/services/cloudproxyd/cloudproxyd.bash",
}
OPTION = r"(?<![\w-])--[a-z][a-z-]*"


class ManualsTest(jxtest.Case):
    def options(self, program):
        """The options that the program lists: for --help, or for a wrong command line where it has no --help."""
        run = subprocess.run([jxtest.BIN / program, "--help"], capture_output=True, text=True, env=self.env, timeout=60)
        found = set(re.findall(OPTION, run.stdout + run.stderr))
        self.assertTrue(found, program)
        return found

    def test_manuals_describe_the_options_of_the_programs(self):
        for program, manual in MANUALS.items():
            with self.subTest(program):
                text = (jxtest.SOURCE / manual).read_text().replace("\\-", "-")
                body = text[text.index(".SH OPTIONS"):].split("\n.SH ", 1)[0]
                described = set(re.findall(OPTION, "\n".join(re.findall(r"^\.(?:BI?|BR|IR|RB) .*$", body, re.M))))
                self.assertEqual(self.options(program) - described, set(), "not in the manual")
                told = set(re.findall(r"^\.BI? .*?(" + OPTION + ")", body, re.M))
                self.assertEqual(told - self.options(program), set(), "not an option")

    def test_manuals_are_well_formed(self):
        for program, manual in MANUALS.items():
            with self.subTest(program):
                run = subprocess.run(["man", "--warnings=w", "-l", jxtest.SOURCE / manual], capture_output=True, text=True,
                                     env={**self.env, "MANWIDTH": "80"}, timeout=60)
                self.assertEqual((run.returncode, run.stderr), (0, ""))
                self.assertIn(f"{program.upper()}({manual[-1]})", run.stdout)

    def offered(self, *words):
        """What bash offers for the last of the words of a command line, as it splits them."""
        script = ('. "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); compopt() { :; }; '
                  'complete -p "$1" >/dev/null || exit; "_$1"; printf "%s\\n" "${COMPREPLY[@]}"')
        run = subprocess.run(["bash", "-c", script, "bash", jxtest.SOURCE / COMPLETIONS[words[0]], *words], capture_output=True,
                             text=True, timeout=60, cwd=self.root)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return set(run.stdout.split())

    def test_completions_offer_the_options_of_the_programs(self):
        for program in MANUALS:
            with self.subTest(program):
                options = {word for word in self.offered(program, "-") if word.startswith("--")}
                self.assertEqual(options, self.options(program))
                some = min(options)
                self.assertEqual(self.offered(program, some[:4]), {word for word in options if word.startswith(some[:4])})

    def test_completions_offer_the_values_that_the_programs_take(self):
        for expected, *words in (
                ({"auto", "tty", "plain", "json", "none"}, "jxpush", "--progress", ""),
                ({"plain"}, "jxpush", "--progress", "pl"),
                ({"serial:", "http://"}, "jxpush", "--to", ""),
                (set(), "jxpush", "--wait", ""),
                ({"status"}, "jxpush", "st"),
                ({"--to", "--timeout"}, "jxpush", "status", "--t"),
                ({"new", "old", "both"}, "cloudproxyd", "--list-format", ""),
                ({"old"}, "cloudproxyd", "--list-format", "o"),
                ({"prod"}, "cloudproxyd", "--device-type", ""),
                (set(), "controllerd", "--help", ""),
                (set(), "jxdownloader", "--http", "")):
            with self.subTest(words):
                self.assertEqual(self.offered(*words), expected)

    def test_completions_offer_files_where_a_file_is_wanted(self):
        (self.root / "hello.zip").touch()
        (self.root / "folder").mkdir()
        for expected, *words in (({"hello.zip"}, "jxpush", "hel"), ({"hello.zip"}, "jxpack", "--key", "h"),
                                 ({"folder"}, "jxpack", ""), ({"hello.zip"}, "cloudproxyd", "--ca-file", "h"),
                                 ({"hello.zip", "folder"}, "jxpush", "--to", "serial", ":", "")):
            with self.subTest(words):
                self.assertEqual(self.offered(*words), expected)
        # After the colon of serial: bash hands over the colon first, then what follows it.
        self.assertEqual({word[:8] for word in self.offered("jxpush", "--to", "serial", ":")} - {"/dev/tty"}, set())


if __name__ == "__main__":
    unittest.main()
