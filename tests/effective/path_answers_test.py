#!/usr/bin/python3
"""What effectiveprivs says of a path as a whole and of its doors is what a real smbd and the kernel do.

    path_answers_test.py CMAKE BUILD_FOLDER

Needs root, for namespaces of its own.
"""
import json
import os
import subprocess
import sys

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "samba"))
from smb_world import USERS, Session, SmbTest, as_user, run_tests
from tried import works

PROGRAM = "usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs"
STRANGER = "S-1-5-21-1111-2222-3333-1104"
MORE_SHARES = """
[photos]
path = {folder}/photos
vfs objects = acl_xattr
acl_xattr:ignore system acls = yes
[crew only]
copy = photos
path = {folder}/crew
read only = no
valid users = @crew
write list = bert
[deep]
copy = photos
path = {folder}/private/deep
read only = no
"""


class DoorsTest(SmbTest):

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.world.paddock.use_programs(cls.world.samba.configuration)
        cls.program = os.path.join(cls.world.paddock.tree, PROGRAM)

    def explained(self, user, path=None, status=0):
        uid = USERS.get(user, user)
        ended = subprocess.run([self.program, "--explain", "--json", "-p", path or self.path, "-u", str(uid)],
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               encoding="utf-8", check=False)
        self.assertEqual((ended.returncode, ended.stderr), (status, ""), ended.stdout)
        return json.loads(ended.stdout)

    def output_of(self, *words, status=0):
        ended = subprocess.run(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               encoding="utf-8", check=False)
        self.assertEqual((ended.returncode, ended.stderr), (status, ""), ended.stdout)
        return ended.stdout

    def keelhouse(self, *words, status=0):
        return self.output_of(self.world.paddock.program, *words, status=status)

    # Strangers.

    def test_a_stranger_whom_a_client_has_denied_leaves_it_untold(self):
        self.make_file(0o600, "anna")
        self.world.session("root").set_list(self.name, "D:(A;;FR;;;S-1-22-1-%d)(D;;FA;;;%s)(A;;FA;;;WD)" % (
            USERS["anna"], STRANGER))
        self.assertIn(STRANGER, self.sddl())
        self.assertEqual(self.output_of(self.program, "-p", self.path, "-u", str(USERS["bert"])), "0\n")
        said = self.explained("bert", status=4)
        self.assertEqual(said["bitmap"], 0)
        self.assertEqual(said["doors"]["smb"]["verdict"], "no")  # the kernel, mode 600, lets nobody else in
        os.chmod(self.path, 0o666)
        said = self.explained("bert", status=4)
        self.assertEqual((said["answer"]["read"], said["doors"]["smb"]["read"]), ("cannot tell", "cannot tell"))
        self.assertIn("entry 2 denies " + STRANGER, said["answer"]["text"])
        # What anna has before the denial is sure.
        said = self.explained("anna", status=4)
        self.assertEqual((said["answer"]["read"], said["answer"]["write"]), ("yes", "cannot tell"))
        for words in (["effective", self.path, "bert"], ["effective", self.path, "bert", "--explain"],
                      ["who", self.path]):
            with self.subTest(words=words):
                self.assertIn(STRANGER, self.keelhouse(*words, status=4))
        self.assertNotIn("Yes:", self.keelhouse("effective", self.path, "bert", status=4))

    # The server's own accounts, without winbind.

    def test_what_a_client_made_names_its_own_accounts(self):
        self.make_folder(0o770, "root", "crew")
        self.set_acl("allow group:crew read,write:inherit")
        name = self.name + "/made"
        self.assertTrue(self.world.session("bert").write(name, b"content"))
        descriptor = self.world.session("bert").descriptor(name)
        sids = {str(entry.trustee) for entry in descriptor.dacl.aces}
        self.assertTrue(any(sid.startswith("S-1-5-21-") for sid in sids), sids)
        shown = self.keelhouse("acl", "show", os.path.join(self.path, "made"))
        self.assertIn("user:bert", shown)
        self.assertIn("everyone", shown)
        said = self.explained("bert", os.path.join(self.path, "made"))
        self.assertEqual(said["doors"]["smb"]["verdict"], "yes", said)
        self.assertEqual(self.world.session("bert").read(name), b"content")

    def test_everyone_can_be_written_by_name(self):
        self.make_file(0o640)
        self.set_acl("allow everyone read")
        self.assertIn("(A;;", "".join(self.aces()))
        self.assertTrue(any(ace.endswith(";WD)") for ace in self.aces()), self.aces())
        self.assertIn("everyone", self.keelhouse("acl", "show", self.path))

    # Uids without an account.

    def test_a_uid_without_an_account_is_judged_as_the_kernel_does(self):
        self.make_file(0o604)
        os.chown(self.path, 29999, 29999)
        said = self.explained(29999)
        self.assertEqual((said["doors"]["local"]["verdict"], said["doors"]["smb"]["verdict"]), ("yes", "no"))
        self.assertEqual(self.explained(29998)["doors"]["local"]["verdict"], "read")

    # Folders above.

    def test_a_folder_that_stops_a_user_stops_over_smb_too(self):
        self.make_folder(0o700)
        inner = os.path.join(self.path, "inner")
        os.mkdir(inner)
        os.chmod(inner, 0o777)
        said = self.explained("anna", inner)
        self.assertEqual(said["answer"]["text"], "No: stopped at %s, mode 700, owner root" % self.path)
        self.assertEqual({door: said["doors"][door]["verdict"] for door in ("smb", "local")},
                         {"smb": "no", "local": "no"})
        self.assertIsNone(self.world.session("anna").names(self.name + "/inner"))
        self.assertFalse(as_user("anna", lambda: int(works(os.listdir, inner))))
        text = self.keelhouse("effective", inner, "anna")
        self.assertTrue(text.startswith("No: stopped at %s, mode 700, owner root\n" % self.path), text)
        self.assertTrue(self.keelhouse("who", inner).startswith("No: stopped at " + self.path))

    # Shares.

    def use_more_shares(self):
        for name, mode in (("photos", 0o777), ("crew", 0o777), ("private", 0o700), ("private/deep", 0o777)):
            path = os.path.join(self.world.folder, name)
            if not os.path.isdir(path):
                os.mkdir(path)
                os.chmod(path, mode)
                with open(self.world.samba.configuration, "a", encoding="ascii") as file:
                    file.write(MORE_SHARES.format(folder=self.world.folder) if name == "photos" else "")
        subprocess.run(["smbcontrol", "-s", self.world.samba.configuration, "smbd", "reload-config"], check=True)

    def found_over(self, share, user):
        """What the user can do with the share, in the words of a verdict."""
        try:
            session = Session(self.world.samba.configuration, user, share)
        except Exception:  # pylint: disable=broad-except
            return "no"
        read = session.names("") is not None
        name = "by-" + user
        try:
            write = session.write(name, b"")
        except Exception:  # pylint: disable=broad-except
            write = False
        return "yes" if read and write else "read" if read else "write" if write else "no"

    def test_what_is_said_of_shares_is_what_clients_find(self):
        self.use_more_shares()
        for share, folder in (("photos", "photos"), ("crew only", "crew"), ("deep", "private/deep")):
            for user in ("anna", "bert", "dora"):
                with self.subTest(share=share, user=user):
                    door = self.explained(user, os.path.join(self.world.folder, folder))["doors"]["smb"]
                    self.assertEqual(door["verdict"], self.found_over(share, user), door)
                    self.assertEqual(door["shares"], share)

    def test_who_has_a_column_for_each_door(self):
        self.use_more_shares()
        text = self.keelhouse("who", os.path.join(self.world.folder, "photos"))
        self.assertRegex(text, "WHO +READ +WRITE +PERMISSIONS +SMB +LOCAL +NFS +BY\n")
        self.assertRegex(text, r"\(everybody else\) +yes +yes +no +read +read,write +no ")
        self.assertIn("SMB: share \"photos\": read only = yes\n", text)

    def test_who_has_no_account_in_samba_is_told_so(self):
        self.make_file(0o666)
        door = self.explained(65534)["doors"]["smb"]
        self.assertEqual(door["verdict"], "no")
        self.assertIn("nobody has no account in Samba", door["reason"])

    def test_what_is_not_shared_is_told_so(self):
        path = os.path.join(self.world.folder, "unshared")
        os.mkdir(path)
        door = self.explained("anna", path)["doors"]["smb"]
        self.assertEqual((door["verdict"], door["reason"]), ("no", "not published over SMB"))

    def test_asking_changes_nothing_of_sambas(self):
        def state():
            found = {}
            for folder in ("private", "state"):
                for where, _, names in os.walk(os.path.join(self.world.samba.folder, folder)):
                    for name in names:
                        with open(os.path.join(where, name), "rb") as file:
                            found[os.path.join(where, name)] = file.read()
            return found
        self.make_file(0o600)
        self.set_list_of("(A;;FA;;;%s)" % STRANGER)
        before = state()
        self.explained("anna", status=4)
        self.keelhouse("who", self.path, status=4)
        self.assertEqual(state(), before)

    def set_list_of(self, entries):
        self.world.session("root").set_list(self.name, "D:" + entries)


if __name__ == "__main__":
    run_tests(__file__)
