"""What the program says when something fails: the texts in the sources, and those that the documents explain."""

import re

import jxdocuments
import jxtest

LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
STATEMENT = r'\b(?:{})\b(?:"(?:[^"\\\n]|\\.)*"|[^;"])*;'
NORETURN = re.compile(r"\[\[noreturn\]\] void (\w+)\(")
SUBSYSTEMS = ("program", "shell", "http", "upload", "serial", "cloudproxy", "platform/linux")
# What stands beside a failure, or says that there is none.
OTHER = {"List of installed applications", "(manifest unreadable)", "bytes, sha256", "unknown reason", "an unreadable date",
         ".zip", "the removal of"}
# Of jxpush: what is sent or shown when all is well.
NO_FAILURES = {"multipart_body.cpp", "options.cpp", "progress.cpp", "result_output.cpp"}


def code(path):
    """A source without comments and preprocessor lines, adjoining literals joined."""
    text = re.sub(r"^\s*#.*$|(?<!:)//.*$", "", path.read_text(), flags=re.M)
    return re.sub(r'"\s*\n\s*"', "", text)


def sources(folder):
    return sorted((jxtest.SOURCE / folder).rglob("*.cpp"))


def fragments(text, wanted):
    """The literals that `wanted` matches, cut where something is put in."""
    for literal in filter(wanted.search, LITERAL.findall(text)):
        if "Usage: " in literal or "<" in literal:
            continue
        for piece in re.split(r"%[a-z]|\\n", literal.replace('\\"', '"').removeprefix("Error: ")):
            piece = piece.strip(" :,")
            if re.search("[A-Za-z]", piece) and piece not in OTHER:
                yield piece


def failing_statements(path, extra):
    """Those that throw, by themselves or through a function that does not return, and those that begin with `extra`."""
    text = code(path)
    names = [r"throw [\w:]+", *extra, *(re.escape(name) for name in NORETURN.findall(text))]
    return "".join(re.findall(STATEMENT.format("|".join(names)), text))


def installer_texts():
    some, several = re.compile(r"[A-Za-z]"), re.compile(r"\w \w")
    for path in sources("platform/linux/jxapp"):
        if path.name == "certificates.cpp":  # looks for texts and says none
            continue
        yield from fragments(failing_statements(path, []), some)
        yield from fragments(code(path), several)


def sender_texts():
    spoken = re.compile(r" .*[A-Za-z]|[A-Za-z].* ")
    for path in sources("tools/jxpush"):
        if path.name not in NO_FAILURES:
            yield from fragments(failing_statements(path, ["return"]), spoken)


def journal_texts():
    for folder in SUBSYSTEMS:
        for path in sources(folder):
            said = "".join(re.findall(STATEMENT.format(r"fprintf\(stderr"), code(path)))
            yield from fragments(said, re.compile(r"[A-Za-z]"))


def rows(name, heading):
    """The rows of a document's tables below a heading, until the next of its level."""
    text = (jxtest.SOURCE / name).read_text()
    section = text[text.index(f"\n{heading}\n") + 1:]
    end = re.search(rf"^{heading.split()[0]} ", section[1:], re.M)
    return re.findall(r"^\| .*`.*$", section[:end.start() + 1] if end else section, re.M)


def explained(name, heading):
    """The texts in the first column of the tables, cut where something is put in, each with its row."""
    found = []
    for row in rows(name, heading):
        for text in re.findall(r"`([^`]+)`", row.split(" | ")[0]):
            pieces = re.split(r"…|\bN\b", text)
            found += [(piece.strip(" :,"), row) for piece in pieces if piece.strip(" :,")]
    return found


def explained_failures():
    return (explained("docs/operating.md", "## What failures look like") +
            explained("docs/technician.md", "## What the results mean"))


def explained_signatures():
    """Likewise those of the faults of signatures, whose common beginnings are texts of their own in the source too."""
    begins = ("is signed by a certificate", "whose revocation list in certs/")
    found = {*begins, "is signed through a certificate"}
    for text, _ in explained("docs/packages.md", "## Messages"):
        for piece in re.split(r'TIME|REASON|SHA1|NAME|: "CN=\.\.\."', text):
            found.add(piece.strip(" :,"))
            for begin in begins:
                piece = piece.strip(" :,").removeprefix(begin)
                found.add(piece.strip(" :,"))
    return found
