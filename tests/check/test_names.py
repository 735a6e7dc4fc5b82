"""Each test that docs/testing.md and docs/fuzzing.md name exists."""

import pathlib
import re
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
UNIT_TEST = re.compile(r"^(?:TYPED_)?TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", re.M)
UNIT_NAME = re.compile(r"[A-Z]\w+\.(?:\w+\*?|\*)")


def named():
    """What stands in backticks in the documents' tables."""
    rows = [line for name in ("testing", "fuzzing") for line in (SOURCE / f"docs/{name}.md").read_text().splitlines()
            if line.startswith("|")]
    return {name for row in rows for name in re.findall(r"`([^`]+)`", row)}


class NamesTest(unittest.TestCase):
    def test_unit_tests(self):
        known = [".".join(test) for path in (SOURCE / "tests/unit").rglob("*.cpp") for test in UNIT_TEST.findall(path.read_text())]
        names = [name for name in named() if UNIT_NAME.fullmatch(name)]
        self.assertGreater(len(names), 20)
        for name in names:
            pattern = re.compile(re.escape(name).replace(r"\*", r"\w*"))
            self.assertTrue(any(map(pattern.fullmatch, known)), name)

    def test_system_tests(self):
        scripts = {path.name: path.read_text() for path in (SOURCE / "tests/system").glob("*.py")}
        names = [name for name in named() if re.fullmatch(r"\w+\.py|test_\w+…?", name)]
        self.assertGreater(len(names), 15)
        for name in names:
            found = name in scripts or any(f"def {name.rstrip('…')}" in text for text in scripts.values())
            self.assertTrue(found, name)

    def test_fuzzers(self):
        rows = re.findall(r"^\| `(\w+)` \|", (SOURCE / "docs/testing.md").read_text(), re.M)
        fuzzers = {path.stem for path in (SOURCE / "fuzz/dictionaries").glob("*.dict")}
        self.assertLessEqual(fuzzers, set(rows))


if __name__ == "__main__":
    unittest.main()
