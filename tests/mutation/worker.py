"""Compiles and tests mutants, in namespaces of its own: a mutant may do anything, and must harm nothing.

Started by pool.py as the first process of its namespaces. Every file system is read-only to it but a /tmp of its own, the
network is a loopback of its own, and what a mutant leaves running is ended. Takes jobs as lines of JSON on standard input and
answers each with a line. Ends with its standard input.
"""

import json
import os
import re
import resource
import shutil
import signal
import subprocess
import sys

import frames
from mutant import Mutant
from running import Runner

MEMORY = 4 << 30  # the addresses that a mutant may have, in bytes
SCRATCH = "/tmp/jxmutation"
TREE = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
KEPT = {SCRATCH.split("/")[2]} | ({TREE.split("/")[2]} if TREE.startswith("/tmp/") else set())  # of what lies in /tmp
OPTIMISED = ["-O2", "-g0", "-w"]  # how the code of survivors is compared with the original's
PRECOMPILED_FROM = 3  # survivors of a file, for which it pays to compile its inclusions once
ATTEMPTS = 8  # to compile mutants together, each without those that the last one failed at


def isolate():
    """Everything read-only but /tmp, which is in memory and empty, but for the tree where that lies there."""
    tree = os.open(TREE, os.O_PATH)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=2g", "tmpfs", "/tmp"], check=True)
    if TREE.startswith("/tmp/"):
        os.makedirs(TREE)
        subprocess.run(["mount", "--no-canonicalize", "--bind", f"/proc/self/fd/{tree}", TREE], pass_fds=[tree], check=True)
    os.close(tree)
    with open("/proc/self/mountinfo", encoding="utf-8") as file:
        mounts = [(line.split()[4], line.split()[5]) for line in file]
    for place, options in mounts:
        if place == "/tmp" or place.split("/")[1] in ("proc", "sys", "dev"):
            continue
        kept = [option for option in options.split(",") if option != "rw"]
        subprocess.run(["mount", "-o", ",".join(["remount", "bind", "ro", *kept]), place.replace("\\040", " ")],
                       check=place == "/", stderr=subprocess.DEVNULL)
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    os.makedirs(SCRATCH)


def sweep():
    """Ends whatever a mutant left running, and removes what it left in /tmp."""
    if os.getpid() != 1:
        raise RuntimeError("outside of the namespaces made for it")
    try:
        os.kill(-1, signal.SIGKILL)
        while os.waitpid(-1, 0)[0]:
            pass
    except (ProcessLookupError, ChildProcessError):
        pass
    for name in os.listdir("/tmp"):
        if name not in KEPT:
            place = os.path.join("/tmp", name)
            if os.path.isdir(place) and not os.path.islink(place):
                shutil.rmtree(place, ignore_errors=True)
            else:
                os.unlink(place)


class Worker:
    """The source file at hand, and what makes a test program of its mutants."""

    def file(self, job):
        """Takes up a source file and the mutants of it that are to come. As many as can be are compiled together; the answer
        is their numbers."""
        shutil.rmtree(SCRATCH, ignore_errors=True)
        os.makedirs(SCRATCH)
        self.job, self.preambles = job, {}
        self.survivors, self.original = 0, None
        self.source = job["source"].encode()
        self.linked = set()
        mutants = {int(number): Mutant(**mutant, text=text.encode()) for number, (mutant, text) in job["mutants"].items()}
        if len(mutants) >= job["together_from"]:
            self.precompile(job["flags"])
        together = self.compile_together(mutants) if len(mutants) >= job["together_from"] else set()
        return {"together": sorted(together)}

    def precompile(self, flags):
        """Compiles the file's inclusions once for all compilations with these flags."""
        preamble = f"{SCRATCH}/preamble{len(self.preambles)}.h"
        with open(preamble, "wb") as file:
            file.write(self.source[: self.job["head"]] + b"\n")
        words = [*self.job["compile"], *flags, "-x", "c++-header", "-o", preamble + ".gch", preamble]
        if self.job["head"] and self.compiler(words).returncode == 0:
            self.preambles[tuple(flags)] = preamble

    def compile_together(self, mutants):
        """Compiles all mutants that the compiler takes in one text; returns their numbers."""
        left = dict(mutants)
        for _ in range(ATTEMPTS):
            text, placed = frames.combined(self.source, left, self.job["head"])
            done = self.compile(text, self.job["flags"], f"{SCRATCH}/all.o")
            if done.returncode == 0:
                return placed
            refused = frames.on_lines(self.source, left, self.refused_lines(done.stderr.decode(errors="replace")))
            if not refused:
                break
            left = {number: mutant for number, mutant in left.items() if number not in refused}
        return set()

    def refused_lines(self, messages):
        """The lines that the compiler has found errors in. Where it wants a constant, other errors follow from that."""
        found = re.findall(rf"(?:^|/){re.escape(self.job['stem'])}:(\d+):(?:\d+:)? (?:fatal )?error: (.*)", messages, re.M)
        constants = [line for line, message in found if "constant expression" in message]
        return {int(line) for line in constants or [line for line, _ in found]}

    def compiler(self, words):
        return subprocess.run(words, cwd=self.job["directory"], stdin=subprocess.DEVNULL, capture_output=True, check=False)

    def compile(self, text, flags, out):
        source = f"{SCRATCH}/{self.job['stem']}"
        words = [*self.job["compile"], *flags]
        if tuple(flags) in self.preambles:
            head = self.job["head"]
            text = b"\n" * text.count(b"\n", 0, head) + text[head:]
            words += ["-include", self.preambles[tuple(flags)]]
        with open(source, "wb") as file:
            file.write(text)
        return self.compiler([*words, "-o", out, "-c", source])

    def mutant(self, job):
        """Runs the tests with a mutant until one kills it: with the number `choose` of the program of all mutants, or where
        that is null with a program made of `text`."""
        alone = job["choose"] is None
        place = f"{SCRATCH}/{'one' if alone else 'all'}"
        if alone:
            self.linked = {name for name in self.linked if not name.startswith(place + "/")}
            done = self.compile(job["text"].encode(), self.job["flags"], place + ".o")
            if done.returncode != 0:
                return {"outcome": "stillborn", "by": done.stderr.decode(errors="replace")[-2000:]}
        for stage in job["stages"]:
            program = self.job["programs"][stage["program"]]
            made = f"{place}/{program['out']}"
            if made not in self.linked:
                os.makedirs(place, exist_ok=True)
                done = self.compiler([{"@OUT@": made, "@CHANGED@": place + ".o"}.get(word, word) for word in program["link"]])
                if done.returncode != 0:
                    return {"outcome": "stillborn", "by": done.stderr.decode(errors="replace")[-2000:]}
                self.linked.add(made)
            found = self.run(program, place, {} if alone else {"JX_MUTANT": str(job["choose"])}, stage["tests"],
                             job["patience"])
            if found:
                return found
        return {"outcome": self.kind_of_survivor(job["text"].encode()) if job["compare"] else "survived", "by": ""}

    @staticmethod
    def run(program, place, environment, tests, patience):
        """Runs the tests, or the whole command where `tests` is a number: its normal seconds. `patience` is how many times
        the usual limit holds."""
        words = [place + word[5:] if word.startswith("@OUT@") else word for word in program["run"]]
        changed = Runner(words, f"{place}:{program['libraries']}", sweep, environment)
        original = Runner(program["original"], program["original_libraries"], sweep)
        most = 4 * patience
        while patience <= most:
            whole = not isinstance(tests, list)
            found = changed.whole(tests, patience) if whole else changed.tests(tests, patience)
            if not found or found["outcome"] != "timeout":
                return found
            # A busy machine may be at fault: the original has to do better in the same time.
            if (original.whole(tests, patience) is None) if whole else original.alone(found, tests):
                return found
            patience *= 2
        return {"outcome": "unknown", "by": found["by"]}

    def kind_of_survivor(self, text):
        """Whether the compiler makes the same code of the mutant as of the original, or takes it only together with others."""
        self.survivors += 1
        if self.survivors == PRECOMPILED_FROM:
            self.precompile(OPTIMISED)
            self.original = None
        if self.original is None:
            self.original = self.optimised(self.source)
        made = self.optimised(text)
        return "stillborn" if made is None else "equivalent" if made == self.original else "survived"

    def optimised(self, text):
        made = f"{SCRATCH}/optimised.o"
        if self.compile(text, OPTIMISED, made).returncode != 0:
            return None
        with open(made, "rb") as file:
            return file.read()

    def reach(self, job):
        """Runs each test by itself and says how long it took, whether it passed, and what it reached."""
        return Runner(job["run"], job["libraries"], sweep).reach(f"{SCRATCH}/reach")

    def timed(self, job):
        """How long the original takes for the comparison with the model."""
        return Runner(job["run"], job["libraries"], sweep).timed()


def main():
    if os.getpid() != 1:
        sys.exit("worker.py runs in the namespaces that pool.py makes for it, nowhere else")
    isolate()
    worker = Worker()
    for line in sys.stdin:
        job = json.loads(line)
        try:
            answer = getattr(worker, job["do"])(job)
        except Exception as error:  # the pool reports it and stops
            answer = {"error": f"{type(error).__name__}: {error}"}
        print(json.dumps(answer), flush=True)


if __name__ == "__main__":
    main()
