"""What a user may do with a file or folder, decided one bit at a time."""
from collections import namedtuple

from nt_list import AUTHENTICATED, EVERYONE, NETWORK, OWNER_RIGHTS

ROOT = 0
ALL = 16382
BITS = [1 << number for number in range(1, 14)]

READ_DATA, WRITE_DATA, EXECUTE, DELETE, APPEND, DELETE_CHILD = 2, 4, 8, 16, 32, 64
READ_ATTRIBUTES, WRITE_ATTRIBUTES, READ_EXTENDED, WRITE_EXTENDED = 128, 256, 512, 1024
READ_SECURITY, WRITE_SECURITY, CHANGE_OWNER = 2048, 4096, 8192

OF_MODE = {4: {READ_DATA, READ_EXTENDED}, 2: {WRITE_DATA, APPEND, WRITE_EXTENDED}, 1: {EXECUTE}}
OF_THE_OWNER = {WRITE_ATTRIBUTES, WRITE_SECURITY}
OF_EVERYBODY = {READ_ATTRIBUTES, READ_SECURITY}

# `sid`: whom it is about, None for a stranger; `bits`: a set; `applies`: not to what is inside alone.
Entry = namedtuple("Entry", "allow sid bits applies")
# `entries`: of the list, None without one; `complete`: nothing falls back to the mode.
Object = namedtuple("Object", "uid gid mode is_folder is_sticky entries complete")
# `gids`: of the groups that a process of the user has; `sids`: of the user and of all groups that hold
# the user; `is_known`: whether there is an account.
User = namedtuple("User", "uid gids sids is_known")


class Decision(namedtuple("Decision", "granted by entry")):
    """`by`: root, entry (the index is `entry`), list, mode, owner, everybody, parent, or nothing.
    `granted`: None when it cannot be told; what decides otherwise is what decides when strangers do not count."""


def bitmap(user, thing, parent):
    return sum(bit for bit in BITS if decide(user, thing, parent, bit).granted)


def decide(user, thing, parent, bit):
    """`parent`: the folder that it is in. A stranger may be anybody or nobody: every way to decide is tried."""
    decision = decide_with(user, thing, parent, bit, set())
    strangers = [index for index, entry in enumerate(thing.entries or ()) if entry.sid is None]
    ways = {decision.granted} | {decide_with(user, thing, parent, bit, {index}).granted for index in strangers}
    return decision._replace(granted=decision.granted if len(ways) == 1 else None)


def decide_with(user, thing, parent, bit, counting):
    """`counting`: the indexes of the strangers' entries that are for the user."""
    if user.uid == ROOT:
        return Decision(True, "root", None)
    for index, entry in enumerate(thing.entries or ()):
        if entry.applies and bit in entry.bits and (index in counting or is_about(entry, user, thing)):
            return Decision(entry.allow, "entry", index)
    if thing.entries is not None and thing.complete:
        return Decision(False, "list", None)
    return without_an_entry(user, thing, parent, bit)


def is_about(entry, user, thing):
    if entry.sid in (EVERYONE, NETWORK):
        return True
    if entry.sid == OWNER_RIGHTS:
        return thing.uid == user.uid
    return entry.sid == AUTHENTICATED and user.is_known or entry.sid in user.sids


def without_an_entry(user, thing, parent, bit):
    if bit == DELETE:
        return Decision(may_delete(user, thing, parent), "parent", None)
    if bit in OF_EVERYBODY:
        return Decision(True, "everybody", None)
    if bit in OF_THE_OWNER:
        return Decision(is_owner(user, thing), "owner", None)
    if bit == CHANGE_OWNER or bit == DELETE_CHILD and not thing.is_folder:
        return Decision(False, "nothing", None)
    digit = thing.mode >> class_shift(user, thing) & 7
    given = set().union(*(bits for one, bits in OF_MODE.items() if digit & one))
    if thing.is_folder and digit & 2:
        given.add(DELETE_CHILD)
    return Decision(bit in given, "mode", None)


def is_owner(user, thing):
    return user.uid == thing.uid


def class_shift(user, thing):
    if user.uid == thing.uid:
        return 6
    return 3 if thing.gid in user.gids else 0


def may_delete(user, thing, parent):
    """None when it cannot be told."""
    def ways(bit):
        # Whether the parent itself may be deleted makes no difference, so it needs no parent.
        granted = decide(user, parent, None, bit).granted
        return granted is True, granted is not False
    if parent.is_sticky and not is_owner(user, thing) and not is_owner(user, parent):
        return False
    surely, maybe = (ways(WRITE_DATA)[way] and ways(EXECUTE)[way] or ways(DELETE_CHILD)[way] for way in (0, 1))
    return True if surely else None if maybe else False
