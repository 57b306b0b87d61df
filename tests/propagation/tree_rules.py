"""What pushing the privileges of a folder down its tree is to do: a slow, plain model.

`expected` says for each object which outcomes are right. Most have one. Where an object's list already
says what it should, and only what is derived of it is out of date (a tail after a chmod, a kernel ACL),
it may be left alone or be written anew.
"""
from collections import namedtuple

import posix_acls
from access_lists import (ALLOW, CONTROL, DENY, FILES_INHERIT, FOLDERS_INHERIT, INHERITED, MOST_ENTRIES,
                          ONE_LEVEL, PERMISSIONS, SYNCHRONIZE, AccessList, Entry, Invalid, Stored, encode,
                          of_group, of_user, tail_of, with_tail)

OWNER, GROUP, OWNER_CLASS, GROUP_CLASS, OTHER_CLASS, ACL = 1, 2, 4, 8, 16, 32
MODE = OWNER_CLASS | GROUP_CLASS | OTHER_CLASS
EVERYTHING = 63


class Outcome(namedtuple("Outcome", "uid gid mode list access default")):
    """`mode` as stat(2) has it. `list`: the attribute's bytes when they stay as they are, None when
    there is none, an AccessList that is written anew otherwise."""


class Expectation(namedtuple("Expectation", "outcomes fails")):
    pass


# Lists

def inheritable(stored, with_inherited):
    """The entries that a folder passes on: of the kinds that only SMB clients know, none."""
    if not isinstance(stored, Stored):
        return []
    return [entry for entry in stored.list.entries
            if entry.type in (ALLOW, DENY) and entry.is_inheritable()
            and (with_inherited or not entry.flags & INHERITED)]


def passed_to(entry, kind, depth):
    """What the entry becomes on an object of the kind; None when it does not reach it."""
    is_limited = bool(entry.flags & ONE_LEVEL)
    if is_limited and depth != 1:
        return None
    needed = {"folder": FOLDERS_INHERIT, "file": FILES_INHERIT}.get(kind)
    if needed and not entry.flags & needed:
        return None
    flags = INHERITED
    if is_limited:
        flags |= ONE_LEVEL
    elif kind == "folder":
        flags |= entry.flags & (FILES_INHERIT | FOLDERS_INHERIT)
    mask = entry.mask & PERMISSIONS
    if entry.type == ALLOW:
        mask |= SYNCHRONIZE
    return Entry(entry.type, flags, mask, entry.sid, b"")


def inherited(levels, kind):
    """Whatever reaches an object; None when no level has an entry. The nearest level is the first."""
    filled = [number for number, level in enumerate(levels) if level]
    if not filled:
        return None
    reaching = []
    for number in range(filled[0], len(levels)):
        depth = number + (1 if kind == "file" else 0)
        reaching += [passed_to(entry, kind, depth) for entry in levels[number]]
    return tuple(entry for entry in reaching if entry is not None)


def list_after(before, levels, kind):
    """The AccessList that is to be there, or None; of a list that is valid or absent."""
    present = before.list if before else AccessList((), False)
    kept = tuple(entry for entry in present.entries if not entry.flags & INHERITED)
    appended = inherited(levels, kind)
    if appended is None and kept == present.entries:
        return before.list if before else None
    entries = kept + (appended or ())
    return AccessList(entries, present.complete) if entries or present.complete else None


# Modes

def pushed_mode(current, given, what, is_folder):
    read_write = given & 0o666
    new = 0 if is_folder else current & 0o111
    for bit, digit in ((OWNER_CLASS, 0o700), (GROUP_CLASS, 0o070), (OTHER_CLASS, 0o007)):
        new |= read_write & digit if what & bit else current & digit
        if is_folder and what & bit and new & digit & 0o666:
            new |= digit & 0o111
    return new


def after_chown(mode, st_mode):
    """What the kernel leaves of a mode when anything but a folder gets another owner or group."""
    mode &= ~0o4000
    return mode & ~0o2000 if st_mode & 0o010 else mode


# Objects

class Pusher:
    def __init__(self, what, root, projects, groups_of):
        """`projects`: whether the kernel's ACLs are kept as the lists have them. `groups_of`: the gids
        of a uid."""
        self.what, self.root, self.projects, self.groups_of = what, root, projects, groups_of
        self.root_mode = posix_acls.mode_with(root.access, root.mode)

    def owners(self, before):
        return (self.root.uid if self.what & OWNER else before.uid,
                self.root.gid if self.what & GROUP else before.gid)

    def mode(self, before):
        """The effective one."""
        current = posix_acls.mode_with(before.access, before.mode)
        if self.what & MODE:
            return pushed_mode(current, self.root_mode, self.what, before.kind == "folder")
        if before.kind != "folder" and self.owners(before) != (before.uid, before.gid):
            return after_chown(current, before.mode)
        return current

    def expectation(self, before, levels):
        outcomes, fails = self.outcomes(before, levels)
        return Expectation(self.with_mode_set_again(before, outcomes), fails)

    def outcomes(self, before, levels):
        if before.kind == "link":
            return ([self.with_list_left(before, mode=before.mode)], False)
        if not self.what & ACL:
            return (self.with_entries(before, before.list), False)
        if isinstance(before.list, Invalid):
            return ([self.with_list_left(before)], True)
        wanted = list_after(before.list, levels, before.kind)
        if wanted is not None and len(wanted.entries) > MOST_ENTRIES:
            return (self.with_too_many(before), True)
        return (self.with_entries(before, wanted), False)

    def with_entries(self, before, wanted):
        """With this list, which may be the present one."""
        if isinstance(wanted, Stored):
            wanted = wanted.list
        if isinstance(wanted, Invalid) or wanted is None and before.list is None:
            return [self.with_list_left(before)]
        if wanted is None:
            return [self.without_list(before)]
        anew = self.with_list_written(before, wanted)
        if not self.is_as_wanted(before, wanted):
            return [anew]
        left = self.with_list_left(before)
        is_exact = wanted.entries == before.list.list.entries and form_mismatch(before) is None
        if is_exact and (left.access, left.default) == (anew.access, anew.default):
            return [left]
        return [left, anew]

    def with_too_many(self, before):
        """Nothing half-done: the old list, or what is left of it without its inherited entries."""
        kept = tuple(entry for entry in before.list.list.entries if not entry.flags & INHERITED) if (
            before.list) else ()
        outcomes = [self.with_list_left(before)]
        if before.list:
            outcomes += self.with_entries(before, before.list)
            is_some_left = kept or before.list.list.complete
            outcomes += self.with_entries(
                before, AccessList(kept, before.list.list.complete) if is_some_left else None)
        return outcomes

    def is_as_wanted(self, before, wanted):
        """Whether nothing that this is about would change."""
        if not isinstance(before.list, Stored):
            return False
        there = before.list.list
        return (there.complete == wanted.complete
                and [entry.says() for entry in there.entries] == [entry.says() for entry in wanted.entries]
                and self.owners(before) == (before.uid, before.gid)
                and self.mode(before) == posix_acls.mode_with(before.access, before.mode))

    def with_list_left(self, before, mode=None):
        uid, gid = self.owners(before)
        access = before.access
        if mode is None:
            mode = self.mode(before)
            if self.what & MODE and access is not None and mode != posix_acls.mode_with(access, before.mode):
                access = posix_acls.with_mode(access, mode)
            mode = posix_acls.st_mode_of(access, mode)
        return Outcome(uid, gid, mode, before.value, access, before.default)

    def with_mode_set_again(self, before, outcomes):
        """Besides, where a kernel ACL belongs to no list: its owning group has no more any longer than its
        mask lets it have, as when the mode is set that is in effect already."""
        if before.access is None or not self.what & MODE:
            return outcomes
        access = posix_acls.with_mode(before.access, self.mode(before))
        return outcomes + [outcome._replace(access=access) for outcome in outcomes
                           if outcome.access == before.access
                           and not (self.projects and isinstance(outcome.list, AccessList))]

    def without_list(self, before):
        if not self.projects:
            return self.with_list_left(before)._replace(list=None)
        uid, gid = self.owners(before)
        return Outcome(uid, gid, self.mode(before), None, None, None)

    def with_list_written(self, before, wanted):
        if not self.projects:
            return self.with_list_left(before)._replace(list=wanted)
        uid, gid = self.owners(before)
        mode = self.mode(before)
        about = (*wanted, mode, gid, self.groups_of)
        access = posix_acls.access_acl(*about)
        default = posix_acls.default_acl(*about) if before.kind == "folder" else None
        return Outcome(uid, gid, posix_acls.st_mode_of(access, mode), wanted, access, default)


def expected(tree, what, projects, groups_of):
    """Path -> Expectation, of everything but the root."""
    pusher = Pusher(what, tree[b""], projects, groups_of)
    found = {}

    def push_into(path, levels):
        for inside in tree.inside[path]:
            before = tree[inside]
            # A file alone counts its folder as the first level by itself.
            reaching = levels if before.kind == "file" else [[], *levels]
            found[inside] = pusher.expectation(before, reaching)
            if before.kind == "folder":
                push_into(inside, [inheritable(before.list, with_inherited=False), *levels])

    push_into(b"", [inheritable(tree[b""].list, with_inherited=True)])
    return found


# Comparing

def matches(found, outcome, before):
    """None, or what is not as the outcome has it."""
    for name in ("uid", "gid", "mode", "access", "default"):
        if getattr(found, name) != getattr(outcome, name):
            return "%s is %s, not %s" % (name, as_text(getattr(found, name)), as_text(getattr(outcome, name)))
    for name in ("kind", "others", "content"):
        if getattr(found, name) != getattr(before, name):
            return name + " has changed"
    if isinstance(outcome.list, AccessList):
        return list_mismatch(found, outcome, before)
    return None if found.value == outcome.list else "the list is %s, not %s" % (
        found.value and found.value.hex(), outcome.list and outcome.list.hex())


def list_mismatch(found, outcome, before):
    stored, wanted = found.list, outcome.list
    if not isinstance(stored, Stored):
        return "the list is %s" % (stored,)
    if len(stored.list.entries) != len(wanted.entries) or stored.list.complete != wanted.complete:
        return "the list is %s, not %s" % (stored.list, wanted)
    former = before.list.list.entries if isinstance(before.list, Stored) else ()
    for entry, expected_entry in zip(stored.list.entries, wanted.entries):
        if entry != expected_entry and not (
                entry in former and entry.flags & INHERITED and entry.says() == expected_entry.says()):
            return "the entry is %s, not %s" % (entry, expected_entry)
    return form_mismatch(found)


def form_mismatch(found):
    """Of a list that was written: all that is behind its entries, and how it is encoded."""
    stored, is_folder = found.list, found.kind == "folder"
    if (stored.owner, stored.group) != (of_user(found.uid), of_group(found.gid)):
        return "the descriptor is of %s and %s" % (stored.owner, stored.group)
    entries, mode = stored.list.entries, posix_acls.mode_with(found.access, found.mode)
    whole = entries
    if not stored.list.complete:
        tail = tail_of(entries, found.uid, found.gid, mode, is_folder)
        if stored.tail != tail:
            return "the tail is %s, not %s" % (stored.tail, tail)
        whole = with_tail(entries, found.uid, found.gid, mode, is_folder)
    if found.value != encode(whole, found.uid, found.gid, 1, CONTROL):
        return "the same is encoded in another way: " + found.value.hex()
    return None


def as_text(value):
    return "0o%o" % value if isinstance(value, int) else str(value)


def difference(before, after, expectation):
    """None, or how the object is otherwise than each right outcome."""
    mismatches = [matches(after, outcome, before) for outcome in expectation.outcomes]
    if None in mismatches:
        return None
    return "; or ".join(mismatches)


def stays(before, expectation):
    """Whether nothing is to be written."""
    return all(not isinstance(outcome.list, AccessList) and matches(before, outcome, before) is None
               for outcome in expectation.outcomes)
