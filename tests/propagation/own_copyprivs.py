"""copyprivs in a tree of a test's own, and what a test needs around it: namespaces, a volume, accounts."""
import os
import plistlib
import shutil
import subprocess
import sys
import tempfile
from collections import namedtuple

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from own_namespaces import in_namespaces, skip

try:
    import samba.dcerpc.security
except ImportError as missing:
    skip("python3-samba is not installed (%s)" % missing)

PLACE = "usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/copyprivs"
CONFIGURATION = """[acl]
projection = %s
winbind = false
"""
USERS = {"root": 0, "anna": 21001, "bert": 21002, "carl": 21003, "dora": 21004}
GROUPS = {"crew": 21100, "night": 21200}
MEMBERS = {"crew": ("bert", "dora"), "night": ("dora",)}
NOBODYS_ID = 4000

KEYS = {"status", "path", "mask", "itemsDone", "itemsTotal", "itemsChanged", "errorCount", "errors",
        "elapsedSeconds", "pid"}


def groups_of(uid):
    """The gids that a process of the user has."""
    own = {uid: [uid] for uid in USERS.values()}
    return own.get(uid, []) + [GROUPS[group] for group, members in MEMBERS.items()
                               if uid in [USERS[member] for member in members]]


def use_own_accounts(folder, clean_up):
    """For all programs in this mount namespace."""
    passwd = ["%s:x:%d:%d::/:/bin/false" % (name, uid, uid) for name, uid in USERS.items()]
    group = ["%s:x:%d:" % item for item in USERS.items()]
    group += ["%s:x:%d:%s" % (name, gid, ",".join(MEMBERS[name])) for name, gid in GROUPS.items()]
    for name, lines in {"passwd": passwd, "group": group}.items():
        path = os.path.join(folder, name)
        with open(path, "w", encoding="ascii") as file:
            file.write("\n".join(lines) + "\n")
        subprocess.run(["mount", "--bind", path, "/etc/" + name], check=True)
        clean_up(lambda mounted="/etc/" + name: subprocess.run(["umount", mounted], check=True))


class Volume:
    """An ext4 of its own, which takes large attributes."""

    def __init__(self, folder, size="64M", *options):
        self.image, self.path = os.path.join(folder, "image"), os.path.join(folder, "volume")
        os.mkdir(self.path)
        subprocess.run(["truncate", "-s", size, self.image], check=True)
        subprocess.run(["mkfs.ext4", "-q", "-m", "0", "-O", "ea_inode,^has_journal", *options, self.image],
                       check=True)
        mounted = subprocess.run(["mount", "-o", "loop", self.image, self.path], stderr=subprocess.PIPE,
                                 encoding="utf-8", check=False)
        if mounted.returncode != 0:
            skip("no volume in a file can be mounted here: " + mounted.stderr.strip())

    def unmount(self):
        subprocess.run(["umount", "--lazy", self.path], check=True)


class Ended(namedtuple("Ended", "code status output")):
    """`status`: the dictionary of the status file, None when it is empty or missing."""


class CopyPrivs:
    """The built program `built`, installed in the new folder `tree`."""

    def __init__(self, built, tree, projection):
        self.tree, self.program = tree, os.path.join(tree, PLACE)
        for folder in (os.path.dirname(PLACE), "etc/paddock", "var/lib/paddock", "tmp"):
            os.makedirs(os.path.join(tree, folder))
        shutil.copy(built, self.program)
        with open(os.path.join(tree, "etc/paddock/paddockd.toml"), "w", encoding="ascii") as file:
            file.write(CONFIGURATION % ("true" if projection else "false"))

    def new_status_file(self):
        """As whoever starts the program makes it."""
        number, path = tempfile.mkstemp(prefix="CopyPrivsTemp.", dir=os.path.join(self.tree, "tmp"))
        os.close(number)
        return path

    def words(self, folder, mask, status_file, dry=False):
        return (["CopyPrivs"] + (["-n"] if dry else [])
                + ["-p", folder, "-f", str(mask), "-s", status_file])

    def start(self, folder, mask, status_file, dry=False, **how):
        """As it is started in a server: with an empty environment."""
        return subprocess.Popen(self.words(folder, mask, status_file, dry), executable=self.program, env={},
                                cwd="/", stdin=subprocess.DEVNULL, **how)

    def run(self, folder, mask, dry=False):
        status_file = self.new_status_file()
        process = self.start(folder, mask, status_file, dry, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        output = process.communicate(timeout=600)[0].decode("utf-8", "backslashreplace")
        status = status_in(status_file)
        if os.path.exists(status_file):
            os.unlink(status_file)
        return Ended(process.returncode, status, output)


def status_in(path):
    try:
        with open(path, "rb") as file:
            return parsed(file.read())
    except FileNotFoundError:
        return None


def parsed(content):
    return plistlib.loads(content, fmt=plistlib.FMT_XML) if content else None


def in_status_file(path):
    """How a path is written there: bytes that are no text, or that XML cannot carry, appear as \\xNN."""
    text = os.fsencode(path).decode("utf-8", "surrogateescape")
    return "".join("\\x%02X" % (ord(character) & 0xFF)
                   if character < " " and character not in "\t\n" or "\udc80" <= character <= "\udcff"
                   else character for character in text)


class World:
    """The program, one with and one without kernel ACLs, and a volume to work on."""

    def __init__(self, built, clean_up, size="64M", *options):
        folder = tempfile.TemporaryDirectory(prefix="paddock-propagation.")
        clean_up(folder.cleanup)
        self.folder = folder.name
        os.chmod(self.folder, 0o755)
        use_own_accounts(self.folder, clean_up)
        self.volume = Volume(self.folder, size, *options)
        clean_up(self.volume.unmount)
        self.copyprivs = {projection: CopyPrivs(built, os.path.join(self.folder, "tree-%s" % projection),
                                                projection)
                          for projection in (True, False)}

    def new_folder(self, name):
        path = os.path.join(self.volume.path, name)
        os.mkdir(path)
        return path


def run_tests(main, file, *programs):
    """unittest's main with the program that the first argument names, in namespaces of its own. Other
    `programs` are needed, too."""
    in_namespaces(file, sys.argv[1:], ["mkfs.ext4", *programs])
    main(argv=sys.argv[:1] + sys.argv[2:])
