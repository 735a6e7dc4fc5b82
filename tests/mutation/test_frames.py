"""Many mutants in one text: what it says for each kind of frame, and that it is chosen from as each mutant alone would be."""

import pathlib
import subprocess
import tempfile
import unittest

import frames
import operators

HERE = pathlib.Path(__file__).parent
PROGRAM = """#include <cstdio>
static int log(int value) { return std::printf("%d ", value), value; }
static bool is(bool value) { return value; }
static int pick(int a, int b) { return a - b; }
static int branch(int a) {
  switch (a) {
    case 1: log(10); break;
    case 2: log(20);
  }
  if (a == 3) return 30;
  for (int i = 0; i < a; ++i) { if (i == 2) continue; log(i); }
  log(a);
  log(pick(a, 7) << 1);
  return is(a > 1 && a < 5) ? a + 1 : -a;
}
int main() {
  for (int a = 0; a < 6; ++a) log(branch(a));
  std::puts("end");
}
"""


def found(code):
    """The source, and its mutants by number."""
    source = code.encode()
    return source, dict(enumerate(operators.mutants("sample.cpp", pathlib.Path("/sample.cpp"), source, ["-xc++", "-std=c++17"]), 1))


def text_of(code, operator):
    """The combined text for the mutants of one operator, without the declaration in front."""
    source, mutants = found(code)
    chosen = [mutant for mutant in mutants.values() if mutant.operator == operator]
    text, _ = frames.combined(source, dict(enumerate(chosen, 1)), 0)
    return text.removeprefix(frames.DECLARATION).decode()


class Text(unittest.TestCase):
    def test_an_expression_is_chosen_where_it_stands(self):
        self.assertEqual(text_of("int t(int a) {\n  return a + 2;\n}", "constant"),
                         "int t(int a) {\n  return a + (jx_mutant == 1 ? (1) : jx_mutant == 2 ? (3) : (2));\n}")

    def test_a_condition_stays_a_truth(self):
        self.assertEqual(text_of("int t(int* a, int* b) {\n  return a && b;\n}", "condition"),
                         "int t(int* a, int* b) {\n  return (jx_mutant == 1 ? static_cast<bool>(b) : jx_mutant == 2 ? "
                         "static_cast<bool>(a) : static_cast<bool>(a && b));\n}")

    def test_a_return_is_left_out_or_replaced(self):
        code = "int f(int);\nint t(int a) {\n  if (a) return f(a);\n  return 0;\n}"
        self.assertEqual(text_of(code, "early return"), code.replace("return f(a);", "{ if (jx_mutant != 1) return f(a); }"))
        self.assertEqual(text_of(code, "result"), code.replace("return f(a);", "{ if (jx_mutant == 1) return {}; return f(a); }"))

    def test_neighbours_are_chosen_whole(self):
        code = "void f();\nvoid g();\nvoid t() {\n  f();\n  g();\n}"
        self.assertEqual(text_of(code, "neighbours"),
                         code.replace("f();\n  g();\n}", "if (jx_mutant == 1) { g();   f(); } else { f();\n  g(); }\n}"))

    def test_what_the_compiler_evaluates_has_no_frame(self):
        for code in ("constexpr int t = 5;", "enum { t = 5 };", "constexpr int t() { return 5; }", "int t(int a = 5);"):
            self.assertEqual(text_of(code, "constant"), code)

    def test_a_return_without_which_a_function_ends_has_no_frame(self):
        code = "int t(int a) {\n  if (a) {\n    return 1;\n  } else {\n    return 2;\n  }\n}"
        self.assertEqual(text_of(code, "early return"), code)

    def test_lines_stay_where_they_are(self):
        source, mutants = found(PROGRAM)
        text, _ = frames.combined(source, mutants, 0)
        self.assertEqual(text.count(b"\n"), source.count(b"\n"))
        two = [mutant.line for number, mutant in mutants.items() if number in frames.on_lines(source, mutants, {10})]
        self.assertEqual(set(two), {10})


class Choice(unittest.TestCase):
    """Each mutant of a program prints the same, compiled with all others or by itself."""

    def compiled(self, place, name, text):
        (place / f"{name}.cpp").write_bytes(text)
        subprocess.run(["c++", "-std=c++17", "-O0", "-w", "-o", str(place / name), str(place / f"{name}.cpp"), str(place / "chosen.o")], check=True)
        return str(place / name)

    def output(self, program, number):
        try:
            return subprocess.run([program], env={"JX_MUTANT": str(number)}, capture_output=True, timeout=5).stdout
        except subprocess.TimeoutExpired:
            return "late"

    def test_it_is_the_mutant_of_that_number(self):
        source, mutants = found(PROGRAM)
        mutants = {number: mutant for number, mutant in mutants.items() if mutant.line > 5}
        with tempfile.TemporaryDirectory() as folder:
            place = pathlib.Path(folder)
            subprocess.run(["c++", "-O1", "-o", str(place / "chosen.o"), "-c", str(HERE / "chosen.cpp")], check=True)
            text, placed = frames.combined(source, mutants, source.index(b"\n") + 1)
            together = self.compiled(place, "together", text)
            self.assertEqual(self.output(together, 0), self.output(self.compiled(place, "original", source), 0))
            self.assertGreater(len(placed), 30)
            some = [number for number in sorted(placed) if number % 5 == 0 or mutants[number].operator in ("statement", "result")]
            for number in some:
                alone = self.compiled(place, "alone", mutants[number].apply(source))
                self.assertEqual(self.output(together, number), self.output(alone, 0), mutants[number])


if __name__ == "__main__":
    unittest.main()
