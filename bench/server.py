"""The server that is measured: an installed tree with as many share points as are wanted."""

import contextlib
import os
import shutil
import sqlite3

import daemon
from processes import run

BEGIN = "###  [  Begin Keelhouse managed exports.  Do Not Edit.\n"
END = "###  ]  End Keelhouse managed exports.\n"
CLIENT = "10.0.0.0/8(rw,sync,no_subtree_check)"
# What a write runs, as far as it is installed.
PROGRAMS = ("usr/sbin/keelhouse", "usr/sbin/exportfs", "usr/libexec/samba/synchronize-shares")


def exports_text(folders):
    return BEGIN + "".join(f"{folder} {CLIENT}\n" for folder in folders) + END


class Server:
    """Share points are made by the daemon itself, once; each number of them that was asked for is
    kept and put back when it is wanted again."""

    def __init__(self, work, tree, programs):
        self.tree = tree
        self.programs = programs
        self.shared = os.path.join(work, "srv")
        self.kept = os.path.join(work, "kept")
        self.log = os.path.join(work, "paddockd.log")
        self.state = os.path.join(tree, "var/lib/paddock")
        self.exports = os.path.join(tree, "etc/exports")
        for folder in (self.shared, self.kept, self.state, os.path.dirname(self.exports)):
            os.makedirs(folder, exist_ok=True)

    def folders(self, count):
        """The shared folders, which are there."""
        folders = [os.path.join(self.shared, f"share{number:06d}") for number in range(count)]
        for folder in folders:
            os.makedirs(folder, exist_ok=True)
        return folders

    def daemon(self):
        return daemon.Daemon(self.tree, self.programs, self.log)

    def fill(self, counts):
        """Makes as many share points as the numbers say, and keeps the directory of each."""
        folders = self.folders(max(counts))
        self._clear()
        with self._state_in_memory(), self.without_programs():
            done = 0
            for count in sorted(set(counts)):
                with self.daemon() as running, running.requests() as requests:
                    for folder in folders[done:count]:
                        daemon.share(requests, folder)
                done = count
                shutil.copytree(self.state, os.path.join(self.kept, str(count)))

    def use(self, count):
        """The server with `count` share points, each of them exported; returns their folders."""
        folders = self.folders(count)
        self._clear()
        shutil.rmtree(self.state)
        shutil.copytree(os.path.join(self.kept, str(count)), self.state)
        with open(self.exports, "w", encoding="utf-8") as file:
            file.write(exports_text(folders))
        return folders

    def set_stores(self, folders):
        """Makes these folders, and no others, those with a read-write metadata store. The daemon
        has made the database."""
        stores = sqlite3.connect(os.path.join(self.state, "metadata-stores.sqlite"))
        with contextlib.closing(stores), stores:
            stores.execute("DELETE FROM stores")
            stores.executemany("INSERT INTO stores VALUES(?, ?)",
                               ((folder, '{"searchLevel":"readWrite"}') for folder in folders))

    def programs_of_writes(self):
        """The programs that a write runs and that are there."""
        paths = (os.path.join(self.tree, program) for program in PROGRAMS)
        return [path for path in paths if os.path.exists(path)]

    @contextlib.contextmanager
    def without_programs(self):
        """A write finds none of its programs; the daemon may be running."""
        moved = self.programs_of_writes()
        for path in moved:
            os.rename(path, path + ".aside")
        try:
            yield
        finally:
            for path in moved:
                os.rename(path + ".aside", path)

    def _clear(self):
        for path in (self.exports, self.exports + ".before-paddock"):
            with contextlib.suppress(FileNotFoundError):
                os.remove(path)

    @contextlib.contextmanager
    def _state_in_memory(self):
        """What is filled is not measured, and need not wait for the disk at each share point."""
        run(["mount", "-t", "tmpfs", "-o", "mode=0755", "paddock-bench", self.state])
        try:
            yield
        finally:
            run(["umount", self.state])
