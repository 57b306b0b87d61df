"""A plain model of who may read and write what is made in a folder, whoever makes it at whichever door."""
from collections import namedtuple

from people import GROUPS, PLAIN_USERS, USERS, gids_of

# Bits of the right to read and to write, as requests have them: with what belongs to it on a folder.
READ, WRITE = 2 | 8 | 128 | 512 | 2048, 4 | 16 | 32 | 64 | 256 | 1024
DATA = {"r": 2, "w": 4}
# Flags of an entry.
TO_FILES, TO_FOLDERS, ONE_LEVEL, ONLY_INHERIT = 32, 64, 128, 256
INHERIT = TO_FILES | TO_FOLDERS


class Entry(namedtuple("Entry", "allow kind name bitmap flags")):
    def dictionary(self):
        whom = ({"isUser": 0, "uniqueID": USERS[self.name]} if self.kind == "user" else
                {"isUser": 1, "groupID": GROUPS[self.name]})
        return {"allowPermission": "YES" if self.allow else "NO", "bitmap": self.bitmap, "flags": self.flags,
                **whom}

    def is_about(self, user):
        return self.name == user if self.kind == "user" else GROUPS[self.name] in gids_of(user)


class Folder(namedtuple("Folder", "mode owner group entries")):
    """`entries`: None for a folder without a list."""

    def may(self, user):
        """Of "r", "w" and "x", what the folder's own entries and mode let the user do."""
        here = [entry for entry in self.entries or () if not entry.flags & ONLY_INHERIT]
        return decided(here, user, self._digit(user), "rwx") if user != self.owner else letters(self.mode >> 6)

    def inside(self, user, maker, is_folder, level=1, door="local"):
        """"r" and "w", as far as the user may reach and use what the maker made that many levels below."""
        passable = "x" in self.may(user) and (level == 1 or "x" in self._passed(user, maker, True, level - 1, door))
        found = self._passed(user, maker, is_folder, level, door) if passable else set()
        # Making something takes the right to search, too.
        return found - {"x"} if not is_folder or "x" in found else found - {"w"}

    def _passed(self, user, maker, is_folder, level, door):
        if user == maker:
            return {"r", "w", "x"}
        passed = [entry for entry in self.entries or () if reaches(entry.flags, is_folder, level)]
        digit = (self._digit(user) if door != "smb" and self._names(user)
                 else self._digit_inside(user, maker, door))
        return decided(passed, user, digit, "rwx")

    def _digit(self, user):
        return self.mode >> 3 if GROUPS[self.group] in gids_of(user) else self.mode

    def _digit_inside(self, user, maker, door):
        """To smbd the group is the first one of its maker. To the kernel it is the folder's with the set-group-id
        bit, and a folder's own group that an entry names has what the mode gives it inside as well."""
        is_kernels = door != "smb" and (self.mode & 0o2000 or self._names_own_group())
        gids = ({GROUPS[self.group]} if is_kernels else set()) | (
            set() if door != "smb" and self.mode & 0o2000 else {USERS[maker]})
        return self.mode >> 3 if gids & set(gids_of(user)) else self.mode

    def _names(self, user):
        """To the kernel, whom a passed on entry names has inside, besides, what the folder's mode gives him."""
        return any(entry.kind == "user" and entry.name == user and entry.flags & INHERIT
                   for entry in self.entries or ())

    def _names_own_group(self):
        return any(entry.kind == "group" and entry.name == self.group and entry.flags & INHERIT
                   for entry in self.entries or ())


def reaches(flags, is_folder, level):
    return bool(flags & (TO_FOLDERS if is_folder else TO_FILES)) and (level == 1 or not flags & ONE_LEVEL)


def letters(digit):
    return {letter for letter, bit in (("r", 4), ("w", 2), ("x", 1)) if digit & bit}


def decided(entries, user, digit, wanted):
    """The first entry that names a right decides it; the digit what none decides."""
    bits = {**DATA, "x": 8}
    found = set()
    for letter in wanted:
        deciding = [entry.allow for entry in entries if entry.bitmap & bits[letter] and entry.is_about(user)]
        if deciding[0] if deciding else letter in letters(digit):
            found.add(letter)
    return found


def everybody(function):
    return {user: function(user) for user in PLAIN_USERS}
