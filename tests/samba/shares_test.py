#!/usr/bin/python3
"""An smbd whose configuration includes what synchronize-shares writes serves the share points.

    shares_test.py CMAKE BUILD_FOLDER [--attribute NAME]

Needs root, for namespaces of its own.
"""
import os
import subprocess

from published_shares import SharesTest
from smb_world import PASSWORD, USERS, run_tests


class LifeTest(SharesTest):

    def test_a_share_point_is_listed_and_can_be_written_to(self):
        self.share("Plans", "--name", "The plans")
        self.assertEqual(self.listing(), {"Plans": "The plans"})
        smbclient = ["smbclient", "-s", self.world.samba.configuration, "-U", "anna%" + PASSWORD]
        listed = subprocess.run([*smbclient, "-g", "-L", "127.0.0.1"], stdout=subprocess.PIPE,
                                stderr=subprocess.DEVNULL, check=True)
        self.assertIn(b"Disk|Plans|The plans\n", listed.stdout)
        done = subprocess.run([*smbclient, "//127.0.0.1/plans", "-c", "put /etc/hostname minutes; ls"],
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
        self.assertEqual(self.session("anna", "überblick").names(""), set())
        self.assert_no_share("Plans")

    def test_one_without_a_name_over_smb_is_not_there(self):
        self.share("Plans")
        self.world.paddock.keelhouse("share", "set", self.path, "--no-smb")
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

    def test_what_is_made_where_nothing_is_inherited_has_the_folders_mode(self):
        self.make_private()
        self.share("Plans")
        self.assertEqual(self.modes_of_what_anna_makes(), [0o640, 0o750])
        self.assert_carl_cannot_read()

    def test_what_is_made_where_a_list_is_not_inherited_is_not_open_to_others(self):
        self.make_private()
        self.set_acl("allow user:bert read")
        self.share("Plans")
        for mode in self.modes_of_what_anna_makes():
            self.assertEqual(mode & 0o007, 0, "mode %o" % mode)
        self.assert_carl_cannot_read()

    def make_private(self):
        os.chown(self.path, USERS["anna"], USERS["anna"])
        os.chmod(self.path, 0o750)

    def modes_of_what_anna_makes(self):
        self.assertTrue(self.session("anna", "Plans").write("minutes", b"nine"))
        self.assertTrue(self.session("anna", "Plans").make_folder("films"))
        return [os.stat(os.path.join(self.path, name)).st_mode & 0o7777 for name in ("minutes", "films")]

    def assert_carl_cannot_read(self):
        """Neither the file nor the folder, when the folder that holds them is opened to him."""
        os.chmod(self.path, 0o755)
        self.assertIsNone(self.session("carl", "Plans").read("minutes"))
        self.assertIsNone(self.session("carl", "Plans").names("films"))

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
        self.assertEqual(self.session("anna", "good").names(""), set())
        for name in ("evil", "a", "p0", "p1", "p2"):
            self.assert_no_share(name)

    def test_of_two_uses_of_a_name_the_first_is_served(self):
        first, second = self.make("first"), self.make("second")
        with open(os.path.join(first, "mark"), "w", encoding="ascii"):
            pass
        names = ("Plans", "ÜBERBLICK", "Όνομα", "план")
        others = ("pLANS", "überblick", "ΌΝΟΜΑ", "ПЛАН")
        for number, name in enumerate(names + others):
            self.world.paddock.put_share_point("record %d" % number, first if name in names else second, name)
        self.world.paddock.synchronize()
        self.assertEqual(set(self.await_listing(lambda found: len(found) >= len(names))), set(names))
        for name in names + others:
            self.assertEqual(self.session("anna", name).names(""), {"mark"}, name)

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
