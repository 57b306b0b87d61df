"""Writes the attribute that holds a list, as docs/formats/acl.md describes it."""
import struct

ATTRIBUTE = "security.NTACL"
ALLOW, DENY = 0, 1
# Flags of an entry.
FILES, FOLDERS, ONE_LEVEL, INHERIT_ONLY, INHERITED = 1, 2, 4, 8, 16

EVERYONE = "S-1-1-0"
AUTHENTICATED = "S-1-5-11"
NETWORK = "S-1-5-2"
OWNER_RIGHTS = "S-1-3-4"
CREATOR_OWNER = "S-1-3-0"
CREATOR_GROUP = "S-1-3-1"
OWN_AUTHORITY = 0x506164646F63

# Permission: bit of the access mask.
MASK_BITS = {2: 0x1, 4: 0x2, 8: 0x20, 16: 0x10000, 32: 0x4, 64: 0x40, 128: 0x80, 256: 0x100, 512: 0x8,
             1024: 0x10, 2048: 0x20000, 4096: 0x40000, 8192: 0x80000}
SYNCHRONIZE = 0x100000
GENERIC = 0xF0000000

TO_EVERYBODY = 0x00120080
TO_THE_OWNER = 0x00040100
OF_DIGIT = {4: 0x00000009, 2: 0x00000116, 1: 0x00000020}
WRITING_A_FOLDER = 0x00000156


def user_sid(uid):
    return "S-1-22-1-%d" % uid


def group_sid(gid):
    return "S-1-22-2-%d" % gid


def guid_sid(guid):
    """Of a GUID that means no uid or gid to the membership service."""
    digits = guid.replace("-", "")
    parts = [str(int(digits[at:at + 8], 16)) for at in range(0, 32, 8)]
    return "-".join(["S-1", hex(OWN_AUTHORITY), *parts])


def mask_of(bitmap):
    return sum(mask for bit, mask in MASK_BITS.items() if bitmap & bit)


def entry(kind, sid, mask, flags=0, behind=b""):
    """As bytes. `behind` stands where an entry of another type may have more."""
    size = 8 + len(_sid(sid)) + len(behind)
    return struct.pack("<BBHI", kind, flags, size, mask) + _sid(sid) + behind


def tail(uid, gid, mode, is_folder, is_inheritable):
    """The marker, and what says to an SMB server what the mode says."""
    owner, group, others = (_mode_mask(mode >> shift & 7, is_folder) for shift in (6, 3, 0))
    lines = [entry(ALLOW, "S-1-%s-0" % hex(OWN_AUTHORITY), 0)]
    lines += _denial((group | others) & ~(owner | TO_THE_OWNER), user_sid(uid))
    lines += [entry(ALLOW, user_sid(uid), owner | TO_THE_OWNER)]
    lines += _denial(others & ~group, group_sid(gid))
    lines += [entry(ALLOW, group_sid(gid), group), entry(ALLOW, EVERYONE, others)]
    if is_folder and is_inheritable:
        inherited = FILES | FOLDERS | INHERIT_ONLY
        lines += [entry(ALLOW, CREATOR_OWNER, 0x001701FF, inherited)]
        lines += _denial(others & ~group, CREATOR_GROUP, inherited)
        lines += [entry(ALLOW, CREATOR_GROUP, group, inherited), entry(ALLOW, EVERYONE, others, inherited)]
    return lines


def value(entries, owner="S-1-22-1-0", group="S-1-22-2-0", control=0x8404):
    """Of the attribute. `entries`: None for a descriptor without a list."""
    at_owner = 28
    at_group = at_owner + len(_sid(owner))
    at_list = at_group + len(_sid(group))
    body = b"" if entries is None else _list(entries)
    header = struct.pack("<HHI", 1, 1, 0x00020000)
    descriptor = struct.pack("<BBHIIII", 1, 0, control, at_owner, at_group, 0, at_list if body else 0)
    return header + descriptor + _sid(owner) + _sid(group) + body


def _list(entries):
    revision = 4 if any(one[0] in (5, 6, 7, 8, 11, 12, 15, 16) for one in entries) else 2
    body = b"".join(entries)
    return struct.pack("<BBHHH", revision, 0, 8 + len(body), len(entries), 0) + body


def _mode_mask(digit, is_folder):
    mask = TO_EVERYBODY
    for bit, given in OF_DIGIT.items():
        if digit & bit:
            mask |= WRITING_A_FOLDER if bit == 2 and is_folder else given
    return mask


def _denial(mask, sid, flags=0):
    return [entry(DENY, sid, mask, flags)] if mask else []


def _sid(text):
    _, revision, authority, *parts = text.split("-")
    numbers = [int(part) for part in parts]
    return (struct.pack("<BB", int(revision), len(numbers)) + int(authority, 0).to_bytes(6, "big") +
            struct.pack("<%dI" % len(numbers), *numbers))
