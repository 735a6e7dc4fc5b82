"""The linter's runner: what it finds in files that it reads as one, and where it says that it stands."""

import json
import pathlib
import tempfile
import unittest

import lint

SETTINGS = "Checks: '-*,modernize-use-nullptr,readability-duplicate-include,clang-analyzer-*'\nHeaderFilterRegex: '.*'\n"
NULL = "int* f{}() {{ return 0; }}\n"
NULL_FOUND = "use nullptr [modernize-use-nullptr]"


class LintTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="jxlint-")
        self.addCleanup(folder.cleanup)
        self.source = pathlib.Path(folder.name)
        self.build = self.source / "build"
        self.build.mkdir()
        self.write(".clang-tidy", SETTINGS)
        self.commands = []

    def write(self, name, text):
        path = self.source / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def add(self, name, text, options=""):
        self.write(name, text)
        file = str(self.source / name)
        self.commands.append({"directory": str(self.source), "file": file,
                              "command": f"c++ -I{self.source} {options} -o {file}.o -c {file}"})

    def found(self):
        (self.build / "compile_commands.json").write_text(json.dumps(self.commands))
        return lint.lint(self.source, self.build)

    def groups(self):
        return [[path.name for path in paths] for _, _, paths in lint.groups(self.source, self.commands)]

    def test_nothing_is_found_in_good_files(self):
        self.add("a.cpp", "int f() { return 1; }\n")
        self.add("b.cpp", "int g() { return 2; }\n")
        self.assertEqual(self.groups(), [["a.cpp", "b.cpp"]])
        self.assertEqual(self.found(), [])

    def test_finding_stands_at_its_line_of_its_file(self):
        self.add("a.cpp", NULL.format("A") + "\n")
        self.add("b.cpp", "\n\n" + NULL.format("B"))
        self.assertEqual(self.found(), [f"a.cpp:1:20: {NULL_FOUND}", f"b.cpp:3:20: {NULL_FOUND}"])

    def test_finding_in_a_header_is_said_once(self):
        self.write("h.h", "#pragma once\n" + NULL.format("H").replace("int*", "inline int*"))
        self.add("a.cpp", '#include "h.h"\n')
        self.add("b.cpp", '#include "h.h"\n')
        self.assertEqual(self.found(), [f"h.h:2:27: {NULL_FOUND}"])

    def test_paths_are_walked_in_every_file(self):
        self.add("a.cpp", "int f() { return 1; }\n")
        self.add("b.cpp", "int g() {\n  int* p = nullptr;\n  return *p;\n}\n")
        self.assertRegex("\n".join(self.found()), r"^b\.cpp:3:10: Dereference of null pointer .*NullDereference\]$")

    def test_files_with_a_name_in_common_are_read_apart(self):
        for name in "abc":
            self.add(f"{name}.cpp", "namespace { struct Same { int* p = 0; }; }\n" f"Same {name};\n")
        self.assertEqual([line.split(":")[0] for line in self.found()], ["a.cpp", "b.cpp", "c.cpp"])

    def test_file_that_does_not_compile_is_told(self):
        self.add("a.cpp", "int f() { return 1; }\n")
        self.add("b.cpp", "int g( { return 2; }\n")
        self.assertRegex("\n".join(self.found()), r"b\.cpp:1:\d+: expected .*clang-diagnostic-error\]")

    def test_include_twice_in_one_file_is_found_and_once_in_each_is_not(self):
        self.write("h.h", "#pragma once\n")
        self.add("a.cpp", '#include "h.h"\n')
        self.add("b.cpp", '#include "h.h"\n\n#include "h.h"\n')
        self.assertEqual(self.found(), ["b.cpp:3:1: duplicate include [readability-duplicate-include]"])

    def test_what_a_file_has_behind_others_alone_is_not_told(self):
        self.write(".clang-tidy", "Checks: '-*,readability-redundant-declaration'\nHeaderFilterRegex: '.*'\n")
        self.add("a.cpp", "int shared();\n")
        self.add("b.cpp", "int shared();\n")
        group = (("-I.",), self.source / ".clang-tidy", [self.source / "a.cpp", self.source / "b.cpp"])
        self.assertEqual(lint.suspects(self.source, self.build / "lint", group), {self.source / "b.cpp"})
        self.assertEqual(self.found(), [])

    def test_files_that_are_compiled_otherwise_are_read_apart(self):
        self.add("a.cpp", "", "-DKIND=1")
        self.add("b.cpp", "", "-DKIND=2")
        self.add("c.cpp", "", "-O2 -Dc_EXPORTS -DKIND=1")
        self.assertEqual(sorted(self.groups()), [["a.cpp", "c.cpp"], ["b.cpp"]])

    def test_settings_of_a_folder_hold_there_alone(self):
        self.write("tests/.clang-tidy", "InheritParentConfig: true\nChecks: '-modernize-use-nullptr'\n")
        self.add("a.cpp", NULL.format("A"))
        self.add("tests/b.cpp", NULL.format("B"))
        self.assertEqual(self.found(), [f"a.cpp:1:20: {NULL_FOUND}"])

    def test_what_the_build_made_is_not_read(self):
        self.add("build/a.cpp", NULL.format("A"))
        self.assertEqual(self.groups(), [])


if __name__ == "__main__":
    unittest.main()
