"""What the coverage report accepts and what it refuses."""

import contextlib
import io
import unittest

import report

BRANCHES = {"none": [], "both": [{"count": 1}, {"count": 2}], "one": [{"count": 1}, {"count": 0}]}


def file(lines, name="http/a.cpp", functions=((1, "void zorhtml::first<std::map<int, int> >(int)"), (50, "int second()"))):
    """A file with (number, how often it was run, which of its branches were taken) for each line."""
    return report.File({
        "file": name,
        "functions": [{"lineno": line, "name": function} for line, function in functions],
        "lines": [{"line_number": number, "count": count, "branches": BRANCHES[branches]} for number, count, branches in lines]})


def run(*files, reasons=()):
    """(what is wrong, what was printed)."""
    out = io.StringIO()
    with contextlib.redirect_stdout(out):
        wrong = report.report(list(files), set(reasons))
    return wrong, out.getvalue()


class ReportTest(unittest.TestCase):
    def test_everything_run_is_accepted(self):
        wrong, printed = run(file([(1, 1, "both"), (2, 5, "none")]))
        self.assertEqual(wrong, [])
        self.assertIn("Every line was run.", printed)

    def test_lines_below_the_mark(self):
        lines = [(number, 1, "none") for number in range(1, 19)] + [(60, 0, "none")]
        self.assertEqual(run(file(lines), reasons=[("http/a.cpp", "second")])[0], ["lines: 94.7 % is less than 95.0 %"])
        lines.append((61, 1, "none"))
        self.assertEqual(run(file(lines), reasons=[("http/a.cpp", "second")])[0], [])

    def test_branches_below_the_mark(self):
        lines = [(number, 1, "both") for number in range(1, 4)]
        self.assertEqual(run(file([*lines, (4, 1, "one")]))[0], ["branches: 87.5 % is less than 90.0 %"])
        self.assertEqual(run(file([*lines, (4, 1, "both"), (5, 1, "one")]))[0], [])

    def test_line_without_a_reason(self):
        lines = [(number, 1, "none") for number in range(1, 40)]
        wrong, printed = run(file([*lines, (40, 0, "none")]))
        self.assertEqual(wrong, ["http/a.cpp: zorhtml::first has lines that were not run and no reason in coverage.md"])
        self.assertIn("  http/a.cpp:40  zorhtml::first\n", printed)

    def test_reason_without_a_line(self):
        self.assertEqual(run(file([(1, 1, "none")]), reasons=[("http/a.cpp", "second")])[0],
                         ["coverage.md has a reason for second in http/a.cpp, of which every line was run"])

    def test_branch_not_taken_is_listed(self):
        self.assertIn("  http/a.cpp:7\n", run(file([(7, 1, "one"), (8, 1, "both"), (9, 0, "one")]))[1])

    def test_reasons_are_read_from_the_table(self):
        text = "# Coverage\n\n| file | function | why |\n|---|---|---|\n| `a/b.cpp` | `C::d` | Because. |\n| `e` | `f` | |\n"
        self.assertEqual(report.read_reasons(text), {("a/b.cpp", "C::d")})

    def test_names_of_functions(self):
        for name, plain in (("main", "main"), ("(anonymous namespace)::f(int)", "f"), ("std::string a::B::c() const", "a::B::c"),
                            ("int zorhtml::HttpProto::readWholeBody<std::vector<int> >(std::vector<int>&) [clone]",
                             "zorhtml::HttpProto::readWholeBody")):
            self.assertEqual(report.plain_name(name), plain)


if __name__ == "__main__":
    unittest.main()
