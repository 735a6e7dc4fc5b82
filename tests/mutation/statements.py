"""Operators that change statements. Each yields (start, end, text) for the node that it is given."""

import re

from clang.cindex import CursorKind as Kind
from clang.cindex import TypeKind

from expressions import INTEGERS, closing
from tree import FUNCTIONS

BRANCHES = (Kind.IF_STMT, Kind.FOR_STMT, Kind.WHILE_STMT, Kind.DO_STMT, Kind.CXX_FOR_RANGE_STMT)
LABELS = (Kind.CASE_STMT, Kind.DEFAULT_STMT)
LEAVES = (Kind.RETURN_STMT, Kind.CXX_THROW_EXPR, Kind.BREAK_STMT, Kind.CONTINUE_STMT)
LOCKS = re.compile(r"\b(lock_guard|unique_lock|scoped_lock|shared_lock)\b")


def statements_of(node):
    """The statements that follow each other in a block; a label's first statement is one of them."""
    if node.kind == Kind.COMPOUND_STMT:
        return [unlabelled(child) for child in node.children]
    return []


def unlabelled(node):
    while node.kind in LABELS and node.children:
        node = node.children[-1]
    return node


def is_expression(node):
    return node.kind.is_expression() or node.kind in (Kind.CXX_DELETE_EXPR,)


def stands_alone(node):
    """Whether the node is a whole statement: in a block, behind a label, or the body of an if or a loop."""
    above = node.parent
    if above is None:
        return False
    if above.kind == Kind.COMPOUND_STMT:
        return True
    if above.kind in LABELS:
        return above.children[-1].start == node.start
    return above.kind in BRANCHES and node.source[node.end :].lstrip()[:1] == b";" and behind_head(node, above)


def behind_head(node, above):
    """Whether the node is in the body of a branch, not in its head."""
    if above.kind == Kind.DO_STMT:
        return node.start == above.children[0].start
    return node.start > closing(node.source, node.source.index(b"(", above.start))


def semicolon(node):
    """The end of a statement with its semicolon."""
    found = node.source.find(b";", node.end)
    return found + 1 if found >= 0 and not node.source[node.end : found].strip() else node.end


def statement(node):
    """A call, an assignment, a break or a continue dropped."""
    if not stands_alone(node) or unlabelled(node) is not node:
        return
    if is_expression(node) and node.kind != Kind.CXX_THROW_EXPR and not re.match(rb"\(void\)\s*\w+$", node.text):
        yield node.start, node.end, b""
    elif node.kind in (Kind.BREAK_STMT, Kind.CONTINUE_STMT):
        yield node.start, node.end, b""


def early_return(node):
    """A return or a throw dropped that is not the last statement of its function."""
    if node.kind not in (Kind.RETURN_STMT, Kind.CXX_THROW_EXPR) or not stands_alone(node):
        return
    block = node.parent
    last = block.kind == Kind.COMPOUND_STMT and block.children[-1].start == node.start
    if last and block.parent is not None and block.parent.kind in FUNCTIONS + (Kind.LAMBDA_EXPR,):
        return
    yield node.start, node.end, b""


def falls_through(node):
    """Whether something follows the statement in its function, so that a function without it still ends with a return."""
    while node.parent is not None and node.kind not in FUNCTIONS + (Kind.LAMBDA_EXPR,):
        if node.parent.kind == Kind.COMPOUND_STMT and node.parent.children[-1].start != node.start:
            return True
        node = node.parent
    return False


def neighbours(node):
    """Two statements swapped that follow each other: a call or an assignment, and another one, an if or a loop."""
    found = statements_of(node)
    for first, second in zip(found, found[1:]):
        others = [one for one in (first, second) if not is_expression(one)]
        if len(others) < 2 and all(one.kind in BRANCHES for one in others) and ordered(first, second) and \
                Kind.CXX_THROW_EXPR not in (first.kind, second.kind) and second.parent.kind == Kind.COMPOUND_STMT:
            start, end = semicolon(first), semicolon(second)
            yield first.start, end, node.source[second.start : end] + node.source[start : second.start] + \
                node.source[first.start : start]


def ordered(first, second):
    """Whether the order can matter: what is stored in a variable of the function has to be mentioned in the other one."""
    for one, other in ((first, second), (second, first)):
        place = stored_in(one)
        if place is not None and not mentions(other.text, place):
            return False
    return not apart(first, second)


def mentions(text, place):
    return re.search(rb"(?<![\w.])" + re.escape(place) + rb"(?!\w)", text) is not None


def apart(first, second):
    """Whether both only store, to places that are told apart by their names, and neither uses what the other one stores to.
    Of two calls that may do more than give a value the order counts."""
    stores = [store(first), store(second)]
    if None in stores or all(does_more(value) for _, value in stores):
        return False
    for (place, _), (other, value) in (stores, stores[::-1]):
        root = re.match(rb"[A-Za-z_]\w*", place)
        if root is None or other.startswith(place):
            return False
        own = re.match(re.escape(root.group()) + rb"\b", other)
        if mentions(other[own.end() if own else 0 :] + b" " + value.text, root.group()):
            return False
    return True


def store(node):
    """The text of the place that a statement stores to by "=", and the node of the value; None for another statement."""
    node = node.plain
    if node.kind == Kind.BINARY_OPERATOR and len(node.children) == 2:
        place, value = node.children
    elif node.kind == Kind.CALL_EXPR and node.cursor.spelling == "operator=" and len(node.children) == 3:
        place, _, value = node.children
    else:
        return None
    return (place.text, value) if re.match(rb"\s*=[^=]", node.source[place.end : value.start + 1]) else None


def does_more(value):
    """Whether a function is called that may do more than give a value."""
    called = [one.cursor.referenced for one in value.walk() if one.kind == Kind.CALL_EXPR]
    return any(one is None or one.kind == Kind.FUNCTION_DECL or (one.kind == Kind.CXX_METHOD and not one.is_const_method())
               for one in called if one is None or not one.spelling.startswith("operator"))


def stored_in(node):
    """The text of the place that the statement only stores to, where that is in a variable of the function itself."""
    node = node.plain
    if node.kind != Kind.BINARY_OPERATOR or len(node.children) != 2 or \
            not re.match(rb"\s*=[^=]", node.source[node.children[0].end : node.children[1].start + 1]):
        return None
    root = node.children[0]
    while root.children:
        root = root.children[0]
    variable = root.cursor.referenced
    if variable is None or variable.kind not in (Kind.VAR_DECL, Kind.PARM_DECL):
        return None
    local = variable.semantic_parent is not None and variable.semantic_parent.kind in FUNCTIONS
    return node.children[0].text if local and "&" not in variable.type.spelling and "*" not in variable.type.spelling else None


def default_case(node):
    """The default of a switch removed with its statements."""
    if node.kind != Kind.COMPOUND_STMT:
        return
    for index, child in enumerate(node.children):
        if child.kind == Kind.DEFAULT_STMT:
            behind = [other.start for other in node.children[index + 1 :] if other.kind == Kind.CASE_STMT]
            end = behind[0] if behind else node.end - 1
            body = node.source[child.start : end]
            if not re.fullmatch(rb"default:\s*(break;)?\s*", body):
                yield child.start, child.start + len(body.rstrip()), b""


def lock(node):
    """A lock not taken."""
    if node.kind != Kind.DECL_STMT or len(node.children) != 1 or node.children[0].kind != Kind.VAR_DECL:
        return
    variable = node.children[0]
    if not LOCKS.search(variable.cursor.type.spelling) or not LOCKS.search(variable.type.spelling):
        return
    name = variable.cursor.spelling.encode()
    if re.search(rb"\b" + name + rb"\b", node.source[node.end : node.parent.end]):
        match = re.search(rb"[({]([^(){},]+)[)}];?$", node.text)
        if match and "unique_lock" in variable.type.spelling:
            at = node.start + match.end(1)
            yield at, at, b", std::defer_lock"
    else:
        yield node.start, node.end, b";"


def result(node):
    """What a function returns replaced: by both truths, or by the empty value."""
    if node.kind != Kind.RETURN_STMT or not node.children:
        return
    value = node.children[0]
    found, plain = returned(node), value.plain
    if plain.kind in (Kind.CXX_BOOL_LITERAL_EXPR, Kind.INTEGER_LITERAL, Kind.CXX_NULL_PTR_LITERAL_EXPR):
        return
    if value.text in (b"{}", b"nullptr", b'""') or re.fullmatch(rb"[\w:]+(\(\)|\{\})", value.text) and plain.kind != Kind.CALL_EXPR:
        return
    if found.kind == TypeKind.BOOL:
        yield value.start, value.end, b"true"
        yield value.start, value.end, b"false"
    elif found.kind in INTEGERS or found.kind in (TypeKind.POINTER, TypeKind.RECORD, TypeKind.ELABORATED, TypeKind.DOUBLE):
        yield value.start, value.end, b"{}"


def returned(node):
    function = node.above(*FUNCTIONS, Kind.LAMBDA_EXPR)
    if function is not None and function.kind != Kind.LAMBDA_EXPR and function.kind != Kind.FUNCTION_TEMPLATE:
        return function.cursor.result_type.get_canonical()
    return node.children[0].type
