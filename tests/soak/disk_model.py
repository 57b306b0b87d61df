"""A disk that may lose at a power failure what was not synced: of files' contents each write, of folders each change
of a name, in every combination. What fsync(2) promises is durable, and nothing else is."""
import functools
import itertools
import os
import re

TEXT = r'"((?:\\x[0-9a-f]{2})*)"'
FOLDER = r"(?:AT_FDCWD|\d+)<([^>]*)>"
FILE = r"\d+<([^>]*)>"
PATTERNS = {
    "created": re.compile(r"openat\(%s, %s, ([A-Z_|]*O_CREAT[A-Z_|]*)(?:, \d+)?\) = \d" % (FOLDER, TEXT)),
    "written": re.compile(r"write\(%s, %s, \d+\) = (\d+)" % (FILE, TEXT)),
    "written at": re.compile(r"pwrite64\(%s, %s, \d+, (\d+)\) = (\d+)" % (FILE, TEXT)),
    "cut": re.compile(r"ftruncate\(%s, (\d+)\) = 0" % FILE),
    "synced": re.compile(r"f(?:data)?sync\(%s\) = 0" % FILE),
    "renamed": re.compile(r"renameat\(%s, %s, %s, %s\) = 0" % (FOLDER, TEXT, FOLDER, TEXT)),
    "exchanged": re.compile(r"renameat2\(%s, %s, %s, %s, RENAME_EXCHANGE\) = 0" % (FOLDER, TEXT, FOLDER, TEXT)),
    "linked": re.compile(r"linkat\(%s, %s, %s, %s, 0\) = 0" % (FOLDER, TEXT, FOLDER, TEXT)),
    "removed": re.compile(r"unlinkat\(%s, %s, 0\) = 0" % (FOLDER, TEXT)),
    "changed by path": re.compile(r"(?:rename|link|unlink)\(%s(?:, %s)?\) = 0" % (TEXT, TEXT)),
}
TRACED = "trace=openat,write,pwrite64,ftruncate,fsync,fdatasync,rename,renameat,renameat2,link,linkat,unlink,unlinkat"
MOST_PENDING = 10  # of which every combination is tried


def plain(text):
    """Of a text in strace's hexadecimal form, or of a path that strace shows."""
    return bytes.fromhex(text.replace("\\x", ""))


def calls_of(lines):
    """(time, kind, groups) of what strace -ttt -y -xx wrote of one thread."""
    for line in lines:
        moment, _, call = line.partition(" ")
        for kind, pattern in PATTERNS.items():
            found = pattern.match(call)
            if found:
                yield float(moment), kind, found.groups()
                break


class Pending:
    """Changes in their order, and how many of them are durable."""

    def __init__(self):
        self.changes = []
        self.durable = 0

    def add(self, change):
        self.changes.append(change)

    def sync(self):
        self.durable = len(self.changes)

    def waiting(self):
        return self.changes[self.durable:]


def apply(contents, change):
    """A file's bytes after a write or a cut; the gap before a write that was lost is zeros."""
    offset, data = change
    if data is None:
        return contents[:offset].ljust(offset, b"\0")
    return contents[:offset].ljust(offset, b"\0") + data + contents[offset + len(data):]


class File:

    def __init__(self, contents):
        self.old = contents
        self.pending = Pending()
        self.offset = 0

    def write(self, data, offset=None):
        at = self.offset if offset is None else offset
        self.pending.add((at, data))
        if offset is None:
            self.offset += len(data)

    def now(self):
        """Its contents while nothing fails."""
        return functools.reduce(apply, self.pending.changes, self.old)

    def possible(self):
        """All contents that it may have after a failure."""
        durable = self.old
        for change in self.pending.changes[:self.pending.durable]:
            durable = apply(durable, change)
        for kept in combinations(self.pending.waiting()):
            contents = durable
            for change in kept:
                contents = apply(contents, change)
            yield contents


def combinations(changes):
    """All that may be left of them, in their order."""
    assert len(changes) <= MOST_PENDING, "%d changes are not synced" % len(changes)
    for keeps in itertools.product((False, True), repeat=len(changes)):
        yield [change for change, keep in zip(changes, keeps) if keep]


class Folder:
    """Names of files, in one folder."""

    def __init__(self, files):
        """`files`: a dictionary name -> contents of what is there, and durable."""
        self.start = {name: File(contents) for name, contents in files.items()}
        self.names = dict(self.start)
        self.pending = Pending()

    def change(self, changed):
        """`changed`: name -> file, or None where there is none any more; one atomic change."""
        self.pending.add(changed)
        self.apply(self.names, changed)

    @staticmethod
    def apply(names, changed):
        for name, file in changed.items():
            if file is None:
                names.pop(name, None)
            else:
                names[name] = file

    def possible(self, name):
        """All contents of the file of that name after a failure now; None: no such file."""
        durable = dict(self.start)
        for changed in self.pending.changes[:self.pending.durable]:
            self.apply(durable, changed)
        for kept in combinations([one for one in self.pending.waiting() if name in one]):
            names = dict(durable)
            for changed in kept:
                self.apply(names, changed)
            if name not in names:
                yield None
            else:
                yield from names[name].possible()


class Disk:
    """The folders in which files are replaced."""

    def __init__(self, folders):
        """`folders`: path -> {name: contents}."""
        self.folders = {path.encode(): Folder({name.encode(): data for name, data in files.items()})
                        for path, files in folders.items()}

    def file(self, path):
        folder, _, name = plain_path(path).rpartition(b"/")
        return self.folders[folder].names.get(name) if folder in self.folders else None

    def pair(self, first, name, second, new_name):
        """(folder, name, new name) of a call inside one of them; None where it is elsewhere."""
        folder = self.folders.get(plain_path(first))
        if folder is None or plain(name) not in folder.names:
            return None
        assert plain_path(first) == plain_path(second), "a file leaves its folder"
        return folder, plain(name), plain(new_name)

    def do(self, kind, groups):
        """One call, as strace shows it. Whether it changed anything here."""
        return getattr(self, "do_" + kind.replace(" ", "_"))(*groups)

    def do_created(self, folder, name, flags):
        there = self.folders.get(plain_path(folder))
        if there is None or b"/" in plain(name):
            return False
        if plain(name) not in there.names:
            there.change({plain(name): File(b"")})
        elif "O_TRUNC" in flags:
            there.names[plain(name)].pending.add((0, None))
        return True

    def do_written(self, path, text, number):
        file = self.file(path)
        if file is not None:
            file.write(plain(text)[:int(number)])
        return file is not None

    def do_written_at(self, path, text, offset, number):
        file = self.file(path)
        if file is not None:
            file.write(plain(text)[:int(number)], int(offset))
        return file is not None

    def do_cut(self, path, size):
        file = self.file(path)
        if file is not None:
            file.pending.add((int(size), None))
        return file is not None

    def do_synced(self, path):
        folder, file = self.folders.get(plain_path(path)), self.file(path)
        for synced in (folder, file):
            if synced is not None:
                synced.pending.sync()
        return folder is not None or file is not None

    def do_renamed(self, *words):
        found = self.pair(*words)
        if found:
            folder, name, new_name = found
            folder.change({name: None, new_name: folder.names[name]})
        return bool(found)

    def do_exchanged(self, *words):
        found = self.pair(*words)
        if found:
            folder, name, new_name = found
            folder.change({name: folder.names[new_name], new_name: folder.names[name]})
        return bool(found)

    def do_linked(self, *words):
        found = self.pair(*words)
        if found:
            folder, name, new_name = found
            folder.change({new_name: folder.names[name]})
        return bool(found)

    def do_removed(self, path, name):
        folder = self.folders.get(plain_path(path))
        if folder is None or plain(name) not in folder.names:
            return False
        folder.change({plain(name): None})
        return True

    def do_changed_by_path(self, *paths):
        """Not modelled: files of these folders are replaced by descriptors."""
        for path in paths:
            assert path is None or os.path.dirname(plain(path)) not in self.folders, path
        return False


def plain_path(path):
    """strace shows the path of a descriptor in hexadecimal, too."""
    return plain(path) if path.startswith("\\x") else path.encode()
