"""Operators that change an expression. Each yields (start, end, text) for the node that it is given."""

import re

from clang.cindex import CursorKind as Kind
from clang.cindex import TypeKind

COMPARISONS = {b"<": b"<=", b"<=": b"<", b">": b">=", b">=": b">", b"==": b"!=", b"!=": b"=="}
ARITHMETIC = {b"+": b"-", b"-": b"+", b"*": b"/", b"/": b"*", b"%": b"/", b"&": b"|", b"|": b"&", b"^": b"&", b"<<": b">>",
              b">>": b"<<", b"+=": b"-=", b"-=": b"+=", b"*=": b"/=", b"/=": b"*=", b"|=": b"&=", b"&=": b"|=", b"^=": b"&=",
              b"<<=": b">>=", b">>=": b"<<="}
INTEGERS = (TypeKind.CHAR_U, TypeKind.UCHAR, TypeKind.CHAR_S, TypeKind.SCHAR, TypeKind.USHORT, TypeKind.UINT, TypeKind.ULONG,
            TypeKind.ULONGLONG, TypeKind.SHORT, TypeKind.INT, TypeKind.LONG, TypeKind.LONGLONG, TypeKind.ENUM)
HARMLESS = ("move", "forward")  # without them the same is done, with a copy
SYMMETRIC = ("min", "max", "swap")
ESCAPE = re.compile(rb"\\(?:x[0-9a-fA-F]+|[0-7]{1,3}|u[0-9a-fA-F]{4}|U[0-9a-fA-F]{8}|.)|.", re.S)


def infix(node):
    """The two sides of a binary operator, of the language or overloaded, and what stands between them; or None."""
    if node.kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR) and len(node.children) == 2:
        left, right = node.children
    elif node.kind == Kind.CALL_EXPR and node.cursor.spelling.startswith("operator") and len(node.children) == 3:
        left, _, right = sorted(node.children, key=lambda child: (child.start, child.end))
    else:
        return None
    between = node.source[left.end : right.start]
    word = between.strip()
    if not word or not re.fullmatch(rb"[-+*/%&|^<>=!]+", word):
        return None
    return left, right, word, left.end + between.index(word)


def comparison(node):
    found = infix(node)
    if found and found[2] in COMPARISONS:
        yield found[3], found[3] + len(found[2]), COMPARISONS[found[2]]


def arithmetic(node):
    found = infix(node) if node.kind != Kind.CALL_EXPR else None
    if found and found[2] in ARITHMETIC:
        yield found[3], found[3] + len(found[2]), ARITHMETIC[found[2]]
    elif node.kind == Kind.UNARY_OPERATOR and node.text[:1] in (b"-", b"~") and node.text[:2] != b"--":
        yield node.start, node.start + 1, b""
    elif node.kind == Kind.UNARY_OPERATOR and not in_loop_head(node):
        for word, other in ((b"++", b"--"), (b"--", b"++")):
            if node.text.startswith(word):
                yield node.start, node.start + 2, other
            elif node.text.endswith(word):
                yield node.end - 2, node.end, other


def in_loop_head(node):
    """Whether the node is the step of a for loop: a loop that runs the other way only ever costs time."""
    return node.parent is not None and node.parent.kind == Kind.FOR_STMT


def condition_of(node):
    """The condition of a statement or of a ?:, or None."""
    children = node.children
    if node.kind in (Kind.WHILE_STMT, Kind.CONDITIONAL_OPERATOR):
        found = children[-2] if node.kind == Kind.WHILE_STMT else children[0]
    elif node.kind == Kind.DO_STMT:
        found = children[-1]
    elif node.kind in (Kind.IF_STMT, Kind.FOR_STMT):
        close = closing(node.source, node.source.index(b"(", node.start))
        inside = [child for child in children if child.end <= close]
        if node.kind == Kind.FOR_STMT:
            first, second = semicolons(node.source, node.source.index(b"(", node.start), close)
            inside = [child for child in inside if first < child.start and child.end <= second]
        found = inside[-1] if inside else None
    else:
        return None
    return found if found is not None and found.kind.is_expression() else None


def closing(source, opening):
    """Where the parenthesis closes that opens there; texts with parentheses in them are passed over."""
    depth, at = 0, opening
    while True:
        byte = source[at : at + 1]
        if byte in (b'"', b"'"):
            at = quote_end(source, at)
            continue
        depth += {b"(": 1, b")": -1}.get(byte, 0)
        if depth == 0:
            return at
        at += 1


def quote_end(source, at):
    quote, at = source[at], at + 1
    while source[at] != quote:
        at += 2 if source[at : at + 1] == b"\\" else 1
    return at + 1


def semicolons(source, opening, close):
    """The places of the two semicolons of a for loop's head."""
    found, depth, at = [], 0, opening
    while at < close:
        byte = source[at : at + 1]
        if byte in (b'"', b"'"):
            at = quote_end(source, at)
            continue
        depth += {b"(": 1, b")": -1, b"{": 1, b"}": -1}.get(byte, 0)
        if byte == b";" and depth == 1:
            found.append(at)
        at += 1
    return (found + [opening, opening])[:2]


def condition(node):
    """The condition negated, and each side of && and || dropped."""
    found = condition_of(node)
    if found is not None:
        inner = found.plain
        compared = infix(inner)
        negated = inner.kind == Kind.UNARY_OPERATOR and inner.text.startswith(b"!")
        if not negated and not (compared and compared[2] in (b"==", b"!=")) and inner.kind != Kind.CXX_BOOL_LITERAL_EXPR:
            yield found.start, found.end, b"!(" + found.text + b")"
    sides = infix(node) if node.kind == Kind.BINARY_OPERATOR else None
    if sides and sides[2] in (b"&&", b"||"):
        left, right = sides[:2]
        yield left.end, right.end, b""
        chain = infix(left.plain) if left.kind != Kind.PAREN_EXPR else None
        if not chain or chain[2] != sides[2]:  # else each of its own sides is dropped there
            yield left.start, right.start, b""
    if node.kind == Kind.UNARY_OPERATOR and node.text.startswith(b"!"):
        yield node.start, node.start + 1, b""


def constant(node):
    """A number one more and one less, a truth the other way round, another character."""
    above = node.parent
    if node.kind == Kind.INTEGER_LITERAL:
        if above.kind == Kind.UNARY_OPERATOR and above.text.startswith(b"-"):
            return  # that it loses its sign is enough
        yield from ((node.start, node.end, text) for text in other_numbers(node.text))
    elif node.kind == Kind.CXX_BOOL_LITERAL_EXPR and node.text in (b"true", b"false"):
        yield node.start, node.end, b"false" if node.text == b"true" else b"true"
    elif node.kind == Kind.FLOATING_LITERAL and re.fullmatch(rb"[0-9.]+", node.text):
        yield node.start, node.end, b"(" + node.text + b" + 1)"
    elif node.kind == Kind.CHARACTER_LITERAL:
        yield from other_characters(node, b"'")
    elif node.kind == Kind.STRING_LITERAL:
        yield from other_characters(node, b'"')


def other_numbers(text):
    match = re.fullmatch(rb"(0[xX][0-9a-fA-F']+|0[0-7']*|[1-9][0-9']*)([uUlL]*)", text)
    if not match:
        return
    digits, suffix = match[1].replace(b"'", b""), match[2]
    octal = len(digits) > 1 and digits[:1] == b"0" and digits[1:2] not in b"xX"
    value = int(digits, 8 if octal else 0)
    form = "0%o" if octal else "0x%x" if digits[:2] in (b"0x", b"0X") else "%d"
    for other in (value + 1, value - 1):
        if other >= 0:
            yield (form % other).encode() + suffix


def other_characters(node, quote):
    """The first and the last character of a text replaced; an empty text gets one."""
    text = node.text
    first, last = text.find(quote), text.rfind(quote)
    if first < 0 or last <= first or b"\n" in text:
        return
    raw = re.match(rb'[uUL8]*R"([^(]*)\(', text)
    if raw:
        first, last = raw.end() - 1, last - len(raw[1]) - 1
    elif text.count(quote) - text.count(b"\\" + quote) > 2:
        return  # several texts in a row: no character of theirs is the first or the last
    begin = node.start + first + 1
    units = [(begin + unit.start(), begin + unit.end()) for unit in ESCAPE.finditer(text[first + 1 : last])]
    if not units:
        yield begin, begin, b"x"
    for start, end in dict.fromkeys(units[:1] + units[-1:]):
        yield start, end, other_character(node.source[start:end])


def other_character(unit):
    if re.fullmatch(rb"[a-yA-Y0-8]", unit):
        return bytes([unit[0] + 1])
    return {b"z": b"y", b"Z": b"Y", b"9": b"8"}.get(unit, b"x")


def argument(node):
    """Two neighbouring arguments of one type swapped, where the function tells them apart."""
    if node.kind != Kind.CALL_EXPR or node.cursor.spelling.startswith("operator") or node.cursor.spelling in SYMMETRIC:
        return
    given = [child for child in node.children if (child.start, child.end) in
             {(one.extent.start.offset, one.extent.end.offset) for one in node.cursor.get_arguments() if one}]
    given = [one for one in given if node.start < one.start and one.end <= node.end]
    for left, right in zip(given, given[1:]):
        if left.text != right.text and left.end < right.start and alike(left, right):
            between = node.source[left.end : right.start]
            yield left.start, right.end, right.text + between + left.text


def alike(left, right):
    one, other = kind_of(left), kind_of(right)
    return one == other and one is not None


def kind_of(node):
    found = node.plain.type
    if found.kind in INTEGERS and found.kind != TypeKind.ENUM:
        return "integer"
    name = re.sub(r"\b(const|volatile)\b|[&*\s]", "", found.spelling)
    return re.sub(r"^char\[\d+\]$", "char", name) or None


def call(node):
    """A call of one argument replaced by the argument, where it has the type of the result."""
    if node.kind != Kind.CALL_EXPR or not node.cursor.spelling or node.cursor.spelling.startswith("operator") or \
            node.cursor.spelling in HARMLESS:
        return
    given = [one for one in node.cursor.get_arguments() if one is not None and one.extent.end.offset <= node.end]
    head = re.match(rb"[\w:]+\(", node.text)
    if len(given) != 1 or not head or node.parent.kind == Kind.COMPOUND_STMT:
        return
    inside = [child for child in node.children if child.start == given[0].extent.start.offset]
    if inside and inside[-1].start == node.start + head.end() and kind_of(inside[-1]) == kind_of(node):
        yield node.start, node.end, inside[-1].text
