"""The documents as the tests see them: fenced blocks, links, and a copy of the tree in which commands are run."""

import pathlib
import re

SOURCE = pathlib.Path(__file__).resolve().parents[2]

# What may follow the language of a command block, and why such a block is not run here.
NOT_RUN = {
    "board": "needs a board: its serial lines, USB gadget, display or systemd",
    "root": "changes the machine's packages and services; the test of the packages runs it in a clean system",
    "build": "builds or tests the tree, which is what runs this test",
    "sdk": "builds against an SDK; the test with a stand-in of one runs it",
    "waiting": "is answered only while a request of the program waits; the service's own test runs it",
}
RUN = {
    "": "is run and succeeds",
    "stays": "is started, prints how to send the example, and runs until the document's end",
}
LANGUAGES = ("sh", "console", "http", "json", "text", "cpp", "cmake", "python", "html", "nginx", "nft")
FENCE = re.compile(r"^```(.*)$")
PRESS = re.compile(r"^<!-- press: (.*) -->$")


class Block:
    """A fenced block; `presses` are the pages and results that the operator gives before it."""

    def __init__(self, path, line, info, presses):
        words = info.split()
        self.place = f"{path.relative_to(SOURCE)}:{line}"
        self.language = words[0] if words else ""
        self.word = " ".join(words[1:])
        self.presses = presses
        self.lines = []

    @property
    def text(self):
        return "\n".join(self.lines) + "\n"


def documents():
    """What is written for readers."""
    top = [SOURCE / name for name in ("README.md", "CONTRIBUTING.md", "CHANGELOG.md")]
    return top + sorted((SOURCE / "docs").rglob("*.md"))


def blocks(path):
    found, block, presses = [], None, []
    for number, line in enumerate(path.read_text().splitlines(), 1):
        fence = FENCE.match(line.strip())
        if fence and block is None:
            block = Block(path, number, fence.group(1), presses)
            presses = []
        elif fence:
            found.append(block)
            block = None
        elif block is not None:
            block.lines.append(line)
        elif PRESS.match(line):
            presses = [step.split() for step in PRESS.match(line).group(1).split(", ")]
    if block is not None:
        raise AssertionError(f"{block.place}: a block without an end")
    return found


def prose(path):
    """The document's text without its blocks."""
    lines, inside = [], False
    for line in path.read_text().splitlines():
        if FENCE.match(line.strip()):
            inside = not inside
        elif not inside:
            lines.append(line)
    return "\n".join(lines)


def code_spans(path):
    return re.findall(r"`([^`\n]+)`", prose(path))


def anchors(path):
    """The anchors of a document's headings."""
    names = []
    for line in prose(path).splitlines():
        if re.match(r"^#+ ", line):
            heading = re.sub(r"[^\w\- ]", "", line.lstrip("#").strip().lower())
            names.append(heading.replace(" ", "-"))
    return names


def links(path):
    return re.findall(r"\]\(([^)\s]+)\)", prose(path))


def make_tree(root, build, name="tree"):
    """A tree to run commands in: this one by links, with `build` as build/release, and a `jx` that starts
    that build without building it."""
    tree = pathlib.Path(root) / name
    tree.mkdir()
    for entry in SOURCE.iterdir():
        if entry.name not in ("jx", "build", ".git"):
            (tree / entry.name).symlink_to(entry)
    (tree / "build").mkdir()
    (tree / "build/release").symlink_to(build)
    stand_in = tree / "jx"
    stand_in.write_text('#!/bin/sh\n[ "$1" = run ] || exit 2\nshift\nexec tools/run/terminal build/release "$@"\n')
    stand_in.chmod(0o755)
    return tree
