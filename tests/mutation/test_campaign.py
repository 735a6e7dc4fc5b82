"""What a run makes of the answers for a file that is not changed."""

import threading
import types
import unittest

import campaign
from pool import Failure

JOB = {"names": ["unit"]}
BASELINE = types.SimpleNamespace(tests={"unit": {"A.b": {"seconds": 0.1, "lines": {"a.cpp": [1]}}}})


class Worker:
    """Gives the answers in turn, and keeps the patience that it was asked for."""

    def __init__(self, *outcomes):
        self.outcomes, self.asked = list(outcomes), []

    def ask(self, job):
        self.asked.append(job["patience"])
        return {"outcome": self.outcomes.pop(0), "by": "A.b"}


def check(worker):
    run = campaign.Campaign.__new__(campaign.Campaign)
    run.lock, run.sound = threading.Lock(), {}
    return run.check_unchanged(worker, "a.cpp", BASELINE, b"", JOB, 0)


class Unchanged(unittest.TestCase):
    def test_one_that_passes_needs_no_patience(self):
        worker = Worker("survived")
        self.assertEqual((check(worker), worker.asked), (1, [1]))

    def test_one_that_is_late_is_given_more_time_and_so_are_its_mutants(self):
        worker = Worker("timeout", "unknown", "survived")
        self.assertEqual((check(worker), worker.asked), (9, [1, 3, 9]))

    def test_one_that_stays_late_counts_for_nothing(self):
        with self.assertRaisesRegex(Failure, "a.cpp unchanged is timeout by A.b"):
            check(Worker("timeout", "timeout", "timeout"))

    def test_one_that_fails_is_not_run_again(self):
        worker = Worker("killed")
        with self.assertRaisesRegex(Failure, "a.cpp unchanged is killed by A.b"):
            check(worker)
        self.assertEqual(worker.asked, [1])


if __name__ == "__main__":
    unittest.main()
