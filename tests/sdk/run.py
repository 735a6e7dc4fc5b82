"""Builds the program as the terminal's maker does: against an SDK in a foreign place, made from platform/include alone.

Usage: tests/sdk/run.py FOLDER. FOLDER/sdk becomes the stand-in: the contract headers, and the libraries. They are empty
at first; then each gets an empty function for every symbol that the program's objects leave open and that a header of the
contract declares. What no header declares is an error, and so is any file of the Linux port that the compiler has read."""

import json
import os
import pathlib
import shlex
import shutil
import subprocess
import sys

from contract import Contract

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tests/system"))
import jxdocuments
import jxlibraries

COMPILER = os.environ.get("CXX", "g++")
DATA = ("_ZTV", "_ZTI", "_ZTS")  # tables of a class; the rest are functions


def output_of(*command):
    return subprocess.run([str(part) for part in command], check=True, capture_output=True, text=True).stdout


def make_library(sdk, name, symbols=()):
    """A shared library that defines `symbols` and nothing else."""
    lines = [f"char {s}[256];" if s.startswith(DATA) else f"void {s}(void) {{}}" for s in sorted(symbols)]
    subprocess.run([COMPILER, "-x", "c", "-", "-shared", "-fPIC", f"-Wl,-soname,lib{name}.so",
                    "-o", str(sdk / f"lib/lib{name}.so")], input="\n".join(lines) + "\n", text=True, check=True)


def defined_by_the_language():
    """What the libraries of C and C++ define."""
    symbols = set()
    for library in ("libstdc++.so.6", "libgcc_s.so.1", "libm.so.6", "libc.so.6", "ld-linux-x86-64.so.2"):
        path = output_of(COMPILER, f"-print-file-name={library}").strip()
        if pathlib.Path(path).is_absolute():
            symbols.update(line.split()[-1].split("@")[0] for line in output_of("nm", "-D", "--defined-only", path).splitlines())
    return symbols


def open_symbols(objects):
    """The symbols that the objects use, and neither they nor the language's libraries define."""
    used, defined = set(), defined_by_the_language() | {"_GLOBAL_OFFSET_TABLE_", "__dso_handle"}
    for line in output_of("nm", "-g", *objects).splitlines():
        words = line.split()
        if len(words) >= 2 and words[-2] == "U":
            used.add(words[-1])
        elif len(words) == 3:
            defined.add(words[-1])
    return sorted(used - defined)


def by_library(symbols, contract):
    """The symbols of each library, and the demangled ones that no header declares."""
    libraries, undeclared = {name: [] for name in jxlibraries.NAMES}, []
    names = subprocess.run(["c++filt"], input="\n".join(symbols), capture_output=True, text=True, check=True).stdout
    for symbol, name in zip(symbols, names.splitlines()):
        library = contract.library_of(name)
        libraries[library].append(symbol) if library else undeclared.append(name)
    return libraries, undeclared


def strange_files(paths, sdk):
    """Those of the files read by the compiler that the program must not read: the port's, and contract headers elsewhere."""
    contract = {path.name for path in (sdk / "include").iterdir()}
    port, ours = SOURCE / "platform/linux", SOURCE / "platform/include"
    return sorted({str(path) for path in map(pathlib.Path, paths)
                   if port in path.parents or (ours in path.parents and path.name in contract)})


def files_read(build):
    """Every file that went into an object, as the compiler told the build."""
    for line in output_of("ninja", "-C", build, "-t", "deps").splitlines():
        if line.startswith("    "):
            yield os.path.normpath(build / line.strip())


def fail(what, items):
    sys.exit(f"{what}:\n" + "\n".join(f"  {item}" for item in items))


def make_sdk(sdk):
    shutil.rmtree(sdk, ignore_errors=True)
    shutil.copytree(SOURCE / "platform/include", sdk / "include")
    (sdk / "lib").mkdir()
    for name in jxlibraries.NAMES:
        make_library(sdk, name)


def build_objects(build, sdk):
    """Configures, compiles everything, links nothing; returns the objects."""
    shutil.rmtree(build, ignore_errors=True)
    subprocess.run(["cmake", "-S", SOURCE, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DJX_TESTS=OFF",
                    "-DJX_PLATFORM=sdk", f"-DJX_SDK_DIR={sdk}"], check=True, stdout=subprocess.DEVNULL)
    commands = [shlex.split(entry["command"]) for entry in json.loads((build / "compile_commands.json").read_text())]
    objects = [command[command.index("-o") + 1] for command in commands]
    subprocess.run(["ninja", "--quiet", "-C", build, *objects], check=True)
    return [build / name for name in objects]


def build_as_documented(folder, sdk):
    """Runs the commands of docs/porting.md; returns the program."""
    path = SOURCE / "docs/porting.md"
    block, = (block for block in jxdocuments.blocks(path) if block.word == "sdk")
    build, toolchain = folder / "terminal", folder / "toolchain.cmake"
    shutil.rmtree(build, ignore_errors=True)
    toolchain.write_text("")  # this machine's own compiler
    commands = block.text
    for stated, ours in (("build/terminal", build), ("/path/to/sdk", sdk), ("/path/to/toolchain.cmake", toolchain)):
        if stated not in commands:
            fail("docs/porting.md does not name", [stated])
        commands = commands.replace(stated, str(ours))
    subprocess.run(["sh", "-e", "-c", commands], cwd=SOURCE, check=True, stdout=subprocess.DEVNULL)
    return build / "bin/jxdownloader"


def check_program(program):
    """It needs the seven libraries and the language's, and starts with them."""
    needed = {line.split("[")[1].rstrip("]") for line in output_of("readelf", "-d", program).splitlines() if "(NEEDED)" in line}
    language = ("libstdc++.", "libgcc_s.", "libm.", "libc.", "ld-linux")
    strange = [name for name in needed if not name.startswith(language) and name not in jxlibraries.FILES]
    if strange:
        fail("The program needs libraries that are not the terminal's", strange)
    run = subprocess.run([program, "--other"], capture_output=True, text=True)
    if run.returncode != 1 or not run.stderr.startswith("Usage: "):
        fail("The program does not start with the terminal's libraries", [run.returncode, run.stderr])


def main():
    folder = pathlib.Path(sys.argv[1]).resolve()
    folder.mkdir(parents=True, exist_ok=True)
    sdk, build = folder / "sdk", folder / "build"
    make_sdk(sdk)
    objects = build_objects(build, sdk)
    strange = strange_files(files_read(build), sdk)
    if strange:
        fail("The program reads files that an SDK does not have", strange)
    libraries, undeclared = by_library(open_symbols(objects), Contract(sdk / "include"))
    if undeclared:
        fail("The program needs what no header of platform/include declares", undeclared)
    for name, symbols in libraries.items():
        make_library(sdk, name, symbols)
    check_program(build_as_documented(folder, sdk))
    for name, symbols in libraries.items():
        print(f"lib{name}: {len(symbols)} symbols")


if __name__ == "__main__":
    main()
