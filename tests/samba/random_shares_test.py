#!/usr/bin/python3
"""Whatever share points are called, and wherever they are, Samba reads exactly those that are
published, and nothing else.

    random_shares_test.py CMAKE BUILD_FOLDER

Needs root, for namespaces of its own.
"""
import os
import random
import re
import subprocess

from published_shares import SharesTest
from smb_world import run_tests

from samba.param import LoadParm

ROUNDS = 2
SHARES = 120
# What means something to Samba, to SMB, or to nobody.
PIECES = (" ", "  ", "\t", "\n", "\r", "\r\n", "\v", "\f", "\x1b", "\x7f", "\u0085", "\u00a0", "\u2028", "\u202e",
          "%", "%%", "%U", "%S", "%$(HOME)", "%(", "\\", "\\\n", '"', "'", "`", "$", "~", "[", "]", "[x]", "/",
          "//", "..", ".", ";", "#", "=", ":", ",", "+", "*", "?", "<", ">", "|", "&", "@", "!", "-",
          "global", "homes", "printers", "IPC$", "include", "path = /", "guest ok = yes", "\n[evil]\n",
          "é", "É", "ß", "Σ", "שלום", "\U0001f4f7", "a", "A", "b", "cd", "EF", "0", "x" * 40)
OURS = {"path", "comment", "read only", "vfs objects", "acl_xattr:ignore system acls", "inherit permissions"}
RESERVED = {"homes", "printers", "print$", "ipc$", "admin$"}


def is_value(text):
    return not re.search(r'^[ \t\r\v\f"]|[ \t\r\v\f"\\]$|[ \t\r\v\f]{2}|[\n\0]|%[A-Za-z$]', text)


def is_share_name(name):
    return (is_value(name) and not re.search(r"[\0-\x1f\x7f-\x9f/\\\[\]]", name)
            and len(name.encode("utf-16-le")) <= 160 and name.lower() not in RESERVED
            and name.replace(" ", "").lower() not in ("global", "globals"))


def key(name):
    return "".join(character.lower() for character in name)


class RandomSharesTest(SharesTest):

    def setUp(self):
        super().setUp()
        self.random = random.Random(self.name)

    def text(self, most):
        pieces = [self.random.choice(PIECES) for _ in range(self.random.randrange(1, most))]
        if self.random.random() < 0.5:
            pieces = [piece for piece in pieces if piece.isalnum()]
        return "".join(pieces) or "plain"

    def path_of_a_folder(self, number):
        """One that there is, with a file that tells it from the others."""
        path = os.path.join(self.path, "%d" % number, self.text(5).replace("\0", "").replace("/..", ""))
        if not is_value(path):
            return path
        os.makedirs(path, exist_ok=True)
        with open(os.path.join(path, "mark"), "w", encoding="ascii") as file:
            file.write("%d" % number)
        return path

    def put_share_points(self, round_number):
        """Share -> (path, comment, number), of those that are to be published."""
        expected = {}
        for number in range(SHARES):
            number += round_number * SHARES
            record = "%s %d" % (self.text(4), number)
            path, name = self.path_of_a_folder(number), self.text(4)
            self.world.paddock.put_share_point(record, path, name)
            if is_share_name(name) and is_value(path) and key(name) not in map(key, expected):
                expected[name] = (path, record if is_value(record) else "", number)
        return expected

    def test_samba_reads_exactly_what_is_published(self):
        for round_number in range(ROUNDS):
            self.world.paddock.delete_share_points()
            self.world.paddock.synchronize()
            quiet = self.run_testparm()
            expected = self.put_share_points(round_number)
            self.world.paddock.synchronize()
            self.assertGreater(len(expected), SHARES / 10)
            self.assertLess(len(expected), SHARES - SHARES / 10)
            self.check_loadparm(expected)
            self.check_testparm(expected, quiet)
            self.check_server(expected)

    def check_loadparm(self, expected):
        context = LoadParm(filename_for_non_global_lp=self.world.published_configuration())
        self.assertEqual(set(context.services()), set(expected))
        for name, (path, comment, _) in expected.items():
            self.assertEqual(context.get("path", name), path)
            self.assertEqual(context.get("comment", name), comment)

    def run_testparm(self):
        return subprocess.run(["testparm", "-s", self.world.published_configuration()], check=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def check_testparm(self, expected, quiet):
        """It says what it says of no shares at all, and of each share what we say of it."""
        done = self.run_testparm()
        self.assertEqual(done.stderr, quiet.stderr)
        sections = done.stdout.decode("utf-8").split("\n\n\n")[1:]
        self.assertEqual(len(sections), len(expected))
        for section in sections:
            name, *lines = section.rstrip("\n").split("\n")
            self.assertIn(name[1:-1], expected)
            self.assertLessEqual({line.split(" = ")[0].strip() for line in lines}, OURS)

    def check_server(self, expected):
        comments = {name: comment for name, (_, comment, _) in expected.items()}
        self.assertEqual(self.await_listing(lambda listed: listed.keys() == comments.keys()), comments)
        for name, (_, _, number) in expected.items():
            self.assertEqual(self.session("root", name).read("mark"), b"%d" % number, name)


if __name__ == "__main__":
    run_tests(__file__)
