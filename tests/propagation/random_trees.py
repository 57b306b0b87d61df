"""Folders with whatever a tree can hold, at random."""
import os
import stat

import access_lists
import posix_acls
from access_lists import (ALLOW, DENY, FILES_INHERIT, FOLDERS_INHERIT, INHERIT_ONLY, INHERITED, MARKER,
                          ONE_LEVEL, SYNCHRONIZE, Entry, sid)
from file_tree import ATTRIBUTE
from own_copyprivs import GROUPS, NOBODYS_ID, USERS, groups_of
from samba.dcerpc import misc, security
from samba.ndr import ndr_pack

UIDS = [*USERS.values(), NOBODYS_ID]
GIDS = [*USERS.values(), *GROUPS.values(), NOBODYS_ID]
OTHER_SIDS = ["S-1-1-0", "S-1-5-11", "S-1-3-0", "S-1-5-21-1-2-3-1104", "S-1-5-32-544",
              sid("S-1-0x506164646f63-1122867-1146447479-2291772091-3437096703")]
SIDS = ([access_lists.of_user(uid) for uid in UIDS] + [access_lists.of_group(gid) for gid in GIDS]
        + OTHER_SIDS)
MASKS = (0x1, 0x2, 0x20, 0x23, 0x120089, 0x1200A9, 0x1301BF, 0x1F01FF, 0x100116, 0xF01FF, 0x10040)
MODES = (0o644, 0o755, 0o600, 0o700, 0o640, 0o750, 0o664, 0o775, 0o000, 0o777, 0o604, 0o4755, 0o2775, 0o6711,
         0o1777)
HOSTILE_NAMES = (b"\xff\xfe", b"a\nb", b"-p", b" ", b"'\"$(x)", b"%s%n", "\u202eé".encode(), b"x" * 255,
                 b"<&>", b"\x01\x1f", b"..x", b"\\x41")


class Maker:
    def __init__(self, random, root, projects):
        """Fills the folder `root`. `projects`: whether lists have the kernel's ACLs beside them."""
        self.random, self.root, self.projects = random, root, projects
        self.sids = random.sample(SIDS, random.randint(2, 6))
        self.uids, self.gids = (random.sample(ids, random.randint(1, 4)) for ids in (UIDS, GIDS))
        self.number = 0
        self.has_many_entries = random.random() < 0.03
        self.is_wide = random.random() < 0.1
        self.strange_modes, self.kernel_acls = 0.2, 0.05
        self.objects_left = 12 if self.has_many_entries else random.choice((10, 25, 50))

    def chance(self, probability):
        return self.random.random() < probability

    # Lists

    def entry(self, inherits):
        """`inherits`: how likely it is to be passed on."""
        flags = 0
        if self.chance(inherits):
            flags |= self.random.choice((FILES_INHERIT, FOLDERS_INHERIT, FILES_INHERIT | FOLDERS_INHERIT,
                                         FILES_INHERIT | FOLDERS_INHERIT))
        for flag, probability in ((ONE_LEVEL, 0.15), (INHERIT_ONLY, 0.15), (INHERITED, 0.3)):
            flags |= flag if self.chance(probability) else 0
        mask = self.random.choice(MASKS) if self.chance(0.7) else self.random.randrange(0x100000) & 0xF01FF
        kind = self.random.choice((ALLOW, ALLOW, DENY))
        if kind == ALLOW:
            mask |= SYNCHRONIZE
        if self.chance(0.05):
            mask, flags = mask ^ (self.random.getrandbits(32) & 0xFFF00000), flags ^ self.random.choice((0, 0x40))
        return Entry(kind, flags, mask, self.random.choice(self.sids), b"")

    def foreign_entry(self):
        """Of a kind that only SMB clients know."""
        ace = security.ace()
        ace.type, ace.flags = self.random.choice((5, 6)), self.random.choice(
            (0, INHERITED, FILES_INHERIT | FOLDERS_INHERIT))
        ace.access_mask, ace.trustee = self.random.getrandbits(32), security.dom_sid(self.random.choice(self.sids))
        ace.object.flags = self.random.randrange(2)
        if ace.object.flags:
            ace.object.type = misc.GUID(bytes(self.random.randrange(256) for _ in range(16)))
        ace.size = len(ndr_pack(ace))
        return Entry(ace.type, ace.flags, ace.access_mask, str(ace.trustee), ndr_pack(ace))

    def entries(self, inherits):
        count = self.random.choice((1, 1, 2, 2, 3, 4, 6))
        if self.has_many_entries and self.chance(0.5):
            count = self.random.choice((300, 600, 999, 1000))
        made = [self.foreign_entry() if self.chance(0.03) else self.entry(inherits) for _ in range(count)]
        return made if self.chance(0.3) else sorted(made, key=lambda entry: entry.flags & INHERITED)

    def value(self, uid, gid, mode, is_folder, inherits):
        """An attribute: of ours, or of an SMB server's."""
        entries = self.entries(inherits)
        is_complete = self.chance(0.35)
        if is_complete:
            entries = entries if self.chance(0.9) else []
            whole = list(entries)
            if self.chance(0.1):
                whole.insert(self.random.randint(0, len(whole)), Entry(ALLOW, 0, 0, MARKER, b""))
        else:
            of = (uid, gid, mode) if self.chance(0.9) else (
                self.random.choice(UIDS), self.random.choice(GIDS), self.random.choice(MODES))
            whole = access_lists.with_tail(entries, *of, is_folder)
        if self.chance(0.02):
            whole = None
        control = self.random.choice((access_lists.CONTROL, access_lists.CONTROL, 0x8004)) if (
            whole is not None or self.chance(0.5)) else 0x8000
        version = self.random.choice((1, 1, 1, 1, 2, 3, 4))
        return access_lists.encode(whole, uid, gid, version, control, self.random)

    def damaged(self, value):
        broken = self.random.choice((
            value[:self.random.randrange(len(value))], value + bytes(self.random.randint(1, 8)),
            b"\x09\0\x09\0" + value[4:], bytes(self.random.randrange(256) for _ in range(40)), b"",
            self.too_long()))
        assert isinstance(access_lists.decode(broken, False), access_lists.Invalid), broken.hex()
        return broken

    def too_long(self):
        return access_lists.encode([Entry(ALLOW, 0, 1, "S-1-1-0", b"")] * 1001, 0, 0)

    # The kernel's lists

    def posix_acl(self):
        digit = lambda: self.random.randrange(8)
        return {(posix_acls.USER_OBJ, posix_acls.NO_ID): digit(), (posix_acls.GROUP_OBJ, posix_acls.NO_ID): digit(),
                (posix_acls.OTHER, posix_acls.NO_ID): digit(), (posix_acls.MASK, posix_acls.NO_ID): digit(),
                (posix_acls.USER, self.random.choice(UIDS)): digit()}

    def give_projection(self, path, stored, mode, gid, is_folder):
        about = (*stored.list, mode, gid, groups_of)
        access = posix_acls.access_acl(*about)
        default = posix_acls.default_acl(*about) if is_folder else None
        for name, acl in ((posix_acls.ACCESS, access), (posix_acls.DEFAULT, default)):
            if acl is not None:
                os.setxattr(path, name, posix_acls.encode(acl))

    # Objects

    def dress(self, path, is_folder, is_root=False):
        """Owner, group, mode and lists of what is not a link."""
        for name in (posix_acls.ACCESS, posix_acls.DEFAULT):
            # What a folder with a default gives to whatever is made inside.
            try:
                os.removexattr(path, name)
            except OSError:
                pass
        uid, gid = self.random.choice(self.uids), self.random.choice(self.gids)
        mode = self.random.randrange(0o10000) if self.chance(self.strange_modes) else self.random.choice(MODES)
        os.chown(path, uid, gid)
        os.chmod(path, mode)
        if self.chance(self.kernel_acls):
            os.setxattr(path, posix_acls.ACCESS, posix_acls.encode(self.posix_acl()))
        if self.chance(0.9 if is_root else 0.5):
            self.give_list(path, uid, gid, is_folder, 0.9 if is_root else 0.4 if is_folder else 0.1, is_root)
        if is_folder and self.chance(self.kernel_acls):
            os.setxattr(path, posix_acls.DEFAULT, posix_acls.encode(self.posix_acl()))

    def give_list(self, path, uid, gid, is_folder, inherits, is_root=False):
        access = posix_acls.decode(os.getxattr(path, posix_acls.ACCESS)) if (
            posix_acls.ACCESS in os.listxattr(path)) else None
        mode = posix_acls.mode_with(access, stat.S_IMODE(os.lstat(path).st_mode))
        value = self.value(uid, gid, mode, is_folder, inherits)
        if not is_root and self.chance(0.06):
            value = self.damaged(value)
        os.setxattr(path, ATTRIBUTE, value)
        stored = access_lists.decode(value, is_folder)
        if self.projects and isinstance(stored, access_lists.Stored) and self.chance(0.7):
            self.give_projection(path, stored, mode, gid, is_folder)

    def name(self):
        self.number += 1
        if self.chance(0.1):
            return (self.random.choice(HOSTILE_NAMES) + b"%d" % self.number)[-255:]
        return b"%d" % self.number

    def link(self, path):
        target = self.random.choice((b".", b"..", b"nowhere", b"/etc/passwd", b"1", b"../2",
                                     os.path.basename(path), os.fsencode(self.root)))
        os.symlink(target, path)
        os.chown(path, self.random.choice(self.uids), self.random.choice(self.gids), follow_symlinks=False)

    def special(self, path):
        kind = self.random.choice((stat.S_IFIFO, stat.S_IFIFO, stat.S_IFSOCK, stat.S_IFCHR, stat.S_IFBLK))
        os.mknod(path, kind | 0o600, os.makedev(240, self.random.randrange(256)))
        self.dress(path, False)

    def file(self, path):
        with open(path, "wb") as file:
            file.write(b"content" * self.random.randrange(3))
        if self.chance(0.1):
            os.setxattr(path, "user.note", b"somebody's")
        self.dress(path, False)

    def fill(self, folder, depth):
        for _ in range(self.random.randint(0, 30 if self.is_wide else 6)):
            if self.objects_left == 0:
                return
            self.objects_left -= 1
            path = os.path.join(folder, self.name())
            draw = self.random.random()
            if draw < 0.45 and depth < 7:
                os.mkdir(path)
                self.fill(path, depth + (3 if self.is_wide else 1))
                self.dress(path, True)
            elif draw < 0.55:
                self.link(path)
            elif draw < 0.65:
                self.special(path)
            else:
                self.file(path)

    def make(self):
        self.fill(os.fsencode(self.root), 0)
        self.dress(os.fsencode(self.root), True, is_root=True)

    # What others do between two runs.

    def disturb(self, tree):
        root = os.fsencode(self.root)
        for path, there in tree.items():
            whole = os.path.join(root, path) if path else root
            if there.kind == "link" or not self.chance(0.25):
                continue
            what = self.random.choice(("mode", "owner", "list", "no list"))
            if what == "mode":
                os.chmod(whole, self.random.choice(MODES))
            elif what == "owner":
                os.chown(whole, self.random.choice(self.uids), self.random.choice(self.gids))
            elif what == "list":
                self.give_list(whole, there.uid, there.gid, there.kind == "folder", 0.5, path == b"")
            elif there.value is not None:
                os.removexattr(whole, ATTRIBUTE)
        self.objects_left += 5
        self.fill(root, 5)
