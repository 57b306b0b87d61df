#!/usr/bin/python3
"""The options of a share point are what an smbd does with its share.

    options_test.py CMAKE BUILD_FOLDER

Needs root, for namespaces of its own.
"""
import os
import shutil
import subprocess
import time

from published_shares import PATIENCE, SharesTest
from smb_world import PASSWORD, USERS, Session, run_tests

from samba import NTSTATUSError, ntstatus

TESTPARM = "/usr/bin/testparm"


class OptionsTest(SharesTest):

    def setUp(self):
        super().setUp()
        place = os.path.join(self.world.paddock.tree, "usr/bin/testparm")
        if not os.path.exists(place):
            shutil.copy(TESTPARM, place)

    def configured(self, name, parameter):
        """What the smbd's configuration says of the share."""
        return subprocess.run([TESTPARM, "-s", "--section-name", name, "--parameter-name", parameter,
                               self.world.samba.configuration], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True,
                              encoding="utf-8").stdout.strip()

    def set_share(self, *words):
        return self.world.paddock.keelhouse("share", "set", self.path, *words)

    def refused(self, *words):
        """Its standard error."""
        ended = subprocess.run([self.world.paddock.program, "share", "set", self.path, *words],
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               encoding="utf-8", check=False)
        self.assertEqual(ended.returncode, 2, ended.stderr)
        return ended.stderr

    def await_true(self, is_true):
        """A running smbd reads its configuration again in its own time."""
        deadline = time.monotonic() + PATIENCE
        while not is_true():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.2)

    def smbclient(self, *words):
        return subprocess.run(["smbclient", "-s", self.world.samba.configuration, *words],
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              encoding="utf-8", check=False)

    def test_a_read_only_one_refuses_to_be_written_to(self):
        self.share("Plans", "--read-only")
        with open(os.path.join(self.path, "minutes"), "w", encoding="ascii") as file:
            file.write("nine")
        self.assertEqual(self.session("anna", "Plans").read("minutes"), b"nine")
        self.assertFalse(self.session("anna", "Plans").write("other", b"ten"))
        self.assertIn("smb.readOnly: yes\n", self.world.paddock.keelhouse("share", "show", self.path))
        self.set_share("--no-read-only")
        self.await_true(lambda: self.session("anna", "Plans").write("other", b"ten"))
        self.assertNotIn("\nsmb.", self.world.paddock.keelhouse("share", "show", self.path))

    def test_it_was_never_served_without_its_options(self):
        """Not even while it is made: the file never has the share without them."""
        self.share("Plans", "--read-only", "--allow-hosts", "127.0.0.1")
        self.assertEqual(self.configured("Plans", "read only"), "Yes")
        self.assertEqual(self.configured("Plans", "hosts allow"), "127.0.0.1")

    def test_guests_come_in_where_they_may(self):
        self.share("Plans")
        guest = ("-N", "//127.0.0.1/Plans", "-c", "ls")
        self.assertIn("NT_STATUS_ACCESS_DENIED", self.smbclient(*guest).stdout)
        self.set_share("--guest")
        self.await_true(lambda: self.smbclient(*guest).returncode == 0)
        self.set_share("--no-guest")
        self.await_true(lambda: self.smbclient(*guest).returncode != 0)

    def test_a_hidden_one_is_not_listed_and_is_served(self):
        self.share("Plans")
        self.set_share("--hide")
        self.await_listing(lambda names: "Plans" not in names)
        self.assertEqual(self.session("anna", "Plans").names(""), set())
        self.set_share("--no-hide")
        self.await_listing(lambda names: "Plans" in names)

    def test_a_comment_is_listed(self):
        self.share("Plans", "--comment", "What we plan; 100% ours, \"all\" of it")
        self.assertEqual(self.listing()["Plans"], "What we plan; 100% ours, \"all\" of it")
        self.set_share("--no-comment")
        self.await_listing(lambda names: names["Plans"] == self.name)

    def test_hosts_that_are_not_allowed_are_refused(self):
        self.share("Plans", "--allow-hosts", "10.1.2.0/24")
        # The loopback address is let in unless it is denied by name.
        self.set_share("--option", "hosts deny = 127.0.0.1")
        self.await_true(lambda: not self.lets_in("Plans"))
        self.set_share("--allow-hosts", "127.0.0.1")
        self.await_true(lambda: self.lets_in("Plans"))
        self.set_share("--no-allow-hosts", "--no-option", "hosts deny")
        self.assertEqual(self.configured("Plans", "hosts allow"), "")
        self.await_true(lambda: self.lets_in("Plans"))

    def lets_in(self, name):
        try:
            Session(self.world.samba.configuration, "anna", name)
            return True
        except NTSTATUSError as error:
            self.assertEqual(error.args[0], ntstatus.NT_STATUS_ACCESS_DENIED)
            return False

    def test_what_each_user_deletes_is_kept_for_that_user(self):
        self.share("Plans", "--recycle")
        for user in ("anna", "bert"):
            session = self.session(user, "Plans")
            self.assertTrue(session.make_folder("of " + user))
            self.assertTrue(session.write("of %s\\minutes" % user, user.encode()))
            done = self.smbclient("-U", user + "%" + PASSWORD, "//127.0.0.1/Plans", "-c",
                                  'del "of %s\\minutes"' % user)
            self.assertEqual((done.returncode, done.stdout), (0, ""))
            self.assertFalse(os.path.exists(os.path.join(self.path, "of " + user, "minutes")))
            kept = os.path.join(self.path, ".recycle", user, "of " + user, "minutes")
            with open(kept, "rb") as file:
                self.assertEqual(file.read(), user.encode())
            bin_of_user = os.stat(os.path.join(self.path, ".recycle", user))
            self.assertEqual(bin_of_user.st_uid, USERS[user])
            self.assertEqual(bin_of_user.st_mode & 0o077, 0, oct(bin_of_user.st_mode))
        self.assertEqual(self.session("anna", "Plans").read(".recycle\\anna\\of anna\\minutes"), b"anna")
        self.assertIsNone(self.session("bert", "Plans").read(".recycle\\anna\\of anna\\minutes"))

    def test_a_bin_leaves_the_lists_enforced(self):
        os.chmod(self.path, 0o755)
        self.set_acl("allow user:anna read,write:inherit", "deny user:bert read,write:inherit")
        self.share("Plans", "--recycle")
        self.assertTrue(self.session("anna", "Plans").write("minutes", b"nine"))
        self.assertIsNone(self.session("bert", "Plans").read("minutes"))
        self.assertEqual(self.smbclient("-U", "anna%" + PASSWORD, "//127.0.0.1/Plans", "-c",
                                        "del minutes").returncode, 0)
        self.assertTrue(os.path.exists(os.path.join(self.path, ".recycle/anna/minutes")))

    def test_another_parameter_has_its_effect(self):
        self.share("Plans", "--option", "veto files = /*.exe/")
        with self.assertRaises(NTSTATUSError) as raised:
            self.session("anna", "Plans").write("virus.exe", b"")
        self.assertEqual(raised.exception.args[0], ntstatus.NT_STATUS_OBJECT_NAME_NOT_FOUND)
        self.assertTrue(self.session("anna", "Plans").write("virus.txt", b""))
        self.assertEqual(self.configured("Plans", "veto files"), "/*.exe/")
        self.set_share("--no-option", "veto files")
        self.await_true(lambda: self.takes("Plans", "virus.exe"))

    def takes(self, name, file):
        try:
            return self.session("anna", name).write(file, b"")
        except NTSTATUSError:
            return False

    def test_dangerous_ones_and_wrong_ones_are_refused_and_change_nothing(self):
        self.share("Plans")
        with open(self.world.published, "rb") as file:
            before = file.read()
        for parameter, reason in (
                ("root preexec = /bin/sh -c id", "runs a program"), ("wide links = yes", "leads out"),
                ("force user = root", "acts for somebody else"), ("admin users = anna", "acts for"),
                ("vfs objects =", "names modules"), ("path = /", "keelhouse share move"),
                ("include = /etc/samba/x", "other text"), ("create mask = 0777", "the folder's list"),
                ("acl_xattr:ignore system acls = no", "a module's"), ("workgroup = X", "smb.conf"),
                ("oplocks = perhaps", "Samba does not take it: "),
                ("csc policy = silly", "Samba does not take it: "),
                ("max connections = many", "takes a number"),
                ("veto files = /a/\n[evil]\npath = /", "line break")):
            self.assertIn(reason, self.refused("--option", parameter), parameter)
        with open(self.world.published, "rb") as file:
            self.assertEqual(file.read(), before)

    def test_one_whose_stored_options_are_not_right_is_not_served_at_all(self):
        """And keeps no other share from being served."""
        good, bad, worse = self.make("good"), self.make("bad"), self.make("worse")
        self.world.paddock.put_share_point("good", good, "good")
        for name, path, options in (("bad", bad, ["root preexec = /bin/true"]),
                                    ("worse", worse, ["oplocks = perhaps"])):
            self.world.paddock.put_share_point(name, path, name)
            self.world.paddock.request("paddock_directory", "putRecord", {
                "type": "dsRecTypeStandard:SharePoints", "name": name,
                "attributes": {"dsAttrTypeNative:paddock_smb_options": options}})
        self.world.paddock.synchronize()
        self.await_listing(lambda names: names)
        self.assertEqual(set(self.listing()), {"good"})


if __name__ == "__main__":
    run_tests(__file__)
