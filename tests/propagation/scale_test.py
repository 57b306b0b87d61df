#!/usr/bin/python3
"""copyprivs needs little memory and few descriptors whatever shape a tree has, and time in proportion to
its size.

    scale_test.py COPYPRIVS

Needs root, for a volume of its own. With PADDOCK_FULL=1 there are ten thousand levels, a million
entries in one folder, and a million objects in many.
"""
import os
import resource
import sys
import time
import unittest
from collections import namedtuple

from own_copyprivs import USERS, World, run_tests, status_in

from big_trees import fill_bushy, fill_deep, fill_flat, give_privileges
from file_tree import read_object
from tree_rules import EVERYTHING

FULL = bool(os.environ.get("PADDOCK_FULL"))
MEGABYTE = 1024 * 1024
MOST_MEMORY, MOST_DESCRIPTORS = 64 * MEGABYTE, 63
LEVELS = 10000 if FULL else 2000
ENTRIES = 1000000 if FULL else 20000
SIZES = (10000, 100000, 1000000) if FULL else (2000, 12000)


class Used(namedtuple("Used", "memory descriptors cpu seconds")):
    pass


class ScaleTest(unittest.TestCase):

    def world(self):
        """A volume of the test's own: another one with a million objects need not fit beside it."""
        world = World(sys.argv[1], self.addCleanup, "8G" if FULL else "512M", "-N", "2500000" if FULL else "90000",
                      "-E", "lazy_itable_init=1,nodiscard")
        self.program = world.copyprivs[True]
        return world

    def push(self, folder, count):
        """What a run over a folder with so many objects uses."""
        give_privileges(folder)
        status_file = self.program.new_status_file()
        began = time.monotonic()
        process = self.program.start(
            folder, EVERYTHING, status_file,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (MOST_DESCRIPTORS, MOST_DESCRIPTORS)))
        memory = descriptors = 0
        while True:
            memory, descriptors = (max(two) for two in zip((memory, descriptors), self.now(process.pid)))
            ended, code, usage = os.wait4(process.pid, os.WNOHANG)
            if ended:
                break
            time.sleep(0.002)
        process.returncode = os.waitstatus_to_exitcode(code)
        status = status_in(status_file)
        self.assertEqual((process.returncode, status["errorCount"], status["itemsDone"], status["itemsChanged"]),
                         (0, 0, count, count), status["errors"][:3])
        used = Used(memory, descriptors, usage.ru_utime + usage.ru_stime, time.monotonic() - began)
        print("%s, %d objects: %.1f MiB, %d descriptors, %.2f s of CPU, %.2f s" % (
            self.id().rsplit(".", 1)[1], count, memory / MEGABYTE, *used[1:]), flush=True)
        self.assertLess(memory, MOST_MEMORY)
        self.assertLessEqual(descriptors, MOST_DESCRIPTORS)
        return used

    @staticmethod
    def now(pid):
        """The most resident memory until now, and the open descriptors."""
        try:
            with open("/proc/%d/status" % pid, encoding="ascii") as file:
                high = [line.split()[1] for line in file if line.startswith("VmHWM:")]
            return int(high[0]) * 1024 if high else 0, len(os.listdir("/proc/%d/fd" % pid))
        except OSError:
            return 0, 0

    def test_very_many_levels(self):
        folder = self.world().new_folder("deep")
        fill_deep(folder, LEVELS)
        self.push(folder, 2 * LEVELS)
        at = os.open(folder, os.O_RDONLY)
        for _ in range(LEVELS):
            inside = os.open("folder", os.O_RDONLY, dir_fd=at)
            os.close(at)
            at = inside
        deepest = read_object("/proc/self/fd/%d/." % at)
        os.close(at)
        self.assertEqual((deepest.uid, deepest.mode & 0o700), (USERS["anna"], 0o700))
        self.assertEqual(len(deepest.list.list.entries), 3)

    def test_very_many_entries_in_one_folder(self):
        folder = self.world().new_folder("flat")
        fill_flat(folder, ENTRIES)
        self.push(folder, ENTRIES)

    def test_time_is_in_proportion_to_the_size(self):
        world = self.world()
        each = []
        for size in SIZES:
            folder = world.new_folder("size%d" % size)
            fill_bushy(folder, size)
            each.append(self.push(folder, size).cpu / size)
        for cost in each[1:]:
            self.assertLess(cost, 2 * each[0], "seconds of CPU for each object: %s" % each)


if __name__ == "__main__":
    run_tests(unittest.main, __file__)
