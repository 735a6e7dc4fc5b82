"""What a configured build folder says of the tree: how each object is compiled and each test program linked."""

import functools
import json
import os
import pathlib
import shlex
import subprocess

COMPILED_AS = ["-O0", "-g0", "-U_FORTIFY_SOURCE", "-Wno-error", "-Werror=return-type", "-Werror=vla"]
# The folders whose readers tests/model/ states a second time.
WITH_MODEL = ("http", "upload")
# Unit tests of another folder that test a folder's files too: what the shell does at the start.
FURTHER = {"shell": "unit.program"}


class Project:
    def __init__(self, source, build):
        self.source, self.build = pathlib.Path(source), pathlib.Path(build)
        self.entries = {}
        for entry in json.loads((self.build / "compile_commands.json").read_text()):
            self.entries.setdefault(entry["file"], []).append(self._compiling(entry))

    def _compiling(self, entry):
        arguments = shlex.split(entry["command"])
        if os.path.basename(arguments[0]) == "ccache":
            arguments = arguments[1:]
        at = arguments.index("-o")
        return arguments[at + 1], [word for word in arguments[:at] if not word.startswith("-ffile-prefix-map")]

    def files(self, folder):
        """The source files of a folder and those below it that are compiled, relative to the tree; of a file, itself."""
        place = self.source / folder
        found = [place] if place.suffix == ".cpp" else sorted(place.rglob("*.cpp"))
        return [str(file.relative_to(self.source)) for file in found if str(file) in self.entries]

    @functools.lru_cache(maxsize=None)
    def text(self, file):
        """The bytes of a file as they were when the run began."""
        return (self.source / file).read_bytes()

    def arguments(self, file):
        """What clang needs to read a file as the compiler does."""
        words = self.entries[str(self.source / file)][0][1]
        chosen = [word for index, word in enumerate(words)
                  if word.startswith(("-I", "-D", "-std=", "-isystem")) or words[index - 1] == "-isystem"]
        return ["-xc++", *chosen]

    def test_programs(self, folder):
        """The unit test programs of a folder: of http, `unit.http` and each `unit.http.…`, and what FURTHER names."""
        name = "unit." + folder.removeprefix("platform/linux/").replace("/", ".")
        if folder.startswith("platform/linux/"):
            name = name.replace("unit.", "unit.platform.", 1)
        return [Program(self, "bin/" + test["name"].replace(".", "_")) for test in self._tests()
                if test["name"] in (name, FURTHER.get(folder)) or test["name"].startswith(name + ".")]

    def _tests(self):
        listed = subprocess.run(["ctest", "--show-only=json-v1"], cwd=self.build, check=True, capture_output=True).stdout
        return json.loads(listed)["tests"]

    def model(self, folder):
        """The program that the model is compared with, for the folders that it reads."""
        return Program(self, "bin/model_driver") if folder in WITH_MODEL else None

    def model_command(self):
        """How the built program is compared with the model."""
        return next(test["command"] for test in self._tests() if test["name"] == "model.compare")

    @functools.lru_cache(maxsize=None)
    def linking(self, target):
        """The command that makes a program or a library of ours, as words; None for what is not made here."""
        if os.path.isabs(target):
            return None
        lines = subprocess.run(["ninja", "-t", "commands", target], cwd=self.build, capture_output=True, text=True)
        if lines.returncode != 0 or not lines.stdout.strip():
            return None
        words = shlex.split(lines.stdout.strip().splitlines()[-1])
        return tuple(word.replace("\\$", "$") for word in words)

    def make(self, targets):
        subprocess.run(["cmake", "--build", str(self.build), "--target", *targets, "--", "--quiet"], check=True)


class Program:
    """A test program, and how a changed object gets into it."""

    def __init__(self, project, target):
        self.project, self.target = project, target
        self.name = os.path.basename(target)
        self.path = project.build / target

    def _link(self):
        words = list(self.project.linking(self.target))
        return words[words.index("&&") + 1 : len(words) - words[::-1].index("&&") - 1]

    def place_of(self, file):
        """Where the file's object is: (object, its compiler words, the shared library that it is in or None); or None."""
        link = self._link()
        for name, words in self.project.entries[str(self.project.source / file)]:
            if name in link:
                return name, words, None
            for library in link:
                if library.endswith((".a", ".so")) and name in (self.project.linking(library) or ()):
                    return name, words, library if library.endswith(".so") else None
        return None

    def linking(self, file, changed, out, more=()):
        """The words that link the program (or the shared library that the file is in) with `changed` in place of the file's
        own object. An object that stands in front of the archive that it came from takes its place there."""
        name, _, library = self.place_of(file)
        if library:
            words = list(self.project.linking(library))
            words = words[words.index("&&") + 1 : len(words) - words[::-1].index("&&") - 1]
        else:
            words = self._link()
        words[words.index("-o") + 1] = out
        changed = [changed] if isinstance(changed, str) else list(changed)
        first = next(index for index, word in enumerate(words) if word.endswith(".o"))
        words[first:first] = [*changed, *more]
        return [words[0], "-fuse-ld=gold"] + [word for word in words[1:] if word != name]
