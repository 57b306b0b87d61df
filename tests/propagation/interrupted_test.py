#!/usr/bin/python3
"""copyprivs killed at each of its writes, and each of its writes failing: another run finishes the work,
and nothing that a killed one leaves is more open than it was and will be.

    interrupted_test.py COPYPRIVS

Needs root, for a volume of its own. PADDOCK_TREES says how many trees (1), PADDOCK_SEED which.
"""
import os
import random
import shutil
import signal
import stat
import subprocess
import sys
import unittest

from own_copyprivs import NOBODYS_ID, USERS, World, groups_of, run_tests, skip, status_in

import posix_acls
from access_lists import Stored
from file_tree import Tree
from random_trees import Maker
from tree_rules import EVERYTHING, difference, expected

TREES = int(os.environ.get("PADDOCK_TREES", "1"))
SEED = int(os.environ.get("PADDOCK_SEED", random.SystemRandom().randrange(10 ** 9)))
WRITES = ("chown", "fchown", "lchown", "fchownat", "chmod", "fchmod", "fchmodat", "?fchmodat2", "setxattr",
          "lsetxattr", "fsetxattr", "?setxattrat", "removexattr", "lremovexattr", "fremovexattr", "?removexattrat")
# The leak sanitizer ends what is traced with an error of its own.
WITHOUT_LEAK_CHECK = "ASAN_OPTIONS=%s:detect_leaks=0" % os.environ.get("ASAN_OPTIONS", "")
SOMEBODY = 65000
OBJECTS = range(6, 20)


def granted(there, uid):
    """What the kernel gives a user who is not root, as a digit."""
    gids = groups_of(uid)
    mode = there.mode
    if uid == there.uid:
        return mode >> 6 & 7
    acl = there.access
    if acl is None:
        return mode >> 3 & 7 if there.gid in gids else mode & 7
    mask = acl.get((posix_acls.MASK, posix_acls.NO_ID), 7)
    if (posix_acls.USER, uid) in acl:
        return acl[posix_acls.USER, uid] & mask
    digits = [acl[posix_acls.GROUP, gid] for gid in gids if (posix_acls.GROUP, gid) in acl]
    digits += [acl[posix_acls.GROUP_OBJ, posix_acls.NO_ID]] if there.gid in gids else []
    return sum({bit for bit in (4, 2, 1) for digit in digits if digit & bit}) & mask if digits else mode & 7


def runs_as(there):
    """Whose rights a program in the file has."""
    if there.kind != "file":
        return set()
    return {what for what, bit in ((("user", there.uid), stat.S_ISUID), (("group", there.gid), stat.S_ISGID))
            if there.mode & bit}


def entries_of(there):
    return there.list.list if isinstance(there.list, Stored) else there.value


def is_closed_on_the_way(was, there):
    return there.kind != "link" and there.mode & 0o077 == 0 != was.mode & 0o077


class InterruptedTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        traced = subprocess.run(["strace", "-o", "/dev/null", "true"], stderr=subprocess.PIPE, check=False)
        if traced.returncode != 0:
            skip("nothing can be traced here")
        cls.world = World(sys.argv[1], cls.addClassCleanup, "64M", "-N", "5000")
        print("seed %d, %d trees" % (SEED, TREES), flush=True)

    def tree(self, seed):
        """Made anew, always the same one, with its program."""
        shutil.rmtree(os.path.join(self.world.volume.path, "tree"), ignore_errors=True)
        folder = self.world.new_folder("tree")
        choose = random.Random(seed)
        projects = choose.random() < 0.7
        maker = Maker(choose, folder, projects)
        maker.strange_modes = maker.kernel_acls = 0  # where others have more than the owner, bits may be lost
        maker.make()
        return folder, self.world.copyprivs[projects], projects

    def seeds(self):
        """Of trees that are neither bare nor take forever."""
        found, seed = 0, SEED
        while found < TREES:
            if len(Tree(self.tree(seed)[0])) in OBJECTS:
                found += 1
                yield seed
            seed += 1

    def undisturbed(self, seed):
        """What a run leaves that nothing disturbs."""
        folder, program, _ = self.tree(seed)
        return self.finish(program, folder)

    def run_with(self, injection, program, folder):
        """(exit status, status) of a run with what strace(1) does to its writes."""
        status_file = program.new_status_file()
        which = ",".join(WRITES)
        words = ["strace", "-f", "-o", "/dev/null", "-E", WITHOUT_LEAK_CHECK, "-e", "trace=" + which, "-e",
                 "inject=%s:%s" % (which, injection), program.program]
        ended = subprocess.run(words + program.words(folder, EVERYTHING, status_file)[1:], stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=60, check=False)
        status = status_in(status_file)
        os.unlink(status_file)
        self.assertIn(ended.returncode, (0, 1, -signal.SIGKILL), ended.stderr)
        return ended.returncode, status

    def run_until(self, program, folder, write):
        """Killed at the write of this number, which is not made. Whether it came to that."""
        return self.run_with("signal=KILL:when=%d" % write, program, folder)[0] == -signal.SIGKILL

    def finish(self, program, folder):
        """What another run leaves, which nothing disturbs."""
        program.run(folder, EVERYTHING)
        return Tree(folder)

    def assert_as_expected(self, before, after, projects, about, states=()):
        """`states`: what killed runs left. Of what one left closed for all but its owner, another run makes what
        it makes of such an object."""
        expectations = expected(before, EVERYTHING, projects, groups_of)
        for path, expectation in expectations.items():
            wrong = difference(before[path], after[path], expectation)
            for state in states if wrong else ():
                if is_closed_on_the_way(before[path], state[path]):
                    expectation = expected(state, EVERYTHING, projects, groups_of)[path]
                    wrong = wrong and difference(state[path], after[path], expectation)
            self.assertIsNone(wrong, "%s: %r was %s, is %s" % (about, path, before[path], after[path]))

    def test_killed_at_each_write(self):
        for seed in self.seeds():
            with self.subTest(seed=seed):
                undisturbed = self.undisturbed(seed)
                write, was_killed = 1, True
                while was_killed:
                    folder, program, projects = self.tree(seed)
                    before = Tree(folder)
                    was_killed = self.run_until(program, folder, write)
                    about = "killed at write %d" % write
                    self.check_that_nothing_is_more_open(
                        before, *self.check(before, folder, program, projects, about), undisturbed, about)
                    write += 1
                self.assertGreater(write, 2, "nothing was killed")

    def test_killed_again_and_again_after_one_write(self):
        for seed in self.seeds():
            with self.subTest(seed=seed):
                undisturbed = self.undisturbed(seed)
                folder, program, projects = self.tree(seed)
                before = Tree(folder)
                states = []
                while self.run_until(program, folder, 2):
                    states.append(Tree(folder))
                    self.assertLess(len(states), 1000, "there is no end of it")
                final = Tree(folder)
                self.assert_as_expected(before, final, projects, "at the end", states)
                for number, state in enumerate(states):
                    self.check_that_nothing_is_more_open(before, state, final, undisturbed,
                                                           "after %d writes" % (number + 1))

    def test_each_write_fails(self):
        for seed in self.seeds():
            with self.subTest(seed=seed):
                write, has_failed = 1, True
                while has_failed:
                    folder, program, projects = self.tree(seed)
                    before = Tree(folder)
                    failing = sum(expectation.fails for expectation in
                                  expected(before, EVERYTHING, projects, groups_of).values())
                    error = ("EPERM", "ENOSPC", "EIO")[write % 3]
                    code, status = self.run_with("error=%s:when=%d" % (error, write), program, folder)
                    about = "write %d fails with %s" % (write, error)
                    if status and status["status"] == "completed":  # else it was a write of the status file
                        self.assertEqual(code, 1 if status["errorCount"] else 0, about)
                        self.assertEqual(status["itemsDone"], len(before) - 1, about)
                        has_failed = status["errorCount"] > failing
                    self.check_that_lists_are_whole(before, *self.check(before, folder, program, projects, about),
                                                    about)
                    write += 1
                self.assertGreater(write, 2, "nothing has failed")

    def check(self, before, folder, program, projects, about):
        """Of a run that was disturbed; another one finishes. (state, final)."""
        state = Tree(folder)
        final = self.finish(program, folder)
        self.assert_as_expected(before, final, projects, about, [state])
        return state, final

    def check_that_lists_are_whole(self, before, state, final, about):
        """Not half of one; those that are written may be for the owner that an object still has."""
        for path, there in state.items():
            self.assertIn(entries_of(there), (entries_of(before[path]), entries_of(final[path])),
                          "%s: %r" % (about, path))

    def check_that_nothing_is_more_open(self, before, state, final, undisturbed, when):
        """Nor half of a list: the old one, or one that a run leaves."""
        for path, there in state.items():
            about = "%s: %r was %s, is %s, will be %s" % (when, path, before[path], there, final[path])
            ends = (before[path], final[path])
            for uid in (*USERS.values(), NOBODYS_ID, SOMEBODY) if there.kind != "link" else ():
                has_had, has, will_have = (granted(at, uid) for at in (ends[0], there, ends[1]))
                if uid:
                    self.assertEqual(has & ~(has_had | will_have), 0, "%d, %s" % (uid, about))
            self.assertLessEqual(runs_as(there), runs_as(ends[0]) | runs_as(ends[1]), about)
            self.assertIn(there.value, [end.value for end in (*ends, undisturbed[path])], about)


if __name__ == "__main__":
    run_tests(unittest.main, __file__, "strace")
