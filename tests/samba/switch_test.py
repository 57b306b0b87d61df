#!/usr/bin/python3
"""Lists that SMB clients have set stay in force when their share is served by lists, and not by modes as before.

    switch_test.py CMAKE BUILD_FOLDER

Needs root, for namespaces of its own.
"""
import os
import subprocess
import time

from published_shares import PATIENCE, SharesTest
from smb_world import ATTRIBUTE, USERS, local_access, run_tests, security

READ, WRITE = security.SEC_FILE_READ_DATA, security.SEC_FILE_WRITE_DATA
BY_LISTS = "ignore system acls = no"
BY_MODES = "ignore system acls = yes"
SYNCHRONIZER = "usr/libexec/samba/synchronize-shares"


class SwitchTest(SharesTest):

    def setUp(self):
        super().setUp()
        self.share_name = self.name[-30:]

    def make_file(self, name, mode, owner="bert"):
        path = os.path.join(self.path, name)
        with open(path, "w", encoding="ascii") as file:
            file.write("content")
        os.chmod(path, mode)
        os.chown(path, USERS[owner], -1)
        return path

    def mine_alone(self, user, name):
        self.session(user, self.share_name).set_list(name, "D:(A;;FA;;;S-1-22-1-%d)" % USERS[user])

    def published_text(self):
        with open(self.world.published, encoding="utf-8") as file:
            return file.read()

    def pass_on(self):
        """What makes the share one that is served by lists; what was said."""
        ended = self.world.paddock._run("acl", "set", self.path, "allow group:crew read,write:inherit")
        self.assertEqual(ended.returncode, 0, ended.stderr)
        return ended.stdout + ended.stderr

    def synchronizes(self, *words):
        ended = subprocess.run([os.path.join(self.world.paddock.tree, SYNCHRONIZER), *words], check=False,
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               encoding="utf-8")
        self.assertEqual((ended.returncode, ended.stdout), (0, ""), ended.stderr)
        return ended.stderr

    def version(self, path):
        return int.from_bytes(os.getxattr(path, ATTRIBUTE)[:2], "little")

    def rights(self, user, name):
        session = self.session(user, self.share_name)
        return "".join(letter for letter, mask in (("r", READ), ("w", WRITE)) if session.may(name, mask))

    def share_by_modes(self):
        self.share(self.share_name)
        self.assertIn(BY_MODES, self.published_text())

    def kernel_of(self, path):
        return subprocess.run(["getfacl", "-cp", path], check=True, stdout=subprocess.PIPE).stdout

    def test_a_list_that_a_client_has_set_holds(self):
        plan = self.make_file("plan.txt", 0o666)
        self.share_by_modes()
        self.mine_alone("bert", "plan.txt")
        self.assertEqual((self.version(plan), self.rights("anna", "plan.txt")), (3, ""))
        before, others = self.kernel_of(plan), self.session("anna", self.share_name)
        self.pass_on()
        self.assertIn(BY_LISTS, self.published_text())
        self.await_new_section(others)
        self.assertEqual(self.version(plan), 1)
        self.assertEqual({user: self.rights(user, "plan.txt") for user in ("anna", "bert", "dora")},
                         {"anna": "", "bert": "rw", "dora": ""})
        self.assertEqual(self.kernel_of(plan), before, "nothing is opened to anybody")
        self.assertEqual(local_access("anna", plan), "rw-")
        self.assertNotIn("passes over", self.world.paddock.keelhouse("acl", "show", plan))

    def await_new_section(self, session):
        """Connections by the old section are ended, so that nothing is set over them any more."""
        deadline = time.monotonic() + PATIENCE
        while True:
            try:
                session.names("")
            except Exception:  # pylint: disable=broad-except
                return
            self.assertLess(time.monotonic(), deadline, "an old connection goes on")
            time.sleep(0.1)

    def test_lists_hold_however_deep(self):
        deep = self.path
        for level in range(40):
            deep = os.path.join(deep, "level%d" % level)
            os.mkdir(deep)
            os.chmod(deep, 0o777)
        inside = os.path.relpath(deep, self.path)
        self.make_file(os.path.join(inside, "plan.txt"), 0o666)
        self.share_by_modes()
        self.mine_alone("bert", inside + "/plan.txt")
        self.session("root", self.share_name).set_list(inside, "D:(A;;FA;;;S-1-22-1-%d)" % USERS["bert"])
        self.pass_on()
        self.assertEqual(self.rights("anna", inside + "/plan.txt"), "")
        self.assertIsNone(self.session("anna", self.share_name).names(inside))
        self.assertEqual(self.rights("bert", inside + "/plan.txt"), "rw")

    def test_what_a_client_made_in_a_folder_with_entries_keeps_its_list(self):
        """As in a share of an installation before shares were served by lists."""
        self.share_by_modes()
        folder = self.make("inside")
        os.chmod(folder, 0o777)
        deeper = os.path.join(folder, "deeper")
        os.mkdir(deeper)
        os.chmod(deeper, 0o777)
        self.world.paddock.keelhouse("acl", "set", deeper, "deny user:dora full:inherit",
                                     "allow user:anna read,write:inherit")
        self.assertIn(BY_MODES, self.published_text())
        self.assertTrue(self.session("anna", self.share_name).write("inside/deeper/made", b"content"))
        os.chmod(os.path.join(deeper, "made"), 0o666)
        found = {user: self.rights(user, "inside/deeper/made") for user in ("anna", "carl", "dora")}
        self.assertEqual(found["dora"], "")
        self.pass_on()
        self.assertIn(BY_LISTS, self.published_text())
        self.assertEqual({user: self.rights(user, "inside/deeper/made") for user in found}, found)

    def test_a_list_that_was_overridden_by_the_kernel_holds_as_before(self):
        plan = self.make_file("plan.txt", 0o666)
        self.pass_on()
        self.share(self.share_name)
        self.assertIn(BY_LISTS, self.published_text())
        self.mine_alone("bert", "plan.txt")
        self.assertEqual((self.version(plan), self.rights("anna", "plan.txt")), (4, ""))
        self.world.paddock.keelhouse("acl", "clear", self.path)
        self.assertIn(BY_MODES, self.published_text())
        os.chmod(plan, 0o666)
        self.assertEqual(self.rights("anna", "plan.txt"), "")
        self.pass_on()
        self.assertEqual((self.version(plan), self.rights("anna", "plan.txt")), (1, ""))

    def test_a_list_that_cannot_be_kept_keeps_the_share_as_it_is(self):
        plan = self.make_file("plan.txt", 0o666)
        self.share_by_modes()
        self.mine_alone("bert", "plan.txt")
        if subprocess.run(["chattr", "+i", plan], check=False, stderr=subprocess.DEVNULL).returncode != 0:
            self.skipTest("no file attributes here")
        self.addCleanup(subprocess.run, ["chattr", "-i", plan], check=True)
        self.assertIn("is served by its modes, and not by its lists", self.pass_on())
        self.assertIn(BY_MODES, self.published_text())
        self.assertEqual(self.rights("anna", "plan.txt"), "")
        said = self.synchronizes()
        self.assertIn("is served by its modes, and not by its lists", said)
        self.assertIn(plan + ": Operation not permitted", said)
        subprocess.run(["chattr", "-i", plan], check=True)
        self.assertEqual(self.synchronizes("--no-limit"), "")
        self.assertIn(BY_LISTS, self.published_text())
        self.assertEqual(self.rights("anna", "plan.txt"), "")


if __name__ == "__main__":
    run_tests(__file__)
