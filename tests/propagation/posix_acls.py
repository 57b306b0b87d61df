"""What the kernel's own ACLs are to be beside a list: docs/formats/acl.md, "Projection into POSIX ACLs"."""
import struct

from access_lists import (ALLOW, AUTHENTICATED, DENY, EVERYONE, EXECUTE, FILES_INHERIT, FOLDERS_INHERIT,
                          INHERIT_ONLY, ONE_LEVEL, READ, WRITE, of_group, of_user)

ACCESS, DEFAULT = "system.posix_acl_access", "system.posix_acl_default"
# linux/posix_acl_xattr.h and linux/posix_acl.h
VERSION = 2
USER_OBJ, USER, GROUP_OBJ, GROUP, MASK, OTHER = 0x01, 0x02, 0x04, 0x08, 0x10, 0x20
NO_ID = 0xFFFFFFFF
BITS = ((READ, 4), (WRITE, 2), (EXECUTE, 1))


def decode(value):
    """(tag, id) -> digit; None for None."""
    if value is None:
        return None
    assert struct.unpack_from("<I", value) == (VERSION,), value.hex()
    return {(tag, number): digit for tag, digit, number in struct.iter_unpack("<HHI", value[4:])}


def encode(acl):
    return struct.pack("<I", VERSION) + b"".join(
        struct.pack("<HHI", tag, digit, number) for (tag, number), digit in sorted(acl.items()))


def mode_with(acl, st_mode):
    """The mode of owner, owning group and others, with the group's part as it is in effect."""
    if acl is None:
        return st_mode
    group = acl[GROUP_OBJ, NO_ID] & acl.get((MASK, NO_ID), 7)
    return st_mode & ~0o070 | group << 3


def with_mode(acl, mode):
    """An ACL that belongs to no list after a change of the mode."""
    group = mode >> 3 & 7
    changed = {**acl, (USER_OBJ, NO_ID): mode >> 6 & 7, (GROUP_OBJ, NO_ID): group, (OTHER, NO_ID): mode & 7}
    if (MASK, NO_ID) in acl:
        changed[MASK, NO_ID] |= group
    return changed


def st_mode_of(acl, mode):
    """What stat(2) says of the mode beside the ACL."""
    if acl is None:
        return mode
    return mode & ~0o070 | acl.get((MASK, NO_ID), acl[GROUP_OBJ, NO_ID]) << 3


def named(entries):
    """Users and groups that the entries name: (tag, id)."""
    found = set()
    for entry in entries:
        if entry.type not in (ALLOW, DENY):
            continue
        for tag, prefix in ((USER, "S-1-22-1-"), (GROUP, "S-1-22-2-")):
            if entry.sid.startswith(prefix) and entry.sid.count("-") == 4:
                found.add((tag, int(entry.sid[len(prefix):])))
    return found


def given(entries, sids, fallback):
    """The digit of somebody who is all of `sids`; the first entry that names a bit decides it."""
    digit = 0
    for bit, value in BITS:
        deciding = [entry for entry in entries
                    if entry.type in (ALLOW, DENY) and entry.mask & bit and entry.sid in sids]
        has = deciding[0].type == ALLOW if deciding else bool(fallback & value)
        digit |= value if has else 0
    return digit


def sids_of(who, groups_of):
    tag, number = who
    own = [of_user(number), *map(of_group, groups_of(number))] if tag == USER else [of_group(number)]
    return {*own, EVERYONE, AUTHENTICATED}


def fallback_of(who, complete, mode, gid, groups_of):
    """What nobody decides."""
    tag, number = who
    if complete:
        return 0
    is_in_group = gid in groups_of(number) if tag == USER else gid == number
    return mode >> 3 & 7 if is_in_group else mode & 7


def acl_of(digits, mode):
    """None when nobody is named."""
    if not digits:
        return None
    owner, group, others = (mode >> shift & 7 for shift in (6, 3, 0))
    mask = group
    for digit in digits.values():
        mask |= digit
    return {(USER_OBJ, NO_ID): owner, (GROUP_OBJ, NO_ID): group, (OTHER, NO_ID): others,
            (MASK, NO_ID): mask or others, **digits}


def access_acl(entries, complete, mode, gid, groups_of):
    counted = [entry for entry in entries if not entry.flags & INHERIT_ONLY]
    return acl_of({who: given(counted, sids_of(who, groups_of), fallback_of(who, complete, mode, gid, groups_of))
                   for who in named(counted)}, mode)


def default_acl(entries, complete, mode, gid, groups_of):
    """A folder's: what is the same for files and folders, directly inside and further down."""
    mode |= 0o700
    passed_on = [entry for entry in entries if entry.is_inheritable()]
    places = [[entry for entry in passed_on if entry.flags & kind and not entry.flags & stop]
              for kind in (FILES_INHERIT, FOLDERS_INHERIT) for stop in (0, ONE_LEVEL)]
    digits = {}
    for who in named(passed_on):
        fallback = fallback_of(who, complete, mode, gid, groups_of)
        digits[who] = 7
        for entries_there in places:
            digits[who] &= given(entries_there, sids_of(who, groups_of), fallback)
    return acl_of(digits, mode)
