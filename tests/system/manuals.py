"""The manuals and completions of every program, held against what the program itself says."""

import os
import re
import subprocess
import unittest

import jxtest

MANUALS = {
    "jxdownloader": "shell/jxdownloader.1",
    "controllerd": "platform/linux/services/controllerd/controllerd.8",
    "cloudproxyd": "platform/linux/services/cloudproxyd/cloudproxyd.8",
    "jxpush": "tools/jxpush/jxpush.1",
    "jxpack": "tools/jxpack/jxpack.1",
}
COMPLETIONS = {
    "jxdownloader": "shell/jxdownloader.bash",
    "jxpush": "tools/jxpush/jxpush.bash",
    "jxpack": "tools/jxpack/jxpack.bash",
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

    def test_completions_offer_the_options_of_the_programs(self):
        for program, completion in COMPLETIONS.items():
            with self.subTest(program):
                script = (f'. "{jxtest.SOURCE / completion}"; COMP_WORDS=({program} -); COMP_CWORD=1; compopt() {{ :; }}; '
                          f'"_{program}"; printf "%s\\n" "${{COMPREPLY[@]}}"')
                run = subprocess.run(["bash", "-c", script], capture_output=True, text=True, timeout=60, cwd=os.sep)
                offered = {word for word in run.stdout.split() if word.startswith("--")}
                self.assertEqual(offered, self.options(program))


if __name__ == "__main__":
    unittest.main()
