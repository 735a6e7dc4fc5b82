"""Which tests concern which folder: every folder has some, and every test of one belongs to one. Usage: test_concerning.py BUILD"""

import json
import re
import subprocess
import sys
import unittest

import concerning

BUILD = sys.argv.pop()


def tests():
    told = subprocess.run(["ctest", "--test-dir", BUILD, "--show-only=json-v1"], check=True, capture_output=True, text=True).stdout
    return [test["name"] for test in json.loads(told)["tests"]]


class ConcerningTest(unittest.TestCase):
    def chosen(self, name):
        return {test for test in tests() if re.fullmatch(concerning.pattern(name), test)}

    def test_every_folder_exists_and_each_of_its_patterns_is_that_of_a_test(self):
        names = tests()
        for folder, pattern in concerning.FOLDERS.items():
            self.assertTrue((concerning.SOURCE / folder).is_dir(), folder)
            for one in re.split(r"\|(?![^(]*\))", pattern):
                self.assertTrue(any(re.fullmatch(one, name) for name in names), one)

    def test_every_test_of_a_folder_is_chosen_for_one(self):
        names = {name for name in tests() if name.startswith(("unit.", "fuzz.", "model.", "check."))}
        chosen = {name for pattern in concerning.FOLDERS.values() for name in names if re.fullmatch(pattern, name)}
        self.assertEqual(names - chosen, set())

    def test_folder_its_files_and_its_unit_tests_have_the_same_tests(self):
        upload = self.chosen("upload")
        self.assertLess({"unit.upload", "unit.upload.memory", "fuzz.multipart"}, upload)
        for name in ("upload/", "upload/next_param.cpp", "tests/unit/upload", "tests/unit/upload/multipart_test.cpp"):
            self.assertEqual(self.chosen(name), upload, name)

    def test_unit_tests_of_the_services_are_those_of_their_folder(self):
        self.assertEqual(self.chosen("tests/unit/platform/cloudproxyd/service_test.cpp"),
                         self.chosen("platform/linux/services/cloudproxyd"))

    def test_folder_above_several_has_the_tests_of_all(self):
        self.assertLess({"unit.tools.jxpack", "unit.tools.jxpush", "unit.tools.jxpush.http"}, self.chosen("tools"))

    def test_file_of_a_test_has_that_test(self):
        for name, test in (("tests/system/wire.py", "system.wire"), ("jx", "system.run"), ("tests/browser/focus.test.js", "browser.focus"),
                           ("fuzz/url.cpp", "fuzz.url"), ("fuzz/corpus/page/empty", "fuzz.page")):
            self.assertEqual(self.chosen(name), {test})

    def test_what_no_test_concerns_is_told(self):
        for name in ("htp", "http2", "LICENSE"):
            with self.assertRaises(concerning.Unknown):
                concerning.pattern(name)
        self.assertEqual(concerning.of_files(["LICENSE", "base/text.h"]), ([concerning.FOLDERS["base"]], ["LICENSE"]))

    def test_what_reaches_everything(self):
        for name in ("CMakeLists.txt", "http/CMakeLists.txt", "cmake/Tests.cmake"):
            self.assertTrue(concerning.concerns_everything(name), name)
        self.assertFalse(concerning.concerns_everything("http/thread.cpp"))

    def test_what_is_built_for_a_test(self):
        self.assertEqual([concerning.target(name) for name in ("unit.http.sockets", "fuzz.url", "system.wire", "check.test_names")],
                         ["unit_http_sockets", "fuzz_url", "programs", None])


if __name__ == "__main__":
    unittest.main()
