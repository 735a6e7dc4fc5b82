"""One change of one source file."""

import dataclasses
import re

SHOWN = 160  # characters of a long change


@dataclasses.dataclass(frozen=True)
class Mutant:
    file: str  # relative to the tree
    function: str  # the function that the change is in, "-" outside of every function
    first: int  # the function's first and last line, 0 outside
    last: int
    line: int  # the first line of the change
    operator: str
    start: int  # the bytes of the file that are replaced
    end: int
    text: bytes  # by these
    before: str  # the lines of the change, as one line without indentation
    after: str
    frame: tuple = None  # how it is chosen among many in one text: (mode, start, end), see frames.py
    ordinal: int = 1  # which one of those of the same key, counted from 1 in the order of the file

    @property
    def key(self):
        """What the mutant is called in the list of equivalents: it stays as long as the changed lines do."""
        again = f" [{self.ordinal}]" if self.ordinal > 1 else ""
        return f"{self.file}: {self.function}: {self.operator}: {self.before} ==> {self.after}{again}"

    def __str__(self):
        return self.key.replace(self.file, f"{self.file}:{self.line}", 1)

    def apply(self, source):
        return source[: self.start] + self.text + source[self.end :]


def one_line(text):
    line = re.sub(r"\s+", " ", text.decode(errors="replace")).strip()
    if not line:
        return "(nothing)"
    return line if len(line) <= SHOWN else line[: SHOWN - 2] + " …"


def shown(source, start, end, text):
    """The lines of a change before and after it."""
    begin = source.rfind(b"\n", 0, start) + 1
    finish = source.find(b"\n", end)
    finish = len(source) if finish < 0 else finish
    return one_line(source[begin:finish]), one_line(source[begin:start] + text + source[end:finish])


def numbered(mutants):
    """The mutants in the order of the file, each change once, with their ordinals."""
    result, seen, changes = [], {}, set()
    for mutant in sorted(mutants, key=lambda one: (one.start, one.end, one.operator, one.text)):
        change = (mutant.start, mutant.end, mutant.text)
        if change in changes:
            continue
        changes.add(change)
        seen[mutant.key] = seen.get(mutant.key, 0) + 1
        result.append(dataclasses.replace(mutant, ordinal=seen[mutant.key]))
    return result
