"""The mutation tester on a small tree: what it reports, what it counts, and when it refuses to count."""

import contextlib
import io
import pathlib
import shutil
import subprocess
import tempfile
import types
import unittest

import campaign
import mutate
from pool import Failure

SAMPLE = pathlib.Path(__file__).with_name("sample")
LIMIT = ["lib/fare.cpp:6: fare: comparison: if (stops > 10) return 5; ==> if (stops >= 10) return 5;",
         "lib/fare.cpp:6: fare: constant: if (stops > 10) return 5; ==> if (stops > 9) return 5;",
         "lib/fare.cpp:6: fare: constant: if (stops > 10) return 5; ==> if (stops > 11) return 5;"]
OTHERS = ["lib/fare.cpp:17: untested: constant: const int sizes[1] = {4}; ==> const int sizes[1] = {3};",
          "lib/fare.cpp:17: untested: constant: const int sizes[1] = {4}; ==> const int sizes[1] = {5};",
          "lib/fare.cpp:18: untested: constant: return sizes[0]; ==> return sizes[1];",
          "lib/fare.cpp:18: untested: result: return sizes[0]; ==> return {};",
          # The removal does not happen, but for another reason.
          "lib/fare.cpp:22: careful: condition: if (sure) std::remove(VICTIM); ==> if (!(sure)) std::remove(VICTIM);",
          "lib/fare.cpp:22: careful: statement: if (sure) std::remove(VICTIM); ==> if (sure) ;"]
KILLED = "lib/fare.cpp: fare: constant: if (stops > 10) return 5; ==> if (stops > 10) return 6;"


class Tree:
    """A copy of the sample, built in a folder of its own."""

    def __init__(self, shared):
        self.folder = tempfile.TemporaryDirectory(dir=pathlib.Path.cwd())
        self.tree = pathlib.Path(self.folder.name, "tree")
        shutil.copytree(SAMPLE, self.tree)
        self.list = pathlib.Path(self.folder.name, "equivalent.txt")
        self.list.write_text("")
        self.build = self.tree / "build/release"
        subprocess.run(["cmake", "-G", "Ninja", "-S", str(self.tree), "-B", str(self.build), "-DCMAKE_BUILD_TYPE=Release",
                        "-DBUILD_SHARED_LIBS=" + shared], check=True, capture_output=True)
        self.victim = self.build / "victim"
        self.victim.write_text("whole")

    def run(self, *arguments):
        """The tool's code, the mutants that it printed, and its figures for all of them."""
        printed, said = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(printed), contextlib.redirect_stderr(said):
            code = mutate.main([str(self.build), "lib", *arguments], self.tree, self.list)
        names = ("killed", "late", "survived", "share", "same code", "not compiled", "listed")
        row = next((line.split()[1:] for line in said.getvalue().splitlines() if line.startswith("together")), [])
        return code, sorted(printed.getvalue().splitlines()), dict(zip(names, row))

    def sources(self):
        return {path: path.read_bytes() for path in self.tree.rglob("*") if path.is_file() and self.tree / "build" not in path.parents}

    def replace(self, file, old, new):
        path = self.tree / file
        path.write_text(path.read_text().replace(old, new))


class OneRun(unittest.TestCase):
    """What one run over the whole sample says."""

    @classmethod
    def setUpClass(cls):
        cls.sample = Tree("OFF")
        cls.addClassCleanup(cls.sample.folder.cleanup)
        cls.before = cls.sample.sources()
        cls.code, cls.printed, cls.row = cls.sample.run("--at-least", "100")

    def test_prints_the_survivors_and_nothing_else(self):
        self.assertEqual(self.printed, sorted(LIMIT + OTHERS))

    def test_counts_a_loop_without_end_as_killed(self):
        self.assertGreater(int(self.row["late"]), 0)
        self.assertGreater(int(self.row["killed"]), int(self.row["late"]))

    def test_gives_the_share_that_was_killed(self):
        killed = int(self.row["killed"])
        self.assertEqual(self.row["survived"], str(len(LIMIT + OTHERS)))
        self.assertEqual(self.row["share"], f"{100 * killed / (killed + len(LIMIT + OTHERS)):.1f}%")

    def test_does_not_count_what_the_compiler_makes_the_same_of(self):
        self.assertEqual(self.row["same code"], "1")  # const int sizes[2] = {4};

    def test_does_not_count_what_does_not_compile(self):
        self.assertEqual(self.row["not compiled"], "1")  # const int sizes[0] = {4};

    def test_fails_below_its_mark(self):
        self.assertEqual(self.code, 1)

    def test_leaves_the_tree_as_it_is(self):
        self.assertEqual(self.sample.sources(), self.before)

    def test_keeps_a_mutant_from_doing_harm(self):
        self.assertEqual(self.sample.victim.read_text(), "whole")


class FurtherRuns(unittest.TestCase):
    def setUp(self):
        self.sample = Tree("OFF")
        self.addCleanup(self.sample.folder.cleanup)

    def test_survivors_are_tried_again_against_new_tests_but_not_what_is_listed(self):
        self.sample.run()
        self.sample.list.write_text(f"# For the test.\n{OTHERS[0].replace('.cpp:17', '.cpp')}\n")
        self.sample.replace("tests/fare_test.cpp", "TEST(Counted", "TEST(Fare, Limit_CostsLess) { EXPECT_EQ(fare(10), 3); }\nTEST(Counted")
        code, printed, row = self.sample.run("--again", "--at-least", "20")
        self.assertEqual(printed, sorted(LIMIT[2:] + OTHERS[1:]))
        self.assertEqual((code, row["killed"], row["listed"]), (0, "2", "1"))

    def test_a_listed_mutant_that_is_killed_after_all_fails(self):
        self.sample.list.write_text(f"# Wrong.\n{KILLED}\n\n# For the test.\n{OTHERS[0].replace('.cpp:17', '.cpp')}\n")
        code, printed, _ = self.sample.run("--equivalents")
        self.assertEqual((code, printed), (1, [KILLED.replace("fare.cpp", "fare.cpp:6")]))

    def test_a_stale_entry_is_an_error(self):
        self.sample.list.write_text(f"# For the test.\n{KILLED}\n")
        self.sample.replace("lib/fare.cpp", "stops > 10", "stops > 9")
        with self.assertRaisesRegex(Failure, "equivalent.txt:2: no such mutant is left: lib/fare.cpp: fare"):
            self.sample.run()

    def test_nothing_counts_where_a_test_fails_without_any_change(self):
        self.sample.replace("tests/fare_test.cpp", "counted(3), 3", "counted(3), 4")
        with self.assertRaisesRegex(Failure, "unit_lib fails without any change: Counted.Count_IsWhatWasAskedFor"):
            self.sample.run()

    def test_a_seed_gives_the_same_order(self):
        orders = []
        for seed in ("7", "7", "8"):
            printed = io.StringIO()
            with contextlib.redirect_stdout(printed):
                mutate.main([str(self.sample.build), "lib", "--list", "--seconds", "60", "--seed", seed], self.sample.tree, self.sample.list)
            orders.append(printed.getvalue().splitlines())
        self.assertEqual(orders[0], orders[1])
        self.assertNotEqual(orders[0], orders[2])
        self.assertEqual(sorted(orders[0]), sorted(orders[2]))


class Folders(unittest.TestCase):
    def test_a_file_below_a_folder_is_held_to_the_tests_of_the_folder(self):
        self.assertEqual(mutate.owner("tools/jxpush/serial/link.cpp"), "tools/jxpush")
        self.assertEqual(mutate.owner("base/text.cpp"), "base")

    def test_what_processes_alone_test_is_there(self):
        self.assertEqual([name for name in mutate.BY_PROCESSES if not (mutate.SOURCE / name).is_file()], [])

    def test_a_sample_has_some_of_a_file_and_goes_from_folder_to_folder(self):
        found = [types.SimpleNamespace(file=f"{folder}/{name}.cpp", number=number)
                 for folder in "ab" for name in "xyz" for number in range(30)]
        folders = {one.file: one.file[0] for one in found}
        chosen = campaign.sample(found, folders, "1", 60)
        self.assertEqual([one.file[0] for one in chosen], ["a"] * 24 + ["b"] * 24 + ["a"] * 12)
        self.assertEqual(len({one.file for one in chosen}), 3)
        self.assertEqual(chosen, campaign.sample(found, folders, "1", 60))
        self.assertNotEqual(chosen, campaign.sample(found, folders, "2", 60))


class SharedLibrary(unittest.TestCase):
    def test_survivors_are_the_same(self):
        sample = Tree("ON")
        self.addCleanup(sample.folder.cleanup)
        self.assertEqual(sample.run()[1], sorted(LIMIT + OTHERS))


if __name__ == "__main__":
    unittest.main()
