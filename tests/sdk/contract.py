"""What a program may need of the terminal's libraries: the names that the contract headers declare."""

import pathlib
import re

COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.S)
TOKEN = re.compile(r"namespace\s+(\w+)\s*\{|(?:class|struct)\s+(\w+)[^;{()]*\{|([{}])|(~?\w+|operator\s*[^\s\w(]+)\s*\(")


class Contract:
    """The functions and classes that the headers of a folder declare, by qualified name, with the library of each."""

    def __init__(self, folder):
        self.functions, self.classes = {}, {}
        for header in sorted(pathlib.Path(folder).glob("*.h")):
            self._read(COMMENT.sub("", header.read_text()), header.stem)

    def _read(self, text, library):
        scopes = []  # the names of the open braces; empty ones are bodies
        for space, kind, brace, function in TOKEN.findall(text):
            if space or kind:
                scopes.append(space or kind)
                if kind:
                    self.classes["::".join(filter(None, scopes))] = library
            elif brace == "{":
                scopes.append("")
            elif brace == "}":
                if scopes:
                    scopes.pop()
            elif "" not in scopes:
                self.functions["::".join([*scopes, re.sub(r"\s", "", function)])] = library

    def library_of(self, demangled):
        """The library that a symbol belongs to; None when no header declares it."""
        table = re.fullmatch(r"(?:vtable|typeinfo|typeinfo name) for (.+)", demangled)
        if table:
            return self.classes.get(table[1])
        name = demangled.replace("[abi:cxx11]", "")
        match = re.match(r"((?:\w+::)*(?:operator\(\)|operator[^\s\w(]+|~?\w+))(?:\(|$)", name)
        return self.functions.get(match[1]) if match else None
