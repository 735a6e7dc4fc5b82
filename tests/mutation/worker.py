"""Compiles and tests mutants, in namespaces of its own: a mutant may do anything, and must harm nothing.

Started by pool.py as the first process of its namespaces. Every file system is read-only to it but a /tmp of its own, the
network is a loopback of its own, and what a mutant leaves running is ended. Takes jobs as lines of JSON on standard input and
answers each with a line. Ends with its standard input.
"""

import json
import os
import resource
import shutil
import signal
import subprocess
import sys

from running import Runner

MEMORY = 4 << 30  # the addresses that a mutant may have, in bytes
SCRATCH = "/tmp/jxmutation"


def isolate():
    """Everything read-only but /tmp, which is empty and in memory."""
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=2g", "tmpfs", "/tmp"], check=True)
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
        if name != os.path.basename(SCRATCH):
            place = os.path.join("/tmp", name)
            if os.path.isdir(place) and not os.path.islink(place):
                shutil.rmtree(place, ignore_errors=True)
            else:
                os.unlink(place)


class Worker:
    """The source file at hand, and what makes a test program of a mutant of it."""

    def __init__(self):
        self.job = None
        self.preamble = None  # the precompiled inclusions, where they pay
        self.original = None  # the original's object, optimised

    def file(self, job):
        """Takes up a source file; its inclusions are compiled once when `precompile` is set."""
        shutil.rmtree(SCRATCH, ignore_errors=True)
        os.makedirs(SCRATCH)
        self.job, self.preamble, self.original = job, None, None
        if job["precompile"]:
            self.preamble = f"{SCRATCH}/preamble.h"
            with open(self.preamble, "w", encoding="utf-8") as file:
                file.write(job["inclusions"])
            done = self.compiler([*job["compile"], *job["flags"], "-x", "c++-header", "-o", self.preamble + ".gch", self.preamble])
            if done.returncode != 0:
                self.preamble = None
        return {}

    def compiler(self, words):
        return subprocess.run([*words], cwd=self.job["directory"], stdin=subprocess.DEVNULL, capture_output=True, check=False)

    def compile(self, text, flags, out, precompiled):
        source = f"{SCRATCH}/{self.job['stem']}"
        words = [*self.job["compile"], *flags]
        if precompiled and self.preamble:
            head = self.job["inclusions"]
            text = "\n" * head.count("\n") + text[len(head):]
            words += ["-include", self.preamble]
        with open(source, "w", encoding="utf-8") as file:
            file.write(text)
        return self.compiler([*words, "-o", out, "-c", source])

    def mutant(self, job):
        """Compiles a mutant and runs the tests until one kills it."""
        made = f"{SCRATCH}/changed.o"
        done = self.compile(job["text"], self.job["flags"], made, True)
        if done.returncode != 0:
            return {"outcome": "stillborn", "by": done.stderr.decode(errors="replace")[-2000:]}
        linked = {}
        for stage in job["stages"]:
            program = self.job["programs"][stage["program"]]
            if stage["program"] not in linked:
                done = self.compiler(program["link"])
                if done.returncode != 0:
                    return {"outcome": "stillborn", "by": done.stderr.decode(errors="replace")[-2000:]}
                linked[stage["program"]] = True
            found = self.run(program, stage["tests"])
            if found:
                return found
        if job["compare"] and self.same_code(job["text"]):
            return {"outcome": "equivalent", "by": "the same code"}
        return {"outcome": "survived", "by": ""}

    def run(self, program, tests):
        """Runs the tests, or the whole command where `tests` is a number: its normal seconds."""
        changed = Runner(program["run"], program["libraries"], sweep)
        original = Runner(program["original"], program["original_libraries"], sweep)
        patience = 1.0
        while patience < 8:
            whole = not isinstance(tests, list)
            found = changed.whole(tests, patience) if whole else changed.tests(tests, patience)
            if not found or found["outcome"] != "timeout":
                return found
            # A busy machine may be at fault: the original has to do better in the same time.
            if (original.whole(tests, patience) is None) if whole else original.alone(found, tests):
                return found
            patience *= 2
        return {"outcome": "unknown", "by": found["by"]}

    def same_code(self, text):
        """Whether the compiler makes the same code of the mutant as of the original."""
        if self.original is None:
            self.original = self.optimised(self.job["inclusions"] + self.job["rest"])
        return self.original is not None and self.optimised(text) == self.original

    def optimised(self, text):
        made = f"{SCRATCH}/optimised.o"
        if self.compile(text, ["-O2", "-g0", "-w"], made, False).returncode != 0:
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
