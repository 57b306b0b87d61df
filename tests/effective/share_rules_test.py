#!/usr/bin/python3
"""What effectiveprivs says of a share's own rules, of lists that a share that heeds the kernel's ACLs may pass
over, and of what keeps everybody from writing is what a real smbd and the kernel do.

    share_rules_test.py CMAKE BUILD_FOLDER

Needs root, for namespaces of its own.
"""
import json
import os
import subprocess
import sys

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "samba"))
import smb_world
from people import gids_of
from smb_world import ATTRIBUTE, PASSWORD, USERS, SmbTest, run_tests
from tried import as_ids, works

from samba.dcerpc import security, xattr
from samba.ndr import ndr_pack, ndr_unpack

PROGRAM = "usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs"
# All of the same folder.
SECTIONS = {
    "heeding": "acl_xattr:ignore system acls = no\ninherit permissions = yes\ncreate mask = 0700\n",
    "for night": "force group = night\n",
    "for night's own": "force group = +night\n",
    "as bert": "force user = bert\n",
    "for root's": "admin users = anna\n",
    "never written": "vfs objects = acl_xattr readonly\n",
    "with a veto": "veto files = /secret*/*.tmp/\n",
    "without attributes": "store dos attributes = no\n",
    "by the mode": "store dos attributes = no\nmap readonly = yes\n",
}
smb_world.SHARES += "".join("\n[%s]\ncopy = shared\n%s" % section for section in SECTIONS.items())
READ_ONLY = 1
WRITE = security.SEC_FILE_WRITE_DATA


class RulesTest(SmbTest):

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.world.paddock.use_programs(cls.world.samba.configuration)
        cls.program = os.path.join(cls.world.paddock.tree, PROGRAM)
        cls.configuration = subprocess.run(
            ["testparm", "-s", cls.world.samba.configuration], check=True, stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL, encoding="utf-8").stdout

    def setUp(self):
        super().setUp()
        self.made = 0

    def door(self, user, share):
        """What is said of SMB, when testparm knows that share alone."""
        sections = self.configuration.split("\n[")
        kept = [section for section in sections if section.startswith((share + "]", "global]"))]
        self.assertEqual(len(kept), 2)
        path = os.path.join(self.world.folder, "one share.conf")
        with open(path, "w", encoding="utf-8") as file:
            file.writelines("[%s\n" % section for section in kept)
        with open(os.path.join(self.world.paddock.tree, "usr/bin/testparm"), "w", encoding="ascii") as file:
            file.write("#!/bin/sh\nexec cat '%s'\n" % path)
        return self.explained(user)["doors"]["smb"]

    def explained(self, user):
        ended = subprocess.run([self.program, "--explain", "--json", "-p", self.path, "-u", str(USERS[user])],
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               encoding="utf-8", check=False)
        self.assertIn(ended.returncode, (0, 4), ended.stderr)
        return json.loads(ended.stdout)

    def found(self, user, share):
        """What smbd lets the user do, in the words of a verdict."""
        session = self.world.session(user, share)
        try:
            if os.path.isdir(self.path):
                read = session.names(self.name) is not None
                write = session.write(self.name + "/" + self.new_name(), b"")
            else:
                read, write = session.read(self.name) is not None, session.may(self.name, WRITE)
        except smb_world.NTSTATUSError:  # as if it were not there
            return "no"
        return "yes" if read and write else "read" if read else "write" if write else "no"

    def new_name(self):
        self.made += 1
        return "new %d" % self.made

    def assert_same(self, users, share):
        for user in users:
            door = self.door(user, share)
            self.assertEqual(door["verdict"], self.found(user, share), (user, share, door))

    def assert_untold(self, user, share, found, why):
        """smbd's answer is one that cannot be told beforehand."""
        door = self.door(user, share)
        self.assertEqual((door["verdict"], self.found(user, share)), ("cannot tell", found), door)
        self.assertIn(why, door["reason"])

    # Lists, where the kernel's ACLs are heeded.

    def of_clients(self, sddl, share="shared"):
        self.world.session("root", share).set_list(self.name, sddl)

    def open_to_the_kernel(self):
        """So that nothing but the list refuses anybody."""
        subprocess.run(["setfacl", "-b", self.path], check=True)
        os.chmod(self.path, 0o777)

    def stored(self):
        value = os.getxattr(self.path, ATTRIBUTE)
        return int.from_bytes(value[:2], "little"), value

    def test_a_list_that_was_set_where_they_are_ignored_is_passed_over(self):
        self.make_file(0o666)
        self.of_clients("D:(A;;FA;;;S-1-22-1-%d)" % USERS["bert"])
        self.assertEqual(self.stored()[0], 3)
        self.assert_same(("anna", "bert"), "shared")
        self.assertEqual(self.found("anna", "shared"), "no")
        self.assert_same(("anna", "bert"), "heeding")
        self.assertEqual(self.found("anna", "heeding"), "yes")
        self.assertIn("passes over", self.world.paddock.keelhouse("acl", "show", self.path))

    def test_a_folders_list_is_passed_over_likewise(self):
        self.make_folder(0o777)
        self.of_clients("D:(A;;FA;;;S-1-22-1-%d)" % USERS["bert"])
        self.assert_same(("anna", "bert"), "shared")
        self.assert_same(("anna", "bert"), "heeding")
        self.assertEqual(self.found("anna", "heeding"), "yes")

    def test_a_list_that_was_set_where_they_are_heeded_holds_until_they_change(self):
        self.make_file(0o666)
        self.of_clients("D:(A;;FA;;;S-1-22-1-%d)" % USERS["bert"], "heeding")
        self.assertEqual(self.stored()[0], 4)
        self.assert_same(("anna", "bert"), "heeding")
        self.assertEqual(self.found("anna", "heeding"), "no")
        os.chmod(self.path, 0o666)
        self.assert_same(("anna", "bert"), "heeding")
        self.assertEqual(self.found("anna", "heeding"), "yes")

    def test_what_is_set_here_holds(self):
        self.make_file(0o666)
        self.set_acl("deny user:anna read,write")
        self.assertEqual(self.stored()[0], 1)
        self.assert_same(("anna", "bert"), "heeding")
        self.open_to_the_kernel()
        self.assert_same(("anna", "bert"), "heeding")
        self.assertEqual(self.found("anna", "heeding"), "no")

    def test_an_old_list_holds_as_smbd_has_it(self):
        """Of version 2, which no smbd of today writes."""
        self.make_file(0o666)
        self.set_acl("deny user:anna read,write")
        one = self.stored()[1]
        self.open_to_the_kernel()
        self.set_value(2, one, xattr.security_descriptor_hash_v2)
        self.assertEqual(self.found("anna", "heeding"), "no")
        self.assert_same(("anna", "bert"), "heeding")

    def set_value(self, version, one, kind):
        """The descriptor of a value of version 1, in another."""
        inner = kind()
        inner.sd = ndr_unpack(xattr.NTACL, one).info
        if version == 2:
            inner.hash = [7] * 16
        else:
            inner.hash_type = 1
            inner.hash = [7] * 64
        value = xattr.NTACL()
        value.version = version
        value.info = inner
        os.setxattr(self.path, ATTRIBUTE, ndr_pack(value))

    def test_of_a_list_with_a_hash_of_smbds_own_making_it_cannot_be_told(self):
        self.make_file(0o666)
        self.set_acl("deny user:anna read,write")
        self.open_to_the_kernel()
        self.set_value(3, self.stored()[1], xattr.security_descriptor_hash_v3)
        self.assert_same(("anna",), "shared")
        self.assert_untold("anna", "heeding", "yes", "whether Samba goes by the list")
        self.assert_same(("bert",), "heeding")
        self.assertIn("cannot be told", self.world.paddock.keelhouse("acl", "show", self.path))

    # Sections.

    def test_a_group_that_all_clients_are_in(self):
        self.make_folder(0o770, "root", "night")
        self.assert_untold("anna", "for night", "yes", "force group = night")
        self.assert_same(("dora", "emil"), "for night")
        self.assert_same(("anna", "dora", "emil"), "for night's own")
        self.assertEqual(self.found("anna", "for night's own"), "no")

    def test_a_user_who_all_clients_are(self):
        self.make_folder(0o700, "bert", "night")
        self.assert_untold("anna", "as bert", "yes", "force user = bert")
        self.assert_same(("bert",), "as bert")
        self.assert_untold("anna", "for root's", "yes", "admin users")

    def test_a_module_that_is_not_known_may_refuse(self):
        self.make_file(0o666)
        self.assert_untold("anna", "never written", "read", "vfs objects = acl_xattr readonly")
        os.chmod(self.path, 0o600)
        self.assert_same(("anna",), "never written")

    def test_names_that_are_not_served(self):
        self.make_file(0o666)
        self.assert_same(("anna",), "with a veto")
        self.assertEqual(self.found("anna", "with a veto"), "yes")
        for name in ("secrets", "SECRET", "a.tmp"):
            self.name, self.path = name, self.world.path(name)
            self.make_file(0o666)
            self.assert_untold("anna", "with a veto", "no", "veto files")
        self.name, self.path = "secretly/inside", self.world.path("secretly/inside")
        os.mkdir(os.path.dirname(self.path))
        os.chmod(os.path.dirname(self.path), 0o755)
        self.make_file(0o666)
        self.assert_untold("anna", "with a veto", "no", "veto files")

    # The attribute "read-only" of Windows.

    def set_read_only(self, owner="root"):
        subprocess.run(["smbclient", "-s", self.world.samba.configuration, "-U", owner + "%" + PASSWORD,
                        "//127.0.0.1/shared", "-c", "setmode %s +r" % self.name], check=True,
                       stdout=subprocess.DEVNULL)

    def test_a_read_only_file_is_written_by_nobody(self):
        self.make_file(0o666, "anna")
        self.assert_same(("anna", "bert", "root"), "shared")
        self.set_read_only("anna")
        for share in ("shared", "heeding", "without attributes"):
            self.assert_same(("anna", "bert", "root"), share)
            self.assertEqual(self.found("anna", share), "read")
        self.assertIn("read-only", self.door("anna", "shared")["reason"])
        self.assertEqual(self.explained("anna")["doors"]["local"]["verdict"], "yes")

    def test_a_read_only_folder_is_written_in(self):
        self.make_folder(0o777)
        self.set_read_only()
        self.assert_same(("anna",), "shared")
        self.assertEqual(self.found("anna", "shared"), "yes")

    def test_the_owners_mode_does_not_stand_for_it(self):
        self.make_file(0o466, "anna")
        self.assert_same(("bert",), "by the mode")
        self.assertEqual(self.found("bert", "by the mode"), "yes")

    def test_each_version_of_the_attribute_is_read(self):
        self.make_file(0o666)
        kinds = {1: xattr.DosInfo1, 2: xattr.DosInfo2Old, 3: xattr.DosInfo3, 4: xattr.DosInfo4, 5: xattr.DosInfo5}
        for version, kind in kinds.items():
            for attributes, verdict in ((READ_ONLY | 0x20, "read"), (0x20, "yes")):
                info = kind()
                info.attrib = attributes
                if version > 2:
                    info.valid_flags = xattr.XATTR_DOSINFO_ATTRIB
                if version == 2:
                    info.name = ""
                value = xattr.DOSATTRIB()
                value.attrib_hex = "0x%x" % attributes if version < 3 else ""
                value.version = version
                value.info = info
                os.setxattr(self.path, "user.DOSATTRIB", ndr_pack(value))
                self.assertEqual(self.found("anna", "shared"), verdict, version)
                self.assert_same(("anna",), "shared")
        # What does not decode is nothing to smbd, and of some texts it cannot be told.
        for value in (b"0x21\0", b"0x20\0", b"0x1", b"0x1\0", b"", b"0x\0\0", b"0x21\0\0\0", b"\0\0\5\0",
                      b"\0\0\xff\0\5\0\0\0\1\0\0\0\1\0\0\0"):
            with self.subTest(value=value):
                os.setxattr(self.path, "user.DOSATTRIB", value)
                self.assert_same(("anna",), "shared")
        for value in (b"\0", b"x\0", b"0x\0", b"0x21 \0", b" 0x21\0", b"0x100000021\0", b"-1\0"):
            with self.subTest(value=value):
                os.setxattr(self.path, "user.DOSATTRIB", value)
                self.assertEqual(self.door("anna", "shared")["verdict"], "cannot tell")

    # chattr(1).

    def set_flag(self, flag):
        ended = subprocess.run(["chattr", "+" + flag, self.path], check=False, stderr=subprocess.PIPE)
        if ended.returncode != 0:
            self.skipTest("no file attributes here: %s" % ended.stderr)
        self.addCleanup(subprocess.run, ["chattr", "-" + flag, self.path], check=True)

    def assert_written(self, user, is_written, why):
        """What is said and found locally, and over SMB."""
        answer = self.explained(user)
        local = answer["doors"]["local"]
        self.assertEqual(local["verdict"], "yes" if is_written else "read", local)
        if os.path.isdir(self.path):
            new = os.path.join(self.path, self.new_name())
            found = as_ids(USERS[user], gids_of(user), lambda: works(os.mkdir, new))
        else:
            found = as_ids(USERS[user], gids_of(user), lambda: works(open, self.path, "r+"))
        self.assertEqual(bool(found), is_written, user)
        if not is_written:
            self.assertIn(why, local["reason"])
            self.assertIn(why, answer["answer"]["text"])
        for share in ("shared", "heeding"):
            self.assert_same((user,), share)

    def test_what_is_immutable_is_written_by_nobody(self):
        for make, name in ((self.make_file, "file"), (self.make_folder, "folder")):
            self.name, self.path = "immutable " + name, self.world.path("immutable " + name)
            make(0o777 if name == "folder" else 0o666)
            self.assert_written("anna", True, "")
            self.set_flag("i")
            for user in ("anna", "root"):
                self.assert_written(user, False, "immutable")

    def test_what_only_grows_is_written_by_nobody_and_added_to(self):
        self.make_file(0o666)
        self.set_flag("a")
        for user in ("anna", "root"):
            self.assert_written(user, False, "append")
            self.assertTrue(as_ids(USERS[user], gids_of(user), lambda: works(open, self.path, "a")))
        self.name, self.path = "growing", self.world.path("growing")
        self.make_folder(0o777)
        self.set_flag("a")
        for user in ("anna", "root"):
            self.assert_written(user, True, "")


if __name__ == "__main__":
    run_tests(os.path.abspath(__file__))
