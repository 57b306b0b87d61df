"""Everything that a folder holds, read without following a link or opening anything but folders."""
import errno
import os
import stat
from collections import namedtuple

import access_lists
import posix_acls

ATTRIBUTE = "security.NTACL"
KINDS = {stat.S_IFDIR: "folder", stat.S_IFREG: "file", stat.S_IFLNK: "link"}


class Object(namedtuple("Object", "kind uid gid mode value list access default others content ctime")):
    """`mode`: st_mode & 07777. `value`: the attribute's bytes; `list`: what they hold. `others`: other
    attributes. `content`: whatever else no change of privileges may change."""


def read_attribute(path, name):
    try:
        return os.getxattr(path, name, follow_symlinks=False)
    except OSError as error:
        if error.errno in (errno.ENODATA, errno.ENOTSUP):
            return None
        raise


def read_object(path):
    status = os.lstat(path)
    kind = KINDS.get(stat.S_IFMT(status.st_mode), "other")
    names = set(os.listxattr(path, follow_symlinks=False))
    values = {name: read_attribute(path, name) for name in names}
    value = values.pop(ATTRIBUTE, None)
    access, default = (posix_acls.decode(values.pop(name, None))
                       for name in (posix_acls.ACCESS, posix_acls.DEFAULT))
    target = os.readlink(path) if kind == "link" else None
    content = (stat.S_IFMT(status.st_mode), status.st_ino, status.st_rdev, status.st_nlink, target,
               status.st_mtime_ns, status.st_size)
    return Object(kind, status.st_uid, status.st_gid, stat.S_IMODE(status.st_mode), value,
                  access_lists.decode(value, kind == "folder"), access, default,
                  tuple(sorted(values.items())), content, status.st_ctime_ns)




class Tree(dict):
    """Path below the root, in bytes, b"" for the root itself -> Object."""

    def __init__(self, root):
        super().__init__()
        self.inside = {}
        self._read(os.fsencode(root), b"")

    def _read(self, root, path):
        self[path] = read_object(os.path.join(root, path) if path else root)
        if self[path].kind != "folder":
            return
        names = sorted(os.listdir(os.path.join(root, path)))
        self.inside[path] = [os.path.join(path, name) for name in names]
        for inside in self.inside[path]:
            self._read(root, inside)


def changed(before, after):
    """Paths that anything was written to."""
    return {path for path in before if before[path].ctime != after[path].ctime}
