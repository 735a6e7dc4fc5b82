"""Which functions of the system the program calls besides the C and C++ libraries' is what docs/porting.md says.

Usage: test_posix.py NM OBJECT…
"""

import pathlib
import re
import subprocess
import sys
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
# Of the C library and of the terminal's.
OTHERS = set("""abort fclose ferror fopen fread fseek fwrite isspace memcmp memcpy memmove memset remove setvbuf signal stderr strcmp
strlen strncmp strspn strtol tolower CMDiag platforminfo_get""".split())


def called(nm, objects):
    """What the objects need that no C++ name and no name of the compiler's own begins; 64-bit offsets have names of their own
    on a 32-bit processor."""
    text = subprocess.run([nm, "-u", *objects], check=True, capture_output=True, text=True).stdout
    names = set(re.findall(r"^ +U ([A-Za-z]\w*?)(?:64)?(?:@\S+)?$", text, re.M))
    return names - OTHERS


def documented():
    section = re.search(r"^## POSIX\n(.*?)^## ", (SOURCE / "docs/porting.md").read_text(), re.M | re.S)[1]
    return set(re.findall(r"`([a-z][a-z0-9_]+)`", section))


class PosixTest(unittest.TestCase):
    def test_calls(self):
        calls = called(sys.argv[1], sys.argv[2:])
        self.assertIn("pthread_create", calls)
        self.assertEqual(sorted(calls), sorted(documented()))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
