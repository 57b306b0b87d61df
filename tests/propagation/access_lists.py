"""Access-control lists as they are on disk, in plain values. docs/formats/acl.md says what is what;
Samba's own libraries do the decoding and encoding."""
import random
from collections import namedtuple
from functools import lru_cache

from nt_acl_attribute import in_attribute, version_and_descriptor_in
from samba.dcerpc import security
from samba.ndr import ndr_pack, ndr_unpack

ALLOW, DENY = 0, 1
FILES_INHERIT, FOLDERS_INHERIT, ONE_LEVEL, INHERIT_ONLY, INHERITED = 0x01, 0x02, 0x04, 0x08, 0x10
FLAGS = 0x1F
READ, WRITE, EXECUTE = 0x1, 0x2, 0x20
# The bits of the mask that are permissions; DELETE_CHILD is a folder's.
PERMISSIONS = 0xF01FF
DELETE_CHILD = 0x40
SYNCHRONIZE = 0x100000
MOST_ENTRIES = 1000
CONTROL = 0x8404
LIST_PRESENT = 0x0004


def sid(text):
    """As Samba spells it."""
    return str(security.dom_sid(text))


def of_user(uid):
    return "S-1-22-1-%d" % uid


def of_group(gid):
    return "S-1-22-2-%d" % gid


EVERYONE = "S-1-1-0"
AUTHENTICATED = "S-1-5-11"
CREATOR_OWNER, CREATOR_GROUP = "S-1-3-0", "S-1-3-1"
MARKER = sid("S-1-0x506164646f63-0")
MARK = (ALLOW, 0, MARKER, 0)


class Entry(namedtuple("Entry", "type flags mask sid rest")):
    """`rest`: all bytes of an entry of another type than allow and deny."""

    def says(self):
        """What it means, without the bits that mean nothing."""
        return (self.type, self.flags & FLAGS, self.mask & PERMISSIONS, self.sid, self.rest)

    def is_inheritable(self):
        return bool(self.flags & (FILES_INHERIT | FOLDERS_INHERIT))


class AccessList(namedtuple("AccessList", "entries complete")):
    """A valid list, its tail taken off."""


class Stored(namedtuple("Stored", "version control owner group tail list")):
    """What an attribute holds. `tail` is None in a complete list, else (type, flags, SID, mask) of each
    entry behind the marker."""


class Invalid(namedtuple("Invalid", "value")):
    """An attribute that does not decode."""


# What a mode gives.
def bits_of(digit, is_folder):
    bits = 0x120080
    if digit & 4:
        bits |= 0x9
    if digit & 2:
        bits |= 0x156 if is_folder else 0x116
    if digit & 1:
        bits |= EXECUTE
    return bits


@lru_cache(maxsize=None)
def tail_shape(mode, is_folder, is_inheritable):
    """The tail of a mode, with "owner" and "group" in place of their SIDs."""
    owner, group, others = (bits_of(mode >> shift & 7, is_folder) for shift in (6, 3, 0))
    owner_has = owner | 0x40100
    shape = []
    if (group | others) & ~owner_has:
        shape.append((DENY, 0, "owner", (group | others) & ~owner_has))
    shape.append((ALLOW, 0, "owner", owner_has))
    if others & ~group:
        shape.append((DENY, 0, "group", others & ~group))
    shape.append((ALLOW, 0, "group", group))
    shape.append((ALLOW, 0, EVERYONE, others))
    if is_folder and is_inheritable:
        shape.append((ALLOW, 0x0B, CREATOR_OWNER, 0x1701FF))
        if others & ~group:
            shape.append((DENY, 0x0B, CREATOR_GROUP, others & ~group))
        shape.append((ALLOW, 0x0B, CREATOR_GROUP, group))
        shape.append((ALLOW, 0x0B, EVERYONE, others))
    return tuple(shape)


def tail_of(entries, uid, gid, mode, is_folder):
    sids = {"owner": of_user(uid), "group": of_group(gid)}
    shape = tail_shape(mode & 0o777, is_folder, any(entry.is_inheritable() for entry in entries))
    return tuple((kind, flags, sids.get(who, who), mask) for kind, flags, who, mask in shape)


@lru_cache(maxsize=None)
def tail_shapes(is_folder, is_inheritable):
    return frozenset(tail_shape(mode, is_folder, is_inheritable) for mode in range(0o1000))


def is_tail(behind, entries, is_folder):
    """Whether it is the tail of any owner, group and mode."""
    owners = [who for _, _, who, _ in behind if who.startswith("S-1-22-1-")]
    groups = [who for _, _, who, _ in behind if who.startswith("S-1-22-2-")]
    if len(set(owners)) != 1 or len(set(groups)) != 1:
        return False
    roles = {owners[0]: "owner", groups[0]: "group"}
    shape = tuple((kind, flags, roles.get(who, who), mask) for kind, flags, who, mask in behind)
    return shape in tail_shapes(is_folder, any(entry.is_inheritable() for entry in entries))


def split(entries, is_folder):
    """(AccessList, tail). Markers that mark no tail are dropped."""
    plain = [(entry.type, entry.flags, entry.sid, entry.mask) for entry in entries]
    complete, tail = True, None
    if MARK in plain:
        last = len(plain) - 1 - plain[::-1].index(MARK)
        if is_tail(plain[last + 1:], [entry for entry in entries[:last]], is_folder):
            entries, complete, tail = entries[:last], False, tuple(plain[last + 1:])
    entries = tuple(entry for entry in entries if entry.sid != MARKER)
    return AccessList(entries, complete), tail


def plain_entry(ace):
    plain = ace.type in (ALLOW, DENY)
    return Entry(ace.type, ace.flags, ace.access_mask, str(ace.trustee), b"" if plain else ndr_pack(ace))


@lru_cache(maxsize=10000)
def decode(value, is_folder):
    """Stored or Invalid; None for None, the attribute that is absent."""
    if value is None:
        return None
    try:
        version, descriptor = version_and_descriptor_in(value)
    except RuntimeError:
        return Invalid(value)
    if descriptor.dacl is None:
        all_open = (Entry(ALLOW, 0, 0x1F01FF, EVERYONE, b""),) if descriptor.type & LIST_PRESENT else ()
        whole, tail = AccessList(all_open, True), None
    else:
        whole, tail = split([plain_entry(ace) for ace in descriptor.dacl.aces], is_folder)
    if len(whole.entries) > MOST_ENTRIES:
        return Invalid(value)
    owner, group = (None if part is None else str(part) for part in (descriptor.owner_sid, descriptor.group_sid))
    return Stored(version, descriptor.type, owner, group, tail, whole)


def sid_of(text):
    return security.dom_sid(text)


def ace_of(entry):
    if entry.rest:
        return ndr_unpack(security.ace, entry.rest)
    ace = security.ace()
    ace.type, ace.flags, ace.access_mask, ace.trustee = entry.type, entry.flags, entry.mask, sid_of(entry.sid)
    ace.size = len(ndr_pack(ace))
    return ace


def encode(entries, uid, gid, version=1, control=CONTROL, details=random.Random(0)):
    """The attribute's value with exactly these entries. `entries` None: a descriptor without a list."""
    descriptor = security.descriptor()
    descriptor.type = control
    descriptor.owner_sid, descriptor.group_sid = sid_of(of_user(uid)), sid_of(of_group(gid))
    if entries is not None:
        made = security.acl()
        made.revision = 4 if any(entry.rest for entry in entries) else 2
        made.aces, made.num_aces = [ace_of(entry) for entry in entries], len(entries)
        descriptor.dacl = made
    return in_attribute(version, descriptor, details)


def with_tail(entries, uid, gid, mode, is_folder):
    tail = tail_of(entries, uid, gid, mode, is_folder)
    return (*entries, Entry(ALLOW, 0, 0, MARKER, b""),
            *(Entry(kind, flags, mask, who, b"") for kind, flags, who, mask in tail))
