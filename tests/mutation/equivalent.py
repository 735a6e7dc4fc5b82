"""The list of mutants that no test can tell from the original, each with its reason.

A reason is one or more lines that begin with "# "; the mutants below it, one a line, have it, up to an empty line.
"""

import dataclasses


@dataclasses.dataclass(frozen=True)
class Entry:
    key: str
    reason: str
    line: int  # of the list

    @property
    def file(self):
        return self.key.split(": ", 1)[0]


def read(text):
    """The entries of a list. Raises ValueError for a mutant without a reason, and for one that stands there twice."""
    entries, reason, in_reason = {}, "", False
    for number, line in enumerate(text.splitlines(), 1):
        line = line.strip()
        if line.startswith("#"):
            reason = (reason + " " if in_reason else "") + line.lstrip("# ")
        elif not line:
            reason = ""
        elif not reason:
            raise ValueError(f"line {number} has no reason above it: {line}")
        elif line in entries:
            raise ValueError(f"line {number} stands in line {entries[line].line} too: {line}")
        else:
            entries[line] = Entry(line, reason, number)
        in_reason = line.startswith("#")
    return entries


def stale(entries, tree, files, keys):
    """The entries that name no mutant: those of files that are not in the tree, and of the looked-at `files` those without one
    of the `keys`."""
    return [entry for entry in entries.values()
            if not (tree / entry.file).exists() or (entry.file in files and entry.key not in keys)]
