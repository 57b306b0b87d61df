#!/usr/bin/python3
"""A team folder at its doors: what members make over SMB or on the host, every member can change at
both, and nobody else gets in.

    team_test.py CMAKE BUILD_FOLDER

Needs root, for namespaces of its own.
"""
import os
import subprocess

from published_shares import SharesTest
from smb_world import GROUPS, MEMBERS, USERS, as_user, run_tests

from samba import NTSTATUSError, ntstatus

TEAM = "crew"
STRANGERS = ("anna", "carl", "emil")
SHARE_NAME = "Team"


def locally(user, step):
    """Whether the kernel let a process of the user do it."""
    def attempt():
        try:
            step()
        except PermissionError:
            return 1
        return 0
    return as_user(user, attempt) == 0


def write_file(path, content):
    """Content behind that which is there already, with the usual umask."""
    os.umask(0o022)
    with open(path, "ab") as file:
        file.write(content)


def read_file(path):
    with open(path, "rb") as file:
        file.read()


class TeamTest(SharesTest):

    def setUp(self):
        super().setUp()
        os.chmod(self.path, 0o755)

    def share_with_team(self, *words):
        ended = subprocess.run([self.world.paddock.program, "share", "add", self.path, "--smb-name",
                                SHARE_NAME, *words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, encoding="utf-8", check=False)
        if ended.returncode == 0:
            self.await_listing(lambda names: SHARE_NAME in names)
        return ended

    def make_team_folder(self):
        ended = self.share_with_team("--team", TEAM)
        self.assertEqual(ended.returncode, 0, ended.stderr)

    def doors(self, user):
        """Name -> how the user writes a file, reads one and makes a folder there."""
        session = self.session(user, SHARE_NAME)

        def content(name):
            try:
                return session.read(name)
            except NTSTATUSError as error:
                self.assertIn(error.args[0], (ntstatus.NT_STATUS_OBJECT_NAME_NOT_FOUND,
                                              ntstatus.NT_STATUS_OBJECT_PATH_NOT_FOUND))
                return None

        def append(name, more):
            return session.write(name, (content(name) or b"") + more)
        return {
            "smb": (append, lambda name: content(name) is not None, session.make_folder),
            "local": (
                lambda name, content: locally(user, lambda: write_file(self.inside(name), content)),
                lambda name: locally(user, lambda: read_file(self.inside(name))),
                lambda name: locally(user, lambda: (os.umask(0o022), os.mkdir(self.inside(name)))))}

    def inside(self, name):
        return os.path.join(self.path, name)

    def test_the_folder_is_the_teams(self):
        self.make_team_folder()
        status = os.stat(self.path)
        self.assertEqual((status.st_gid, status.st_mode & 0o7777), (GROUPS[TEAM], 0o2770))
        shown = self.world.paddock.keelhouse("acl", "show", self.path)
        self.assertIn("1   allow   group:crew  read,write  inherit", shown)
        self.assertIn("mode: 2770 (rwxrws---)\n", self.world.paddock.keelhouse("privs", "show", self.path))

    def test_what_a_member_makes_at_a_door_every_member_changes_at_every_door(self):
        self.make_team_folder()
        bert, dora = (self.doors(user) for user in MEMBERS[TEAM])
        for made_at in bert:
            name = "of bert, " + made_at
            write, _, make_folder = bert[made_at]
            self.assertTrue(write(name, b"bert\n"), made_at)
            self.assertTrue(make_folder("folder " + name), made_at)
            self.assertTrue(write("folder %s/file" % name, b"bert\n"), made_at)
            for changed_at, (change, read, make) in dora.items():
                doors = "made %s, changed %s" % (made_at, changed_at)
                for file in (name, "folder %s/file" % name):
                    self.assertTrue(read(file), doors)
                    self.assertTrue(change(file, b"dora\n"), doors)
                self.assertTrue(make("folder %s/of dora, %s" % (name, changed_at)), doors)
                self.assertTrue(change("folder %s/dora's, %s" % (name, changed_at), b"dora\n"), doors)
                self.assertTrue(write("folder %s/dora's, %s" % (name, changed_at), b"bert\n"), doors)
            with open(self.inside(name), "rb") as file:
                self.assertEqual(file.read(), b"bert\ndora\ndora\n")

    def test_what_is_made_belongs_to_the_group(self):
        self.make_team_folder()
        for door, (write, _, make_folder) in self.doors("bert").items():
            self.assertTrue(write("file " + door, b"x"))
            self.assertTrue(make_folder("folder " + door))
            for name in ("file ", "folder "):
                status = os.stat(self.inside(name + door))
                # smbd gives it the first group of its maker; the entry lets the team in there.
                gid = USERS["bert"] if door == "smb" else GROUPS[TEAM]
                self.assertEqual((status.st_uid, status.st_gid), (USERS["bert"], gid), name + door)
                self.assertEqual(status.st_mode & 0o007, 0, "%s%s: %o" % (name, door, status.st_mode))
            self.assertTrue(os.stat(self.inside("folder " + door)).st_mode & 0o2000)

    def test_a_stranger_gets_in_nowhere(self):
        self.make_team_folder()
        for door, (write, _, make_folder) in self.doors("bert").items():
            self.assertTrue(write("file " + door, b"x"))
            self.assertTrue(make_folder("folder " + door))
        # Also where the folder above were opened one day.
        for mode in (0o2770, 0o2771):
            os.chmod(self.path, mode)
            for user in STRANGERS:
                for door, (write, read, make_folder) in self.doors(user).items():
                    for made_at in ("smb", "local"):
                        self.assertFalse(read("file " + made_at), (user, door, made_at))
                        self.assertFalse(write("file " + made_at, b"y"), (user, door, made_at))
                        self.assertFalse(write("folder %s/new" % made_at, b"y"), (user, door, made_at))
                    self.assertFalse(write("new", b"y"), (user, door))
                    self.assertFalse(make_folder("new folder"), (user, door))

    def test_a_group_that_is_not_there_is_refused_before_anything_is_written(self):
        before = os.stat(self.path)
        ended = self.share_with_team("--team", "no-such-crew")
        self.assertEqual(ended.returncode, 1)
        self.assertIn("there is no group no-such-crew", ended.stderr)
        after = os.stat(self.path)
        self.assertEqual((after.st_gid, after.st_mode), (before.st_gid, before.st_mode))
        self.assertEqual(os.listxattr(self.path), [])
        self.assertNotIn(SHARE_NAME, self.listing())

    def test_what_was_there_before_is_named(self):
        write_file(self.inside("old"), b"x")
        ended = self.share_with_team("--team", TEAM)
        self.assertEqual(ended.returncode, 0, ended.stderr)
        self.assertIn("keelhouse propagate PATH --group --group-perm --acl", ended.stderr)
        self.assertFalse(locally("bert", lambda: write_file(self.inside("old"), b"y")))


if __name__ == "__main__":
    run_tests(__file__)
