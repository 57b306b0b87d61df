#!/usr/bin/python3
"""What SMB clients make and set under the ACLs that are set here, and what becomes of it.

    clients_test.py CMAKE BUILD_FOLDER [--winbind]

Needs root, for namespaces of its own.
"""
import os
import random

from list_model import EVERYBODY, RIGHTS, Entry, granted, kernel_bits
from smb_world import (CAREFUL_SHARE, GROUPS, PLAIN_USERS, SHARE, USERS, SmbTest, local_access, run_tests,
                       security)

READ, WRITE = security.SEC_FILE_READ_DATA, security.SEC_FILE_WRITE_DATA
INHERITED, INHERITABLE = 16, 32 | 64
MARKER = "S-1-0x506164646f63-0"
NETWORK = "network"
NOBODY_READS = Entry(False, "everybody", NETWORK, frozenset(["read-data"]))
NOT_THE_KERNELS = {"append", "execute"}  # as smbd wants them, which opens files for writing and reading
LISTS = 12  # at random, in each test of them


class InheritanceTest(SmbTest):

    def entries_of(self, name):
        """Rights and flags of each, by who it is about."""
        entries = self.world.paddock.privileges(self.world.path(name))["acl"]
        return {entry["guid"]: (entry["allowPermission"], entry["bitmap"], entry["flags"])
                for entry in entries}

    def assert_users_who(self, can, *users):
        self.assertEqual(self.users_who(can), set(users))

    def test_a_file_and_a_folder_made_over_smb_inherit(self):
        self.make_folder(0o755)
        self.set_acl("allow group:crew read,write:inherit")
        guid, (allow, bitmap, _) = self.entries_of(self.name).popitem()
        bert = self.world.session("bert")
        folder, file, deep = (self.name + name for name in ("/folder", "/file", "/folder/deep"))
        self.assertTrue(bert.make_folder(folder) and bert.write(file, b"1") and bert.write(deep, b"2"))
        for name, flags in ((folder, INHERITED | INHERITABLE), (file, INHERITED), (deep, INHERITED)):
            self.assertEqual(self.entries_of(name)[guid], (allow, bitmap, flags), name)
            self.assert_users_who(lambda smb, name=name: smb.may(name, READ), *PLAIN_USERS)
            self.assert_users_who(lambda smb, name=name: smb.may(name, WRITE), "bert", "dora")
            self.assertEqual({user for user in PLAIN_USERS if "w" in local_access(user, self.world.path(name))},
                             {"bert", "dora"}, name)

    def test_what_is_made_where_others_have_nothing_is_for_those_who_inherit(self):
        self.make_folder(0o700)
        self.set_acl("allow group:crew full:inherit", "allow user:anna read:inherit")
        file = self.name + "/file"
        self.assertTrue(self.world.session("dora").write(file, b"1"))
        self.assert_users_who(lambda smb: smb.read(file) == b"1", "anna", "bert", "dora")
        self.assert_users_who(lambda smb: smb.may(file, WRITE), "bert", "dora")

    def assert_used_by_maker(self, mode):
        self.make_folder(mode)
        self.set_acl("allow group:crew read,write:inherit")
        bert = self.world.session("bert")
        file, folder = self.name + "/file", self.name + "/folder"
        self.assertTrue(bert.write(file, b"1"))
        self.assertTrue(bert.write(file, b"2"))
        self.assertEqual(bert.read(file), b"2")
        self.assertEqual(local_access("bert", self.world.path(file))[:2], "rw")
        self.assertTrue(bert.make_folder(folder))
        self.assertTrue(bert.rename(file, folder + "/file"))
        self.assertEqual(bert.names(folder), {"file"})
        self.assertTrue(bert.remove(folder + "/file"))
        self.assertTrue(bert.remove_folder(folder))
        self.assertEqual(os.listdir(self.path), [])

    def test_who_makes_something_can_use_it(self):
        self.assert_used_by_maker(0o755)

    def test_who_makes_something_can_use_it_where_the_folders_owner_may_not_write(self):
        self.assert_used_by_maker(0o555)

    def test_who_makes_something_can_use_it_where_the_mode_gives_nothing(self):
        self.assert_used_by_maker(0o000)

    def made_where_nothing_is_inherited(self, share):
        """The mode of a file that is made, and who may write to it."""
        self.make_folder(0o755)
        self.set_acl("allow group:crew read,write")
        file = self.name + "/file"
        self.assertTrue(self.world.session("bert", share).write(file, b"1"))
        self.assertEqual(self.entries_of(file), {})
        writers = self.users_who(lambda smb: smb.may(file, WRITE), share)
        return os.stat(self.world.path(file)).st_mode & 0o666, writers

    def test_what_is_made_where_nothing_is_inherited_is_everybodys(self):
        self.assertEqual(self.made_where_nothing_is_inherited(SHARE), (0o666, set(PLAIN_USERS)))

    def test_what_is_made_where_nothing_is_inherited_but_permissions_is_its_makers(self):
        mode, writers = self.made_where_nothing_is_inherited(CAREFUL_SHARE)
        self.assertEqual((mode & 0o606, writers), (0o604, {"bert"}))

    def test_inherited_permissions_take_nothing_from_what_a_list_passes_on(self):
        self.make_folder(0o755)
        self.set_acl("allow group:crew read,write:inherit")
        file = self.name + "/file"
        self.assertTrue(self.world.session("bert", CAREFUL_SHARE).write(file, b"1"))
        writers = self.users_who(lambda smb: smb.may(file, WRITE), CAREFUL_SHARE)
        self.assertEqual(writers, {"bert", "dora"})


class OwnerAndModeTest(SmbTest):

    def setUp(self):
        super().setUp()
        self.make_file(0o600)
        self.set_acl("allow user:anna read")

    def change(self, **privileges):
        self.world.paddock.set_privileges(self.path, **privileges)

    def test_a_new_mode_holds_for_smb_clients(self):
        self.assert_readers("anna")
        self.change(privs="644")
        self.assert_readers(*PLAIN_USERS)
        self.change(privs="600")
        self.assert_readers("anna")

    def test_a_new_group_holds_for_smb_clients(self):
        self.change(group="crew", privs="640")
        self.assert_readers("anna", "bert", "dora")
        self.change(group="night")
        self.assert_readers("anna", "dora", "emil")

    def test_a_new_owner_holds_for_smb_clients(self):
        self.change(owner="carl")
        self.assert_readers("anna", "carl")
        self.assertIn("O:S-1-22-1-%d" % USERS["carl"], self.sddl())
        self.change(owner="emil")
        self.assert_readers("anna", "emil")
        self.assertEqual(self.users_who(lambda smb: smb.may(self.name, security.SEC_STD_WRITE_DAC)), {"emil"})

    def test_a_list_of_a_client_stays_as_it_is(self):
        self.world.session("root").set_list(self.name, "D:(A;;FR;;;S-1-22-1-%d)" % USERS["bert"])
        before = self.aces()
        self.change(privs="666")
        self.assertEqual(self.aces(), before)
        self.assertEqual(self.users_who(lambda smb: smb.read(self.name) == b"content"), {"bert"})


class ListsOfClientsTest(SmbTest):

    def test_an_entry_that_smbcacls_adds_is_read_and_stays(self):
        self.make_file(0o644)
        self.set_acl("allow group:crew read,write")
        self.world.smbcacls(self.name, "-a", "ACL:carl:DENIED/0x0/0x00000001")
        self.assertEqual(self.denied(), [("Carl" if self.options.winbind else None, 2)])
        before = self.aces()
        readers = {"anna", "bert", "dora", "emil"}
        self.assertEqual(self.users_who(lambda smb: smb.may(self.name, READ)), readers)
        self.world.paddock.keelhouse("acl", "add", self.path, "--first", "allow user:emil write-data")
        self.assertEqual(self.denied(), [("Carl" if self.options.winbind else None, 2)])
        self.assertEqual(self.users_who(lambda smb: smb.may(self.name, READ)), readers)
        self.assertEqual(self.users_who(lambda smb: smb.may(self.name, WRITE)), {"bert", "dora", "emil"})
        # The marker, which the client has sorted in among the entries, means nothing any more.
        before = [ace for ace in before if MARKER not in ace]
        self.assertEqual(len(before), 5)
        if not self.options.winbind:
            self.assertEqual(self.aces(), ["(A;;0x00100002;;;S-1-22-1-%d)" % USERS["emil"]] + before)

    def test_who_is_in_an_entry_of_smbcacls_is_known_to_the_kernel_where_winbind_runs(self):
        self.make_file(0o644)
        self.world.smbcacls(self.name, "-a", "ACL:anna:DENIED/0x0/0x00000001")
        self.world.paddock.keelhouse("acl", "add", self.path, "allow user:emil write-data")
        self.assertEqual(self.users_who(lambda smb: smb.may(self.name, READ)),
                         {"bert", "carl", "dora", "emil"})
        self.assertEqual("r" in local_access("anna", self.path), not self.options.winbind)

    def test_an_entry_about_every_client_stays_about_every_client(self):
        for name in EVERYBODY:
            with self.subTest(name):
                self.make_file(0o600)
                entries = [Entry(True, "user", "anna", frozenset(["write-data"])),
                           Entry(True, "everybody", name, frozenset(["read-data"]))]
                self.set_list(entries)
                before = self.aces()
                self.write_back()
                self.assertEqual(self.aces(), before)
                self.assertTrue(self.world.session("anna").may(self.name, WRITE))
                # The kernel takes whoever comes over the network for anybody else.
                self.assertEqual(self.world.session("anna").may(self.name, READ), name != NETWORK)

    def denied(self):
        """The name, as far as the principal is known, and the rights of each denial."""
        entries = self.world.paddock.privileges(self.path)["acl"]
        return [(entry["displayName"] if entry["isUser"] == 0 else None, entry["bitmap"])
                for entry in entries if entry["allowPermission"] == "NO"]


class NobodyGainsTest(SmbTest):
    """What everybody may do, over SMB and by processes, before and after a list that a client made is
    written here."""

    def setUp(self):
        super().setUp()
        self.random = random.Random(self.name)

    def rights(self, user):
        session = self.world.session(user)
        return {right for right, (_, mask) in RIGHTS.items() if session.may(self.name, mask)}

    def access(self):
        """Rights over SMB and the kernel's bits, of each user."""
        return {user: (self.rights(user), set(local_access(user, self.path)) - {"-"})
                for user in PLAIN_USERS}

    def entry(self):
        kind, names = self.random.choice((("user", PLAIN_USERS), ("group", list(GROUPS)),
                                          ("everybody", list(EVERYBODY))))
        name = self.random.choice(names)
        rights = self.random.sample(sorted(RIGHTS), self.random.randrange(1, 9))
        # What the network is allowed, the kernel cannot give to those alone who come over it.
        allow = name != NETWORK and self.random.random() < 0.6
        return Entry(allow, kind, name, frozenset(rights))

    def entries(self):
        return [self.entry() for _ in range(self.random.randrange(1, 7))]

    def assert_harmless(self, step):
        """The step gives nobody what the client's list does not give, and takes nothing from anybody who
        comes over SMB. The access of all users after it."""
        entries = self.entries_on_server()
        before = self.access()
        step()
        after = self.access()
        for user in PLAIN_USERS:
            case = "%s: %s" % (user, self.sddl())
            given = granted(entries, user, set())
            self.assertLessEqual(after[user][0], before[user][0] | given, case)
            self.assertLessEqual(before[user][0] - NOT_THE_KERNELS, after[user][0], case)
            given = kernel_bits(granted([entry for entry in entries if entry.name != NETWORK], user, set()))
            self.assertLessEqual(after[user][1], before[user][1] | given, case)
        return after

    def entries_on_server(self):
        dacl = self.world.session("root").descriptor(self.name).dacl
        return [Entry.of(ace) for ace in dacl.aces] if dacl else []

    def test_by_a_list_that_is_written_back(self):
        for number in range(LISTS):
            with self.subTest(number):
                self.begin()
                self.set_list(self.entries())
                after = self.assert_harmless(self.write_back)
                self.write_back()
                self.assertEqual(self.access(), after)

    def test_by_an_entry_for_somebody_else(self):
        for number in range(LISTS):
            with self.subTest(number):
                self.begin()
                entries = [entry for entry in self.entries() if entry.name != "anna"] or [NOBODY_READS]
                self.set_list(entries)
                self.write_back()
                before = self.access()
                self.world.paddock.keelhouse("acl", "add", self.path, "--first", "allow user:anna full")
                after = self.access()
                del before["anna"], after["anna"]
                self.assertEqual(after, before)

    def test_by_a_list_that_was_made_here_and_completed_by_a_client(self):
        for number in range(LISTS):
            with self.subTest(number):
                self.begin()
                self.world.paddock.set_privileges(self.path, acl=[
                    entry.dictionary() for entry in self.entries() if entry.kind != "everybody"])
                self.world.smbcacls(self.name, "-a", "ACL:carl:DENIED/0x0/0x00000008")
                self.assert_harmless(self.write_back)

    def begin(self):
        if os.path.exists(self.path):
            os.remove(self.path)
        self.make_file(self.random.randrange(512), self.random.choice(PLAIN_USERS),
                       self.random.choice(list(GROUPS)))


if __name__ == "__main__":
    run_tests(__file__)
