"""The stand-in SDK refuses what the contract does not promise."""

import pathlib
import tempfile
import unittest

import run
from contract import Contract

HEADERS = Contract(run.SOURCE / "platform/include")


class ContractTest(unittest.TestCase):
    def test_declared_functions_belong_to_their_header_s_library(self):
        for name, library in (("zorgui::uiPrint[abi:cxx11](char const*, ...)", "zorguiprt"), ("zoripc::TCP::TCP()", "zoripc"),
                              ("zoripc::JSObject::~JSObject()", "zoripc"), ("zoripc::JSObject::size() const", "zoripc"),
                              ("zoripc::JSObject::operator[](char const*) const", "zoripc"),
                              ("zorhtml::TimeStamp::operator<(zorhtml::TimeStamp const&) const", "zorhtml"),
                              ("vtable for zoripc::TCP", "zoripc"), ("platforminfo_get", "zorplatforminfo"),
                              ("CMDiag", "zorsec"), ("js::jsProcessorExt(void*)", "jsproc"), ("jxapp::jxInstall(void*)", "jxapp")):
            self.assertEqual(HEADERS.library_of(name), library, name)

    def test_names_that_no_header_declares_belong_nowhere(self):
        for name in ("zoripc::TCP::setBacklog(int)", "zoripc::Mailbox::Mailbox()", "platforminfo_set", "CMDiag2",
                     "zorgui::ipcNotify(char const*)", "vtable for zoripc::Mailbox", "TCP::TCP()", "sd_bus_open",
                     "zorhtml::kPerSecond()", "jxapp::installAll()"):
            self.assertIsNone(HEADERS.library_of(name), name)

    def test_an_undeclared_symbol_is_reported(self):
        libraries, undeclared = run.by_library(["CMDiag", "_ZN6zoripc7MailboxC1Ev", "sd_bus_open"], HEADERS)
        self.assertEqual(libraries["zorsec"], ["CMDiag"])
        self.assertEqual(undeclared, ["zoripc::Mailbox::Mailbox()", "sd_bus_open"])


class FilesTest(unittest.TestCase):
    def test_port_files_and_headers_that_are_not_the_sdk_s_are_reported(self):
        with tempfile.TemporaryDirectory() as folder:
            sdk = pathlib.Path(folder)
            (sdk / "include").mkdir()
            (sdk / "include/zoripc.h").touch()
            port, ours = run.SOURCE / "platform/linux/support/root.h", run.SOURCE / "platform/include/zoripc.h"
            fine = [sdk / "include/zoripc.h", run.SOURCE / "http/thread.h", "/usr/include/stdio.h"]
            self.assertEqual(run.strange_files([*fine, port, ours], sdk), sorted([str(port), str(ours)]))
            self.assertEqual(run.strange_files(fine, sdk), [])


if __name__ == "__main__":
    unittest.main()
