"""Checks which folder includes which: the arrows of the architecture, none of which runs up or in a circle, and no third-party
header in the subsystems."""

import pathlib
import re
import subprocess
import sys

CONTRACTS = {path.name for path in pathlib.Path("platform/include").glob("*.h")}

# For each room, the rooms of this tree that it may include besides itself. A room is a folder, with the folders in it that
# are no rooms themselves.
ALLOWED = {
    "base": set(),
    "http": {"base"},
    "shell": {"base"},
    "upload": {"base", "http", "shell"},
    "serial": {"base", "shell"},
    "cloudproxy": {"base", "shell"},
    "program": {"base", "http", "shell", "upload", "serial", "cloudproxy"},
    "platform/include": set(),
    "platform/linux/support": {"base"},
    "platform/linux/openssl": {"base"},
    "platform/linux/zorhtml": {"base", "platform/linux/support"},
    "platform/linux/jsproc": {"base", "platform/linux/support", "platform/linux/zorhtml"},
    "platform/linux/jxapp": {"base", "platform/linux/openssl", "platform/linux/support"},
    "platform/linux/zorguiprt": {"base", "platform/linux/support", "platform/linux/zorhtml"},
    "platform/linux/zoripc": {"base", "platform/linux/support"},
    "platform/linux/zorplatforminfo": {"base", "platform/linux/support"},
    "platform/linux/zorsec": {"base", "platform/linux/support"},
    "platform/linux/services/cloudproxyd": {"base", "platform/linux/openssl", "platform/linux/support"},
    "platform/linux/services/controllerd": {"base", "platform/linux/support"},
    "tools/jxpack": {"base", "platform/linux/jxapp", "platform/linux/openssl", "platform/linux/support"},
    "tools/jxpush": {"base", "tools/jxpush/common", "tools/jxpush/fleet", "tools/jxpush/http", "tools/jxpush/output",
                     "tools/jxpush/serial"},
    "tools/jxpush/common": {"base", "platform/linux/openssl"},
    "tools/jxpush/fleet": {"base", "tools/jxpush/common", "tools/jxpush/output"},
    "tools/jxpush/http": {"base", "http", "platform/linux/openssl", "tools/jxpush/common", "upload"},
    "tools/jxpush/output": {"base", "tools/jxpush/common"},
    "tools/jxpush/serial": {"base", "serial", "tools/jxpush/common"},
    "bench/http": {"base", "http", "shell", "upload"},
    "bench/serial": {"base", "serial"},
    "fuzz": {"base", "http", "shell", "upload", "serial", "cloudproxy", "platform/linux/jxapp", "platform/linux/zorguiprt",
             "platform/linux/zorhtml", "platform/linux/services/cloudproxyd", "platform/linux/services/controllerd",
             "tools/jxpush/http", "tests/support"},
    "tests/model": {"base", "upload", "tests/support"},
    "tests/mutation": {"base"},
    "tests/support": {"base", "http", "serial", "cloudproxy", "platform/linux/jxapp", "platform/linux/support"},
}
SUBSYSTEMS = {"base", "http", "shell", "upload", "serial", "cloudproxy", "program", "platform/include"}
# What a unit test includes beyond its room and what that may include.
BESIDE = {
    "tools/jxpush": {"serial"},  # what the parts' tests share
}

# The headers of the C++ standard library and of POSIX that the subsystems use.
STANDARD = re.compile(
    r"c?(assert|ctype|errno|limits|stdarg|stddef|stdint|stdio|stdlib|string|time|inttypes|signal)(\.h)?"
    r"|algorithm|array|atomic|cinttypes|deque|exception|functional|iterator|limits|list|map|memory|mutex|new|set"
    r"|sstream|stdexcept|string|string_view|system_error|type_traits|typeinfo|unordered_map|utility|vector|chrono|thread|condition_variable|tuple|optional"
    r"|dirent\.h|fcntl\.h|poll\.h|pthread\.h|termios\.h|unistd\.h|netdb\.h|ifaddrs\.h"
    r"|(arpa|net|netinet|sys)/\w+\.h")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)


def room_of(path):
    for room in sorted(ALLOWED, key=len, reverse=True):
        if path.startswith(room + "/"):
            return room
    return unit_tests_of(path) and str(pathlib.PurePath(path).parent)


def unit_tests_of(path):
    """The room whose unit tests the file is one of, if it is one."""
    found = re.fullmatch(r"tests/unit/(.+)/[^/]+", path)
    if not found:
        return None
    name = re.sub(r"^platform/(cloudproxyd|controllerd)$", r"platform/linux/services/\1", found[1])
    name = re.sub(r"^platform/(?!linux/)", "platform/linux/", name)
    return name if name in ALLOWED else None


def allowed_to(path):
    """The rooms that the file may include."""
    tested = unit_tests_of(path)
    if tested is None:
        return ALLOWED[room_of(path)]
    above = {str(folder) for folder in pathlib.PurePath(path).parent.parents if str(folder).startswith("tests/unit/")}
    return {tested, "tests/support"} | above | ALLOWED[tested] | BESIDE.get(tested, set())


def violations(path, text):
    room = room_of(path)
    if room is None:
        yield f"{path} is in no room"
        return
    for form, target in INCLUDE.findall(text):
        if form == "<":
            if room in SUBSYSTEMS and (room == "base" or target not in CONTRACTS) and not STANDARD.fullmatch(target):
                yield f"{path}: <{target}> is neither standard, POSIX nor a header that {room} may use"
            continue
        there = room_of(target)
        if there is None:
            yield f'{path}: "{target}" is not written from the root of the tree'
        elif there != room and there not in allowed_to(path):
            yield f"{path}: {room} may not include {there} ({target})"


def circles(texts):
    """The circles in which parts include each other, each as a list of parts: a part is a header with the source of its name.
    `texts` has each file's path and text."""
    arrows = {}
    for path, text in texts.items():
        part = str(pathlib.PurePath(path).with_suffix(""))
        targets = {str(pathlib.PurePath(target).with_suffix("")) for form, target in INCLUDE.findall(text) if form == '"'}
        arrows.setdefault(part, set()).update(targets - {part})
    done, found = set(), []

    def walk(part, way):
        if part in way:
            found.append(way[way.index(part):])
        elif part not in done:
            for target in sorted(arrows.get(part, ())):
                walk(target, [*way, part])
            done.add(part)

    for part in sorted(arrows):
        walk(part, [])
    return found


def main():
    files = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "--", "*.h", "*.cpp"],
                           check=True, capture_output=True, text=True).stdout.split()
    texts = {path: pathlib.Path(path).read_text() for path in files
             if pathlib.Path(path).exists() and not path.startswith("tests/mutation/sample/")}
    found = [line for path, text in texts.items() for line in violations(path, text)]
    found += ["in a circle: " + " -> ".join([*circle, circle[0]]) for circle in circles(texts)]
    for line in found:
        print(line, file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
