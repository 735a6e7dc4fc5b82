"""The mutants of a source file."""

from clang.cindex import CursorKind as Kind

import expressions
import statements
from mutant import Mutant, numbered, shown
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
SKIPPED = (Kind.STATIC_ASSERT, Kind.LINKAGE_SPEC, Kind.USING_DECLARATION, Kind.TYPE_ALIAS_DECL)


def mutants(name, path, source, arguments):
    """The mutants of the file at `path`, called `name` in the tree, with these bytes, compiled with these arguments."""
    found = []
    for node in parse(path, source, arguments):
        found += below(node, name, ("-", 0, 0))
    return numbered(found)


def below(node, name, function):
    if node.kind in SKIPPED and node.kind != Kind.LINKAGE_SPEC:
        return
    if node.kind in FUNCTIONS and node.cursor.is_definition():
        function = (node.cursor.spelling, node.line, node.cursor.extent.end.line)
    for operator, apply in OPERATORS.items():
        for start, end, text in apply(node):
            before, after = shown(node.source, start, end, text)
            if before != after or node.source[start:end] != text:
                line = node.source.count(b"\n", 0, start) + 1
                yield Mutant(name, *function, line, operator, start, end, text, before, after)
    for child in node.children:
        yield from below(child, name, function)
