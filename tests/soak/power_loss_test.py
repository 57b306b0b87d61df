#!/usr/bin/python3
"""The power fails at every step of a file's replacement, and what was not synced is lost in every combination: each
file is the old one or the new one, and the new one once its request is answered.

    power_loss_test.py CMAKE BUILD_FOLDER

The calls are those that a daemon and its programs really make (strace), the disk is a model. PADDOCK_CHANGES (6) says
how many requests. Needs root, for namespaces of its own.
"""
import glob
import os
import random
import subprocess
import sys
import time
import unittest

import disk_model
from disk_model import Disk, Folder
from soak_world import DIRECTORY, SEED, SHARING, SoakTest, count_of, exported_share_point, in_namespaces, require_tracing

CHANGES = count_of("PADDOCK_CHANGES", 6)
FILES = ("etc/exports", "etc/samba/paddock-shares.conf", "var/lib/extrausers/passwd", "var/lib/extrausers/group",
         "var/lib/extrausers/shadow")
USERS = "dsRecTypeStandard:Users"


class PowerLossTest(SoakTest):

    @classmethod
    def setUpClass(cls):
        require_tracing()
        super().setUpClass()

    def files_now(self):
        return {name: self.contents(name) for name in FILES}

    def folders_now(self):
        """What lies in the folders of these files."""
        found = {}
        for folder in sorted({os.path.dirname(name) for name in FILES}):
            files = [entry for entry in os.scandir(self.path(folder)) if entry.is_file()]
            found[self.path(folder)] = {entry.name: self.contents(os.path.join(folder, entry.name))
                                        for entry in files}
        return found

    def ask(self, number):
        """One change of share points and one of a user."""
        folder = self.shared_folder("f%d" % (number % 3))
        socket = self.socket()
        body = exported_share_point(folder, "name%d" % number)
        status, reply = socket.post(SHARING, "writeSettings", body)
        self.assertEqual((status, reply["writeStatus"]), (200, 0), reply)
        answered = time.time()
        attributes = {"dsAttrTypeStandard:UniqueID": str(21000 + number),
                      "dsAttrTypeStandard:PrimaryGroupID": "21000"}
        status, reply = socket.post(DIRECTORY, "putRecord", {"type": USERS, "name": "user%d" % number,
                                                             "attributes": attributes})
        self.assertEqual((status, reply), (200, {"status": 0}))
        socket.close()
        return answered

    def record(self):
        """(calls in their order, [(moment of the answer, the files then)])."""
        prefix = os.path.join(self.folder, "calls")
        tracer = subprocess.Popen(
            ["strace", "-ff", "-q", "-ttt", "-y", "-xx", "-s", "1048576", "-o", prefix, "-e", disk_model.TRACED,
             "-p", str(self.daemon.process.pid)], stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        while not glob.glob(prefix + ".*"):
            self.assertIsNone(tracer.poll(), "strace does not attach")
        time.sleep(0.5)
        answers = []
        for number in range(CHANGES):
            self.ask(number)
            answers.append((time.time(), self.files_now()))
        self.daemon.stop()
        tracer.wait(60)
        calls = []
        for name in glob.glob(prefix + ".*"):
            with open(name, encoding="ascii") as lines:
                calls += list(disk_model.calls_of(lines))
        return sorted(calls, key=lambda call: call[0]), answers

    def test_each_file_is_the_old_one_or_the_new_one(self):
        os.makedirs(self.path("etc/samba"), exist_ok=True)
        self.daemon.start()
        old = self.files_now()
        disk = Disk(self.folders_now())
        calls, answers = self.record()
        states = 0
        while calls or answers:
            if answers and (not calls or answers[0][0] < calls[0][0]):
                old = answers.pop(0)[1]
                self.assertEqual({name: self.modelled(disk, name) for name in FILES}, old)
                states += self.check(disk, old, old)
                continue
            _, kind, groups = calls.pop(0)
            if disk.do(kind, groups):
                states += self.check(disk, old, answers[0][1] if answers else old)
        print("%d states after a loss of power, of %d requests" % (states, CHANGES * 2), flush=True)
        self.assertGreater(states, 100 * CHANGES)

    def modelled(self, disk, name):
        file = disk.file(self.path(name))
        return file and file.now()

    def check(self, disk, old, new):
        """The number of different ways to lose something."""
        states = 0
        for name in FILES:
            folder = disk.folders[self.path(os.path.dirname(name)).encode()]
            for contents in folder.possible(os.path.basename(name).encode()):
                states += 1
                self.assertIn(contents, (old[name], new[name]), name)
        return states


class ModelTest(unittest.TestCase):
    """That the model loses what a disk may lose."""

    def folder(self):
        return Folder({b"file": b"old"})

    def replaced(self, sync_file, sync_folder):
        folder = self.folder()
        new = disk_model.File(b"")
        folder.change({b"temporary": new})
        new.write(b"ne")
        new.write(b"w")
        if sync_file:
            new.pending.sync()
        folder.change({b"temporary": None, b"file": new})
        if sync_folder:
            folder.pending.sync()
        return set(folder.possible(b"file"))

    def test_a_replacement_in_the_right_order_is_whole(self):
        self.assertEqual(self.replaced(True, False), {b"old", b"new"})
        self.assertEqual(self.replaced(True, True), {b"new"})

    def test_a_replacement_without_a_sync_may_be_mixed(self):
        self.assertEqual(self.replaced(False, True), {b"", b"ne", b"\0\0w", b"new"})

    def test_writing_in_place_may_be_mixed(self):
        folder = self.folder()
        file = folder.names[b"file"]
        file.pending.add((0, None))
        file.write(b"new")
        self.assertEqual(set(folder.possible(b"file")), {b"old", b"", b"new"})

    def test_a_call_is_read(self):
        def text(plain):
            return '"%s"' % "".join("\\x%02x" % byte for byte in plain)
        hidden = "/srv".encode().hex(" ").replace(" ", "\\x")
        lines = ["1.5 openat(5<\\x%s>, %s, O_WRONLY|O_CREAT|O_EXCL|O_CLOEXEC, 0600) = 7<x>" % (hidden, text(b"n")),
                 "1.6 renameat(5<\\x%s>, %s, 5<\\x%s>, %s) = 0" % (hidden, text(b"n"), hidden, text(b"file"))]
        disk = Disk({"/srv": {"file": b"old"}})
        for _, kind, groups in disk_model.calls_of(lines):
            self.assertTrue(disk.do(kind, groups))
        self.assertEqual(set(disk.folders[b"/srv"].possible(b"file")), {b"old", b""})


if __name__ == "__main__":
    in_namespaces(__file__, sys.argv[1:], ("strace",))
    random.seed(SEED)
    unittest.main(argv=sys.argv[:1])
