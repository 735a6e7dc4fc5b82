"""The syntax tree of a source file, as libclang (Debian's python3-clang) sees it."""

import clang.cindex
from clang.cindex import CursorKind as Kind

FUNCTIONS = (Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR, Kind.CONVERSION_FUNCTION,
             Kind.FUNCTION_TEMPLATE)


class Node:
    """A place in the tree: a cursor with its parent. Positions are bytes of the file."""

    def __init__(self, cursor, parent, source):
        self.cursor, self.parent, self.source = cursor, parent, source
        self.kind = cursor.kind
        self.start, self.end = cursor.extent.start.offset, cursor.extent.end.offset
        self._children = None

    @property
    def text(self):
        return self.source[self.start : self.end]

    @property
    def line(self):
        return self.cursor.extent.start.line

    @property
    def children(self):
        if self._children is None:
            self._children = [Node(child, self, self.source) for child in self.cursor.get_children()]
        return self._children

    @property
    def plain(self):
        """The node without the parentheses and conversions around it, which have no text of their own."""
        node = self
        while node.kind in (Kind.PAREN_EXPR, Kind.UNEXPOSED_EXPR) and len(node.children) == 1:
            node = node.children[0]
        return node

    def above(self, *kinds):
        """The nearest node of these kinds around this one, or None."""
        node = self.parent
        while node is not None and node.kind not in kinds:
            node = node.parent
        return node

    @property
    def type(self):
        return self.cursor.type.get_canonical()

    def walk(self):
        yield self
        for child in self.children:
            yield from child.walk()


def parse(path, source, arguments):
    """The nodes of the file's own declarations. Raises ValueError where clang finds an error."""
    unit = clang.cindex.Index.create().parse(str(path), args=arguments, unsaved_files=[(str(path), source.decode())])
    errors = [str(found) for found in unit.diagnostics if found.severity >= clang.cindex.Diagnostic.Error]
    if errors:
        raise ValueError("\n".join(errors))
    root = Node(unit.cursor, None, source)
    return [node for node in root.children if node.cursor.location.file and node.cursor.location.file.name == str(path)]
