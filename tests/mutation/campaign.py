"""One run: prepares the folders, tries the mutants, counts and prints."""

import collections
import itertools
import json
import pathlib
import random
import subprocess
import sys
import threading
import time

from baseline import Baseline
from pool import Failure, work
from project import COMPILED_AS

HERE = pathlib.Path(__file__).parent
FIRST = 6  # so many of the most specific tests run before all others
SAMPLED = 24  # so many mutants of a file are in a sample: enough to be worth compiling together
CHUNK = 100  # so many mutants of one file go to a worker at a time
TOGETHER_FROM = 6  # so many mutants of a file, at least, are worth compiling together
KILLED = ("killed", "timeout")
PATIENCE = (1, 3, 9)  # how many times the usual limit an unchanged file may take, tried in turn


def leading_inclusions(source):
    """Where the last #include of a source file ends, as long as nothing but inclusions and comments stands before it."""
    end = at = 0
    for line in source.splitlines(keepends=True):
        at += len(line)
        if line.startswith(b"#include"):
            end = at
        elif line.strip() and not line.startswith(b"//"):
            break
    return end


def sample(found, folders, seed, count):
    """So many mutants, always the same: some of a file at a time, from one folder after the other."""
    choice = random.Random(seed)
    by_folder = collections.defaultdict(list)
    for file in sorted({one.file for one in found}):
        by_folder[folders[file]].append(file)
    for files in by_folder.values():
        choice.shuffle(files)
    chosen = []
    for file in (file for files in itertools.zip_longest(*by_folder.values()) for file in files if file):
        mutants = [one for one in found if one.file == file]
        chosen += choice.sample(mutants, min(SAMPLED, len(mutants)))
    return chosen[:count]


class Campaign:
    def __init__(self, project, place, entries, chosen):
        self.project, self.place, self.entries, self.chosen = project, place, entries, chosen
        place.mkdir(parents=True, exist_ok=True)
        self.lock = threading.Lock()
        self.memory = place / "last.json"  # of each mutant tried: what came of it, and which test killed it
        self.last = json.loads(self.memory.read_text()) if self.memory.exists() else {}
        self.outcomes = {}
        self.baselines = {}
        self.models = {}
        self.sound = {}  # the files that pass unchanged, and the patience that they take

    def choose(self, found, folders):
        """The mutants to try, in their order. `folders` has the folder of each file."""
        listed = [one for one in found if one.key in self.entries]
        if self.chosen.equivalents:
            return listed
        found = [one for one in found if one.key not in self.entries]
        if self.chosen.again:
            found = [one for one in found if self.last.get(one.key, {}).get("outcome") == "survived"]
        if self.chosen.count:
            return sample(found, folders, self.chosen.seed, self.chosen.count)
        if self.chosen.seconds:
            random.Random(self.chosen.seed).shuffle(found)
        return found

    def run(self, files, found):
        used = {one.file for one in found} if self.chosen.count else set(files)
        self.prepare({folder: [file for file in files if file in used and files[file] == folder]
                      for folder in dict.fromkeys(files[file] for file in files if file in used)})
        self.begun = time.monotonic()
        self.total = len(found)
        rounds = [found]
        if self.chosen.seconds:  # rounds, so that the order among files stays the seed's
            rounds = [found[at : at + 240] for at in range(0, len(found), 240)]
        for mutants in rounds:
            if not self.late():
                work(self.chunks(mutants), self.chosen.jobs, lambda worker, chunk: self.chunk(worker, files, chunk))
        self.memory.write_text(json.dumps(self.last, indent=0))
        return self.report(files)

    def late(self):
        return self.chosen.seconds and time.monotonic() - self.begun > self.chosen.seconds

    def prepare(self, folders):
        programs = {}
        for folder, files in folders.items():
            self.baselines[folder] = Baseline(self.project, folder, files, self.place / "baseline", self.chosen.jobs)
            for program in self.baselines[folder].programs:
                programs[program.target] = program
            model = self.project.model(folder)
            if model:
                programs[model.target] = self.models[folder] = model
        self.say(f"building {', '.join(sorted(program.name for program in programs.values()))}")
        self.project.make(sorted(programs))
        for folder in folders:
            self.say(f"running the tests of {folder} as they are")
            self.baselines[folder].make()
        subprocess.run(["c++", "-O1", "-fPIC", "-o", str(self.place / "chosen.o"), "-c", str(HERE / "chosen.cpp")], check=True)
        self.model_seconds = {}
        work([folder for folder in self.models], 1, self.time_model)

    def time_model(self, worker, folder):
        found = worker.ask({"do": "timed", "run": self.model_words(str(self.models[folder].path)),
                            "libraries": self.baselines[folder].libraries("")})
        if not found["passed"]:
            raise Failure("the comparison with the model fails without any change")
        self.model_seconds[folder] = found["seconds"]

    def model_words(self, driver):
        command = list(self.project.model_command())
        return [driver if word.endswith("/model_driver") else word for word in command]

    def chunks(self, mutants):
        by_file = collections.OrderedDict()
        for one in mutants:
            by_file.setdefault(one.file, []).append(one)
        return [found[at : at + CHUNK] for found in by_file.values() for at in range(0, len(found), CHUNK)]

    def chunk(self, worker, files, mutants):
        """Tries some mutants of one file."""
        if self.late():
            return
        file = mutants[0].file
        baseline = self.baselines[files[file]]
        source = self.project.text(file)
        job = self.file_job(file, source, baseline, mutants)
        if not job["programs"]:
            for one in mutants:
                self.note(one, {"outcome": "survived", "by": "", "why": "no unit test links the file"})
            return
        together = set(worker.ask(job)["together"])
        patience = {}  # by whether a mutant is compiled by itself
        for number, one in enumerate(mutants, 1):
            if self.late():
                return
            choose = number if number in together else None
            alone = choose is None
            if alone not in patience:
                patience[alone] = self.check_unchanged(worker, file, baseline, source, job, None if alone else 0)
            stages = self.stages(one, baseline, job)
            self.note(one, worker.ask({"do": "mutant", "choose": choose, "text": one.apply(source).decode(), "stages": stages,
                                       "patience": patience[alone], "compare": True}))

    def file_job(self, file, source, baseline, mutants):
        names, programs, compiled = [], [], None
        model = self.models.get(baseline.folder)
        for program in [*baseline.programs, *([model] if model else [])]:
            found = program.place_of(file)
            compiled = compiled or (found and found[1])
            if found and found[1] == compiled:
                names.append(program.name)
                programs.append(self.program_job(file, program, baseline, program is model))
        return {"do": "file", "source": source.decode(), "head": leading_inclusions(source), "stem": file.rsplit("/", 1)[-1],
                "names": names, "programs": programs, "flags": COMPILED_AS, "directory": str(self.project.build),
                "compile": [*(compiled or []), "-iquote", str((self.project.source / file).parent)],
                "mutants": {number: ({name: value for name, value in vars(one).items() if name != "text"}, one.text.decode()) for number, one in enumerate(mutants, 1)},
                "together_from": TOGETHER_FROM}

    def program_job(self, file, program, baseline, is_model):
        """How a test program is made of a changed object, and how it is run. In the words "@…@" are filled in later."""
        library = program.place_of(file)[2]
        out = library.rsplit("/", 1)[-1] if library else program.name
        run = [str(program.path)] if library else ["@OUT@/" + out]
        path, libraries = (str(program.path), "") if is_model else baseline.original(program)
        if is_model:
            run, original = self.model_words(run[0]), self.model_words(path)
        else:
            original = [path]
        return {"link": program.linking(file, "@CHANGED@", "@OUT@", [str(self.place / "chosen.o")]), "out": out, "run": run,
                "libraries": baseline.libraries(""), "original": original, "original_libraries": baseline.libraries(libraries)}

    def stages(self, mutant, baseline, job):
        """Which tests to run one after another: the one that killed it the last time, the most specific, all others."""
        tests = [entry for entry in baseline.reaching(mutant) if entry[0] in job["names"]]
        before = self.last.get(mutant.key, {}).get("by")
        tests.sort(key=lambda entry: entry[1] != before)
        stages = []
        for part in (tests[:FIRST], tests[FIRST:]):
            for index, program in enumerate(job["names"]):
                chosen = [[name, seconds] for owner, name, seconds in part if owner == program]
                if chosen:
                    stages.append({"program": index, "tests": chosen})
        if baseline.folder in self.models and self.models[baseline.folder].name in job["names"]:
            stages.append({"program": job["names"].index(self.models[baseline.folder].name),
                           "tests": self.model_seconds[baseline.folder]})
        return stages

    def check_unchanged(self, worker, file, baseline, source, job, choose):
        """Makes and runs the file unchanged, as its mutants are made and run: nothing of it counts unless that passes. Returns
        the patience that it takes, for the mutants too: code that is not optimised may be slower than the baseline's."""
        with self.lock:
            if choose is None and file in self.sound:  # of a file by itself the same is compiled each time
                return self.sound[file]
        stages = [{"program": job["names"].index(program), "tests": [[name, test["seconds"]] for name, test in tests.items()
                                                                     if file in test["lines"]]}
                  for program, tests in baseline.tests.items() if program in job["names"]]
        for patience in PATIENCE:
            answer = worker.ask({"do": "mutant", "choose": choose, "text": source.decode(), "compare": False,
                                 "patience": patience, "stages": [stage for stage in stages if stage["tests"]]})
            if answer["outcome"] not in ("timeout", "unknown"):
                break
        if answer["outcome"] != "survived":
            raise Failure(f"{file} unchanged is {answer['outcome']} by {answer['by']}")
        with self.lock:
            self.sound[file] = max(patience, self.sound.get(file, 0))
        return patience

    def note(self, mutant, answer):
        with self.lock:
            self.outcomes[mutant.key] = (mutant, answer)
            self.last[mutant.key] = {"outcome": answer["outcome"], "by": answer["by"] if answer["outcome"] in KILLED else ""}
            wanted = KILLED if self.chosen.equivalents else ("survived",)
            if answer["outcome"] in wanted:
                print(f"{mutant}{' (' + answer['why'] + ')' if 'why' in answer else ''}", flush=True)
            elif answer["outcome"] == "unknown":
                print(f"{mutant} (too late at {answer['by']}, but so is the original: does not count)", file=sys.stderr)
            done = len(self.outcomes)
            if done % 100 == 0:
                self.say(f"{done} of {self.total} after {time.monotonic() - self.begun:.0f} s")
                self.memory.write_text(json.dumps(self.last, indent=0))

    def report(self, files):
        """Prints the figures for each folder; the command's code."""
        table = collections.defaultdict(collections.Counter)
        for mutant, answer in self.outcomes.values():
            for name in (files[mutant.file], "together"):
                table[name][answer["outcome"]] += 1
        self.say(f"\n{'':<24}{'killed':>8}{'late':>6}{'survived':>10}{'share':>9}{'same code':>11}{'not compiled':>14}{'listed':>8}")
        for name in [*dict.fromkeys(files.values()), "together"]:
            self.row(name, table[name], sum(name in ("together", files.get(entry.file)) for entry in self.entries.values()))
        if self.chosen.equivalents:
            return 1 if any(table["together"][outcome] for outcome in KILLED) else 0
        return 1 if self.chosen.at_least and self.share(table["together"]) < self.chosen.at_least else 0

    def row(self, name, count, listed):
        killed = sum(count[outcome] for outcome in KILLED)
        self.say(f"{name:<24}{killed:>8}{count['timeout']:>6}{count['survived']:>10}{self.share(count):>8.1f}%"
                 f"{count['equivalent']:>11}{count['stillborn']:>14}{listed:>8}")

    @staticmethod
    def share(count):
        killed = sum(count[outcome] for outcome in KILLED)
        counted = killed + count["survived"]
        return 100.0 * killed / counted if counted else 0.0

    @staticmethod
    def say(text):
        print(text, file=sys.stderr, flush=True)
