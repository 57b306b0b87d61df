#!/usr/bin/python3
"""A group that is denied: whom keelhouse names gets in locally and not over SMB, and gets in nowhere once
the list is strict, also after the group's members have changed.

    denied_groups_test.py CMAKE BUILD_FOLDER [--attribute NAME]

Needs root, for namespaces of its own.
"""
import subprocess

from smb_world import PLAIN_USERS, SmbTest, local_access, run_tests


class DeniedGroupsTest(SmbTest):
    """dora is in both groups."""

    def keelhouse(self, *words):
        """What it says on standard error."""
        ended = subprocess.run([self.world.paddock.program, *words], stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8", check=False)
        self.assertEqual(ended.returncode, 0, ended.stderr)
        return ended.stderr

    def over_smb(self):
        return self.users_who(lambda smb: smb.read(self.name) == b"content")

    def locally(self):
        return {user for user in PLAIN_USERS if "r" in local_access(user, self.path)}

    def test_who_is_named_gets_in_locally_alone(self):
        self.make_file(0o600)
        said = self.keelhouse("acl", "set", self.path, "deny group:night read", "allow group:crew read")
        self.assertIn("still lets in dora; SMB refuses.", said)
        self.assertEqual(self.over_smb(), {"bert"})
        self.assertEqual(self.locally(), {"bert", "dora"})

    def test_nobody_is_named_who_is_kept_out(self):
        self.make_file(0o600)
        said = self.keelhouse("acl", "set", self.path, "deny group:night read", "allow user:bert read")
        self.assertEqual(said, "")
        self.assert_readers("bert")

    def test_the_command_that_is_offered_keeps_them_out_at_every_door(self):
        self.make_file(0o600)
        said = self.keelhouse("acl", "set", self.path, "deny group:night read", "allow group:crew read")
        offered = [line for line in said.splitlines() if line.startswith("To keep them out")]
        self.assertEqual(len(offered), 1, said)
        command = offered[0].split(": ", 1)[1]
        self.assertTrue(command.startswith("keelhouse acl add --at 1 "), command)
        subprocess.run(["sh", "-c", command.replace("keelhouse", '"$0"', 1), self.world.paddock.program],
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, check=True)
        self.assert_readers("bert")

    def test_a_strict_list_keeps_them_out_at_every_door(self):
        self.make_file(0o600)
        said = self.keelhouse("acl", "set", self.path, "--strict", "deny group:night read",
                              "allow group:crew read")
        self.assertIn("is kept strict: 1 denial by name", said)
        self.assert_readers("bert")

    def test_a_strict_list_takes_in_an_entry_that_lets_more_in(self):
        self.make_file(0o600)
        self.keelhouse("acl", "set", self.path, "--strict", "deny group:crew read", "allow user:anna read")
        self.assert_readers("anna")
        self.keelhouse("acl", "add", self.path, "allow group:night read")
        self.assert_readers("anna", "emil")

    def test_others_who_get_in_by_the_mode_are_named_too(self):
        self.make_file(0o644)
        said = self.keelhouse("acl", "set", self.path, "deny group:night read")
        self.assertEqual(said, "", "the kernel's ACL has an entry for the group")
        self.assert_readers("anna", "bert", "carl")


if __name__ == "__main__":
    run_tests(__file__)
