#!/usr/bin/python3
"""What effectiveprivs says of reading, writing, listing and making is what a stock smbd and the kernel
let a user do.

    servers_agree_test.py CMAKE BUILD_FOLDER

PADDOCK_SEED repeats a run, PADDOCK_ROUNDS makes it longer. Needs root, for namespaces of its own.
"""
import json
import os
import random
import subprocess
import sys

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "samba"))
from list_model import NEEDED_OF_FILES, NEEDED_OF_FOLDERS, RIGHTS, Entry
from smb_world import ATTRIBUTE, GROUPS, PLAIN_USERS, USERS, SmbTest, gids_of, local_access, run_tests, security
from tried import INSIDE, as_ids, is_parted, tried, wanted, works

PROGRAM = "usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs"
ROUNDS = int(os.environ.get("PADDOCK_ROUNDS", "12"))
SEED = int(os.environ.get("PADDOCK_SEED", random.SystemRandom().randrange(1 << 32)))
DATA = ("read-data", "write-data", "append", "execute")
MODES = (0o755, 0o700, 0o750, 0o770, 0o644, 0o705, 0o640, 0o604, 0o777, 0o000)
CLIENTS_MODES = (0o700, 0o000, 0o750, 0o755)  # beside a complete list, the kernel keeps them


class AgreementTest(SmbTest):

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.world.paddock.use_programs(cls.world.samba.configuration)
        print("seed %d" % SEED, flush=True)
        cls.exact = cls.compared = 0

    def setUp(self):
        super().setUp()
        self.random = random.Random("%d %s" % (SEED, self.name))

    # What is asked.

    def explained(self, user):
        """What is printed for the user: the number, and in which bits the kernel disagrees."""
        command = [os.path.join(self.world.paddock.tree, PROGRAM), "-p", self.path, "-u", str(USERS[user])]
        number = int(self.output_of(*command))
        explained = json.loads(self.output_of(*command, "--explain", "--json"))
        self.assertEqual(explained["bitmap"], number)
        self.doors = explained["doors"]
        return number, {line["bit"] for line in explained["kernelDisagrees"]}

    def output_of(self, *command):
        ended = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, encoding="utf-8", check=False)
        self.assertEqual((ended.returncode, ended.stderr), (0, ""), command)
        return ended.stdout

    # What is compared.

    def compare(self, is_folder, has_list, case):
        for user in PLAIN_USERS:
            number, disagreeing = self.explained(user)
            what = "seed %d: %s, %s has %d, the kernel disagrees in %s" % (
                SEED, case, user, number, sorted(disagreeing))
            self.compare_with_smbd(user, number, is_folder, has_list, what)
            self.compare_with_kernel(user, number, disagreeing, what)

    def compare_with_smbd(self, user, number, is_folder, has_list, what):
        """smbd opens everything with the rights of its client, so what the kernel refuses it refuses, too:
        a folder that it opens for any of these rights it opens for reading."""
        here = local_access(user, self.path)
        needed = NEEDED_OF_FOLDERS if is_folder else NEEDED_OF_FILES
        given = {right for right in DATA if number & RIGHTS[right][0]}
        judged = given if has_list else self.rights_without_a_list(user)
        session = self.world.session(user)
        self.compare_doors(session, is_folder, here, what)
        self.assertEqual({right for right in DATA if session.may(self.name, RIGHTS[right][1])},
                         {right for right in judged if needed.get(right, "-") in here + "-"}, what)
        if is_folder:
            self.compare_use_of_folder(user, session, given, here, what)
        else:
            self.assertEqual(session.read(self.name) == b"content", "read-data" in given and "r" in here, what)

    def compare_doors(self, session, is_folder, here, what):
        """What is said of SMB and of local programs is what they find."""
        smb, local = self.doors["smb"], self.doors["local"]
        what = "%s; %s" % (what, self.doors)
        can_read = (session.names(self.name) if is_folder else session.read(self.name)) is not None
        self.assertEqual(smb["read"], "yes" if can_read else "no", what)
        self.assertEqual(local["read"], "yes" if "r" in here else "no", what)
        if is_folder:
            new = self.name + "/tried"
            can_write = session.write(new, b"") or session.make_folder(new)
            self.clear()
        else:
            can_write = any(session.may(self.name, RIGHTS[right][1]) for right in ("write-data", "append"))
        self.assertEqual(smb["write"], "yes" if can_write else "no", what)

    def rights_without_a_list(self, user):
        """smbd makes a list of the mode then, in which who may read may execute, and a user has what any of
        the classes gives that the user is in, others always. What is more than the kernel gives can be asked
        for, and not be used."""
        found = os.stat(self.path)
        digit = found.st_mode & 7
        digit |= found.st_mode >> 3 & 7 if found.st_gid in gids_of(user) else 0
        digit |= found.st_mode >> 6 & 7 if found.st_uid == USERS[user] else 0
        return ({"read-data", "execute"} if digit & 4 else set()) | (
            {"write-data", "append"} if digit & 2 else set())

    def compare_use_of_folder(self, user, session, given, here, what):
        self.assertEqual(session.names(self.name) is not None, "read-data" in given and "r" in here, what)
        can_make = "w" in here and "x" in here and not is_parted(self.path, USERS[user], gids_of(user))
        for right, name, make in (("write-data", "file", lambda path: session.write(path, b"")),
                                  ("append", "folder", session.make_folder)):
            made = os.path.join(self.path, "%s-of-%s" % (name, user))
            self.assertEqual(make("%s/%s" % (self.name, os.path.basename(made))),
                             right in given and can_make, (name, what))
            self.assertEqual(os.path.exists(made), right in given and can_make, (name, what))

    def compare_with_kernel(self, user, number, disagreeing, what):
        """Bits in which the kernel is said to disagree are those in which it does."""
        self.compared += 1
        if not disagreeing & {2, 4, 8}:
            self.exact += 1
            self.assert_can(user, number, what)
            return
        kernel = sum(bit for bit, letter in ((2, "r"), (4, "w"), (8, "x")) if letter in local_access(user, self.path))
        self.assertEqual((number ^ kernel) & 14, sum(disagreeing & {2, 4, 8}), what)

    def assert_can(self, user, number, what):
        whose = self.path, USERS[user], gids_of(user)
        self.assertEqual(tried(*whose), wanted(number, *whose), what)

    # Samples.

    def make(self, is_folder):
        if is_folder:
            self.make_folder(0o755)
            with open(os.path.join(self.path, INSIDE), "w", encoding="ascii"):
                pass
        else:
            self.make_file(0o644)

    def clear(self):
        for name in os.listdir(self.path):
            path = os.path.join(self.path, name)
            if name != INSIDE:
                (os.rmdir if os.path.isdir(path) else os.unlink)(path)

    def entry(self, kinds):
        kind = self.random.choice(kinds)
        name = {"user": self.random.choice(PLAIN_USERS), "group": self.random.choice(list(GROUPS)),
                "everybody": self.random.choice(("everyone", "authenticated users"))}[kind]
        rights = self.random.choice((self.random.sample(DATA, self.random.randrange(1, 4)), DATA[:1], DATA,
                                     ["write-data", "append", "delete-child"], RIGHTS))
        return Entry(self.random.random() < 0.65, kind, name, frozenset(rights))

    def entries(self, kinds):
        return [self.entry(kinds) for _ in range(self.random.randrange(0, 6))]

    def sample(self, is_folder, set_entries, kinds, modes, share):
        """Of the cases, more than this share must be such that the kernel says the same."""
        self.make(is_folder)
        for _ in range(ROUNDS):
            mode = self.random.choice(modes)
            owner, group = self.random.choice(PLAIN_USERS), self.random.choice(list(GROUPS))
            entries = self.entries(kinds)
            set_entries(entries, mode, owner, group)
            has_list = ATTRIBUTE in os.listxattr(self.path)
            self.compare(is_folder, has_list, "%s, %03o %s %s" % (entries, mode, owner, group))
            if is_folder:
                self.clear()
        self.assertGreater(self.exact, self.compared * share)

    def set_here(self, entries, mode, owner, group):
        """The mode gives what the entries do not decide."""
        self.world.paddock.set_privileges(self.path, owner=owner, group=group, privs="%03o" % mode,
                                          acl=[entry.dictionary() for entry in entries])

    def set_by_client(self, entries, mode, owner, group):
        """Nothing is given beside the entries. What is read and written back is projected, too."""
        self.world.paddock.set_privileges(self.path, owner=owner, group=group, privs="%03o" % mode, acl=[])
        self.set_list(entries)
        self.write_back()

    def test_of_files(self):
        self.sample(False, self.set_here, ("user", "group"), MODES, 0.3)

    def test_of_folders(self):
        self.sample(True, self.set_here, ("user", "group"), MODES, 0.3)

    def test_of_files_with_a_clients_list(self):
        self.sample(False, self.set_by_client, ("user", "group", "everybody"), CLIENTS_MODES, 0.1)

    def test_of_folders_with_a_clients_list(self):
        self.sample(True, self.set_by_client, ("user", "group", "everybody"), CLIENTS_MODES, 0.1)

    def test_of_files_given_away_behind_their_list(self):
        self.compare_given_away(False)

    def test_of_folders_given_away_behind_their_list(self):
        self.compare_given_away(True)

    def compare_given_away(self, is_folder):
        """chown and chmod leave the list as it is: smbd goes by the owner, the group and the mode that its tail
        still names, besides the kernel, and nobody else does."""
        self.make(is_folder)
        stale = 0
        for _ in range(ROUNDS):
            self.set_here(self.entries(("user", "group")) or [self.entry(("user",))],
                          self.random.choice(MODES), self.random.choice(PLAIN_USERS),
                          self.random.choice(list(GROUPS)))
            mode, owner, group = (self.random.choice(MODES), self.random.choice(PLAIN_USERS),
                                  self.random.choice(list(GROUPS)))
            self._give(mode, owner, group)
            for user in PLAIN_USERS:
                self.explained(user)
                stale += "the list still has owner" in self.doors["smb"]["reason"]
                self.compare_doors(self.world.session(user), is_folder, local_access(user, self.path),
                                   "seed %d: given to %s %s %03o, %s" % (SEED, owner, group, mode, user))
        self.assertGreater(stale, 0)

    def test_that_a_former_owner_may_change_the_list_over_smb(self):
        """Until somebody sets the mode here, which is said."""
        self.make_file(0o640, "anna")
        self.set_acl("allow user:bert read")
        os.chown(self.path, USERS["carl"], -1)
        self.assertEqual(self.who_may_change(), {"anna"})
        self.assertIn("SMB servers go by these, and anna may change it there.", self.said_of_everybody())
        self.world.paddock.keelhouse("privs", "set", self.path, "--mode", "640")
        self.assertEqual(self.who_may_change(), {"carl"})
        self.assertNotIn("may change it there", self.said_of_everybody())

    def who_may_change(self):
        return self.users_who(lambda smb: smb.may(self.name, security.SEC_STD_WRITE_DAC))

    def said_of_everybody(self):
        return self.output_of(os.path.join(self.world.paddock.tree, PROGRAM), "--who", "-p", self.path)

    def test_of_files_without_a_list(self):
        self.make(False)
        self.compare_modes(False)

    def test_of_folders_without_a_list(self):
        self.make(True)
        self.compare_modes(True)

    def compare_modes(self, is_folder):
        """The kernel never disagrees with its own mode, and smbd goes by it."""
        for mode in MODES:
            owner, group = self.random.choice(PLAIN_USERS), self.random.choice(list(GROUPS))
            self._give(mode, owner, group)
            for user in PLAIN_USERS:
                number, disagreeing = self.explained(user)
                case = "seed %d: %03o %s %s, %s has %d" % (SEED, mode, owner, group, user, number)
                self.assertEqual(disagreeing & {2, 4, 8}, set(), case)
                self.assert_can(user, number, case)
                self.compare_with_smbd(user, number, is_folder, False, case)
            if is_folder:
                self.clear()

    def test_of_writing_by_one_group_and_searching_by_another(self):
        """A list says that, and the kernel's cannot."""
        self.make(True)
        self._give(0o700, "root", "root")
        self.set_acl("allow group:crew add-file,add-folder", "allow group:night search")
        number, _ = self.explained("dora")
        self.assertEqual(number & 14, 12)
        self.assertEqual(self.said_apart("dora"), "-wx")
        self.assertTrue(is_parted(self.path, USERS["dora"], gids_of("dora")))
        self.assert_can("dora", number, "made locally")
        self.assertFalse(self.world.session("dora").write(self.name + "/file", b""))
        self.set_acl("allow group:crew add-file,search")
        self.assertFalse(is_parted(self.path, USERS["dora"], gids_of("dora")))
        self.assertIsNone(self.said_apart("dora"))
        self.assertTrue(self.world.session("dora").write(self.name + "/file", b""))

    def said_apart(self, user):
        """What the kernel is said to give, but not at once."""
        return json.loads(self.output_of(os.path.join(self.world.paddock.tree, PROGRAM), "-p", self.path, "-u",
                                         str(USERS[user]), "--explain", "--json")).get("kernelApart")

    def test_of_deleting_without_a_list(self):
        """Who may delete something is for the folder to say that it is in."""
        self.make_folder(0o755)
        folder, self.path = self.path, os.path.join(self.path, "file")
        for mode in (0o777, 0o755, 0o775, 0o770, 0o733, 0o555, 0o1777, 0o1755, 0o1770, 0o1775):
            owner, owner_of_file = self.random.choice(PLAIN_USERS), self.random.choice(PLAIN_USERS)
            os.chown(folder, USERS[owner], GROUPS["crew"])
            os.chmod(folder, mode)
            for user in PLAIN_USERS:
                with open(self.path, "w", encoding="ascii"):
                    pass
                os.chown(self.path, USERS[owner_of_file], GROUPS["night"])
                number, _ = self.explained(user)
                removed = as_ids(USERS[user], gids_of(user), lambda: works(os.unlink, self.path))
                self.assertEqual(bool(number & 16), bool(removed), "seed %d: %o %s, file %s: %s has %d" % (
                    SEED, mode, owner, owner_of_file, user, number))


if __name__ == "__main__":
    run_tests(__file__)
