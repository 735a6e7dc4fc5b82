"""Checks which folder includes which: the arrows of the architecture, and no third-party header in the subsystems."""

import pathlib
import re
import subprocess
import sys

CONTRACTS = {path.name for path in pathlib.Path("platform/include").glob("*.h")}

# For each folder, the folders of this tree that it may include besides itself.
ALLOWED = {
    "base": set(),
    "http": {"base"},
    "shell": {"base"},
    "upload": {"base", "http", "shell"},
    "serial": {"base", "shell"},
    "cloudproxy": {"base", "shell"},
    "program": {"base", "http", "shell", "upload", "serial", "cloudproxy"},
    "platform/include": set(),
    "platform/linux": {"base"},
    "tools": {"base", "http", "serial"},
}
SUBSYSTEMS = {"base", "http", "shell", "upload", "serial", "cloudproxy", "program", "platform/include"}

# The headers of the C++ standard library and of POSIX that the subsystems use.
STANDARD = re.compile(
    r"c?(assert|ctype|errno|limits|stdarg|stddef|stdint|stdio|stdlib|string|time|inttypes|signal)(\.h)?"
    r"|algorithm|array|atomic|cinttypes|deque|exception|functional|iterator|limits|list|map|memory|mutex|new|set"
    r"|sstream|string|string_view|system_error|type_traits|typeinfo|unordered_map|utility|vector|chrono|thread|condition_variable|tuple|optional"
    r"|dirent\.h|fcntl\.h|poll\.h|pthread\.h|termios\.h|unistd\.h|netdb\.h|ifaddrs\.h"
    r"|(arpa|net|netinet|sys)/\w+\.h")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)


def folder_of(path):
    for folder in sorted(ALLOWED, key=len, reverse=True):
        if path.startswith(folder + "/"):
            return folder
    return None


def violations(path, text):
    home = folder_of(path)
    for form, target in INCLUDE.findall(text):
        if form == "<":
            if home in SUBSYSTEMS and (home == "base" or target not in CONTRACTS) and not STANDARD.fullmatch(target):
                yield f"{path}: <{target}> is neither standard, POSIX nor a header that {home} may use"
            continue
        there = folder_of(target)
        if there is None:
            yield f'{path}: "{target}" is not written from the root of the tree'
        elif there != home and there not in ALLOWED[home]:
            yield f"{path}: {home} may not include {there} ({target})"


def main():
    files = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "--", "*.h", "*.cpp"],
                           check=True, capture_output=True, text=True).stdout.split()
    found = [line for path in files if folder_of(path) and pathlib.Path(path).exists()
             for line in violations(path, pathlib.Path(path).read_text())]
    for line in found:
        print(line, file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
