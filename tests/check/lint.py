"""Runs clang-tidy over every .cpp file of a build and prints what it finds. Usage: lint.py BUILD_FOLDER

Most of clang-tidy's time goes into the headers that a file includes, GoogleTest's above all. So files that are compiled alike are
written one behind the other into one, up to LINES lines of them. A file that does not go with those before it (two of them have a
name for themselves alone) goes into another one. Files in which something is found in this way are read again, each by itself:
what is found then is what counts, since a file may read differently behind others.
"""

import bisect
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

LINES = 3000
FINDING = re.compile(r"(\S+?):(\d+):(\d+): (?:warning|error): (.*)")
NO_COMPILATION = "[clang-diagnostic-error]"
CHEAPEST = "-checks=-*,misc-unused-alias-decls"  # it wants to be told of one at least


def options(command):
    """What of a compiler's command line decides what the file means; alike for those that differ in order alone."""
    words, kept = iter(shlex.split(command)), set()
    for word in words:
        if word in ("-isystem", "-include"):
            kept.add((word, next(words)))
        elif word.startswith(("-I", "-std=")) or word.startswith("-D") and not word.endswith("_EXPORTS"):
            kept.add((word,))
    return tuple(word for option in sorted(kept) for word in option)


def settings(source, path):
    """The .clang-tidy that holds for a file."""
    return next(folder / ".clang-tidy" for folder in path.parents if (folder / ".clang-tidy").exists() or folder == source)


def groups(source, commands):
    """The files that can be read as one: options, settings, files. COMMANDS are the entries of compile_commands.json."""
    found = collections.defaultdict(list)
    for file, command in sorted({entry["file"]: entry["command"] for entry in reversed(commands)}.items()):
        path = pathlib.Path(file)
        if path.suffix == ".cpp" and source in path.parents and source / "build" not in path.parents:
            found[options(command), settings(source, path)].append(path)
    for (flags, tidy), paths in found.items():
        group, lines = [], 0
        for path in paths:
            length = path.read_text().count("\n")
            if group and lines + length > LINES:
                yield flags, tidy, group
                group, lines = [], 0
            group.append(path)
            lines += length
        yield flags, tidy, group


class Joined:
    """Several files as one, and the way back."""

    def __init__(self, file, paths):
        self.file, self.paths, self.begins = file, paths, []
        text, line = "", 1
        for number, path in enumerate(paths):
            head = f"#define JX_FILE_{number}\n"  # where an include may stand a second time
            self.begins.append(line + 1)
            content = path.read_text()
            text += head + content
            line += 1 + content.count("\n")
        file.write_text(text)

    def origin(self, name, line):
        """The file of the tree and the line there."""
        if pathlib.Path(name) != self.file:
            return pathlib.Path(name), line
        at = bisect.bisect_right(self.begins, line) - 1
        return self.paths[at], line - self.begins[at] + 1


def tidied(source, folder, group, *arguments):
    """What clang-tidy finds in a group of files: (file, line, column, text)."""
    flags, tidy, paths = group
    folder.mkdir(parents=True, exist_ok=True)
    (folder / ".clang-tidy").write_text(tidy.read_text())
    joined = Joined(folder / "joined.cpp", paths)
    done = subprocess.run(["clang-tidy", "-quiet", *arguments, joined.file, "--", "-ferror-limit=0", *flags], cwd=source,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
    return {(*joined.origin(name, int(line)), int(column), text) for name, line, column, text in FINDING.findall(done.stdout)}


def split(source, folder, group):
    """Groups of the files that compile as one, of a group that may not."""
    flags, tidy, paths = group
    broken = {file for file, _, _, text in tidied(source, folder, group, CHEAPEST) if text.endswith(NO_COMPILATION)}
    apart = [path for path in paths[1:] if path in broken]
    if not apart:
        yield group
        return
    yield flags, tidy, [path for path in paths if path not in apart]
    yield from split(source, folder, (flags, tidy, apart))


def suspects(source, folder, group):
    """The files of a group that have to be read by themselves."""
    found = set()
    for part in split(source, folder, group):
        places = {file for file, _, _, _ in tidied(source, folder, part)}
        paths = set(part[2])
        found |= paths if places - paths else paths & places  # what is found in a header may be any file's
    return found


def alone(source, build, path):
    """What clang-tidy finds in a file by itself."""
    done = subprocess.run(["clang-tidy", "-quiet", "-p", build, path], cwd=source, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True, check=False)
    return {(pathlib.Path(name), int(line), int(column), text) for name, line, column, text in FINDING.findall(done.stdout)}


def lint(source, build):
    """What clang-tidy finds in a build's files, as lines for a reader."""
    commands = json.loads((build / "compile_commands.json").read_text())
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        runs = [pool.submit(suspects, source, build / "lint" / str(number), group)
                for number, group in enumerate(groups(source, commands))]
        paths = sorted(set().union(*(run.result() for run in runs)))
        found = set().union(*pool.map(lambda path: alone(source, build, path), paths))
    return [f"{os.path.relpath(file, source)}:{line}:{column}: {text}" for file, line, column, text in sorted(found)]


def main():
    source = pathlib.Path(__file__).resolve().parents[2]
    found = lint(source, pathlib.Path(sys.argv[1]).resolve())
    print(*found, sep="\n", end="\n" if found else "", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
