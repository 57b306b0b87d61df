"""A host with users and groups of all kinds, in namespaces of its own, and an installed tree."""
import argparse
import os
import subprocess
import sys
import tempfile
import unittest

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from effective_model import User
from nt_list import guid_sid, group_sid, user_sid
from own_daemon import OwnDaemon
from own_namespaces import in_namespaces
from socket_requests import SocketRequests

PROGRAM = "usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs"
SECONDS = 60  # that an answer may take on a busy machine
UNKNOWN = 29999

CONFIGURATION = """
[acl]
winbind = false
[accounts]
extrausers = false
[dnssd]
enabled = false
"""

# Of the host: name: uid, which is the gid of the user's own group, too.
HOST_USERS = {"root": 0, "anna": 21001, "bert": 21002, "carl": 21003, "dora": 21004, "emil": 21005}
HOST_GROUPS = {"crew": 21100, "night": 21200}
HOST_MEMBERS = {"crew": ("bert", "dora"), "night": ("dora", "emil")}

# Of the local directory node alone.
FRITZ, FRITZ_PRIMARY = 22001, 23010
CLUB, BOARD, EVERY, LOOP = 23001, 23002, 23004, 23005
ANNA_GUID = "0A0A0A0A-0000-4000-8000-000000000001"
CLUB_GUID = "0C0C0C0C-0000-4000-8000-000000000001"
GHOSTS_GUID = "0C0C0C0C-0000-4000-8000-000000000003"
EVERY_GUID = "0C0C0C0C-0000-4000-8000-000000000004"
STRANGER_GUID = "0E0E0E0E-0000-4000-8000-00000000000E"


def fixed_user_guid(uid):
    return "2918733C-ACBF-4C23-AD09-B8FC%08X" % uid


def fixed_group_guid(gid):
    return "8872134E-C1BC-44B8-8DF6-B292%08X" % gid


LOCAL_RECORDS = [
    ("Users", "fritz", {"UniqueID": "%d" % FRITZ, "PrimaryGroupID": "%d" % FRITZ_PRIMARY}),
    # Another record of a user of the host.
    ("Users", "anna.b", {"UniqueID": "%d" % HOST_USERS["anna"], "GeneratedUID": ANNA_GUID}),
    ("Groups", "club", {"PrimaryGroupID": "%d" % CLUB, "GeneratedUID": CLUB_GUID,
                        "GroupMembership": ["bert", "fritz"]}),
    ("Groups", "board", {"PrimaryGroupID": "%d" % BOARD, "NestedGroups": [CLUB_GUID]}),
    ("Groups", "ghosts", {"GeneratedUID": GHOSTS_GUID,
                          "GroupMembers": [fixed_user_guid(HOST_USERS["carl"])]}),
    ("Groups", "every", {"PrimaryGroupID": "%d" % EVERY, "GeneratedUID": EVERY_GUID,
                         "NestedGroups": [fixed_group_guid(HOST_GROUPS["crew"]), GHOSTS_GUID,
                                          fixed_group_guid(BOARD), fixed_group_guid(LOOP)]}),
    # In a circle with the one above.
    ("Groups", "loop", {"PrimaryGroupID": "%d" % LOOP, "NestedGroups": [EVERY_GUID]})]

# Who is in which group of the node, by whatever way.
LOCAL_MEMBERS = {CLUB: ("bert", "fritz"), BOARD: ("bert", "fritz"), FRITZ_PRIMARY: ("fritz",),
                 EVERY: ("bert", "carl", "dora", "fritz"), LOOP: ("bert", "carl", "dora", "fritz")}
# All SIDs that name a group or user other than by its gid or uid.
MORE_GROUP_SIDS = {CLUB: [guid_sid(CLUB_GUID)], EVERY: [guid_sid(EVERY_GUID)]}
NAMES = [*HOST_USERS, "fritz"]


def uid_of(name):
    return FRITZ if name == "fritz" else HOST_USERS[name]


def user_named(name):
    uid = uid_of(name)
    sids = {user_sid(uid), guid_sid(fixed_user_guid(uid))}
    if name == "anna":
        sids.add(guid_sid(ANNA_GUID))
    if name == "carl":
        sids.add(guid_sid(GHOSTS_GUID))
    host = [] if name == "fritz" else [uid, *(HOST_GROUPS[group] for group in HOST_GROUPS
                                              if name in HOST_MEMBERS[group])]
    for gid in host + [gid for gid, members in LOCAL_MEMBERS.items() if name in members]:
        sids.update([group_sid(gid), guid_sid(fixed_group_guid(gid)), *MORE_GROUP_SIDS.get(gid, ())])
    return User(uid, host, sids, True)


def unknown_user():
    return User(UNKNOWN, [], {user_sid(UNKNOWN), guid_sid(fixed_user_guid(UNKNOWN))}, False)


def use_own_accounts(folder, clean_up):
    """For all programs in this mount namespace, until `clean_up` calls what it was given."""
    passwd = ["%s:x:%d:%d::/:/bin/false" % (name, uid, uid) for name, uid in HOST_USERS.items()]
    group = ["%s:x:%d:" % item for item in HOST_USERS.items()]
    group += ["%s:x:%d:%s" % (name, gid, ",".join(HOST_MEMBERS[name])) for name, gid in HOST_GROUPS.items()]
    for name, lines in {"passwd": passwd, "group": group}.items():
        use_as_etc(folder, name, lines, clean_up)


def use_as_etc(folder, name, lines, clean_up):
    path = os.path.join(folder, name)
    with open(path, "w", encoding="ascii") as file:
        file.write("\n".join(lines) + "\n")
    subprocess.run(["mount", "--bind", path, "/etc/" + name], check=True)
    clean_up(subprocess.run, ["umount", "--lazy", "/etc/" + name], check=True)


def use_memory(folder, clean_up):
    """Attributes may be long there, and nothing waits for a disk."""
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "none", folder], check=True)
    clean_up(subprocess.run, ["umount", "--lazy", folder], check=True)


class EffectiveTest(unittest.TestCase):
    """The tree and its daemon are those of all tests of a file."""
    options = None
    configuration = CONFIGURATION

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="paddock-effective.")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = folder.name
        use_memory(cls.folder, cls.addClassCleanup)
        cls.make_accounts()
        cls.tree = os.path.join(cls.folder, "tree")
        cls.program = os.path.join(cls.tree, PROGRAM)
        cls.daemon = OwnDaemon(cls.options.cmake, cls.options.build, cls.tree, cls.configuration)
        cls.daemon.start()
        cls.addClassCleanup(cls.daemon.stop)
        cls.make_records()

    @classmethod
    def make_accounts(cls):
        use_own_accounts(cls.folder, cls.addClassCleanup)

    @classmethod
    def records(cls):
        return LOCAL_RECORDS

    @classmethod
    def make_records(cls):
        requests = SocketRequests(os.path.join(cls.tree, "run/paddock/paddockd.sock"), SECONDS)
        for kind, name, attributes in cls.records():
            answer = requests.post("paddock_directory", "putRecord", {
                "type": "dsRecTypeStandard:" + kind, "name": name,
                "attributes": {"dsAttrTypeStandard:" + key: value for key, value in attributes.items()}})
            assert answer == (200, {"status": 0}), answer
        requests.close()

    def setUp(self):
        self.place = os.path.join(self.folder, self.id().rsplit(".", 1)[1])
        os.mkdir(self.place)

    def run_program(self, *arguments, seconds=SECONDS):
        """As it ended, with its output as bytes."""
        return subprocess.run([self.program, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, check=False, timeout=seconds)

    def effective(self, path, uid):
        """The number that is printed, with success."""
        ended = self.run_program("-p", path, "-u", str(uid))
        self.assertEqual((ended.returncode, ended.stderr), (0, b""), ended)
        self.assertRegex(ended.stdout, rb"\A[0-9]+\n\Z")
        return int(ended.stdout)

    def assert_refused(self, *arguments, seconds=SECONDS):
        """A message alone, in one line; which is returned."""
        ended = self.run_program(*arguments, seconds=seconds)
        self.assertEqual(ended.stdout, b"")
        self.assertNotIn(ended.returncode, (0, -6, -11), ended)
        self.assertTrue(ended.stderr.endswith(b"\n") and ended.stderr.strip(), ended)
        return ended.stderr.decode("utf-8", "replace")


def run_tests(file, programs=()):
    """Those of a file that is called with the program cmake and the build's folder, and what unittest takes."""
    in_namespaces(file, sys.argv[1:], programs)
    parser = argparse.ArgumentParser()
    parser.add_argument("cmake")
    parser.add_argument("build")
    EffectiveTest.options, others = parser.parse_known_args()
    unittest.main(argv=sys.argv[:1] + others)
