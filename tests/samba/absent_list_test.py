#!/usr/bin/python3
"""A descriptor without a list means to a stock smbd what it means here.

    absent_list_test.py CMAKE BUILD_FOLDER

Needs root, for namespaces of its own.
"""
import os

from list_model import RIGHTS
from smb_world import ATTRIBUTE, PLAIN_USERS, SmbTest, run_tests

from samba.dcerpc import security, xattr
from samba.ndr import ndr_pack

SELF_RELATIVE = security.SEC_DESC_SELF_RELATIVE
WITH_LIST = SELF_RELATIVE | security.SEC_DESC_DACL_PRESENT


def without_list(control):
    descriptor = security.descriptor()
    descriptor.owner_sid = security.dom_sid("S-1-22-1-0")
    descriptor.group_sid = security.dom_sid("S-1-22-2-0")
    descriptor.type = control
    value = xattr.NTACL()
    value.version = 1
    value.info = descriptor
    return ndr_pack(value)


class AbsentListTest(SmbTest):

    def store(self, control):
        os.setxattr(self.path, ATTRIBUTE, without_list(control))

    def entries(self):
        return [(entry["allowPermission"], entry["bitmap"])
                for entry in self.world.paddock.privileges(self.path)["acl"]]

    def rights(self):
        """Of each user."""
        return {user: {right for right, (_, mask) in RIGHTS.items()
                       if self.world.session(user).may(self.name, mask)} for user in PLAIN_USERS}

    def check(self, control, entries):
        """Reading says what there is, and writing changes nothing of what anybody may do."""
        self.make_file(0o644)
        self.store(control)
        before = self.rights()
        self.assertEqual(self.entries(), entries)
        self.world.paddock.keelhouse("privs", "set", self.path, "--mode", "644")
        self.assertEqual(self.entries(), entries)
        self.assertEqual(self.rights(), before)
        return before["anna"]

    def test_one_that_says_it_has_a_list_allows_everybody_everything(self):
        self.assertIn("change-owner", self.check(WITH_LIST, [("YES", 16382)]))

    def test_one_that_says_it_has_none_lets_nobody_in(self):
        self.assertEqual(self.check(SELF_RELATIVE, []), {"read-attributes"})

    def test_it_can_be_removed(self):
        for control in (SELF_RELATIVE, WITH_LIST):
            self.name = "%s_%x" % (self.id().rsplit(".", 1)[1], control)
            self.path = self.world.path(self.name)
            self.make_file(0o644)
            self.store(control)
            self.set_acl()
            self.assertNotIn(ATTRIBUTE, os.listxattr(self.path))
            self.assertNotIn("change-owner", self.rights()["anna"])


if __name__ == "__main__":
    run_tests(__file__)
