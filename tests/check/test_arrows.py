"""The include check itself: what it lets pass and what it names. It runs at the root of the tree."""

import unittest

from arrows import circles, violations


class ArrowsTest(unittest.TestCase):
    def assert_allowed(self, path, line):
        self.assertEqual(list(violations(path, line)), [])

    def assert_forbidden(self, path, line):
        self.assertEqual(len(list(violations(path, line))), 1)

    def test_own_folder_contract_and_standard_are_allowed(self):
        for line in ('#include "http/thread.h"', "#include <zoripc.h>", "#include <string>", "#include <sys/stat.h>"):
            self.assert_allowed("http/thread.cpp", line)

    def test_arrows_of_the_subsystems(self):
        self.assert_allowed("upload/a.cpp", '#include "http/thread.h"')
        self.assert_allowed("serial/a.cpp", '#include "shell/pages.h"')
        self.assert_forbidden("http/a.cpp", '#include "shell/pages.h"')
        self.assert_forbidden("shell/menu.cpp", '#include "upload/http_download.h"')
        self.assert_forbidden("serial/a.cpp", '#include "http/thread.h"')

    def test_only_the_program_includes_what_the_menus_run(self):
        for header in ("cloudproxy/probe.h", "serial/download_session.h", "shell/menu.h", "upload/server_only.h"):
            self.assert_allowed("program/main.cpp", f'#include "{header}"')
        self.assert_forbidden("shell/startup.cpp", '#include "serial/download_session.h"')
        self.assert_forbidden("shell/startup.cpp", '#include "program/anything.h"')

    def test_third_party_headers_stay_out_of_the_subsystems(self):
        self.assert_forbidden("upload/a.cpp", "#include <nlohmann/json.hpp>")
        self.assert_forbidden("platform/include/zoripc.h", "#include <systemd/sd-bus.h>")
        self.assert_allowed("platform/linux/zoripc/a.cpp", "#include <systemd/sd-bus.h>")

    def test_platform_and_tools_keep_off_the_subsystems(self):
        self.assert_forbidden("platform/linux/zoripc/a.cpp", '#include "http/thread.h"')
        self.assert_forbidden("tools/jxpush/a.cpp", '#include "platform/linux/support/root.h"')
        self.assert_allowed("tools/jxpush/serial/a.cpp", '#include "serial/crc16.h"')
        self.assert_allowed("tools/jxpush/http/a.cpp", '#include "upload/upload_pages.h"')
        self.assert_forbidden("tools/jxpush/output/a.cpp", '#include "upload/upload_pages.h"')

    def test_everything_may_use_the_lowest_floor_which_uses_nothing(self):
        for folder in ("http", "shell", "upload", "serial", "cloudproxy", "platform/linux/zoripc", "tools/jxpush"):
            self.assert_allowed(folder + "/a.cpp", '#include "base/text.h"')
        self.assert_forbidden("base/text.cpp", '#include "http/thread.h"')
        self.assert_forbidden("base/text.cpp", "#include <zoripc.h>")
        self.assert_forbidden("base/text.cpp", "#include <openssl/evp.h>")

    def test_rooms_of_the_port_know_the_shared_one_and_what_they_stand_on(self):
        self.assert_allowed("platform/linux/jsproc/a.cpp", '#include "platform/linux/zorhtml/html_escape.h"')
        self.assert_allowed("platform/linux/services/cloudproxyd/a.cpp", '#include "platform/linux/support/root.h"')
        for file, header in (("zorhtml/a.cpp", "jsproc/utf8.h"), ("jxapp/a.cpp", "zorguiprt/screen.h"),
                             ("support/root.cpp", "jxapp/file.h"), ("services/controllerd/a.cpp", "services/cloudproxyd/b.h")):
            self.assert_forbidden("platform/linux/" + file, f'#include "platform/linux/{header}"')

    def test_room_of_openssl_serves_the_port_and_the_tools_and_knows_neither(self):
        owners = '#include "platform/linux/openssl/owners.h"'
        for room in ("platform/linux/jxapp", "platform/linux/services/cloudproxyd", "tools/jxpack", "tools/jxpush/common",
                     "tools/jxpush/http", "tests/unit/tools/jxpush/http", "tests/unit/platform/openssl"):
            self.assert_allowed(room + "/a.cpp", owners)
        for room in ("platform/linux/support", "platform/linux/zoripc", "http", "base", "tools/jxpush/serial"):
            self.assert_forbidden(room + "/a.cpp", owners)
        for header in ("platform/linux/support/root.h", "tools/jxpack/signer.h"):
            self.assert_forbidden("platform/linux/openssl/a.cpp", f'#include "{header}"')

    def test_ways_to_a_terminal_do_not_know_each_other(self):
        self.assert_allowed("tools/jxpush/main.cpp", '#include "tools/jxpush/serial/records.h"')
        self.assert_forbidden("tools/jxpush/http/a.cpp", '#include "tools/jxpush/serial/records.h"')
        self.assert_forbidden("tools/jxpush/common/a.cpp", '#include "tools/jxpush/http/a.h"')
        self.assert_forbidden("tools/jxpush/output/a.cpp", '#include "tools/jxpush/make_target.h"')

    def test_unit_test_includes_what_its_room_may_and_what_tests_share(self):
        for header in ("upload/a.h", "http/thread.h", "shell/pages.h", "tests/support/no_memory.h", "tests/unit/upload/b.h"):
            self.assert_allowed("tests/unit/upload/a_test.cpp", f'#include "{header}"')
        for header in ("serial/crc16.h", "program/main.h", "tests/unit/http/wrapped_calls.h"):
            self.assert_forbidden("tests/unit/upload/a_test.cpp", f'#include "{header}"')
        self.assert_allowed("tests/unit/platform/cloudproxyd/a.cpp", '#include "platform/linux/services/cloudproxyd/b.h"')
        self.assert_forbidden("tests/unit/platform/zoripc/a.cpp", '#include "platform/linux/zorhtml/b.h"')
        self.assert_allowed("tests/unit/tools/jxpush/http/a.cpp", '#include "tests/unit/tools/jxpush/test_files.h"')

    def test_benches_fuzzers_and_the_model_have_their_arrows(self):
        self.assert_allowed("fuzz/url.cpp", '#include "http/url.h"')
        self.assert_forbidden("bench/serial/a.cpp", '#include "http/url.h"')
        self.assert_forbidden("tests/model/a.cpp", '#include "platform/linux/jxapp/package.h"')
        self.assert_forbidden("http/a.cpp", '#include "tests/support/no_memory.h"')

    def test_file_outside_every_room_is_named(self):
        self.assert_forbidden("helpers/a.cpp", "")
        self.assert_forbidden("tests/unit/helpers/a.cpp", "")

    def test_circle_is_named_once_also_through_a_source(self):
        self.assertEqual(circles({"a/x.h": "", "a/x.cpp": '#include "a/x.h"\n#include "a/y.h"', "a/y.h": '#include "a/x.h"',
                                  "a/z.cpp": '#include "a/x.h"\n#include "a/y.h"'}), [["a/x", "a/y"]])
        self.assertEqual(circles({"a/x.cpp": '#include "a/y.h"', "a/y.h": "#include <a/x.h>"}), [])

    def test_relative_includes_are_named(self):
        self.assert_forbidden("http/a.cpp", '#include "thread.h"')


if __name__ == "__main__":
    unittest.main()
