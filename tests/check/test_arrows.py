"""The include check itself: what it lets pass and what it names."""

import unittest

from arrows import violations


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
        self.assert_allowed("tools/jxpush/a.cpp", '#include "serial/crc16.h"')

    def test_everything_may_use_the_lowest_floor_which_uses_nothing(self):
        for folder in ("http", "shell", "upload", "serial", "cloudproxy", "platform/linux/zoripc", "tools/jxpush"):
            self.assert_allowed(folder + "/a.cpp", '#include "base/text.h"')
        self.assert_forbidden("base/text.cpp", '#include "http/thread.h"')
        self.assert_forbidden("base/text.cpp", "#include <zoripc.h>")
        self.assert_forbidden("base/text.cpp", "#include <openssl/evp.h>")

    def test_relative_includes_are_named(self):
        self.assert_forbidden("http/a.cpp", '#include "thread.h"')


if __name__ == "__main__":
    unittest.main()
