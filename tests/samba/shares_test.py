#!/usr/bin/python3
"""An smbd whose configuration includes what synchronize-shares writes serves the share points.

    shares_test.py CMAKE BUILD_FOLDER [--attribute NAME]

Needs root, for namespaces of its own.
"""
import os
import subprocess
import time

from smb_world import PASSWORD, USERS, Session, SmbTest, run_tests

from samba import NTSTATUSError, ntstatus

PATIENCE = 60  # seconds, for a server that is told to read its configuration again


class SharesTest(SmbTest):
    """The tests share folders below the world's; what they publish is gone at their end."""

    def setUp(self):
        super().setUp()
        self.make_folder(0o777)
        self.addCleanup(self.unpublish)

    def unpublish(self):
        self.world.paddock.delete_share_points()
        self.world.paddock.synchronize()
        self.await_listing(lambda names: not names)

    def listing(self):
        """Share -> comment, without those that the server has without us."""
        listed = subprocess.run(["smbclient", "-s", self.world.samba.configuration, "-g", "-L", "127.0.0.1",
                                 "-U", "anna%" + PASSWORD], stdout=subprocess.PIPE,
                                stderr=subprocess.DEVNULL, check=True).stdout.decode("utf-8")
        shares = dict(line.split("|", 2)[1:] for line in listed.split("\n") if line.startswith("Disk|"))
        return {name: comment for name, comment in shares.items() if name not in ("shared", "careful")}

    def await_listing(self, is_right):
        """The listing, once it is right."""
        deadline = time.monotonic() + PATIENCE
        while True:
            listed = self.listing()
            if is_right(listed):
                return listed
            self.assertLess(time.monotonic(), deadline, "listed are %s" % listed)
            time.sleep(0.1)

    def share(self, name, *words):
        self.world.paddock.keelhouse("share", "add", self.path, "--smb-name", name, *words)
        self.await_listing(lambda names: name in names)

    def session(self, user, name):
        return Session(self.world.samba.configuration, user, name)

    def assert_no_share(self, name):
        with self.assertRaises(NTSTATUSError) as raised:
            self.session("anna", name)
        self.assertEqual(raised.exception.args[0], ntstatus.NT_STATUS_BAD_NETWORK_NAME)

    def make(self, name):
        path = os.path.join(self.path, name)
        os.mkdir(path)
        return path


class LifeTest(SharesTest):

    def test_a_share_point_is_listed_and_can_be_written_to(self):
        self.share("Plans", "--name", "The plans")
        self.assertEqual(self.listing(), {"Plans": "The plans"})
        done = subprocess.run(["smbclient", "-s", self.world.samba.configuration, "//127.0.0.1/plans",
                               "-U", "anna%" + PASSWORD, "-c", "put /etc/hostname minutes; ls"],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=True)
        self.assertIn(b"minutes", done.stdout)
        self.assertTrue(self.session("anna", "PLANS").write("films", b"of anna's"))
        with open(os.path.join(self.path, "films"), "rb") as file:
            self.assertEqual(file.read(), b"of anna's")
        self.assertEqual(os.stat(os.path.join(self.path, "films")).st_uid, USERS["anna"])

    def test_a_removed_one_is_gone(self):
        self.share("Plans")
        self.session("anna", "Plans")
        self.world.paddock.keelhouse("share", "remove", self.path)
        self.await_listing(lambda names: "Plans" not in names)
        self.assert_no_share("Plans")

    def test_a_renamed_one_has_its_new_name_alone(self):
        self.share("Plans")
        self.world.paddock.keelhouse("share", "set", self.path, "--smb-name", "Überblick")
        self.await_listing(lambda names: "Überblick" in names)
        self.assertNotIn("Plans", self.listing())
        self.assertEqual(self.session("anna", "überblick").names(""), {".", ".."})
        self.assert_no_share("Plans")

    def test_one_without_a_name_over_smb_is_not_there(self):
        self.share("Plans")
        self.world.paddock.keelhouse("share", "set", self.path, "--smb-name", "")
        self.await_listing(lambda names: not names)
        self.assert_no_share("Plans")


class AccessTest(SharesTest):

    def test_one_user_is_allowed_and_another_denied(self):
        os.chmod(self.path, 0o700)
        self.set_acl("allow user:anna read,write:inherit", "deny user:bert read,write:inherit")
        self.share("Plans")
        self.assertTrue(self.session("anna", "Plans").write("minutes", b"nine o'clock"))
        self.assertEqual(self.session("anna", "Plans").read("minutes"), b"nine o'clock")
        for user in ("bert", "carl"):
            self.assertFalse(self.session(user, "Plans").write("other", b""), user)
            self.assertIsNone(self.session(user, "Plans").names(""), user)

    def test_what_is_made_where_nothing_is_inherited_is_not_open_to_others(self):
        os.chown(self.path, USERS["anna"], USERS["anna"])
        os.chmod(self.path, 0o750)
        self.set_acl("allow user:bert read")
        self.share("Plans")
        self.assertTrue(self.session("anna", "Plans").write("minutes", b"nine"))
        self.assertTrue(self.session("anna", "Plans").make_folder("films"))
        for name in ("minutes", "films"):
            mode = os.stat(os.path.join(self.path, name)).st_mode
            self.assertEqual(mode & 0o027, 0, "%s is of mode %o" % (name, mode))
        os.chmod(self.path, 0o755)
        self.assertIsNone(self.session("carl", "Plans").read("minutes"))

    def test_what_is_made_inherits_entries(self):
        os.chmod(self.path, 0o755)
        self.set_acl("allow user:anna read,write:inherit", "allow user:bert read:inherit",
                     "deny user:carl read:inherit")
        self.share("Plans")
        self.assertTrue(self.session("anna", "Plans").write("minutes", b"nine"))
        self.assertEqual(self.session("bert", "Plans").read("minutes"), b"nine")
        self.assertFalse(self.session("bert", "Plans").write("minutes", b"ten"))
        self.assertIsNone(self.session("carl", "Plans").read("minutes"))

    def test_the_lists_of_clients_are_kept_in_the_configured_attribute(self):
        os.chmod(self.path, 0o777)
        self.share("Plans")
        self.assertTrue(self.session("root", "Plans").write("minutes", b"nine"))
        self.session("root", "Plans").set_list("minutes", "D:(A;;FA;;;S-1-22-1-0)")
        self.assertIn(self.options.attribute, os.listxattr(os.path.join(self.path, "minutes")))
        self.assertIsNone(self.session("anna", "Plans").read("minutes"))


class HostileNamesTest(SharesTest):

    def test_they_keep_no_other_share_from_being_served(self):
        folder = self.make("good")
        hostile = ("global", "HOMES", "printers", "print$", "IPC$", "admin$", "g l o b a l", "a]b", "[a",
                   "a/b", "a\\b", "a\\", "%U", "%$(HOME)", " a", "a ", "a  b", '"a"', "a\nb", "a\tb",
                   "\x1b[2J", "\x7f", "\u0085", "x" * 81, "x" * 300, "\n[evil]\npath = /\nguest ok = yes\n#")
        for number, name in enumerate(hostile):
            self.world.paddock.put_share_point("bad%d" % number, folder, name)
        for number, path in enumerate(("", "relative", "/a\nguest ok = yes", "/a\\", "/%U", "/a ", '/a"', "/a  b")):
            self.world.paddock.put_share_point("path%d" % number, path, "p%d" % number)
        self.world.paddock.put_share_point("a\\\n[evil]\nguest ok = yes", folder, "good")
        self.world.paddock.synchronize()
        self.await_listing(lambda names: names)
        self.assertEqual(self.listing(), {"good": ""})
        self.assertEqual(self.session("anna", "good").names(""), {".", ".."})
        for name in ("evil", "a", "p0", "p1", "p2"):
            self.assert_no_share(name)

    def test_unusual_ones_are_served_under_exactly_their_names(self):
        names = ("Summer photos", "R&D, Berlin", "C++", "a;b", "#a", ";a", "a=b", "a:b", 'a"b', "a*b?",
                 "a<b>", "100%", "50% off", "$", "a$", "include", "path", "Σίσυφος", "café", "cafe\u0301",
                 "שלום", "\u202eabc", "\U0001f4f7" * 40, "x" * 80, "é" * 80, "straße", "STRASSE", ".", "..")
        for number, name in enumerate(names):
            path = self.make("%d" % number)
            with open(os.path.join(path, "mark"), "w", encoding="ascii") as file:
                file.write(str(number))
            self.world.paddock.put_share_point("record %d" % number, path, name)
        self.world.paddock.synchronize()
        listed = self.await_listing(lambda found: len(found) >= len(names))
        self.assertEqual(listed, {name: "record %d" % number for number, name in enumerate(names)})
        for number, name in enumerate(names):
            self.assertEqual(self.session("anna", name).read("mark"), b"%d" % number, name)

    def test_unusual_paths_are_served(self):
        names = ("two words", "a;b", "a#b", "a=b", "[a]", "a\\b", 'a"b', "a\tb", "a\rb", "100%", "100% wool",
                 "%%", "a%2Fb", "$HOME", "`id`", "שלום", "\U0001f4f7", "L" * 200)
        for number, name in enumerate(names):
            path = self.make(name)
            with open(os.path.join(path, "mark"), "w", encoding="ascii") as file:
                file.write(str(number))
            self.world.paddock.put_share_point("record %d" % number, path, "share %d" % number)
        self.world.paddock.synchronize()
        self.await_listing(lambda found: len(found) >= len(names))
        for number, name in enumerate(names):
            self.assertEqual(self.session("anna", "share %d" % number).read("mark"), b"%d" % number, name)


if __name__ == "__main__":
    run_tests(__file__)
