"""The tests that concern folders, and what must be built for them.

    concerning.py BUILD_FOLDER FOLDER...     of these folders, or files
    concerning.py BUILD_FOLDER --changed     of the files that differ from the last commit
    concerning.py --unknown FOLDER...        tells of the first that no test concerns, and ends with 1; needs no build

Prints a line for ctest, a pattern of names, and a line for the build, its targets. What is chosen takes seconds: the unit tests of
the folder itself, its fuzzers' corpora, and what is short of the tests of whole programs. `./jx test` runs everything.
"""

import json
import pathlib
import re
import subprocess
import sys

SOURCE = pathlib.Path(__file__).resolve().parents[2]

# A folder of the program, and the tests of it. The longest name that fits a file counts.
FOLDERS = {
    "base": r"unit\.base",
    "http": r"unit\.http(\.\w+)?|fuzz\.(request_head|body_framing|base64|url|next_param)|model\.compare",
    "shell": r"unit\.shell(\.\w+)?",
    "upload": r"unit\.upload(\.\w+)?|fuzz\.(connection|multipart)|model\.compare",
    "serial": r"unit\.serial(\.\w+)?|fuzz\.serial",
    "cloudproxy": r"unit\.cloudproxy(\.\w+)?|fuzz\.notification",
    "program": r"unit\.program|system\.startup",
    "platform/include": r"check\.sdk|unit\.platform\..*",
    "platform/linux/jsproc": r"unit\.platform\.jsproc",
    "platform/linux/jxapp": r"unit\.platform\.jxapp|fuzz\.package|system\.installer",
    "platform/linux/openssl": r"unit\.platform\.(openssl|jxapp|cloudproxyd)|unit\.tools\..*",
    "platform/linux/services/cloudproxyd": r"unit\.platform\.cloudproxyd|fuzz\.notification",
    "platform/linux/services/controllerd": r"unit\.platform\.controllerd|system\.controllerd",
    "platform/linux/support": r"unit\.platform\..*",
    "platform/linux/zorguiprt": r"unit\.platform\.zorguiprt|fuzz\.screen_request|system\.screen_life",
    "platform/linux/zorhtml": r"unit\.platform\.zorhtml|fuzz\.page",
    "platform/linux/zoripc": r"unit\.platform\.zoripc|system\.notifications",
    "platform/linux/zorplatforminfo": r"unit\.platform\.zorplatforminfo",
    "platform/linux/zorsec": r"unit\.platform\.zorsec",
    "tools/jxpack": r"unit\.tools\.jxpack|system\.pack",
    "tools/jxpush": r"unit\.tools\.jxpush(\.\w+)?|fuzz\.answer_page",
    "pages": r"browser\.pages|browser\.operating",
    "tools/run": r"system\.run",
    "fuzz": r"fuzz\..*",
    "docs": r"check\.test_names|system\.manuals",
    "tests/check": r"check\.(arrows|concerning|lint|test_names|posix)",
    "tests/coverage": r"check\.coverage",
    "tests/model": r"model\.compare",
    "tests/mutation": r"check\.mutation_\w+",
    "tests/sdk": r"check\.sdk",
}
# Folders and files that reach everything.
EVERYTHING = ("cmake", "tests/support", "CMakeLists.txt", "CMakePresets.json")
# A file that is a test or its data, and the test.
OWN_TEST = (
    (re.compile(r"tests/(system|browser)/(?!jx)(\w+)\.(?:py|test\.js)"), r"\1\.\2"),
    (re.compile(r"jx"), "system.run"),
    (re.compile(r"fuzz/corpus/(\w+)/.*"), r"fuzz\.\1"),
    (re.compile(r"fuzz/(?:dictionaries/)?(\w+)\.(?:cpp|dict)"), r"fuzz\.\1"),
)


class Unknown(Exception):
    """A folder that no test concerns."""


def program_folder(name):
    """The folder of the program that a unit test's folder mirrors, or the folder itself."""
    inner = name.removeprefix("tests/unit/")
    if inner == name:
        return name
    inner = re.sub(r"^platform/(cloudproxyd|controllerd)\b", r"platform/linux/services/\1", inner)
    return re.sub(r"^platform/(?!linux/)", "platform/linux/", inner)


def pattern(name):
    """The pattern of the tests that concern a folder or a file, written from the root of the tree."""
    for form, test in OWN_TEST:
        if form.fullmatch(name):
            return form.sub(test, name)
    folder = program_folder(name.rstrip("/"))
    inside = [tests for known, tests in FOLDERS.items() if known.startswith(folder + "/")]
    if inside:  # such as platform/linux
        return "|".join(inside)
    for known in sorted(FOLDERS, key=len, reverse=True):
        if folder == known or folder.startswith(known + "/"):
            return FOLDERS[known]
    raise Unknown(name)


def concerns_everything(name):
    return any(name == whole or name.startswith(whole + "/") for whole in EVERYTHING) or name.endswith("/CMakeLists.txt")


def changed():
    """The files that differ from the last commit, those that git does not know yet among them."""
    told = subprocess.run(["git", "status", "--porcelain", "-z", "--untracked-files=all", "--no-renames"], cwd=SOURCE,
                          check=True, capture_output=True, text=True).stdout
    return [entry[3:] for entry in told.split("\0") if entry]


def of_files(names):
    """The patterns for changed files, and the files that no test concerns."""
    patterns, without = [], []
    for name in names:
        try:
            patterns.append(pattern(name))
        except Unknown:
            without.append(name)
    return patterns, without


def target(test):
    """What the build makes for a test, if anything."""
    if test.startswith(("unit.", "fuzz.")):
        return test.replace(".", "_")
    if test.startswith(("system.", "browser.")) or test == "check.posix":
        return "programs"
    return "model_driver" if test == "model.compare" else None


def targets(build, chosen):
    """What must be built for the tests of that pattern."""
    told = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"], check=True, capture_output=True, text=True).stdout
    names = [test["name"] for test in json.loads(told)["tests"]]
    return sorted(set(filter(None, (target(name) for name in names if re.fullmatch(chosen, name)))))


def stop(text):
    sys.exit(f"./jx test: {text}")


def tell_unknown(names):
    for name in names:
        try:
            pattern(name)
        except Unknown:
            print(f"no test concerns \"{name}\": there are tests of {' '.join(FOLDERS)}")
            return 1
    return 0


def main():
    if sys.argv[1] == "--unknown":
        sys.exit(tell_unknown(name for name in sys.argv[2:] if name != "--changed"))
    build, names = pathlib.Path(sys.argv[1]), sys.argv[2:]
    if names == ["--changed"]:
        names = changed()
        whole = [name for name in names if concerns_everything(name)]
        if whole:
            stop(f"{', '.join(whole)} may change anything: ./jx test runs every test")
        patterns, without = of_files(names)
        for name in without:
            print(f"No test concerns {name} alone: ./jx test runs every test", file=sys.stderr)
        if not patterns:
            stop("nothing has changed that a test concerns: ./jx test runs every test")
    else:
        patterns = [pattern(name) for name in names]
    chosen = "|".join(dict.fromkeys(patterns))
    print(f"^({chosen})$")
    print(*targets(build, chosen))


if __name__ == "__main__":
    main()
