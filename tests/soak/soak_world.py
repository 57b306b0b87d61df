"""A daemon in a folder of memory, with what the long tests ask of it again and again."""
import os
import random
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import unittest

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from own_daemon import OwnDaemon
from own_namespaces import in_namespaces, skip
from socket_requests import SocketRequests

SEED = int(os.environ.get("PADDOCK_SEED", random.SystemRandom().randrange(10 ** 9)))
SHARING = "paddock_sharing"
DIRECTORY = "paddock_directory"
SECONDS = 60  # that an answer may take

CONFIGURATION = """
[acl]
winbind = false
[accounts]
extrausers = true
[dnssd]
enabled = false
[volumes]
quota_backend = "accounting"
quota_checker = "/usr/sbin/quotascan"
"""
# What requests change in the tree; all else stays as it was installed.
STATE = ("etc", "var/lib", "var/log")


def count_of(variable, default):
    """How many of something a run makes: the long form sets the variable."""
    return int(os.environ.get(variable, default))


def require_tracing():
    traced = subprocess.run(["strace", "-o", "/dev/null", "true"], stderr=subprocess.PIPE, check=False)
    if traced.returncode != 0:
        skip("nothing can be traced here")


class SoakTest(unittest.TestCase):
    """One installed tree; the daemon is started by the tests."""
    configuration = CONFIGURATION

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="paddock-soak.")
        cls.addClassCleanup(os.rmdir, cls.folder)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "none", cls.folder], check=True)
        cls.addClassCleanup(subprocess.run, ["umount", "--lazy", cls.folder], check=True)
        cls.tree = os.path.join(cls.folder, "tree")
        cls.daemon = OwnDaemon(sys.argv[1], sys.argv[2], cls.tree, cls.configuration)
        cls.addClassCleanup(cls.daemon.stop)
        for name in ("var/lib/extrausers", "var/log"):
            os.makedirs(os.path.join(cls.tree, name), exist_ok=True)
        shutil.copy("/bin/true", os.path.join(cls.tree, "usr/sbin/exportfs"))
        print("seed %d" % SEED, flush=True)

    def path(self, name):
        """In the tree."""
        return os.path.join(self.tree, name)

    def shared_folder(self, name):
        folder = os.path.join(self.folder, "shared", name)
        os.makedirs(folder, exist_ok=True)
        return folder

    def contents(self, name):
        """Bytes of a file of the tree; None where there is none."""
        try:
            with open(self.path(name), "rb") as file:
                return file.read()
        except FileNotFoundError:
            return None

    def socket(self):
        return SocketRequests(self.path("run/paddock/paddockd.sock"), SECONDS)

    @classmethod
    def keep_state(cls, where):
        for part in STATE:
            shutil.copytree(os.path.join(cls.tree, part), os.path.join(where, part), symlinks=True)

    @classmethod
    def restore_state(cls, where):
        for part in STATE:
            shutil.rmtree(os.path.join(cls.tree, part))
            shutil.copytree(os.path.join(where, part), os.path.join(cls.tree, part), symlinks=True)

    def require_whole_databases(self):
        for name in ("directory", "metadata-stores"):
            path = self.path("var/lib/paddock/%s.sqlite" % name)
            if not os.path.exists(path):
                continue
            database = sqlite3.connect(path)
            self.assertEqual(database.execute("PRAGMA integrity_check").fetchall(), [("ok",)], path)
            database.close()


def share_point(folder, **more):
    """A request that shares a folder."""
    return {"optionalArguments": {"path": folder},
            "configuration": {"sharePointRecord": {"path": folder, "isShared": True, **more}}}


def exported_share_point(folder, name):
    return share_point(folder, name=name, nameOverSMB=name, nfsExportRecord={
        "path": folder, "clients": [{"host": "192.0.2.7", "options": ["rw"]}]})


def paths_of(reply):
    return sorted(one["path"] for one in reply.get("sharePointList", ()) if "path" in one)
