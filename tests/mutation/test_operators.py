"""What each operator makes of small samples: these mutants and no other."""

import pathlib
import unittest

import operators

HEAD = """
namespace std {
struct mutex {};
template <class Mutex> struct lock_guard { explicit lock_guard(Mutex&) {} };
struct defer {};
constexpr defer defer_lock{};
template <class Mutex> struct unique_lock { explicit unique_lock(Mutex&) {} unique_lock(Mutex&, defer) {} void unlock() {} };
}
int f(int);
int g(int, int);
int max(int, int);
int h(const char*, int);
bool ready();
void stop();
int field;
"""


def made(code, *names):
    """The mutants of the code by these operators, as "before ==> after"."""
    source = (HEAD + code).encode()
    found = operators.mutants("sample.cpp", pathlib.Path("/sample.cpp"), source, ["-xc++", "-std=c++17"])
    first = HEAD.count("\n")
    return [f"{one.before} ==> {one.after}" for one in found if one.operator in names and one.line > first]


class Operators(unittest.TestCase):
    maxDiff = None

    def check(self, operator, code, *expected):
        self.assertEqual(sorted(made(code, operator)), sorted(expected))

    def test_comparison_moves_its_boundary_or_turns(self):
        for one, other in (("<", "<="), ("<=", "<"), (">", ">="), (">=", ">"), ("==", "!="), ("!=", "==")):
            self.check("comparison", f"bool t(int a) {{\n  return a {one} f(a);\n}}", f"return a {one} f(a); ==> return a {other} f(a);")

    def test_overloaded_comparison_turns_too(self):
        self.check("comparison", "struct S { bool operator==(const S&) const; };\nbool t(S a, S b) {\n  return a == b;\n}",
                   "return a == b; ==> return a != b;")

    def test_condition_is_negated(self):
        self.check("condition", "void t() {\n  if (ready()) stop();\n  while (ready()) stop();\n  do stop(); while (f(1));\n"
                   "  for (;f(2);) stop();\n  f(ready() ? 1 : 2);\n}",
                   "if (ready()) stop(); ==> if (!(ready())) stop();", "while (ready()) stop(); ==> while (!(ready())) stop();",
                   "do stop(); while (f(1)); ==> do stop(); while (!(f(1)));", "for (;f(2);) stop(); ==> for (;!(f(2));) stop();",
                   "f(ready() ? 1 : 2); ==> f(!(ready()) ? 1 : 2);")

    def test_condition_with_a_declaration_in_front_is_negated(self):
        self.check("condition", "void t() {\n  if (int a = f(1); a < 3) stop();\n}",
                   "if (int a = f(1); a < 3) stop(); ==> if (int a = f(1); !(a < 3)) stop();")

    def test_each_side_of_a_chain_is_dropped_once(self):
        self.check("condition", "bool t(bool a, bool b, bool c) {\n  return a && b && c;\n}",
                   "return a && b && c; ==> return b && c;", "return a && b && c; ==> return a && c;",
                   "return a && b && c; ==> return a && b;")

    def test_negation_and_equality_are_not_turned_twice(self):
        code = "void t(int a) {\n  if (!ready()) stop();\n  if (a == 1) stop();\n}"
        self.check("condition", code, "if (!ready()) stop(); ==> if (ready()) stop();")
        self.check("comparison", code, "if (a == 1) stop(); ==> if (a != 1) stop();")

    def test_numbers_grow_and_shrink(self):
        self.check("constant", "int t() {\n  f(0);\n  f(0x1f);\n  return f(10);\n}", "f(0); ==> f(1);", "f(0x1f); ==> f(0x20);",
                   "f(0x1f); ==> f(0x1e);", "return f(10); ==> return f(11);", "return f(10); ==> return f(9);")

    def test_truth_is_turned(self):
        self.check("constant", "bool t() {\n  return true;\n}", "return true; ==> return false;")

    def test_text_changes_at_both_ends(self):
        self.check("constant", 'int t() {\n  h("", 0x0);\n  return h("a-\\n", f(field));\n}',
                   'h("", 0x0); ==> h("x", 0x0);', 'h("", 0x0); ==> h("", 0x1);',
                   'return h("a-\\n", f(field)); ==> return h("b-\\n", f(field));',
                   'return h("a-\\n", f(field)); ==> return h("a-x", f(field));')

    def test_character_becomes_its_neighbour(self):
        self.check("constant", "char t(bool a) {\n  return a ? 'a' : ':';\n}", "return a ? 'a' : ':'; ==> return a ? 'b' : ':';",
                   "return a ? 'a' : ':'; ==> return a ? 'a' : 'x';")

    def test_constants_outside_of_functions_change_as_well(self):
        self.check("constant", "constexpr int kMost = 5;", "constexpr int kMost = 5; ==> constexpr int kMost = 6;",
                   "constexpr int kMost = 5; ==> constexpr int kMost = 4;")

    def test_what_a_macro_stands_for_is_left_alone(self):
        self.check("constant", "#define MOST 5\nint t() {\n  return MOST;\n}")

    def test_what_holds_at_compile_time_is_left_alone(self):
        self.check("constant", 'static_assert(5 > 4, "text");')
        self.check("comparison", 'static_assert(5 > 4, "text");')

    def test_arithmetic(self):
        self.check("arithmetic", "int t(int a, int b) {\n  a += b;\n  ++a;\n  for (int i = a; i < b; ++i) stop();\n  return -a * b;\n}",
                   "a += b; ==> a -= b;", "++a; ==> --a;", "return -a * b; ==> return a * b;", "return -a * b; ==> return -a / b;")

    def test_neighbouring_arguments_of_one_type_are_swapped(self):
        self.check("argument", 'int t(int a, int b) {\n  g(a, a);\n  h("x", b);\n  max(a, b);\n  return g(a, b);\n}',
                   "return g(a, b); ==> return g(b, a);")

    def test_call_that_gives_what_it_takes_is_dropped(self):
        self.check("call", "int move(int);\nint t(int a) {\n  f(a);\n  field = move(a);\n  return 1 + f(a);\n}", "return 1 + f(a); ==> return 1 + a;")

    def test_statements_are_dropped(self):
        self.check("statement", "void t(int a) {\n  int b = 1;\n  a = b;\n  if (ready()) stop();\n  else f(a);\n"
                   "  while (ready()) { break; }\n  switch (a) { case 1: stop(); }\n  (void)b;\n}",
                   "a = b; ==> ;", "if (ready()) stop(); ==> if (ready()) ;", "else f(a); ==> else ;",
                   "while (ready()) { break; } ==> while (ready()) { ; }",
                   "switch (a) { case 1: stop(); } ==> switch (a) { case 1: ; }")

    def test_neighbours_are_swapped(self):
        self.check("neighbours", "void t() {\n  stop();\n  field = 1;\n  int a = 2;\n  f(a);\n  return;\n}",
                   "stop(); field = 1; ==> field = 1; stop();")

    def test_neighbours_that_cannot_meet_stay(self):
        self.check("neighbours", "void t(int a, int b) {\n  a = 1;\n  b = 2;\n  stop();\n  f(a); if (ready()) b = f(b);\n}",
                   "stop(); f(a); if (ready()) b = f(b); ==> f(a); stop(); if (ready()) b = f(b);",
                   "f(a); if (ready()) b = f(b); ==> if (ready()) b = f(b); f(a);")

    def test_places_of_their_own_may_be_stored_to_in_any_order(self):
        self.check("neighbours", "struct P { int a, b; };\nint other;\nvoid t(P& p) {\n  p.a = f(1);\n  p.b = 2;\n  p.b = p.a;\n"
                   "  field = f(1);\n  other = f(2);\n}", "p.b = 2; p.b = p.a; ==> p.b = p.a; p.b = 2;",
                   "field = f(1); other = f(2); ==> other = f(2); field = f(1);")

    def test_results_are_replaced(self):
        self.check("result", "struct S { int a; };\nS s(int);\nbool t(int a) {\n  return f(a);\n}\nint u(int a) {\n  return f(a);\n}\n"
                   "S v(int a) {\n  return s(a);\n}\nint w() {\n  return 0;\n}\n"
                   "const char* empty() {\n  return \"\";\n}\nvoid x() {\n  return;\n}",
                   "return f(a); ==> return true;", "return f(a); ==> return false;", "return f(a); ==> return {};",
                   "return s(a); ==> return {};")

    def test_lock_is_not_taken(self):
        self.check("lock", "std::mutex m;\nvoid t() {\n  const std::lock_guard<std::mutex> lock(m);\n  stop();\n}\n"
                   "void u() {\n  std::unique_lock<std::mutex> lock(m);\n  lock.unlock();\n}",
                   "const std::lock_guard<std::mutex> lock(m); ==> ;",
                   "std::unique_lock<std::mutex> lock(m); ==> std::unique_lock<std::mutex> lock(m, std::defer_lock);")

    def test_early_return_is_dropped(self):
        self.check("early return", "int t(int a) {\n  if (a) return 1;\n  if (f(a)) {\n    stop();\n    return 2;\n  }\n  return 3;\n}\n"
                   "void u() {\n  if (ready()) throw 1;\n  stop();\n}",
                   "if (a) return 1; ==> if (a) ;", "return 2; ==> ;", "if (ready()) throw 1; ==> if (ready()) ;")

    def test_default_is_removed(self):
        self.check("default", "int t(int a) {\n  switch (a) {\n    case 1: return 1;\n    default: stop(); break;\n  }\n"
                   "  switch (a) {\n    case 1: return 2;\n    default: break;\n  }\n  return 3;\n}",
                   "default: stop(); break; ==> (nothing)")

    def test_the_same_change_of_the_same_line_has_a_number(self):
        found = operators.mutants("sample.cpp", pathlib.Path("/sample.cpp"), (HEAD + "void t() {\n  stop();\n  stop();\n}").encode(),
                                  ["-xc++"])
        self.assertEqual([one.key for one in found if one.operator == "statement"],
                         ["sample.cpp: t: statement: stop(); ==> ;", "sample.cpp: t: statement: stop(); ==> ; [2]"])


if __name__ == "__main__":
    unittest.main()
