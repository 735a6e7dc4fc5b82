"""The list of equivalents: what it may hold, and when an entry is stale."""

import pathlib
import tempfile
import unittest

import equivalent

LIST = """
# The two values are
# the same there.
a/b.cpp: f: constant: g(1); ==> g(2);
a/b.cpp: f: constant: g(1); ==> g(0);

# Another reason.
a/c.cpp: h: statement: x(); ==> ;
"""
BOTH = ["a/b.cpp", "a/c.cpp"]
KEYS = {"a/b.cpp: f: constant: g(1); ==> g(2);", "a/b.cpp: f: constant: g(1); ==> g(0);", "a/c.cpp: h: statement: x(); ==> ;"}


class List(unittest.TestCase):
    def test_mutants_have_the_reason_above_them(self):
        entries = equivalent.read(LIST)
        self.assertEqual({entry.key: entry.reason for entry in entries.values()},
                         {key: "The two values are the same there." if "b.cpp" in key else "Another reason." for key in KEYS})

    def test_a_mutant_without_a_reason_is_an_error(self):
        for text in ("a.cpp: f: lock: x; ==> ;", "# Reason.\n\na.cpp: f: lock: x; ==> ;", "#\na.cpp: f: lock: x; ==> ;"):
            with self.assertRaisesRegex(ValueError, "no reason"):
                equivalent.read(text)

    def test_a_mutant_that_is_listed_twice_is_an_error(self):
        with self.assertRaisesRegex(ValueError, "line 3 stands in line 2"):
            equivalent.read("# Reason.\na.cpp: f: lock: x; ==> ;\na.cpp: f: lock: x; ==> ;")

    def stale(self, present, files, keys):
        """The lines of the stale entries, in a tree of the files `present`."""
        with tempfile.TemporaryDirectory() as tree:
            for name in present:
                path = pathlib.Path(tree, name)
                path.parent.mkdir(exist_ok=True)
                path.touch()
            return [entry.line for entry in equivalent.stale(equivalent.read(LIST), pathlib.Path(tree), files, keys)]

    def test_an_entry_whose_code_is_gone_is_stale(self):
        self.assertEqual(self.stale(BOTH, BOTH, KEYS), [])
        self.assertEqual(self.stale(BOTH, BOTH, KEYS - {"a/c.cpp: h: statement: x(); ==> ;"}), [8])

    def test_an_entry_whose_file_is_gone_is_stale_whatever_is_looked_at(self):
        self.assertEqual(self.stale(["a/b.cpp"], [], set()), [8])

    def test_an_entry_of_a_file_that_is_not_looked_at_stays(self):
        self.assertEqual(self.stale(BOTH, ["a/b.cpp"], set()), [4, 5])


if __name__ == "__main__":
    unittest.main()
