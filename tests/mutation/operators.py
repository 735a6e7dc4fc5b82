"""The mutants of a source file."""

from clang.cindex import CursorKind as Kind

import expressions
import statements
from mutant import Mutant, numbered, shown
from statements import falls_through, semicolon
from tree import FUNCTIONS, parse

OPERATORS = {
    "comparison": expressions.comparison,
    "condition": expressions.condition,
    "arithmetic": expressions.arithmetic,
    "constant": expressions.constant,
    "argument": expressions.argument,
    "call": expressions.call,
    "statement": statements.statement,
    "neighbours": statements.neighbours,
    "result": statements.result,
    "lock": statements.lock,
    "early return": statements.early_return,
    "default": statements.default_case,
}
# What runs at no time.
SKIPPED = (Kind.STATIC_ASSERT, Kind.USING_DECLARATION, Kind.TYPE_ALIAS_DECL)


def mutants(name, path, source, arguments):
    """The mutants of the file at `path`, called `name` in the tree, with these bytes, compiled with these arguments."""
    found = []
    for node in parse(path, source, arguments):
        found += below(node, name, ("-", 0, 0))
    return numbered(found)


def below(node, name, function):
    if node.kind in SKIPPED:
        return
    if node.kind in FUNCTIONS and node.cursor.is_definition():
        function = (node.cursor.spelling, node.line, node.cursor.extent.end.line)
    for operator, apply in OPERATORS.items():
        for start, end, text in apply(node):
            before, after = shown(node.source, start, end, text)
            line = node.source.count(b"\n", 0, start) + 1
            yield Mutant(name, *function, line, operator, start, end, text, before, after, frame(operator, node, start, end, text))
    for child in node.children:
        yield from below(child, name, function)


def frame(operator, node, start, end, text):
    """What the mutant can be chosen in while the program runs; None where it has to be compiled by itself."""
    if constant_for_the_compiler(node):
        return None
    made = node.cursor.referenced if node.kind == Kind.CALL_EXPR else None
    if made is not None and made.kind == Kind.CONSTRUCTOR:
        return None  # no expression by itself, but part of a declaration
    if operator in ("comparison", "arithmetic", "constant", "argument", "call"):
        return "value", node.start, node.end
    if operator == "condition":
        return ("truth", start, end) if text.startswith(b"!(") else ("truth", node.start, node.end)
    if operator == "statement":
        return ("drop", start, end) if node.kind.is_expression() else ("leave", start, semicolon(node))
    if operator == "early return":
        return ("leave", start, semicolon(node)) if falls_through(node) else None
    if operator == "neighbours":
        return "swap", start, end
    if operator == "result":
        return "result", node.start, semicolon(node)
    return None


def constant_for_the_compiler(node):
    """Whether the compiler evaluates the node, as far as its surroundings say so."""
    while node is not None:
        if node.kind in (Kind.ENUM_CONSTANT_DECL, Kind.PARM_DECL) or node.parent is not None and \
                node.parent.kind == Kind.CASE_STMT and node.start == node.parent.children[0].start:
            return True
        if node.kind in (Kind.VAR_DECL, *FUNCTIONS):
            head = node.source[node.source.rfind(b"\n", 0, node.start) + 1 : node.end].split(b"{")[0].split(b"=")[0]
            if b"constexpr" in head:
                return True
        node = node.parent
    return False
