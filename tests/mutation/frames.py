"""Puts many mutants of a file into one text, of which the running program chooses one by the number `jx_mutant`.

A mutant has a frame where that is possible: the expression or statement around its change, and how the two are chosen from. One
compilation then serves them all. Lines stay where they are, so that the compiler's errors tell which frames it does not take.
"""

import dataclasses

# How a frame chooses, the outermost of equal extent first.
MODES = ("swap", "leave", "result", "drop", "truth", "value")
DECLARATION = b'extern "C" { extern int jx_mutant; } '


@dataclasses.dataclass
class Frame:
    mode: str
    start: int
    end: int
    choices: list  # pairs of a mutant's number and the text that stands in the frame's place
    inside: list = dataclasses.field(default_factory=list)

    def render(self, source):
        inner = rendered(source, self.start, self.end, self.inside)
        if self.mode in ("value", "truth"):
            cast = b"static_cast<bool>" if self.mode == "truth" else b""
            tests = b"".join(b"jx_mutant == %d ? %s(%s) : " % (number, cast, text) for number, text in self.choices)
            return b"(" + tests + cast + b"(" + inner + b"))"
        if self.mode == "drop":
            return b"static_cast<void>(jx_mutant == %d ? static_cast<void>(0) : static_cast<void>(%s))" % (self.choices[0][0], inner)
        if self.mode == "leave":
            return b"{ if (jx_mutant != %d) %s }" % (self.choices[0][0], inner)
        if self.mode == "swap":
            return b"if (jx_mutant == %d) { %s } else { %s }" % (*self.choices[0], inner)
        tests = b"".join(b"if (jx_mutant == %d) %s " % choice for choice in self.choices)
        return b"{ " + tests + inner + b" }"


def rendered(source, start, end, frames):
    text, at = b"", start
    for frame in frames:
        text += source[at : frame.start] + frame.render(source)
        at = frame.end
    return text + source[at:end]


def choice(source, mutant):
    """The text that stands in the place of the mutant's frame, in one line; None where it cannot be."""
    mode, start, end = mutant.frame
    if mode == "result":
        text = b"return " + mutant.text + b";"
    else:
        text = source[start : mutant.start] + mutant.text + source[mutant.end : end]
    if b"\n" in text and (b"//" in text or b"#" in text or b'R"' in text):
        return None
    return text.replace(b"\n", b" ")


def nested(source, mutants):
    """The frames of the mutants, a mapping of numbers, one inside another; and the numbers of those that have a place."""
    frames = {}
    for number, mutant in mutants.items():
        text = choice(source, mutant) if mutant.frame else None
        if text is not None:
            mode, start, end = mutant.frame
            frames.setdefault((start, -end, MODES.index(mode)), Frame(mode, start, end, [])).choices.append((number, text))
    outermost, open_frames, placed = [], [], set()
    for _, frame in sorted(frames.items()):
        while open_frames and open_frames[-1].end <= frame.start:
            open_frames.pop()
        if open_frames and frame.end > open_frames[-1].end:
            continue  # it overlaps with another one
        (open_frames[-1].inside if open_frames else outermost).append(frame)
        open_frames.append(frame)
        placed.update(number for number, _ in frame.choices)
    return outermost, placed


def combined(source, mutants, head):
    """The text with all mutants in it that have a place, and their numbers. `head` is where the file's inclusions end."""
    outermost, placed = nested(source, mutants)
    return source[:head] + DECLARATION + rendered(source, head, len(source), outermost), placed


def on_lines(source, mutants, lines):
    """The numbers of the mutants whose frames reach into these lines."""
    found = set()
    for number, mutant in mutants.items():
        if mutant.frame:
            first = source.count(b"\n", 0, mutant.frame[1]) + 1
            last = first + source.count(b"\n", mutant.frame[1], mutant.frame[2])
            if any(first <= line <= last for line in lines):
                found.add(number)
    return found
