#!/usr/bin/python3
"""What is made over SMB or by local programs in a folder of a share that passes entries on may be used over SMB
and locally by exactly those whom the folder's entries let in, as a plain model has it.

    doors_test.py CMAKE BUILD_FOLDER [--other-samba]

PADDOCK_SEED repeats a run. Needs root, for namespaces of its own.
"""
import os
import random
import shutil
import time

from door_model import INHERIT, ONE_LEVEL, READ, TO_FILES, TO_FOLDERS, WRITE, Entry, Folder, everybody
from people import GROUPS, PLAIN_USERS, USERS
from samba import NTSTATUSError
from smb_world import Session, SmbTest, allowed, as_user, local_access, run_tests, security

SEED = int(os.environ.get("PADDOCK_SEED", random.SystemRandom().randrange(1 << 32)))
PATIENCE = 60  # seconds, for a server that is told to read its configuration again
RANDOM_FOLDERS = 6
SHARE = "doors"
DOORS = ("smb", "local")
NOBODY = everybody(lambda user: set())


def entries_with(flags):
    """anna owns the folder, bert is in its group, carl named, dora denied, though in both groups, emil in a
    group that is named."""
    return [Entry(False, "user", "dora", READ | WRITE, flags), Entry(True, "user", "carl", READ | WRITE, flags),
            Entry(True, "group", "night", READ, flags)]


PASSED_ON = {
    "passed on": Folder(0o770, "anna", "crew", entries_with(INHERIT)),
    "passed on, set-group-id": Folder(0o2770, "anna", "crew", entries_with(INHERIT)),
    "passed on, others read": Folder(0o2775, "anna", "crew", entries_with(INHERIT)),
}
PARTLY = {
    "to files": Folder(0o2770, "anna", "crew", entries_with(TO_FILES)),
    "to folders": Folder(0o2770, "anna", "crew", entries_with(TO_FOLDERS)),
    "one level": Folder(0o2770, "anna", "crew", entries_with(INHERIT | ONE_LEVEL)),
}
NOT = {
    "not passed on": Folder(0o2770, "anna", "crew", entries_with(0)),
    "no list": Folder(0o2770, "anna", "crew", None),
    "no list, private": Folder(0o700, "anna", "crew", None),
}


class DoorsTest(SmbTest):

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        print("seed %d, %s" % (SEED, cls.world.samba.version()), flush=True)
        cls.random = random.Random(SEED)
        cls.root = cls.world.path(cls.__name__)
        os.mkdir(cls.root, 0o755)
        cls.sessions, cls.number, cls.compared = {}, 0, 0
        cls.table = {}
        cls.make_case("first", PASSED_ON["passed on"])
        cls.world.paddock.keelhouse("share", "add", cls.root, "--smb-name", SHARE)
        cls.await_share()

    @classmethod
    def tearDownClass(cls):
        print("%d answers of doors compared; as the entries say, of those who made something:" % cls.compared)
        for (name, door), (exact, all_of_them) in cls.table.items():
            print("  %-26s made %-5s  %2d of %2d" % (name, door, exact, all_of_them))

    @classmethod
    def make_case(cls, name, folder):
        path = os.path.join(cls.root, name)
        os.mkdir(path)
        os.chown(path, USERS[folder.owner], GROUPS[folder.group])
        os.chmod(path, folder.mode)
        if folder.entries is not None:
            cls.world.paddock.set_privileges(path, acl=[entry.dictionary() for entry in folder.entries])

    @classmethod
    def await_share(cls):
        deadline = time.monotonic() + PATIENCE
        while True:
            try:
                return cls.smb("anna")
            except NTSTATUSError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.2)

    @classmethod
    def smb(cls, user):
        if user not in cls.sessions:
            cls.sessions[user] = Session(cls.world.samba.configuration, user, SHARE)
        return cls.sessions[user]

    # The doors.

    def full(self, path):
        return os.path.join(self.root, path)

    def over_smb(self, path):
        def access(user):
            session = self.smb(user)
            found = {letter for letter, mask in (("r", 1), ("w", 2)) if session.may(path, mask)}
            if "w" in found and os.path.isdir(self.full(path)) and not self.makes_a_file(session, path):
                found.remove("w")
            return found
        return everybody(access)

    def makes_a_file(self, session, folder):
        """smbd opens a folder for that without asking the kernel."""
        made = session.write(folder + "/tried", b"")
        if made:
            os.unlink(self.full(folder + "/tried"))
        return made

    def locally(self, path):
        def access(user):
            found = set(local_access(user, self.full(path)))
            return (found if "x" in found or not os.path.isdir(self.full(path)) else found - {"w"}) & {"r", "w"}
        return everybody(access)

    def make(self, door, maker, path, is_folder):
        """Whether it could be made."""
        if door == "smb":
            session = self.smb(maker)
            return session.make_folder(path) if is_folder else session.write(path, b"content")

        def step():
            os.umask(0o022)
            try:
                if is_folder:
                    os.mkdir(self.full(path))
                else:
                    with open(self.full(path), "x", encoding="ascii") as file:
                        file.write("content")
                return 1
            except PermissionError:
                return 0
        return bool(as_user(maker, step))

    # What is compared.

    def same_at_both(self, path, what):
        """The access of everybody, which is to be the same at both doors."""
        smb, local = self.over_smb(path), self.locally(path)
        self.compared_more(len(smb) * 2)
        self.assertEqual(smb, local, "%s: over SMB, and locally" % (what,))
        return local

    @classmethod
    def compared_more(cls, count):
        cls.compared += count

    def assert_at_most(self, found, bound, what):
        for user in PLAIN_USERS:
            self.assertLessEqual(found[user], bound[user], (what, user))

    def made_inside(self, name, folder, makers=PLAIN_USERS):
        """Makes a file, a folder, and a file in that, by each at each door: path, door, maker, kind and level of
        each. Who may not make anything cannot."""
        for door in DOORS:
            for maker in makers:
                for is_folder in (False, True):
                    path = "%s/%s-%s-%s" % (name, door, maker, "folder" if is_folder else "file")
                    may = {"w", "x"} <= folder.may(maker)
                    self.assertEqual(self.make(door, maker, path, is_folder), may, "%s makes %s" % (maker, path))
                    if may:
                        yield path, door, maker, is_folder, 1
                    if may and is_folder:
                        self.assertTrue(self.make(door, maker, path + "/deep", False), path)
                        yield path + "/deep", door, maker, False, 2

    def note(self, name, door, is_exact):
        exact, count = self.table.get((name, door), (0, 0))
        self.table[name, door] = exact + is_exact, count + 1

    def test_where_entries_are_passed_on(self):
        for name, folder in PASSED_ON.items():
            self.make_case(name, folder)
            self.compare_passed_on(name, folder, PLAIN_USERS, True)

    def compare_passed_on(self, name, folder, makers, is_exact):
        """What Samba tells the kernel of a list is sometimes less than the list, if not `is_exact`."""
        for path, door, maker, is_folder, level in self.made_inside(name, folder, makers):
            wanted = everybody(lambda user: folder.inside(user, maker, is_folder, level, door))
            found = self.same_at_both(path, path)
            self.note(name, door, found == wanted)
            if door == "local" or is_exact:
                self.assertEqual(found, wanted, "%s in %s" % (path, folder))
            self.assert_at_most(found, wanted, "%s in %s" % (path, folder))

    def test_where_they_are_passed_on_in_part(self):
        """The kernel knows no difference of files and folders and no levels: what is made locally has less."""
        for name, folder in PARTLY.items():
            self.make_case(name, folder)
            for path, door, maker, is_folder, level in self.made_inside(name, folder):
                wanted = everybody(lambda user: folder.inside(user, maker, is_folder, level, door))
                found = self.same_at_both(path, path)
                self.note(name, door, found == wanted)
                self.assert_at_most(found, wanted, path)
                if door == "smb" and level == 1:
                    self.assertEqual(found, wanted, path)

    def test_where_none_are_passed_on(self):
        """What is made over SMB is not more open than its folder, also not once it is elsewhere; what is made
        locally has the mode that its maker wants."""
        for name, folder in NOT.items():
            self.make_case(name, folder)
            made = list(self.made_inside(name, folder))
            for path, *_ in made:
                self.same_at_both(path, path)
            for path, door, maker, _, level in made:
                if door == "smb" and level == 1:
                    bound = everybody(lambda user: folder.may(user) | ({"r", "w"} if user == maker else set()))
                    found = self.same_at_both(self.moved_to_the_open(path), path)
                    self.note(name, door, True)
                    self.assert_at_most(found, bound, path)

    def moved_to_the_open(self, path):
        self.number += 1
        open_folder = "open%d" % self.number
        os.mkdir(self.full(open_folder), 0o755)
        os.rename(self.full(path), self.full(open_folder + "/moved"))
        return open_folder + "/moved"

    def test_of_folders_at_random(self):
        """Less is what somebody has over the kernel whom an entry names when more comes from a group."""
        for number in range(RANDOM_FOLDERS):
            folder = self.random_folder()
            name = "random %d" % number
            self.make_case(name, folder)
            # A denial holds for the maker over SMB, where the kernel lets an owner in.
            makers = [user for user in PLAIN_USERS if {"w", "x"} <= folder.may(user)
                      and not any(entry.name == user and not entry.allow for entry in folder.entries)]
            self.compare_passed_on(name, folder, self.random.sample(makers, min(2, len(makers))), False)
        exact, count = (sum(column) for column in zip(*(
            self.table.get(("random %d" % number, "smb"), (0, 0)) for number in range(RANDOM_FOLDERS))))
        self.assertGreater(exact * 3, count)

    # What becomes of it.

    def each_made(self, name, maker="bert"):
        """A file of the maker's, made at each door where entries are passed on."""
        folder = PASSED_ON["passed on, set-group-id"]
        self.make_case(name, folder)
        for door in DOORS:
            path = "%s/%s" % (name, door)
            self.assertTrue(self.make(door, maker, path, False))
            yield door, path, folder

    def test_a_new_name_changes_nothing(self):
        for door, path, _ in self.each_made("renamed"):
            before = self.same_at_both(path, path)
            self.assertTrue(self.smb("bert").rename(path, path + " over SMB"))
            self.assertEqual(self.same_at_both(path + " over SMB", door), before)
            os.rename(self.full(path + " over SMB"), self.full(path))
            self.assertEqual(self.same_at_both(path, door), before)

    def test_a_copy_is_its_makers(self):
        for door, path, folder in self.each_made("copied"):
            wanted = everybody(lambda user: folder.inside(user, "carl", False))
            over_smb = everybody(lambda user: folder.inside(user, "carl", False, door="smb"))
            self.assertTrue(self.smb("carl").write(path + " over SMB", self.smb("carl").read(path)))
            self.assertEqual(self.same_at_both(path + " over SMB", door), over_smb)
            as_user("carl", lambda: shutil.copyfile(self.full(path), self.full(path + " locally")) and 0)
            self.assertEqual(self.same_at_both(path + " locally", door), wanted)

    def test_a_new_mode_holds_at_both(self):
        for door, path, _ in self.each_made("of another mode"):
            before = self.same_at_both(path, door)
            self.assertFalse(self.is_shown_as_overridden(path))
            os.chmod(self.full(path), 0o600)
            self.assertEqual(self.same_at_both(path, door), {**NOBODY, "bert": {"r", "w"}})
            self.assertEqual(self.is_shown_as_overridden(path), door == "smb")
            os.chmod(self.full(path), 0o660)
            self.assert_at_most(self.same_at_both(path, door), before, door)

    def is_shown_as_overridden(self, path):
        """A list that smbd has kept no more."""
        shown = "changed since" in self.world.paddock.keelhouse("acl", "show", self.full(path))
        listed = self.smb("root").descriptor(path).as_sddl()
        self.assertEqual(shown, "AI" not in listed and "security.NTACL" in os.listxattr(self.full(path)))
        return shown

    def test_a_new_owner_holds_at_both(self):
        for door, path, _ in self.each_made("of another owner"):
            before = self.same_at_both(path, door)
            os.chown(self.full(path), USERS["emil"], -1)
            self.assert_at_most(self.same_at_both(path, door), {**before, "emil": {"r", "w"}}, door)

    def test_what_a_client_sets_holds_at_once(self):
        lists = (("D:(A;;FA;;;{bert})(A;;FR;;;{emil})", {"bert": {"r", "w"}, "emil": {"r"}}),
                 ("D:(D;;FA;;;{emil})(A;;FA;;;{bert})(A;;FR;;;{night})(A;;FR;;;{carl})",
                  {"bert": {"r", "w"}, "carl": {"r"}, "dora": {"r"}}),
                 ("D:(D;;FW;;;{carl})(A;;FA;;;{bert})(A;;FRFW;;;WD)",
                  {**everybody(lambda user: {"r", "w"}), "carl": {"r"}}))
        sids = {**{user: "S-1-22-1-%d" % uid for user, uid in USERS.items()},
                **{group: "S-1-22-2-%d" % gid for group, gid in GROUPS.items()}}
        for door, path, folder in self.each_made("set by a client"):
            for sddl, given in lists:
                self.smb("bert").set_list(path, sddl.format(**sids))
                wanted = {user: rights if "x" in folder.may(user) else set()
                          for user, rights in {**NOBODY, **given}.items()}
                self.assertEqual(self.same_at_both(path, door), wanted, sddl)

    def test_who_may_write_may_set_the_list_of_what_was_made_locally_alone(self):
        """The module acl_xattr wants that for what has no list, whatever smb.conf says."""
        for door, path, _ in self.each_made("set by one who writes"):
            sddl = "D:(A;;FA;;;S-1-22-1-%d)" % USERS["bert"]
            may_set = allowed(lambda path=path, sddl=sddl: self.smb("carl").set_list(path, sddl))
            self.assertEqual(may_set, door == "local")
            self.assertFalse(self.smb("emil").may(path, security.SEC_STD_WRITE_DAC), door)

    def test_a_list_that_is_set_here_stays_enforced_under_another_mode(self):
        for door, path, _ in self.each_made("set here"):
            acl = [Entry(False, "user", "carl", READ | WRITE, 0), Entry(True, "user", "bert", READ | WRITE, 0),
                   Entry(True, "group", "night", READ | WRITE, 0)]
            self.world.paddock.set_privileges(self.full(path), acl=[entry.dictionary() for entry in acl])
            before = self.same_at_both(path, door)
            self.assertEqual((before["carl"], before["emil"]), (set(), {"r", "w"}))
            os.chmod(self.full(path), 0o640)
            self.assert_at_most(self.same_at_both(path, door), before, door)
            os.chmod(self.full(path), 0o666)
            self.assert_at_most(self.over_smb(path), self.locally(path), door)
            self.assertEqual(self.over_smb(path)["carl"], set())

    # Samples.

    def random_folder(self):
        mode = self.random.choice((0o770, 0o2770, 0o2775, 0o755, 0o2750, 0o1777))
        entries = sorted((self.random_entry() for _ in range(self.random.randrange(1, 6))),
                         key=lambda entry: entry.allow)  # denials first
        return Folder(mode, self.random.choice(PLAIN_USERS), self.random.choice(list(GROUPS)), entries)

    def random_entry(self):
        """Denied are users alone: the kernel lets in who is denied as a member and allowed as another's."""
        kind = self.random.choice(("user", "group"))
        name = self.random.choice(PLAIN_USERS if kind == "user" else list(GROUPS))
        return Entry(kind == "group" or self.random.random() < 0.7, kind, name,
                     self.random.choice((READ, READ | WRITE)), INHERIT)


if __name__ == "__main__":
    run_tests(__file__)
