"""Trees whose privileges are pushed down, on a volume of their own."""

import os
import shutil
import struct

from processes import run, time_of

CONTENTS = "usr/share/paddockd/bundles/paddock_sharing.bundle/Contents"
UIDS = (1001, 1002, 1003, 1004)  # of the four entries
READ_AND_EXECUTE = 0x001200A9
INHERITABLE = 0x03
EVERYTHING = "63"


def _sid(authority, *numbers):
    return (bytes([1, len(numbers)]) + authority.to_bytes(6, "big")
            + b"".join(struct.pack("<I", number) for number in numbers))


def inheritable_list():
    """A value of security.NTACL: four entries that files and folders inherit (docs/formats/acl.md)."""
    entries = b""
    for uid in UIDS:
        sid = _sid(22, 1, uid)
        entries += struct.pack("<BBHI", 0, INHERITABLE, 8 + len(sid), READ_AND_EXECUTE) + sid
    owner, group = _sid(22, 1, 0), _sid(22, 2, 0)
    at = 28
    header = struct.pack("<HHI", 1, 1, 0x20000) + struct.pack(
        "<BBHIIII", 1, 0, 0x8404, at, at + len(owner), 0, at + len(owner) + len(group))
    return header + owner + group + struct.pack("<BBHHH", 2, 0, 8 + len(entries), len(UIDS), 0) + entries


class PropagationTree:
    """An ext4 volume with one folder, whose owner, group, mode and list its content is to get."""

    def __init__(self, bench, name, size="1500M", inodes=400_000):
        self._folder = os.path.join(bench.work, name)
        self._bare = os.path.join(bench.programs, "bench_bare_changes")
        self._mount = os.path.join(self._folder, "volume")
        os.makedirs(self._mount)
        image = os.path.join(self._folder, "image")
        run(["truncate", "-s", size, image])
        run(["mkfs.ext4", "-q", "-m", "0", "-N", str(inodes), image])
        run(["mount", "-o", "loop", image, self._mount])
        self.path = os.path.join(self._mount, "tree")
        self.objects = 0
        self._programs = {projects: self._install(bench.tree, projects) for projects in (True, False)}

    def _install(self, tree, projects):
        """The program in a tree of its own, with a configuration of its own."""
        root = os.path.join(self._folder, "projecting" if projects else "plain")
        for folder in (CONTENTS, "etc/paddock", "var/lib/paddock", "tmp"):
            os.makedirs(os.path.join(root, folder))
        shutil.copy2(os.path.join(tree, CONTENTS, "copyprivs"), os.path.join(root, CONTENTS))
        with open(os.path.join(root, "etc/paddock/paddockd.toml"), "w", encoding="ascii") as file:
            file.write(f"[acl]\nprojection = {'true' if projects else 'false'}\n")
        return os.path.join(root, CONTENTS, "copyprivs"), os.path.join(root, "tmp/status")

    def make(self, folders, files):
        self.objects = int(run([self._bare, "--make", self.path, str(folders), str(files)]))
        self._own()

    def make_deep(self, levels):
        """A chain of folders, a file in each."""
        os.mkdir(self.path)
        folder = os.open(self.path, os.O_RDONLY)
        for _ in range(levels):
            os.close(os.open("file", os.O_WRONLY | os.O_CREAT, 0o644, dir_fd=folder))
            os.mkdir("folder", 0o755, dir_fd=folder)
            below = os.open("folder", os.O_RDONLY, dir_fd=folder)
            os.close(folder)
            folder = below
        os.close(folder)
        self.objects = 2 * levels
        self._own()

    def _own(self):
        os.setxattr(self.path, "security.NTACL", inheritable_list())
        os.chown(self.path, UIDS[0], UIDS[0])
        os.chmod(self.path, 0o775)

    def undo(self):
        """Everything inside as it was made."""
        run([self._bare, "--undo", self.path])
        run(["sync", "-f", self.path])

    def command(self, projects=True):
        program, status = self._programs[projects]
        return [program, "-p", self.path, "-f", EVERYTHING, "-s", status]

    def time_of_tools(self):
        """chown, chmod and setfacl, one after the other."""
        entries = ",".join(f"u:{uid}:r-x" for uid in UIDS)
        content = sorted(os.path.join(self.path, name) for name in os.listdir(self.path))
        return sum(time_of(words + content) for words in (
            ["chown", "-R", f"{UIDS[0]}:{UIDS[0]}"], ["chmod", "-R", "u=rwX,g=rwX,o=rX"],
            ["setfacl", "-R", "-m", entries]))

    def time_of_bare_loop(self):
        """To be called when the tree was set: what a file has is the model."""
        model = os.path.join(self._mount, "model")
        if not os.path.exists(model):
            above = os.path.join(self.path, "folders0", "folder0")
            run(["cp", "-r", "--preserve=all", above, model])
        return lambda: time_of([self._bare, os.path.join(model, "file0"), self.path])

    def close(self):
        run(["umount", self._mount])
        shutil.rmtree(self._folder)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
