#!/usr/bin/python3
"""Whole trees at random after copyprivs are as a slow, plain model of the rules says.

    random_trees_test.py COPYPRIVS

Needs root, for a volume of its own. PADDOCK_TREES says how many trees (80), PADDOCK_SEED which;
a tree that fails is made again by PADDOCK_TREES=1 and the seed that the failure names.
"""
import os
import random
import shutil
import sys
import unittest

from own_copyprivs import KEYS, World, groups_of, in_status_file, run_tests
from random_trees import Maker
from access_lists import Stored
from file_tree import Tree, changed
from posix_acls import mode_with
from tree_rules import ACL, EVERYTHING, difference, expected, stays

TREES = int(os.environ.get("PADDOCK_TREES", "80"))
SEED = int(os.environ.get("PADDOCK_SEED", random.SystemRandom().randrange(10 ** 9)))


class RandomTreesTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.world = World(sys.argv[1], cls.addClassCleanup, "256M", "-N", "20000")
        print("seed %d, %d trees" % (SEED, TREES), flush=True)

    def test_a_tree_is_as_the_rules_say_and_stays_so(self):
        for seed in range(SEED, SEED + TREES):
            with self.subTest(seed=seed):
                self.push_trees(seed)

    def push_trees(self, seed):
        self.random = random.Random(seed)
        projects = self.random.random() < 0.6
        self.program = self.world.copyprivs[projects]
        folder = self.world.new_folder("tree-%d" % seed)
        maker = Maker(self.random, folder, projects)
        maker.make()
        for _ in range(self.random.choice((1, 1, 2))):
            self.push(folder, projects, self.mask())
            maker.disturb(Tree(folder))
        shutil.rmtree(folder)

    def mask(self):
        return self.random.choice((EVERYTHING, EVERYTHING, ACL, ACL, self.random.randrange(64)))

    def push(self, folder, projects, mask):
        about = "mask %d, projection %s" % (mask, projects)
        before = Tree(folder)
        expectations = expected(before, mask, projects, groups_of) if mask else {}
        trial = self.run_to_end(folder, mask, before, expectations, dry=True) if self.random.random() < 0.4 else None
        if trial:
            self.assertEqual(changed(before, Tree(folder)), set(), about + ": a dry run has changed something")
        status = self.run_to_end(folder, mask, before, expectations)
        after = Tree(folder)
        self.compare(before, after, expectations, about)
        written = changed(before, after)
        if not mask:
            self.assertEqual(written, set(), about)
        self.assertEqual(status["itemsChanged"], len(written), "%s: what was written to: %s" % (about, written))
        if trial:
            self.check_trial(trial, status, folder, before, after, written)
        again = self.run_to_end(folder, mask, after, expectations)
        self.assertEqual(again["itemsChanged"], 0, about)
        self.assertEqual(changed(after, Tree(folder)), set(), about + ": a second run has changed something")

    def compare(self, before, after, expectations, about):
        self.assertEqual(set(after), set(before), about)
        self.assertEqual(after[b""], before[b""], about + ": the folder itself has changed")
        for path, expectation in expectations.items():
            wrong = difference(before[path], after[path], expectation)
            self.assertIsNone(wrong, "%s: %r, a %s, before: %s, after: %s" % (
                about, path, before[path].kind, before[path], after[path]))
            if stays(before[path], expectation):
                self.assertEqual(before[path].ctime, after[path].ctime,
                                 "%s: %r was as it should be and was written to" % (about, path))

    def run_to_end(self, folder, mask, before, expectations, dry=False):
        """Its status, which must be what a run over the whole tree leaves."""
        ended = self.program.run(folder, mask, dry)
        status = ended.status
        self.assertIsNotNone(status, ended.output)
        failing = {path for path, expectation in expectations.items() if expectation.fails}
        items = len(before) - 1
        self.assertEqual(set(status) - {"dryRun", "examples"}, KEYS, status)
        self.assertEqual((status["status"], status["path"], status["mask"]), ("completed", folder, mask))
        self.assertEqual((status["itemsDone"], status["itemsTotal"]), (items, items))
        self.assertEqual({error["path"] for error in status["errors"]}, self.in_file(folder, failing))
        self.assertEqual(status["errorCount"], len(failing))
        self.assertEqual(ended.code, 1 if failing else 0, ended.output)
        self.assertEqual(status.get("dryRun", False), dry)
        return status

    @staticmethod
    def in_file(folder, paths):
        return {in_status_file(os.path.join(os.fsencode(folder), path)) for path in paths}

    def check_trial(self, trial, status, folder, before, after, written):
        self.assertEqual(trial["itemsChanged"], status["itemsChanged"])
        examples = {example["path"]: set(example["changes"]) for example in trial["examples"]}
        self.assertEqual(len(examples), min(100, len(written)))
        for path in written:
            name = in_status_file(os.path.join(os.fsencode(folder), path))
            if name in examples or len(written) <= 100:
                certain, derived = self.changes(before[path], after[path])
                self.assertIn(examples[name], (certain, certain | derived), "%r, before: %s, after: %s" % (
                    path, before[path], after[path]))

    @staticmethod
    def changes(before, after):
        """What has changed; and "acl", when of that only what is derived of the rest has."""
        names = {"owner": before.uid != after.uid, "group": before.gid != after.gid,
                 "mode": mode_with(before.access, before.mode) != mode_with(after.access, after.mode),
                 "acl": entries_of(before) != entries_of(after)}
        has_other_lists = (before.value, before.access, before.default) != (after.value, after.access, after.default)
        certain = {name for name, has_changed in names.items() if has_changed}
        return (certain, {"acl"} if has_other_lists else set()) if certain else ({"acl"}, set())


def entries_of(there):
    return there.list.list if isinstance(there.list, Stored) else there.value


if __name__ == "__main__":
    run_tests(unittest.main, __file__)
