#!/usr/bin/python3
"""A list that an SMB client has made leaves nothing to the mode: keelhouse says so, keeps it so, and does
not open such a file by the way.

    complete_list_test.py CMAKE BUILD_FOLDER

Needs root, for namespaces of its own.
"""
import json
import os
import subprocess

from smb_world import PLAIN_USERS, USERS, SmbTest, run_tests


class CompleteListTest(SmbTest):
    """The mode lets everybody read, the list anna alone."""

    def setUp(self):
        super().setUp()
        self.make_file(0o644)
        self.world.session("root").set_list(self.name, "D:(A;;FR;;;S-1-22-1-%d)" % USERS["anna"])
        self.assertEqual(self.readers(), {"anna"})

    def readers(self):
        """Over SMB."""
        return self.users_who(lambda smb: smb.read(self.name) == b"content")

    def run_keelhouse(self, *words):
        return subprocess.run([self.world.paddock.program, *words], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8", check=False)

    def shown(self, *words):
        return self.world.paddock.keelhouse("acl", "show", self.path, *words)

    def set_from(self, document):
        path = os.path.join(self.world.folder, self.name + ".json")
        with open(path, "w", encoding="utf-8") as file:
            file.write(document)
        return self.run_keelhouse("acl", "set", self.path, "--from", path)

    def test_it_is_said_to_be_complete(self):
        self.assertIn("The list is complete: nothing falls to the mode", self.shown())
        self.assertIs(json.loads(self.shown("--json"))["complete"], True)
        self.assertIs(json.loads(self.world.paddock.keelhouse("privs", "show", self.path, "--json"))["complete"],
                      True)
        self.set_acl()
        self.set_acl("allow user:anna read")
        self.assertNotIn("complete", self.shown())
        self.assertIs(json.loads(self.shown("--json"))["complete"], False)

    def test_its_last_entry_does_not_go_by_the_way(self):
        for words in (("acl", "remove", self.path, "1"), ("acl", "remove", self.path, "user:anna")):
            ended = self.run_keelhouse(*words)
            self.assertEqual(ended.returncode, 1, ended.stdout)
            for text in ("is complete", "nothing was changed", "the group root can read it",
                         "others can read it", "--force"):
                self.assertIn(text, ended.stderr)
        ended = self.set_from('{"acl": []}')
        self.assertEqual(ended.returncode, 1, ended.stdout)
        self.assertIn("--force", ended.stderr)
        self.assertEqual(self.readers(), {"anna"})
        self.world.paddock.keelhouse("acl", "remove", "--force", self.path, "1")
        self.assertEqual(self.readers(), set(PLAIN_USERS))

    def test_it_comes_back_as_it_was(self):
        for command in (("acl", "show"), ("privs", "show")):
            document = self.world.paddock.keelhouse(*command, self.path, "--json")
            self.set_acl()
            self.assertEqual(self.readers(), set(PLAIN_USERS))
            path = os.path.join(self.world.folder, self.name + ".json")
            with open(path, "w", encoding="utf-8") as file:
                file.write(document)
            self.world.paddock.keelhouse(command[0], "set", self.path, "--from", path)
            self.assertEqual(self.readers(), {"anna"}, command)
            self.assertEqual(self.world.paddock.keelhouse(*command, self.path, "--json"), document)

    def test_one_without_entries_lets_nobody_in_and_comes_back(self):
        self.assertEqual(self.set_from('{"acl": [], "complete": true}').returncode, 0)
        self.assertEqual(self.readers(), set())
        self.assertIn("nobody gets in by it", self.shown())
        document = self.shown("--json")
        self.assertEqual(json.loads(document), {"path": self.path, "acl": [], "complete": True})
        self.set_acl()
        self.assertEqual(self.readers(), set(PLAIN_USERS))
        self.assertEqual(self.set_from(document).returncode, 0)
        self.assertEqual(self.readers(), set())


if __name__ == "__main__":
    run_tests(__file__)
