"""What a sanitizer finds in a program fails the test that started the program."""

import os
import subprocess
import unittest

import jxtest


class SanitizersTest(jxtest.Case):
    def test_every_finding_fails_the_case(self):
        for kind in os.environ["JX_SANITIZERS"].split(","):
            process = subprocess.Popen([jxtest.BIN / "faulty", kind])
            process.wait(60)
            with self.assertRaisesRegex(AssertionError, "ended with 99", msg=kind):
                self.stop(process)


if __name__ == "__main__":
    unittest.main()
