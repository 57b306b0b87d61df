"""A plain model of what a list over a mode gives a user, one right at a time."""
from collections import namedtuple

from smb_world import GROUPS, USERS, gids_of

# Name: value in a request, bit of an SMB client's access mask ([MS-SMB2] 2.2.13.1).
RIGHTS = {
    "read-data": (2, 0x1), "write-data": (4, 0x2), "execute": (8, 0x20), "delete": (16, 0x10000),
    "append": (32, 0x4), "delete-child": (64, 0x40), "read-attributes": (128, 0x80),
    "write-attributes": (256, 0x100), "read-extended": (512, 0x8), "write-extended": (1024, 0x10),
    "read-security": (2048, 0x20000), "write-security": (4096, 0x40000),
    "change-owner": (8192, 0x80000)}

# Whom every SMB client belongs to that has logged on.
EVERYBODY = {"everyone": "S-1-1-0", "authenticated users": "S-1-5-11", "network": "S-1-5-2"}

EVERYBODYS = {"read-attributes", "read-security"}
OWNERS = {"write-attributes", "write-security"}
OF_DIGIT = {4: {"read-data", "read-extended"},
            2: {"write-data", "append", "write-extended", "write-attributes"}, 1: {"execute"}}
# What the kernel has to let a user do, so that smbd can open a file or a folder for it as that user.
NEEDED_OF_FILES = {"read-data": "r", "execute": "r", "write-data": "w", "append": "w"}
NEEDED_OF_FOLDERS = {"read-data": "r", "write-data": "r", "append": "r"}


class Entry(namedtuple("Entry", "allow kind name rights")):
    """`kind`: user, group, everybody, or another one that no user has to do with."""

    @classmethod
    def of(cls, ace):
        sid = str(ace.trustee)
        found = [(kind, name) for kind, names in (("user", USERS), ("group", GROUPS), ("everybody", EVERYBODY))
                 for name in names if cls(True, kind, name, ()).sid() == sid]
        kind, name = found[0] if found else ("other", sid)
        rights = frozenset(right for right, (_, mask) in RIGHTS.items() if ace.access_mask & mask)
        return cls(ace.type == 0, kind, name, rights)

    def dictionary(self):
        """As requests have it, which know users ("isUser" is 0) and groups."""
        whom = ({"isUser": 0, "uniqueID": USERS[self.name]} if self.kind == "user" else
                {"isUser": 1, "groupID": GROUPS[self.name]})
        return {"allowPermission": "YES" if self.allow else "NO", "flags": 0,
                "bitmap": sum(RIGHTS[right][0] for right in self.rights), **whom}

    def ace(self):
        """In SDDL."""
        mask = sum(RIGHTS[right][1] for right in self.rights)
        return "(%s;;0x%08x;;;%s)" % ("A" if self.allow else "D", mask, self.sid())

    def sid(self):
        if self.kind == "user":
            return "S-1-22-1-%d" % USERS[self.name]
        return "S-1-22-2-%d" % GROUPS[self.name] if self.kind == "group" else EVERYBODY[self.name]

    def is_about(self, user):
        if self.kind == "user":
            return self.name == user
        return self.kind == "everybody" or self.kind == "group" and GROUPS[self.name] in gids_of(user)


def granted(entries, user, fallback):
    """The rights that the list gives the user; `fallback`: those of what no entry decides."""
    def decide(right):
        for entry in entries:
            if right in entry.rights and entry.is_about(user):
                return entry.allow
        return right in fallback
    return {right for right in RIGHTS if decide(right)}


def rights_of_mode(mode, user, owner, group, is_folder):
    rights = set(EVERYBODYS)
    if user == owner:
        shift = 6
        rights |= OWNERS
    else:
        shift = 3 if GROUPS[group] in gids_of(user) else 0
    for digit, given in OF_DIGIT.items():
        if mode >> shift & digit:
            rights |= given | ({"delete-child"} if is_folder and digit == 2 else set())
    return rights


def kernel_bits(rights):
    return {bit for right, bit in (("read-data", "r"), ("write-data", "w"), ("execute", "x"))
            if right in rights}


def as_served(rights, here, is_owner, is_folder):
    """What smbd makes of what a list gives: what the kernel, which lets the user do `here`, refuses is
    left out, and what comes with listing the folder around it and with being the owner is added."""
    needed = NEEDED_OF_FOLDERS if is_folder else NEEDED_OF_FILES
    served = {right for right in rights if needed.get(right, "-") in here + "-"}
    return served | {"read-attributes"} | ({"read-security", "write-security"} if is_owner else set())
