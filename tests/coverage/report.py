"""Reports how much of the program the tests of a coverage build have run, and fails below the marks.

    report.py BUILD-FOLDER

Branches that only an exception takes, and those on lines without code, are left out, as `gcovr --exclude-throw-branches
--exclude-unreachable-branches` does. Every line that was not run needs a row in docs/coverage.md, by file and function.
"""

import json
import pathlib
import re
import subprocess
import sys

SOURCE = pathlib.Path(__file__).resolve().parents[2]
REASONS = SOURCE / "docs/coverage.md"
FOLDERS = ("program", "shell", "http", "upload", "serial", "cloudproxy")
LINES_AT_LEAST = 95.0
BRANCHES_AT_LEAST = 90.0


def counted(build):
    """What gcovr finds, file by file."""
    command = ["gcovr", "--json", "--root", str(SOURCE), "--exclude-throw-branches", "--exclude-unreachable-branches",
               *(argument for folder in FOLDERS for argument in ("--filter", f"{SOURCE}/{folder}/")), str(build)]
    return json.loads(subprocess.run(command, check=True, capture_output=True, text=True).stdout)["files"]


def plain_name(name):
    """A demangled function's name without its result, arguments, template arguments and unnamed namespaces."""
    name = name.replace("(anonymous namespace)::", "")
    inner = 1
    while inner:
        name, inner = re.subn(r"<[^<>]*>|\[[^\[\]]*\]", "", name)
    return name.split("(")[0].strip().split(" ")[-1]


class File:
    def __init__(self, record):
        self.name = record["file"]
        self.lines = [line for line in record["lines"] if not line.get("gcovr/noncode")]
        self.functions = sorted((function["lineno"], plain_name(function["name"])) for function in record["functions"])
        self.branches = [branch for line in self.lines for branch in line["branches"]]

    def function_at(self, number):
        begun = [name for line, name in self.functions if line <= number]
        return begun[-1] if begun else "-"

    def missing(self):
        """The lines not run, by function."""
        result = {}
        for line in self.lines:
            if line["count"] == 0:
                result.setdefault(self.function_at(line["line_number"]), []).append(line["line_number"])
        return result

    def missing_branches(self):
        return [line["line_number"] for line in self.lines if line["count"] and
                any(branch["count"] == 0 for branch in line["branches"])]


def share(part, whole):
    return 100.0 * part / whole if whole else 100.0


def row(name, files):
    lines = [line for file in files for line in file.lines]
    branches = [branch for file in files for branch in file.branches]
    run = sum(line["count"] > 0 for line in lines)
    taken = sum(branch["count"] > 0 for branch in branches)
    of_lines, of_branches = share(run, len(lines)), share(taken, len(branches))
    print(f"{name:<12}{run:>6} of {len(lines):<6}{of_lines:>6.1f} %{taken:>8} of {len(branches):<6}{of_branches:>6.1f} %")
    return of_lines, of_branches


def read_reasons(text):
    """The pairs of file and function in the table's rows that begin with a file's name in backticks."""
    return set(re.findall(r"^\| `([^`]+)` \| `([^`]+)` \| [^|\s]", text, re.M))


def report(files, reasons):
    """Prints the report; returns what is wrong, as lines."""
    print(f"{'':<12}{'lines':>12}{'':>13}{'branches':>13}")
    for folder in FOLDERS:
        row(folder, [file for file in files if file.name.startswith(folder + "/")])
    of_lines, of_branches = row("total", files)
    wrong = []
    if of_lines < LINES_AT_LEAST:
        wrong.append(f"lines: {of_lines:.1f} % is less than {LINES_AT_LEAST} %")
    if of_branches < BRANCHES_AT_LEAST:
        wrong.append(f"branches: {of_branches:.1f} % is less than {BRANCHES_AT_LEAST} %")
    unrun = {(file.name, function): numbers for file in files for function, numbers in file.missing().items()}
    print("\nLines not run:" if unrun else "\nEvery line was run.")
    for (name, function), numbers in sorted(unrun.items()):
        print(f"  {name}:{','.join(map(str, numbers))}  {function}")
    print("\nLines with a branch not taken:")
    for file in files:
        if file.missing_branches():
            print(f"  {file.name}:{','.join(map(str, file.missing_branches()))}")
    wrong += [f"{name}: {function} has lines that were not run and no reason in {REASONS.name}"
              for name, function in sorted(set(unrun) - reasons)]
    wrong += [f"{REASONS.name} has a reason for {function} in {name}, of which every line was run"
              for name, function in sorted(reasons - set(unrun))]
    return wrong


def main():
    files = [File(record) for record in counted(pathlib.Path(sys.argv[1]).resolve())]
    absent = [folder for folder in FOLDERS if not any(file.name.startswith(folder + "/") for file in files)]
    if absent:
        sys.exit(f"nothing was counted in {', '.join(absent)}")
    wrong = report(files, read_reasons(REASONS.read_text()))
    if wrong:
        sys.exit("\n".join(["", *wrong]))


if __name__ == "__main__":
    main()
