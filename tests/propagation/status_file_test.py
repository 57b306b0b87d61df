#!/usr/bin/python3
"""What copyprivs writes into its status file, and that it can be ended and started again at any time.

    status_file_test.py COPYPRIVS

Needs root, for a volume of its own.
"""
import os
import random
import signal
import stat
import sys
import time
import unittest

from own_copyprivs import KEYS, World, groups_of, parsed, run_tests, status_in

from big_trees import fill_bushy, give_privileges, slowed
from file_tree import Tree
from tree_rules import EVERYTHING, difference, expected

OBJECTS, MORE_OBJECTS = 3000, 6000
MOST_BYTES = 1024 * 1024
COUNTS = ("itemsDone", "itemsChanged", "errorCount", "elapsedSeconds")


class Poll:
    """Everything that a reader who never rests gets to see, with the time when it came."""

    def __init__(self, process, path):
        self.seen, self.files = [], []
        last = None
        while process.poll() is None:
            last = self.look(path, last)
        self.look(path, last)

    def look(self, path, last):
        with open(path, "rb") as file:  # which is never missing
            status = os.fstat(file.fileno())
            content = file.read()
        if content != last:
            self.seen.append((time.monotonic(), content))
            self.files.append(status)
        return content


class StatusFileTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.world = World(sys.argv[1], cls.addClassCleanup, "256M", "-N", "60000")
        cls.program = cls.world.copyprivs[True]

    def setUp(self):
        self.folder = self.world.new_folder(self.id().rsplit(".", 1)[1])
        fill_bushy(self.folder, OBJECTS)
        give_privileges(self.folder)
        self.status_file = self.program.new_status_file()
        self.addCleanup(self.remove_status_file)

    def remove_status_file(self):
        if os.path.lexists(self.status_file):
            os.unlink(self.status_file)

    def start(self):
        process = self.program.start(self.folder, EVERYTHING, self.status_file)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def wait_until_it_is_busy(self, process):
        """Until the file says that something is done, and not all."""
        while process.poll() is None:
            status = status_in(self.status_file)
            if status and 0 < status["itemsDone"] < OBJECTS:
                return status
            time.sleep(0.01)
        self.fail("the program has ended meanwhile: %s" % status_in(self.status_file))

    def test_a_reader_never_sees_half_a_status(self):
        more = os.path.join(self.folder, "more")
        os.mkdir(more)
        fill_bushy(more, MORE_OBJECTS - 1)
        process = self.start()
        with slowed(process):
            poll = Poll(process, self.status_file)
        statuses = [parsed(content) for _, content in poll.seen if content]
        self.assertGreater(len(statuses), 3, "there was too little to see")
        for status in statuses:
            self.assertEqual(set(status), KEYS)
            self.assertEqual((status["path"], status["mask"], status["pid"]), (self.folder, EVERYTHING, process.pid))
            self.assertGreaterEqual(status["itemsTotal"], status["itemsDone"])
        self.assertEqual([status["status"] for status in statuses],
                         ["running"] * (len(statuses) - 1) + ["completed"])
        for key in COUNTS:
            values = [status[key] for status in statuses]
            self.assertEqual(values, sorted(values), key)
        for file in poll.files:
            self.assertTrue(stat.S_ISREG(file.st_mode))
            self.assertEqual((file.st_uid, file.st_gid, stat.S_IMODE(file.st_mode)), (0, 0, 0o600))
            self.assertLessEqual((file.st_nlink, file.st_size), (1, MOST_BYTES))
        self.check_end(process, statuses[-1], OBJECTS + MORE_OBJECTS)
        self.check_rate([when for when, content in poll.seen if content])

    def check_end(self, process, status, objects):
        self.assertEqual(process.returncode, 0)
        self.assertEqual([status[key] for key in ("itemsDone", "itemsTotal", "itemsChanged", "errorCount")],
                         [objects, objects, objects, 0])
        self.assertEqual(os.listdir(os.path.dirname(self.status_file)), [os.path.basename(self.status_file)])

    def check_rate(self, times):
        """Four times a second while it runs, and its end at once."""
        running = times[:-1]
        for first, fifth in zip(running, running[4:]):
            self.assertGreater(fifth - first, 0.95, "five changes in a second: %s" % times)

    def test_the_first_status_comes_at_once_and_not_when_something_is_done(self):
        process = self.start()
        with slowed(process):
            while process.poll() is None and not status_in(self.status_file):
                pass
            status = status_in(self.status_file)
        self.assertEqual(status["status"], "running")
        process.wait()

    def test_a_run_that_is_terminated_says_so_and_another_one_finishes(self):
        before = Tree(self.folder)
        process = self.start()
        with slowed(process):
            self.wait_until_it_is_busy(process)
            process.terminate()
            began = time.monotonic()
            process.wait(60)
        self.assertLess(time.monotonic() - began, 20)
        status = status_in(self.status_file)
        self.assertEqual(set(status), KEYS | {"stopped"})
        self.assertEqual((status["status"], status["stopped"], status["errorCount"]), ("completed", True, 0))
        self.assertLess(0, status["itemsDone"])
        self.assertLess(status["itemsDone"], OBJECTS)
        self.assertEqual(process.returncode, 0)
        self.check_that_another_run_finishes(before, status["itemsChanged"])

    def test_a_run_that_is_terminated_as_it_starts_ends_properly_too(self):
        for pause in (0, 0.001, 0.003, 0.01, 0.02):
            process = self.start()
            time.sleep(pause)
            process.terminate()
            self.assertIn(process.wait(60), (0, -signal.SIGTERM))
            status = status_in(self.status_file)
            if process.returncode == 0:
                self.assertEqual(status["status"], "completed")

    def test_a_run_that_is_killed_leaves_a_whole_status_and_another_one_finishes(self):
        before = Tree(self.folder)
        process = self.start()
        with slowed(process):
            self.wait_until_it_is_busy(process)
            process.kill()
            process.wait(60)
        self.assertEqual(status_in(self.status_file)["status"], "running")
        self.check_that_another_run_finishes(before, 1)

    def test_runs_that_are_killed_at_any_moment_do_no_harm(self):
        before = Tree(self.folder)
        seed = random.SystemRandom().randrange(10 ** 6)
        print("seed %d" % seed, flush=True)
        moments = random.Random(seed)
        for _ in range(12):
            process = self.start()
            time.sleep(moments.uniform(0, 0.08))
            process.kill()
            process.wait(60)
            status = status_in(self.status_file)
            self.assertIn(status and status["status"], (None, "running", "completed"))
        self.check_that_another_run_finishes(before, 0)

    def check_that_another_run_finishes(self, before, done):
        """Exactly what is left."""
        ended = self.program.run(self.folder, EVERYTHING)
        self.assertEqual((ended.code, ended.status["itemsDone"], ended.status["errorCount"]), (0, OBJECTS, 0))
        self.assertLessEqual(ended.status["itemsChanged"], OBJECTS - done + 8)  # those that were being changed
        after = Tree(self.folder)
        for path, expectation in expected(before, EVERYTHING, True, groups_of).items():
            self.assertIsNone(difference(before[path], after[path], expectation), path)

    def test_a_status_file_that_disappears_does_not_keep_it_from_its_work(self):
        process = self.start()
        with slowed(process):
            self.wait_until_it_is_busy(process)
            os.unlink(self.status_file)
        process.wait(60)
        self.assertEqual(self.program.run(self.folder, EVERYTHING).status["itemsChanged"], 0)

    def test_a_link_in_place_of_the_status_file_is_not_followed(self):
        victim = os.path.join(self.world.folder, "victim")
        with open(victim, "wb") as file:
            file.write(b"precious")
        os.unlink(self.status_file)
        os.symlink(victim, self.status_file)
        self.start().wait(60)
        with open(victim, "rb") as file:
            self.assertEqual(file.read(), b"precious")


if __name__ == "__main__":
    run_tests(unittest.main, __file__)
