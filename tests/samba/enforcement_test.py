#!/usr/bin/python3
"""A stock smbd enforces the ACLs that are set here.

    enforcement_test.py CMAKE BUILD_FOLDER [--attribute NAME]

Needs root, for namespaces of its own.
"""
import os
import random

from list_model import RIGHTS, Entry, as_served, granted, kernel_bits, rights_of_mode
from smb_world import GROUPS, PLAIN_USERS, USERS, SmbTest, local_access, run_tests, security

WRITE = security.SEC_FILE_WRITE_DATA
LISTS = 25  # at random, of files and of folders each


class EntriesTest(SmbTest):

    def test_a_user_who_is_denied_cannot_read_and_the_others_have_what_the_mode_gives(self):
        self.make_file(0o644)
        self.assert_readers(*PLAIN_USERS)
        self.set_acl("deny user:anna read")
        self.assert_readers("bert", "carl", "dora", "emil")
        self.set_acl()
        self.assert_readers(*PLAIN_USERS)

    def test_a_user_who_is_allowed_can_read_beyond_the_mode(self):
        self.make_file(0o600)
        self.assert_readers()
        self.set_acl("allow user:anna read")
        self.assert_readers("anna")
        self.assertFalse(self.world.session("anna").may(self.name, WRITE))

    def test_a_group_that_is_allowed_can_read_beyond_the_mode(self):
        self.make_file(0o600)
        self.set_acl("allow group:crew read")
        self.assert_readers("bert", "dora")

    def test_a_group_that_is_denied_cannot_read(self):
        self.make_file(0o644)
        self.set_acl("deny group:crew read")
        self.assert_readers("anna", "carl", "emil")

    def test_the_first_entry_that_decides_holds(self):
        self.make_file(0o600)
        self.set_acl("allow user:dora read", "deny group:crew read", "allow group:night read")
        self.assert_readers("dora", "emil")

    def test_owner_group_and_others_keep_what_the_mode_gives(self):
        self.make_file(0o640, owner="carl", group="night")
        self.set_acl("allow user:anna read,write")
        self.assert_readers("anna", "carl", "dora", "emil")
        self.assertEqual(self.users_who(lambda smb: smb.may(self.name, WRITE)), {"anna", "carl"})

    def test_a_mode_that_gives_others_more_than_the_group_is_kept(self):
        self.make_file(0o604, owner="carl", group="night")
        self.set_acl("deny user:anna read")
        self.assert_readers("bert", "carl")

    def test_an_smb_client_sees_the_entries(self):
        self.make_file(0o644)
        attributes = os.listxattr(self.path)
        self.set_acl("deny user:anna read-data", "allow group:crew read-data,write-data")
        self.assertEqual(self.aces()[:2], ["(D;;CC;;;S-1-22-1-%d)" % USERS["anna"],
                                           "(A;;0x00100003;;;S-1-22-2-%d)" % GROUPS["crew"]])
        self.assertEqual(set(os.listxattr(self.path)).difference(attributes),
                         {self.options.attribute, "system.posix_acl_access"})


class RandomListsTest(SmbTest):
    """Every right of every user, over SMB, against a plain model of the list and the mode."""

    def setUp(self):
        super().setUp()
        self.random = random.Random(self.name)

    def entry(self):
        kind, names = self.random.choice((("user", PLAIN_USERS), ("group", list(GROUPS))))
        rights = self.random.choice((self.random.sample(sorted(RIGHTS), self.random.randrange(1, 5)),
                                     ["read-data", "write-data"], ["read-data", "execute"], RIGHTS))
        return Entry(self.random.random() < 0.6, kind, self.random.choice(names), frozenset(rights))

    def compare(self, is_folder):
        mode = self.random.choice((0o755, 0o700, 0o750, 0o770, 0o644, 0o705, self.random.randrange(512)))
        owner, group = self.random.choice(PLAIN_USERS), self.random.choice(list(GROUPS))
        entries = [self.entry() for _ in range(self.random.randrange(1, 7))]
        self.world.paddock.set_privileges(self.path, owner=owner, group=group, privs="%03o" % mode,
                                          acl=[entry.dictionary() for entry in entries])
        for user in PLAIN_USERS:
            given = granted(entries, user, rights_of_mode(mode, user, owner, group, is_folder))
            here = local_access(user, self.path)
            case = "%s, %s, %03o %s %s, here %s" % (entries, user, mode, owner, group, here)
            if user != owner:
                self.assertLessEqual(kernel_bits(given), set(here), case)
            session = self.world.session(user)
            found = {right for right, (_, mask) in RIGHTS.items() if session.may(self.name, mask)}
            self.assertEqual(found, as_served(given, here, user == owner, is_folder), case)

    def test_on_files(self):
        self.make_file(0o644)
        for _ in range(LISTS):
            self.compare(False)

    def test_on_folders(self):
        self.make_folder(0o755)
        for _ in range(LISTS):
            self.compare(True)


if __name__ == "__main__":
    run_tests(__file__)
