#!/usr/bin/python3
"""Nobody who swaps, moves and links what is in a folder leads copyprivs out of it.

    attack_test.py COPYPRIVS

Needs root, for a volume of its own. PADDOCK_SWAPS says how many swaps are made while it runs (100,000).
"""
import contextlib
import os
import sys
import time
import unittest

from own_copyprivs import USERS, Ended, World, groups_of, run_tests, status_in

import access_lists  # own_copyprivs has said where its parts are
from access_lists import ALLOW, FILES_INHERIT, FOLDERS_INHERIT, Entry, of_user
from attackers import Attackers, exchange
from big_trees import slowed
from file_tree import ATTRIBUTE, Tree, read_object
from tree_rules import EVERYTHING, difference, expected

SWAPS = int(os.environ.get("PADDOCK_SWAPS", "100000"))
OWNER = USERS["anna"]
FOLDERS, FILES, LEVELS = 24, 12, 90
NAIVE_ROUNDS = 500


class Arena:
    """`tree` is to be pushed down and its owner's to play with; `outside` is not. What a swapped link or
    a step upwards leads to has the names that the tree has, so that no path misses it."""

    def __init__(self, folder):
        self.tree, self.outside = (os.path.join(folder, name) for name in ("tree", "outside"))
        os.mkdir(self.tree)
        os.mkdir(self.outside)
        self.exit = os.path.join(self.outside, "exit")
        self.treasure = os.path.join(self.outside, "treasure")
        for top in (self.tree, self.exit, self.treasure):
            os.makedirs(top, exist_ok=True)
            for number in range(FOLDERS):
                self.fill(os.path.join(top, "folder%d" % number))
            self.chain(top)
        self.fill(os.path.join(self.exit, "."))
        os.chmod(self.exit, 0o1777)  # what is root's in there stays
        os.chmod(self.treasure, 0o700)
        for path, _, names in os.walk(self.tree):
            for name in [path, *(os.path.join(path, name) for name in names)]:
                os.chown(name, OWNER, OWNER)
        self.plant_links()
        self.treasures = Tree(self.outside)

    @staticmethod
    def fill(folder):
        os.makedirs(os.path.join(folder, "inner"))
        for inside in (folder, os.path.join(folder, "inner")):
            for number in range(FILES):
                path = os.path.join(inside, "file%d" % number)
                os.mknod(path)
                os.chmod(path, 0o600)

    @staticmethod
    def chain(top):
        path = os.path.join(top, "chain")
        for _ in range(LEVELS):
            os.mkdir(path)
            os.mknod(os.path.join(path, "file0"))
            path = os.path.join(path, "chain")

    def plant_links(self):
        """Beside what they are swapped with."""
        for number in range(FOLDERS):
            folder = os.path.join(self.tree, "folder%d" % number)
            self.plant(os.path.join(self.tree, "link%d" % number), "folder%d" % number)
            self.plant(os.path.join(folder, "link"), "folder%d/inner" % number)
            self.plant(os.path.join(folder, "filelink"), "folder%d/file0" % number)
        for level in range(0, LEVELS, 5):
            self.plant(os.path.join(self.tree, "chain" + "/chain" * level, "link"), "chain" + "/chain" * (level + 1))

    def plant(self, link, target):
        os.symlink(os.path.join(self.treasure, target), link)
        os.chown(link, OWNER, OWNER, follow_symlinks=False)

    def robbed(self):
        """What has changed outside, of what was there."""
        outside = os.fsencode(self.outside)
        return {path for path, there in self.treasures.items()
                if path not in (b"", b"exit") and read_object(os.path.join(outside, path)) != there}

    # What the owner does.

    def swaps(self):
        """Steps that swap folders and files with links to the treasure."""
        pairs = []
        for number in range(FOLDERS):
            folder = os.path.join(self.tree, "folder%d" % number)
            pairs += [(folder, os.path.join(self.tree, "link%d" % number)),
                      (os.path.join(folder, "inner"), os.path.join(folder, "link")),
                      (os.path.join(folder, "file0"), os.path.join(folder, "filelink"))]
        for level in range(0, LEVELS, 5):
            folder = os.path.join(self.tree, "chain" + "/chain" * level)
            pairs.append((os.path.join(folder, "chain"), os.path.join(folder, "link")))
        return [self.step(*pair) for pair in pairs]

    @staticmethod
    def step(one, other):
        one, other = os.fsencode(one), os.fsencode(other)
        return lambda: sum(exchange(one, other) for _ in range(2))

    def moves(self):
        """Steps that move a folder to where there are others with the names of its neighbours, and back."""
        names = ["folder%d/inner" % number for number in range(FOLDERS)]
        names += ["chain" + "/chain" * level for level in range(1, LEVELS, 7)]
        return [self.move(os.path.join(self.tree, name), os.path.join(self.exit, "moved%d" % number))
                for number, name in enumerate(names)]

    @staticmethod
    def move(inside, out):
        def there_and_back():
            moved = 0
            for one, other in ((inside, out), (out, inside)):
                try:
                    os.rename(one, other)
                    moved += 1
                except OSError:
                    pass  # a link, or elsewhere by a swap
            return moved
        return there_and_back


def naive_push(folder, uid, gid, mode):
    """As one would write it who does not think of others: it never follows a link that it sees."""
    for name in os.listdir(folder):
        path = os.path.join(folder, name)
        if os.path.islink(path):
            os.lchown(path, uid, gid)
            continue
        os.chown(path, uid, gid)
        os.chmod(path, mode)
        if os.path.isdir(path):
            naive_push(path, uid, gid, mode)


class AttackTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.world = World(sys.argv[1], cls.addClassCleanup, "256M", "-N", "50000")

    def attack(self):
        self.arena = Arena(self.world.new_folder(self.id().rsplit(".", 1)[1]))
        attackers = Attackers(OWNER, self.arena.swaps(), self.arena.moves() + self.arena.swaps())
        self.addCleanup(attackers.stop)
        return attackers

    def test_a_walk_by_paths_is_led_astray(self):
        attackers = self.attack()
        for round_number in range(NAIVE_ROUNDS):
            try:
                naive_push(self.arena.tree, OWNER, OWNER, 0o755)
            except OSError:
                pass  # what was there has gone
            if self.arena.robbed():
                print("by paths, root was led outside in round %d, after %d swaps" % (
                    round_number + 1, attackers.swaps()), flush=True)
                return
        self.fail("the attack does not lead anybody astray, and so proves nothing")

    def test_nothing_outside_changes(self):
        attackers = self.attack()
        swaps, runs, began = 0, 0, time.monotonic()
        while swaps < SWAPS:
            self.dress(runs)
            before = attackers.swaps()
            ended = self.run_attacked(self.world.copyprivs[runs % 2 == 0], halting=runs % 3 == 0)
            swaps += attackers.swaps() - before
            runs += 1
            self.assertIn(ended.code, (0, 1), ended.output)
            self.assertEqual((ended.status["status"], "stopped" in ended.status), ("completed", False))
            if runs % 50 == 1:
                self.assertEqual(self.arena.robbed(), set())
        attackers.stop()
        self.assertEqual(self.arena.robbed(), set())
        print("%d swaps in %d runs, %.1f seconds" % (swaps, runs, time.monotonic() - began), flush=True)
        self.check_what_is_left(runs)

    def run_attacked(self, program, halting):
        """`halting`: with pauses at any point of its work, so that no gap in it is too short for a swap."""
        status_file = program.new_status_file()
        process = program.start(self.arena.tree, EVERYTHING, status_file)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        with slowed(process, 1, 0.0003) if halting else contextlib.nullcontext():
            code = process.wait(600)
        status = status_in(status_file)
        os.unlink(status_file)
        return Ended(code, status, "")

    def dress(self, number):
        """Privileges that every run has to push anew."""
        mode = (0o750, 0o770)[number // 2 % 2]
        mask = (0x1200A9, 0x1301BF)[number // 2 % 2]
        os.chmod(self.arena.tree, mode)
        entries = [Entry(ALLOW, FILES_INHERIT | FOLDERS_INHERIT, mask, of_user(USERS["bert"]), b"")]
        os.setxattr(self.arena.tree, ATTRIBUTE, access_lists.encode(
            access_lists.with_tail(entries, OWNER, OWNER, mode, True), OWNER, OWNER))

    def check_what_is_left(self, number):
        """When nobody disturbs it any more, everything is reached."""
        self.dress(number)
        before = Tree(self.arena.tree)
        ended = self.world.copyprivs[True].run(self.arena.tree, EVERYTHING)
        self.assertEqual((ended.code, ended.status["errorCount"], ended.status["itemsDone"]), (0, 0, len(before) - 1))
        after = Tree(self.arena.tree)
        for path, expectation in expected(before, EVERYTHING, True, groups_of).items():
            self.assertIsNone(difference(before[path], after[path], expectation), path)


if __name__ == "__main__":
    run_tests(unittest.main, __file__)
