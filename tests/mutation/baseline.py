"""What each test of the original program takes and reaches. Nothing counts unless every test passes."""

import hashlib
import json
import os
import pathlib
import subprocess
from concurrent.futures import ThreadPoolExecutor

from pool import Failure, work
from project import COMPILED_AS

HERE = pathlib.Path(__file__).parent
INSTRUMENTED = ["-g1", "-fsanitize-coverage=trace-pc"]


class Baseline:
    """The tests of one folder: for each program, each test's seconds and the lines that it reaches of each of the files."""

    def __init__(self, project, folder, files, place, jobs):
        self.project, self.folder, self.jobs = project, folder, jobs
        self.place = pathlib.Path(place) / folder.replace("/", "_")
        self.place.mkdir(parents=True, exist_ok=True)
        self.files = files
        self.programs = project.test_programs(folder)
        self.tests = {}  # program name -> test name -> {"seconds", "lines": {file: [lines]}}

    def linked(self, program):
        """The files of the folder that the program links."""
        return [file for file in self.files if program.place_of(file)]

    def original(self, program):
        """The instrumented program: its path and where its libraries are."""
        if any(program.place_of(file)[2] for file in self.linked(program)):
            return str(program.path), str(self.place / f"{program.name}.libraries")
        return str(self.place / program.name), ""

    def libraries(self, own):
        return ":".join([*([own] if own else []), str(self.project.build / "lib")])

    def make(self):
        """Compiles and links the instrumented programs, and runs every test of theirs by itself."""
        with ThreadPoolExecutor(self.jobs) as threads:
            list(threads.map(self.compile, {self.object(file, program): (file, program) for program in self.programs
                                            for file in self.linked(program)}.values()))
        missing = [program for program in self.programs if not self.known(program)]
        for program in missing:
            self.link(program)
        work(missing, self.jobs, self.measure)

    def object(self, file, program):
        name = program.place_of(file)[0]
        return self.place / (name.replace("/", "_"))

    def compile(self, pair):
        file, program = pair
        _, words, _ = program.place_of(file)
        out, source = self.object(file, program), self.project.source / file
        subprocess.run([*words, *COMPILED_AS, *INSTRUMENTED, "-o", str(out) + ".new", "-c", str(source)], cwd=self.project.build,
                       check=True, capture_output=True)
        if not out.exists() or out.read_bytes() != pathlib.Path(str(out) + ".new").read_bytes():
            os.replace(str(out) + ".new", out)

    def link(self, program):
        recorder = self.place / "reach.o"
        subprocess.run(["c++", "-std=c++17", "-O1", "-fPIC", "-o", str(recorder), "-c", str(HERE / "reach.cpp")], check=True)
        files = self.linked(program)
        if not files:
            return
        path, libraries = self.original(program)
        library = program.place_of(files[0])[2]
        if library:
            os.makedirs(libraries, exist_ok=True)
            path = os.path.join(libraries, os.path.basename(library))
        words = program.linking(files[0], [str(self.object(file, program)) for file in files], path, [str(recorder)])
        own = {program.place_of(file)[0] for file in files}
        subprocess.run([word for word in words if word not in own], cwd=self.project.build, check=True)

    def state(self, program):
        """What the measured figures hold for: the program as it was built, with its libraries, and the recorder."""
        seen = hashlib.sha256()
        for path in [program.path, *(self.project.build / word for word in program._link() if word.endswith(".so")),
                     *(self.object(file, program) for file in self.linked(program)), HERE / "reach.cpp", HERE / "baseline.py"]:
            if path.exists():
                seen.update(path.read_bytes())
        return seen.hexdigest()

    def known(self, program):
        """Whether the program was measured before as it is now; takes the figures up if so."""
        path = self.place / f"{program.name}.json"
        if path.exists():
            kept = json.loads(path.read_text())
            if kept["state"] == self.state(program):
                self.tests[program.name] = kept["tests"]
        return program.name in self.tests

    def measure(self, worker, program):
        if not self.linked(program):
            self.tests[program.name] = {}
            return
        path, libraries = self.original(program)
        found = worker.ask({"do": "reach", "run": [path], "libraries": self.libraries(libraries)})["tests"]
        failed = [name for name, test in found.items() if not test["passed"] and not test["skipped"]]
        if failed or not found:
            raise Failure(f"{program.name} fails without any change: {', '.join(failed) or 'it has no tests'}")
        lines = self.lines(program, {offset for test in found.values() for offset in test["offsets"]})
        tests = {}
        for name, test in found.items():
            if test["skipped"]:
                continue
            reached = {}
            for offset in test["offsets"]:
                file, line = lines.get(offset, ("", 0))
                if file:
                    reached.setdefault(file, set()).add(line)
            tests[name] = {"seconds": round(test["seconds"], 3), "lines": {file: sorted(all) for file, all in reached.items()}}
        self.tests[program.name] = tests
        (self.place / f"{program.name}.json").write_text(json.dumps({"state": self.state(program), "tests": tests}))

    def lines(self, program, offsets):
        """Which file and line the offsets are of; a recorded offset is where the call of the recorder returns to."""
        path, libraries = self.original(program)
        library = program.place_of(self.linked(program)[0])[2]
        module = os.path.join(libraries, os.path.basename(library)) if library else path
        offsets = sorted(offsets)
        found = subprocess.run(["addr2line", "-e", module], input="\n".join(hex(offset - 1) for offset in offsets), check=True,
                               capture_output=True, text=True).stdout.splitlines()
        result = {}
        for offset, place in zip(offsets, found):
            file, line = place.split(" ")[0].rsplit(":", 1)
            if line.isdigit() and os.path.isabs(file) and pathlib.Path(file).is_relative_to(self.project.source):
                result[offset] = str(pathlib.Path(file).relative_to(self.project.source)), int(line)
        return result

    def reaching(self, mutant):
        """The tests for a mutant as (program, test, seconds), the most specific first."""
        inside, anywhere = [], []
        for program, tests in self.tests.items():
            for name, test in tests.items():
                lines = test["lines"].get(mutant.file)
                if not lines:
                    continue
                size = sum(len(reached) for reached in test["lines"].values())
                here = [line for line in lines if mutant.first <= line <= mutant.last]
                nearest = max((line for line in here if line <= mutant.line), default=0)
                entry = (-nearest, size, test["seconds"], program, name)
                anywhere.append(entry)
                if here:
                    inside.append(entry)
        # What runs when the program is compiled leaves no trace: then whoever reaches the file may see it.
        chosen = sorted(inside or anywhere)
        return [(program, name, seconds) for _, _, seconds, program, name in chosen]
