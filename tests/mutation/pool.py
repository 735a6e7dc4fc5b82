"""Processes that work on jobs, each in namespaces of its own (worker.py)."""

import contextlib
import json
import pathlib
import queue
import subprocess
import sys
import threading

SANDBOX = ["unshare", "--map-root-user", "--mount", "--net", "--pid", "--fork", "--kill-child", "--mount-proc"]
WORKER = pathlib.Path(__file__).with_name("worker.py")


class Failure(Exception):
    """Nothing of the run counts: the tool or its surroundings have failed."""


class Worker:
    def __init__(self):
        self.process = subprocess.Popen([*SANDBOX, sys.executable, "-B", str(WORKER)], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True, start_new_session=True)

    def ask(self, job):
        self.process.stdin.write(json.dumps(job) + "\n")
        self.process.stdin.flush()
        line = self.process.stdout.readline()
        if not line:
            raise Failure(f"a worker has ended with {self.process.wait()}")
        answer = json.loads(line)
        if "error" in answer:
            raise Failure(answer["error"])
        return answer

    def close(self):
        with contextlib.suppress(BrokenPipeError):
            self.process.stdin.close()
        self.process.stdout.close()
        self.process.wait()


def work(tasks, count, each):
    """Calls each(worker, task) for the tasks, `count` at a time. The first exception ends all and is raised again."""
    waiting = queue.SimpleQueue()
    for task in tasks:
        waiting.put(task)
    failures, workers = [], []

    def run():
        worker = Worker()
        workers.append(worker)
        try:
            while not failures:
                each(worker, waiting.get_nowait())
        except queue.Empty:
            pass
        except BaseException as failure:  # raised again below, in the thread that waits
            failures.append(failure)
        finally:
            worker.close()

    threads = [threading.Thread(target=run) for _ in range(max(1, min(count, waiting.qsize())))]
    for thread in threads:
        thread.start()
    try:
        for thread in threads:
            thread.join()
    except KeyboardInterrupt:
        failures.insert(0, KeyboardInterrupt())
        for worker in workers:
            worker.process.kill()  # unshare, which takes the worker and all below it along
    if failures:
        raise failures[0]
