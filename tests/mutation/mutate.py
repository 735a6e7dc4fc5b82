"""Changes the program in one place at a time and looks whether the unit tests notice.

    mutate.py BUILD-FOLDER [FOLDER or FILE...] [--seconds N] [--seed N]
"""

import argparse
import os
import pathlib
import sys

import equivalent
from campaign import Campaign
from operators import mutants
from pool import Failure
from project import Project

SOURCE = pathlib.Path(__file__).resolve().parents[2]
LIST = pathlib.Path(__file__).with_name("equivalent.txt")
FOLDERS = ["shell", "http", "upload", "serial", "cloudproxy", "platform/linux/zoripc", "platform/linux/jxapp", "tools/jxpush"]

# What tests of whole processes alone hold to its word (tests/system/push_*.py): looked at only where it is named itself.
BY_PROCESSES = {"tools/jxpush/" + name + ".cpp" for name in (
    "main", "make_target", "common/options", "http/exchange", "http/status", "http/target", "http/terminal_connect",
    "http/terminal_stream", "output/result_output", "serial/port_owner", "serial/target")}


def options(arguments):
    parser = argparse.ArgumentParser(prog="./jx mutate", description="Changes the program in one place at a time, runs the unit "
                                     "tests that reach the place, and prints the changes that no test notices.")
    parser.add_argument("build", help=argparse.SUPPRESS)
    parser.add_argument("folders", nargs="*", metavar="FOLDER", help="a folder or a source file; without one, all of: " + " ".join(FOLDERS))
    parser.add_argument("--seconds", type=float, metavar="N", help="stop after N seconds, with as many mutants as fit, chosen by the seed")
    parser.add_argument("--seed", default="1", metavar="N", help="what the choice and the order depend on (1)")
    parser.add_argument("--count", type=int, metavar="N", help="try N mutants, of some files of each folder, chosen by the seed")
    parser.add_argument("--sample", action="store_true", help="the same as --count 360 --seed 1 --at-least 90")
    parser.add_argument("--at-least", type=float, metavar="PERCENT", help="end with code 1 where fewer are killed")
    parser.add_argument("--again", action="store_true", help="only those that survived the last time")
    parser.add_argument("--equivalents", action="store_true", help="only those in the list of equivalents: none of them may be killed")
    parser.add_argument("--list", action="store_true", help="print the mutants and run nothing")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), metavar="N", help="how many at a time (one for each processor)")
    chosen = parser.parse_intermixed_args(arguments)
    if chosen.sample:
        chosen.count, chosen.seed, chosen.at_least = 360, "1", 90.0
    return chosen


def say(text):
    print(text, file=sys.stderr, flush=True)


def all_mutants(project, files):
    found = []
    for file in files:
        found += mutants(file, project.source / file, project.text(file), project.arguments(file))
    return found


def owner(file):
    """The folder whose unit tests a file is held to."""
    return next((folder for folder in FOLDERS if file.startswith(folder + "/")), os.path.dirname(file))


def main(arguments, source=SOURCE, listed=LIST):
    chosen = options(arguments)
    project = Project(source, pathlib.Path(chosen.build).resolve())
    place = project.build.parent / "mutation"
    files = {}
    for name in chosen.folders or FOLDERS:
        name = os.path.relpath(name, source) if os.path.isabs(name) else name.rstrip("/")
        if not project.files(name):
            raise Failure(f"nothing is compiled in {name}")
        files.update({file: owner(file) for file in project.files(name) if file == name or file not in BY_PROCESSES})
    entries = equivalent.read(listed.read_text())
    found = all_mutants(project, files)
    gone = equivalent.stale(entries, source, files, {one.key for one in found})
    if gone:
        raise Failure("\n".join(f"{listed.name}:{entry.line}: no such mutant is left: {entry.key}" for entry in gone))
    campaign = Campaign(project, place, entries, chosen)
    found = campaign.choose(found, files)
    if chosen.list:
        print("\n".join(map(str, found)))
        return 0
    return campaign.run(files, found)


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except (Failure, ValueError) as failure:
        sys.exit(f"mutate: {failure}")
    except KeyboardInterrupt:
        sys.exit(130)
