#!/usr/bin/python3
"""What effectiveprivs prints, for lists, modes, owners and users at random, is what a plain model says.

    random_lists_test.py CMAKE BUILD_FOLDER

PADDOCK_SEED repeats a run, PADDOCK_ROUNDS makes it longer. Needs root, for namespaces of its own.
"""
import json
import os
import random
import struct
import subprocess

import effective_world as world
import nt_list
from effective_model import ALL, BITS, ROOT, Entry, Object, bitmap, decide
from nt_list import AUTHENTICATED, EVERYONE, OWNER_RIGHTS, group_sid, guid_sid, user_sid

ROUNDS = int(os.environ.get("PADDOCK_ROUNDS", "60"))
SEED = int(os.environ.get("PADDOCK_SEED", random.SystemRandom().randrange(1 << 32)))
IN_DOUBT = 4  # the exit status when an entry that matters is for nobody that is known

HOST_GIDS = [*world.HOST_USERS.values(), *world.HOST_GROUPS.values()]
LOCAL_GIDS = list(world.LOCAL_MEMBERS)
PRINCIPALS = (
    [user_sid(world.uid_of(name)) for name in world.NAMES] + [group_sid(gid) for gid in HOST_GIDS + LOCAL_GIDS] +
    [guid_sid(guid) for guid in (world.ANNA_GUID, world.CLUB_GUID, world.GHOSTS_GUID, world.EVERY_GUID,
                                 world.STRANGER_GUID, world.fixed_user_guid(world.HOST_USERS["anna"]),
                                 world.fixed_group_guid(world.HOST_GROUPS["crew"]),
                                 world.fixed_group_guid(world.CLUB))] +
    # Who is nobody's here: of a group that there is not, of a way to log on. Who is a stranger: of a domain.
    [nt_list.NETWORK, "S-1-5-4", "S-1-5-21-1-2-3-1104", group_sid(24999), user_sid(world.UNKNOWN),
     nt_list.CREATOR_OWNER, nt_list.CREATOR_GROUP])
STRANGERS = ("S-1-5-21-1-2-3-1104", guid_sid(world.STRANGER_GUID))
SPECIAL = [EVERYONE, AUTHENTICATED, OWNER_RIGHTS]
STRANGE_TYPES = (2, 5, 9)
NAMES = ("plain", "with blanks ", "über", "a\nline", "-dash", "quo\"te", "x" * 200)


class Maker:
    """Of lists and objects."""

    def __init__(self, seed):
        self.random = random.Random(seed)

    def happens(self, share):
        return self.random.random() < share

    def sid(self):
        return self.random.choice(SPECIAL if self.happens(0.3) else PRINCIPALS)

    def bits(self):
        return frozenset(self.random.choice((
            BITS, self.random.sample(BITS, self.random.randrange(1, 5)), [2, 4], [2, 512, 8],
            [self.random.choice(BITS)], [16], [64], [4, 8], [])))

    def entry(self, is_folder):
        """The entry for the model, None for one that decides nothing, and its bytes."""
        flags = self.random.choice((0, 0, 1, 2, 3, 7, 16, 19)) if is_folder else self.random.choice((0, 0, 16))
        if self.happens(0.15):
            flags |= nt_list.INHERIT_ONLY
        kind = self.random.choice((nt_list.ALLOW, nt_list.ALLOW, nt_list.DENY))
        sid, bits = self.sid(), self.bits()
        mask = nt_list.mask_of(sum(bits)) | self.random.choice((0, nt_list.SYNCHRONIZE, nt_list.GENERIC))
        if self.happens(0.06):
            return self.strange_entry(sid, mask, flags)
        applies = not flags & nt_list.INHERIT_ONLY
        return (Entry(kind == nt_list.ALLOW, None if sid in STRANGERS else sid, bits, applies),
                nt_list.entry(kind, sid, mask, flags))

    def strange_entry(self, sid, mask, flags):
        """Of another type. It is one of the list's entries, and says nothing."""
        kind = self.random.choice(STRANGE_TYPES)
        made = nt_list.entry(kind, sid, mask, flags)
        if kind == 5:  # an object entry without GUIDs
            made = struct.pack("<BBHI", kind, flags, len(made) + 4, mask) + bytes(4) + made[8:]
        return Entry(True, sid, frozenset(), False), made

    def list_of(self, is_folder):
        """Entries for the model, whether they are all, and the attribute's value; Nones without a list."""
        if self.happens(0.1):
            return None, False, None
        if self.happens(0.04):  # one that lets everybody in, and one that lets nobody in
            if self.happens(0.5):
                return [Entry(True, EVERYONE, frozenset(BITS), True)], True, nt_list.value(None)
            return [], True, nt_list.value(None, control=0x8400)
        made = [self.entry(is_folder) for _ in range(self.random.randrange(0, 9))]
        lines = [line for _, line in made]
        complete = self.happens(0.3)
        if not complete:
            inherits = any(line[1] & (nt_list.FILES | nt_list.FOLDERS) for line in lines)
            # It need not be that of the present mode.
            lines += nt_list.tail(*self.owners(), self.mode(), is_folder, inherits)
        return [entry for entry, _ in made], complete, nt_list.value(lines)

    def owners(self):
        uid = world.UNKNOWN if self.happens(0.05) else world.uid_of(self.random.choice(world.NAMES))
        return uid, self.random.choice(HOST_GIDS + LOCAL_GIDS)

    def mode(self):
        return self.random.choice((0o755, 0o700, 0o750, 0o770, 0o644, 0o705, 0, self.random.randrange(512)))

    def make(self, path, is_folder):
        """Makes it; what the model needs."""
        uid, gid = self.owners()
        mode, is_sticky = self.mode(), is_folder and self.happens(0.3)
        entries, complete, value = self.list_of(is_folder)
        if is_folder:
            os.mkdir(path)
        else:
            with open(path, "w", encoding="ascii"):
                pass
        os.chown(path, uid, gid)
        os.chmod(path, mode | (0o1000 if is_sticky else 0))
        if value is not None:
            os.setxattr(path, nt_list.ATTRIBUTE, value)
        if self.happens(0.15):
            mode = self.add_kernel_list(path, mode)
        return Object(uid, gid, mode, is_folder, is_sticky, entries, complete)

    def add_kernel_list(self, path, mode):
        """Of a user and a mask; the mode that it leaves, which is what the classes have in effect."""
        mask = self.random.randrange(8)
        digits = mode >> 6 & 7, mode >> 3 & 7, mode & 7
        lines = [(1, digits[0], 0xFFFFFFFF), (2, self.random.randrange(8), world.HOST_USERS["anna"]),
                 (4, digits[1], 0xFFFFFFFF), (0x10, mask, 0xFFFFFFFF), (0x20, digits[2], 0xFFFFFFFF)]
        os.setxattr(path, "system.posix_acl_access", struct.pack("<I", 2) + b"".join(
            struct.pack("<HHI", *line) for line in lines))
        return digits[0] << 6 | (digits[1] & mask) << 3 | digits[2]


class RandomListsTest(world.EffectiveTest):

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        print("seed %d" % SEED, flush=True)

    def setUp(self):
        super().setUp()
        self.maker = Maker("%d %s" % (SEED, self.id()))
        self.users = {name: world.user_named(name) for name in world.NAMES}
        self.users["nobody's"] = world.unknown_user()

    def case(self, number):
        """A folder and what is in it: its path, itself and its folder as the model has them."""
        above = os.path.join(self.place, str(number))
        parent = self.maker.make(above, True)
        path = os.path.join(above, self.maker.random.choice(NAMES))
        thing = self.maker.make(path, self.maker.happens(0.5))
        return path, thing, parent

    def seen(self, path):
        """A path by which it is found: its own, or that of a link."""
        if self.maker.happens(0.8):
            return path
        link = path + ".link" if len(path) < 200 else os.path.join(self.place, "link" + str(hash(path)))
        os.symlink(path, link)
        return link

    def asked(self, most):
        names = list(self.users)
        return self.maker.random.sample(names, min(most, len(names)))

    def test_the_number_is_the_models(self):
        for number in range(ROUNDS):
            path, thing, parent = self.case(number)
            seen = self.seen(path)
            for name in self.asked(6):
                user = self.users[name]
                with self.subTest(seed=SEED, number=number, user=name, path=path, thing=thing, parent=parent):
                    found = self.effective(seen, user.uid)
                    self.assertEqual(found & ~ALL, 0)
                    self.assertEqual(found, bitmap(user, thing, parent),
                                     "bits that differ: %d" % (found ^ bitmap(user, thing, parent)))

    def test_the_explanation_is_the_models(self):
        for number in range(max(1, ROUNDS // 3)):
            path, thing, parent = self.case(number)
            for name in self.asked(3):
                user = self.users[name]
                with self.subTest(seed=SEED, number=number, user=name, path=path, thing=thing, parent=parent):
                    self.compare_explanation(path, user, thing, parent)

    def compare_explanation(self, path, user, thing, parent):
        ended = self.run_program("-p", path, "-u", str(user.uid), "--explain", "--json")
        decisions = {bit: decide(user, thing, parent, bit) for bit in BITS}
        is_sure = all(decision.granted is not None for decision in decisions.values())
        self.assertEqual((ended.returncode, ended.stderr), (0 if is_sure else 4, b""), ended)
        explained = json.loads(ended.stdout)
        self.assertEqual(explained["bitmap"], bitmap(user, thing, parent))
        self.assertEqual([line["bit"] for line in explained["bits"]], BITS)
        for line in explained["bits"]:
            granted = line["granted"] if line["sure"] else None
            self.assertEqual((granted, line["by"], line.get("entry")), tuple(decisions[line["bit"]]), line)

    def test_the_daemon_answers_with_the_same_number(self):
        for number in range(max(1, ROUNDS // 6)):
            path, thing, parent = self.case(number)
            for name in self.asked(3):
                user = self.users[name]
                reply = self.daemon.request("getEffectivePerms", {"path": path, "uid": user.uid})
                self.assertEqual(reply, {"path": path, "bitmap": bitmap(user, thing, parent)}, (SEED, number, name))

    def test_who_may_do_something_is_the_models(self):
        """A user who is not listed is one of everybody else. Who may append may write."""
        rights = {"read": (2,), "write": (4, 32), "permissions": (4096,)}
        for number in range(max(1, ROUNDS // 3)):
            path, thing, parent = self.case(number)
            ended = self.run_program("-p", path, "--who", "--json")
            self.assertIn((ended.returncode, ended.stderr), ((0, b""), (4, b"")), ended)
            found = json.loads(ended.stdout)
            self.assertEqual(found["notListed"], 0)
            people = {person["uid"]: person["rights"] for person in found["people"]}
            self.assertEqual(len(people), len(found["people"]))
            for name, user in self.users.items():
                said = people.get(user.uid, found["everybodyElse" if user.is_known else "withoutAccount"])
                with self.subTest(seed=SEED, number=number, user=name, path=path, thing=thing):
                    for right, bits in rights.items():
                        ways = {decide(user, thing, parent, bit).granted for bit in bits}
                        wanted = True if True in ways else None if None in ways else False
                        self.assertEqual(said[right]["granted"] if said[right]["sure"] else None, wanted, right)
                        self.assertTrue(wanted is not None or ended.returncode == 4)

    def test_a_decision_names_the_groups_through_which_it_came(self):
        path = os.path.join(self.place, "file")
        with open(path, "w", encoding="ascii"):
            pass
        os.setxattr(path, nt_list.ATTRIBUTE, nt_list.value([
            nt_list.entry(nt_list.ALLOW, group_sid(world.BOARD), nt_list.mask_of(2)),
            nt_list.entry(nt_list.ALLOW, group_sid(world.CLUB), nt_list.mask_of(4)),
            nt_list.entry(nt_list.ALLOW, user_sid(world.FRITZ), nt_list.mask_of(8))]))
        ended = self.run_program("-p", path, "-u", str(world.FRITZ), "--explain", "--json")
        decided = {line["bit"]: line for line in json.loads(ended.stdout)["bits"]}
        for bit, principal, through in ((2, "board", ["club", "board"]), (4, "club", ["club"]), (8, "fritz", [])):
            self.assertIn(principal, decided[bit]["principal"])
            self.assertEqual(decided[bit]["through"], through, decided[bit])

    def test_root_has_everything(self):
        for number in range(5):
            path, _, _ = self.case(number)
            self.assertEqual(self.effective(path, ROOT), ALL)

    def test_asking_changes_nothing(self):
        path, _, _ = self.case(0)

        def state():
            return (os.stat(path), os.listxattr(path),
                    [os.getxattr(path, name) for name in os.listxattr(path)])
        before = state()
        self.effective(path, self.users["bert"].uid)
        ended = subprocess.run([self.program, "-p", path, "-u", "21002", "--explain"], stdout=subprocess.DEVNULL)
        self.assertIn(ended.returncode, (0, IN_DOUBT))  # a drawn entry may be for somebody unknown
        self.assertEqual(state(), before)


if __name__ == "__main__":
    world.run_tests(__file__)
