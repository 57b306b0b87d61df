#!/usr/bin/python3
"""Whether a daemon in a tree of its own asks the winbind of the system who somebody is.

    tree_test.py CMAKE BUILD_FOLDER

Needs root, for namespaces of its own.
"""
import os
import socket
import struct
import sys
import tempfile
import unittest

from own_samba import WINBIND_PIPE, in_namespaces, skip
from smb_world import ATTRIBUTE, Paddock, holds_attributes

# A list with one entry, for S-1-5-21-1-2-3-1104.
SID = struct.pack("<BB6s5I", 1, 5, bytes([0, 0, 0, 0, 0, 5]), 21, 1, 2, 3, 1104)
ACE = struct.pack("<BBHI", 0, 0, 8 + len(SID), 0x00100001) + SID
LIST = struct.pack("<BBHHH", 2, 0, 8 + len(ACE), 1, 0) + ACE
VALUE = struct.pack("<HHI", 1, 1, 0x00020000) + struct.pack("<BBHIIII", 1, 0, 0x8404, 0, 0, 0, 28) + LIST


class TreeTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        with tempfile.TemporaryDirectory() as folder:
            if not holds_attributes(folder):
                skip("no file system here takes the attribute " + ATTRIBUTE)

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="paddock-tree.")
        self.addCleanup(folder.cleanup)
        self.tree, self.shared = (os.path.join(folder.name, name) for name in ("tree", "shared"))
        for path in (self.tree, self.shared):
            os.mkdir(path)
        os.setxattr(self.shared, ATTRIBUTE, VALUE)
        self.winbind = self.listen()

    def listen(self):
        """In winbind's place; whoever connects is heard, and gets no answer."""
        os.makedirs(os.path.dirname(WINBIND_PIPE), exist_ok=True)
        listener = socket.socket(socket.AF_UNIX)
        self.addCleanup(os.unlink, WINBIND_PIPE)
        self.addCleanup(listener.close)
        listener.bind(WINBIND_PIPE)
        listener.listen()
        listener.setblocking(False)
        return listener

    def winbind_is_asked(self, asks_winbind):
        """While a list with somebody of elsewhere is read."""
        paddock = Paddock(*sys.argv[1:3], self.tree, asks_winbind)
        self.addCleanup(paddock.stop)
        self.assertEqual([entry["bitmap"] for entry in paddock.privileges(self.shared)["acl"]], [2])
        try:
            self.winbind.accept()[0].close()
            return True
        except BlockingIOError:
            return False

    def test_it_does_not(self):
        self.assertFalse(self.winbind_is_asked(None))

    def test_it_does_when_it_is_told_to(self):
        self.assertTrue(self.winbind_is_asked(True))


if __name__ == "__main__":
    in_namespaces(__file__, sys.argv[1:], [])
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
