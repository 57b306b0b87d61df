#!/usr/bin/python3
"""What copyprivs refuses, what it leaves alone, and what it goes on after.

    refusals_test.py COPYPRIVS

Needs root, for a volume of its own.
"""
import ctypes
import os
import shutil
import stat
import struct
import subprocess
import sys
import time
import unittest

from own_copyprivs import Volume, World, groups_of, in_status_file, run_tests, status_in

from big_trees import fill_bushy, fill_flat, give_privileges, slowed
from file_tree import ATTRIBUTE, Tree, read_object
from tree_rules import EVERYTHING, difference, expected

BAD_MASKS = ("64", "127", "-1", "4294967296", "4294967327", "18446744073709551647", "abc", "", "0x3f", "63x", " 63",
             "6 3", "1.0")
IN_OPEN, IN_NONBLOCK = 0x20, 0o4000
LIBC = ctypes.CDLL(None, use_errno=True)


class Opened:
    """Notes who opens a file, without opening it."""

    def __init__(self, *paths):
        self.number = LIBC.inotify_init1(IN_NONBLOCK)
        for path in paths:
            assert LIBC.inotify_add_watch(self.number, os.fsencode(path), IN_OPEN) >= 0, path

    def count(self):
        try:
            return len(os.read(self.number, 65536)) // struct.calcsize("iIII")
        except BlockingIOError:
            return 0

    def close(self):
        os.close(self.number)


class RefusalsTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.world = World(sys.argv[1], cls.addClassCleanup, "64M")
        cls.program = cls.world.copyprivs[True]

    def setUp(self):
        self.folder = self.world.new_folder(self.id().rsplit(".", 1)[1])
        give_privileges(self.folder)
        self.inside = os.path.join(self.folder, "inside")
        os.mkdir(self.inside)
        fill_flat(self.inside, 3)
        self.before = Tree(self.folder)

    def assert_untouched(self):
        self.assertEqual(Tree(self.folder), self.before)

    def assert_refused(self, ended):
        self.assertEqual(ended.code, 2, ended)
        self.assertTrue(ended.status and ended.status.get("error"), ended)
        self.assertTrue(ended.output, "nothing is said")
        self.assert_untouched()

    def assert_pushed_but(self, *failing):
        """Everything inside is as it should be, but for these, which are counted."""
        ended = self.program.run(self.folder, EVERYTHING)
        self.assertEqual((ended.code, ended.status["status"]), (1 if failing else 0, "completed"), ended)
        self.assertEqual({error["path"] for error in ended.status["errors"]}, set(map(in_status_file, failing)))
        self.assertTrue(all(error["error"] for error in ended.status["errors"]))
        self.assertEqual(ended.status["errorCount"], len(failing))
        after = Tree(self.folder)
        for path, expectation in expected(self.before, EVERYTHING, True, groups_of).items():
            if os.path.join(self.folder, os.fsdecode(path)) not in failing:
                self.assertIsNone(difference(self.before[path], after[path], expectation), path)
        return ended

    # Arguments

    def test_a_mask_of_nothing_is_done_at_once(self):
        ended = self.program.run(self.folder, 0)
        self.assertEqual((ended.code, ended.status["status"], ended.status["itemsChanged"], ended.output),
                         (0, "completed", 0, ""))
        self.assertNotIn("error", ended.status)
        self.assert_untouched()

    def test_masks_that_are_none_are_refused(self):
        for mask in BAD_MASKS:
            with self.subTest(mask=mask):
                self.assert_refused(self.program.run(self.folder, mask))

    def test_a_folder_that_is_none_is_refused(self):
        link, dangling = (os.path.join(self.world.folder, name) for name in ("link", "dangling"))
        os.symlink(self.folder, link)
        os.symlink("nowhere", dangling)
        self.addCleanup(os.unlink, link)
        self.addCleanup(os.unlink, dangling)
        for folder in (link, dangling, os.path.join(self.inside, "0"), self.folder + "/missing", "", "/dev/null",
                       self.folder + "/inside/0/x"):
            with self.subTest(folder=folder):
                self.assert_refused(self.program.run(folder, EVERYTHING))

    def test_missing_unknown_and_repeated_arguments_are_refused(self):
        status_file = self.program.new_status_file()
        whole = self.program.words(self.folder, EVERYTHING, status_file)[1:]
        for words in ([], whole[:4], whole[2:], whole[:2] + whole[4:], whole[:5], whole + ["more"], whole + ["-x"]):
            with self.subTest(words=words):
                ended = subprocess.run(["CopyPrivs", *words], executable=self.program.program, env={}, check=False,
                                       stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                self.assertEqual((ended.returncode, bool(ended.stderr)), (2, True))
                self.assert_untouched()

    def test_without_a_place_for_its_status_nothing_outside_is_harmed(self):
        for status_file in (self.world.folder, "/proc/version", self.world.folder + "/missing/status", "/dev/null"):
            with self.subTest(status_file=status_file):
                there = stat.S_IFMT(os.stat(status_file).st_mode) if os.path.exists(status_file) else None
                process = self.program.start(self.folder, EVERYTHING, status_file, stderr=subprocess.DEVNULL)
                self.assertIn(process.wait(60), (0, 1, 2))
                self.assertEqual(stat.S_IFMT(os.stat(status_file).st_mode) if os.path.exists(status_file) else None,
                                 there)

    # What is inside

    def test_special_files_are_changed_and_never_opened(self):
        paths = [os.path.join(self.folder, name) for name in ("fifo", "socket", "character", "block")]
        for path, kind in zip(paths, (stat.S_IFIFO, stat.S_IFSOCK, stat.S_IFCHR, stat.S_IFBLK)):
            os.mknod(path, kind | 0o600, os.makedev(240, 7))
        self.before = Tree(self.folder)
        opened = Opened(*paths)
        self.addCleanup(opened.close)
        self.assert_pushed_but()
        self.assertEqual(opened.count(), 0)
        os.close(os.open(paths[0], os.O_RDONLY | os.O_NONBLOCK))
        self.assertEqual(opened.count(), 1, "an opening would not have been noticed")

    def test_immutable_files_are_errors_and_the_rest_is_done(self):
        failing = [os.path.join(self.inside, "1")]
        subprocess.run(["chattr", "+i", *failing], check=True)
        self.addCleanup(subprocess.run, ["chattr", "-i", *failing], check=True)
        self.assert_pushed_but(*failing)
        self.assertEqual(read_object(failing[0]).uid, self.before[b"inside/1"].uid)

    def test_an_immutable_file_that_is_as_it_should_be_is_no_error(self):
        self.assert_pushed_but()
        path = os.path.join(self.inside, "1")
        subprocess.run(["chattr", "+i", path], check=True)
        self.addCleanup(subprocess.run, ["chattr", "-i", path], check=True)
        ended = self.program.run(self.folder, EVERYTHING)
        self.assertEqual((ended.code, ended.status["itemsChanged"]), (0, 0))

    def test_a_damaged_list_is_an_error_and_stays(self):
        path = os.path.join(self.inside, "1")
        os.setxattr(path, ATTRIBUTE, b"junk")
        self.before = Tree(self.folder)
        ended = self.program.run(self.folder, EVERYTHING)
        self.assertEqual((ended.code, ended.status["errorCount"]), (1, 1))
        self.assertEqual(read_object(path).value, b"junk")

    def test_a_hundred_errors_and_examples_are_named_and_all_are_counted(self):
        inside = os.path.join(self.folder, "many")
        os.mkdir(inside)
        fill_flat(inside, 150)
        for number in range(150):
            os.setxattr(os.path.join(inside, "%d" % number), ATTRIBUTE, b"junk")
        before = Tree(self.folder)
        trial = self.program.run(self.folder, EVERYTHING, dry=True).status
        self.assertEqual(Tree(self.folder), before)
        status = self.program.run(self.folder, EVERYTHING).status
        for found in (trial, status):
            self.assertEqual((found["errorCount"], found["itemsChanged"], found["itemsDone"]), (150, 155, 155))
            self.assertEqual(len({error["path"] for error in found["errors"]}), 100)
        self.assertEqual(len({example["path"] for example in trial["examples"]}), 100)

    def test_a_folder_that_is_removed_meanwhile_ends_the_run(self):
        fill_bushy(self.folder, 2000)
        status_file = self.program.new_status_file()
        process = self.program.start(self.folder, EVERYTHING, status_file, stderr=subprocess.DEVNULL)
        with slowed(process):
            while process.poll() is None and not (status_in(status_file) or {}).get("itemsDone"):
                time.sleep(0.01)
            os.rename(self.folder, self.folder + ".away")
            shutil.rmtree(self.folder + ".away")
        self.assertIn(process.wait(60), (0, 1))
        self.assertEqual(status_in(status_file)["status"], "completed")

    def test_nothing_of_another_mount_is_changed(self):
        for name in ("memory", "bound"):
            os.mkdir(os.path.join(self.folder, name))
        elsewhere = self.world.new_folder("elsewhere")
        os.mkdir(os.path.join(elsewhere, "folder"))
        fill_flat(elsewhere, 2)
        mounts = ((["-t", "tmpfs", "none"], "memory"), (["--bind", elsewhere], "bound"),
                  (["--bind", os.path.join(elsewhere, "0")], "inside/2"))
        covered = {}
        for what, name in mounts:
            path = os.path.join(self.folder, name)
            covered[name.encode()] = read_object(path)
            subprocess.run(["mount", *what, path], check=True)
            self.addCleanup(subprocess.run, ["umount", "--lazy", path], check=True)
        fill_flat(os.path.join(self.folder, "memory"), 2)
        os.mkdir(os.path.join(self.folder, "memory/folder"))
        memory, bound = Tree(os.path.join(self.folder, "memory")), Tree(elsewhere)
        ended = self.program.run(self.folder, EVERYTHING)
        self.assertEqual((ended.status["status"], ended.status["itemsChanged"]), ("completed", 3), ended)
        self.assertEqual(Tree(os.path.join(self.folder, "memory")), memory)
        self.assertEqual(Tree(elsewhere), bound)

    def test_a_read_only_mount_is_nothing_but_errors(self):
        path = self.world.volume.path
        subprocess.run(["mount", "-o", "remount,ro", path], check=True)
        self.addCleanup(subprocess.run, ["mount", "-o", "remount,rw", path], check=True)
        ended = self.program.run(self.folder, EVERYTHING)
        self.assertEqual((ended.code, ended.status["status"]), (1, "completed"))
        self.assertEqual([ended.status[key] for key in ("itemsDone", "itemsChanged", "errorCount")], [4, 0, 4])
        self.assert_untouched()

    def test_without_room_for_lists_each_object_is_an_error_and_has_its_own_list(self):
        folder = os.path.join(self.world.folder, "full")
        os.mkdir(folder)
        volume = Volume(folder, "4M", "-O", "^ea_inode", "-I", "128", "-b", "1024")
        self.addCleanup(volume.unmount)
        self.folder = os.path.join(volume.path, "folder")
        os.mkdir(self.folder)
        give_privileges(self.folder)
        os.setxattr(self.folder, "user.fill", b"")
        fill_flat(self.folder, 50)
        with open(os.path.join(volume.path, "fill"), "wb", buffering=0) as file:
            try:
                while True:
                    file.write(bytes(1024))
            except OSError:
                pass
        self.before = Tree(self.folder)
        ended = self.program.run(self.folder, EVERYTHING)
        self.assertEqual((ended.code, ended.status["status"], ended.status["itemsDone"]), (1, "completed", 50))
        self.assertGreater(ended.status["errorCount"], 0)
        after = Tree(self.folder)
        failed = [path for path in after if path and after[path].value is None]
        self.assertEqual(ended.status["errorCount"], len(failed))
        for path in failed:
            self.assertIsNone(after[path].access, "a kernel ACL without its list")

    def test_two_names_of_a_file_are_two_objects(self):
        os.link(os.path.join(self.inside, "0"), os.path.join(self.inside, "again"))
        self.before = Tree(self.folder)
        ended = self.assert_pushed_but()
        self.assertEqual((ended.status["itemsDone"], ended.status["itemsTotal"]), (5, 5))


if __name__ == "__main__":
    run_tests(unittest.main, __file__)
