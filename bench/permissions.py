"""A tree with nothing but the programs that say who may do what, and accounts to ask about."""

import contextlib
import os
import shutil
import struct
import tempfile

from processes import run

PROGRAM = "usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs"
KEELHOUSE = "usr/sbin/keelhouse"
DATABASE = "var/lib/paddock/directory.sqlite"
READ_DATA = 1
UNIX_USER, UNIX_GROUP = 1, 2


class PermissionTree:
    def __init__(self, folder, installed):
        self.folder = folder
        for name in (PROGRAM, KEELHOUSE):
            os.makedirs(os.path.dirname(self.path(name)))
            shutil.copy(os.path.join(installed, name), self.path(name))
        os.makedirs(os.path.dirname(self.path(DATABASE)))

    def path(self, name):
        return os.path.join(self.folder, name)

    def fill(self, program, users, groups, memberships):
        """Accounts in "/Local"; made where a change need not wait for a disk."""
        with tempfile.TemporaryDirectory(dir="/dev/shm") as memory:
            database = os.path.join(memory, "directory.sqlite")
            run([program, database, str(users), str(groups), str(memberships)])
            shutil.copy(database, self.path(DATABASE))

    def file_with(self, name, principals):
        """A file whose list lets each of the (kind, id) read it, in this order."""
        path = self.path(name)
        with open(path, "w", encoding="ascii"):
            pass
        os.setxattr(path, "security.NTACL", list_value(principals))
        return path


def sid(*sub_authorities):
    """Of the authority that stands for Unix users and groups."""
    head = struct.pack(">BBHI", 1, len(sub_authorities), 0, 22)
    return head + struct.pack(f"<{len(sub_authorities)}I", *sub_authorities)


def list_value(principals):
    """A complete list, as the attribute has it: docs/formats/acl.md."""
    entries = b""
    for principal in principals:
        who = sid(*principal)
        entries += struct.pack("<BBHI", 0, 0, 8 + len(who), READ_DATA) + who
    owner, group = sid(UNIX_USER, 0), sid(UNIX_GROUP, 0)
    offsets = (28, 28 + len(owner), 0, 28 + len(owner) + len(group))
    listed = struct.pack("<BBHHH", 2, 0, 8 + len(entries), len(principals), 0) + entries
    return (struct.pack("<HHI", 1, 1, 0x20000) + struct.pack("<BBH4I", 1, 0, 0x8404, *offsets)
            + owner + group + listed)


@contextlib.contextmanager
def host_accounts(folder, user, uid, gids):
    """One more user of the host, who is in as many more groups, for this mount namespace."""
    added = {"passwd": f"{user}:x:{uid}:{gids[0]}::/:/bin/false\n",
             "group": "".join(f"{user}{gid}:x:{gid}:{user}\n" for gid in gids)}
    mounted = []
    try:
        for name, lines in added.items():
            ours, theirs = os.path.join(folder, name), os.path.join("/etc", name)
            with open(theirs, encoding="utf-8") as present, open(ours, "w", encoding="utf-8") as out:
                out.write(present.read() + lines)
            run(["mount", "--bind", ours, theirs])
            mounted.append(theirs)
        yield
    finally:
        for path in mounted:
            run(["umount", path])
