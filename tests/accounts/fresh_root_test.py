#!/usr/bin/env python3
"""Accounts of the directory in a Debian of its own: libnss-extrausers in a minimal root, whose name service
is asked with getent for what a paddockd that runs below that root wrote.

    fresh_root_test.py CMAKE BUILD_FOLDER

Needs root, mmdebstrap and a mirror. The minimal root is made once, in the build folder.
"""
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

# Asked of apt, as for every other package of this machine.
MIRROR = ["apt-get", "indextargets", "--format", "$(REPO_URI)", "Created-By: Packages", "Codename: bookworm",
          "Label: Debian"]
NSSWITCH = "passwd: files extrausers\ngroup: files extrausers\nshadow: files extrausers\n"
CONFIGURATION = "[accounts]\nextrausers = true\n"


def skip(why):
    print("skipped: " + why)
    sys.exit(77)


def output_of(*words, **more):
    return subprocess.run(words, check=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True,
                          **more).stdout


def make_archive(archive):
    """The minimal root with the module, as an archive."""
    mirror = output_of(*MIRROR).splitlines()
    if not mirror:
        skip("apt knows no mirror of Debian 12")
    unfinished = "%s.%d" % (archive, os.getpid())
    made = subprocess.run(["mmdebstrap", "--variant=essential", "--include=libnss-extrausers", "--format=tar", "--quiet",
                           "bookworm", unfinished, mirror[0]], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True)
    if made.returncode != 0:
        if os.path.exists(unfinished):
            os.unlink(unfinished)
        skip("a minimal Debian 12 cannot be made here: " + (made.stderr.strip().splitlines() or ["?"])[-1])
    os.rename(unfinished, archive)


class FreshRoot(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="paddock-root.")
        cls.addClassCleanup(folder.cleanup)
        cls.root = folder.name
        output_of("tar", "-C", cls.root, "--numeric-owner", "--exclude=./dev/*", "-xf", ARCHIVE)
        output_of(CMAKE, "--install", BUILD, "--prefix", "/usr", env=dict(os.environ, DESTDIR=cls.root))
        cls.write("etc/nsswitch.conf", NSSWITCH)
        cls.write("etc/paddock/paddockd.toml", CONFIGURATION)

    @classmethod
    def path(cls, name):
        return os.path.join(cls.root, name)

    @classmethod
    def write(cls, name, text):
        with open(cls.path(name), "w", encoding="utf-8") as file:
            file.write(text)

    def setUp(self):
        log = open(self.path("log"), "w", encoding="utf-8")
        self.addCleanup(log.close)
        self.daemon = subprocess.Popen([self.path("usr/sbin/paddockd"), "--root", self.root],
                                       stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.addCleanup(self.stop)
        for _ in range(200):
            if subprocess.run([self.path("usr/sbin/keelhouse"), "status"], stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0:
                return
            time.sleep(0.05)
        self.fail("the daemon does not answer")

    def stop(self):
        self.daemon.send_signal(signal.SIGTERM)
        self.assertEqual(self.daemon.wait(), 0)

    def keelhouse(self, *words, text=None):
        subprocess.run([self.path("usr/sbin/keelhouse"), *words], check=True, input=text, text=True,
                       stdout=subprocess.DEVNULL)

    def getent(self, *words):
        """In the root, whose name service answers."""
        asked = subprocess.run(["chroot", self.root, "/usr/bin/getent", *words], stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, text=True)
        self.assertIn(asked.returncode, (0, 2))
        return asked.stdout

    def put(self, kind, name, *attributes):
        self.keelhouse("record", "put", kind, name, *attributes)
        self.addCleanup(self.keelhouse, "record", "delete", kind, name)

    def test_finds_users_and_groups_of_the_directory_after_its_own(self):
        self.put("users", "anna", "UniqueID=5001", "PrimaryGroupID=5100", "RealName=Anna B", "UserShell=/bin/sh",
                 "NFSHomeDirectory=/home/anna")
        self.put("groups", "crew", "PrimaryGroupID=5100", "GroupMembership=anna", "GroupMembership=root")
        line = "anna:x:5001:5100:Anna B:/home/anna:/bin/sh\n"
        self.assertEqual(self.getent("passwd", "anna"), line)
        self.assertEqual(self.getent("passwd", "5001"), line)
        self.assertEqual(self.getent("group", "crew"), "crew:x:5100:anna,root\n")
        everybody = self.getent("passwd")
        self.assertTrue(everybody.startswith("root:") and everybody.endswith(line), everybody)
        self.assertEqual(self.getent("initgroups", "root").split()[-1], "5100")

    def test_tells_who_a_program_runs_as(self):
        self.put("users", "anna", "UniqueID=5001", "PrimaryGroupID=5100")
        self.put("groups", "crew", "PrimaryGroupID=5100")
        told = output_of("chroot", "--userspec=5001:5100", "--groups=5100", self.root, "/usr/bin/id")
        self.assertEqual(told, "uid=5001(anna) gid=5100(crew) groups=5100(crew)\n")

    def test_finds_a_password_for_root_alone(self):
        self.put("users", "anna", "UniqueID=5001", "UserShell=/bin/sh")
        self.keelhouse("record", "password", "anna", text="opensesame\n")
        self.assertRegex(self.getent("shadow", "anna"), r"^anna:\$[^:]+:::::::\n$")
        asked = subprocess.run(["chroot", "--userspec=65534:65534", self.root, "/usr/bin/getent", "shadow", "anna"],
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        self.assertEqual(asked.stdout, "")

    def test_no_longer_finds_what_is_deleted(self):
        self.put("users", "anna", "UniqueID=5001")
        self.keelhouse("record", "delete", "users", "anna")
        self.assertEqual(self.getent("passwd", "anna"), "")
        self.assertEqual(self.getent("shadow", "anna"), "")

    def test_keeps_its_own_root(self):
        self.put("users", "root", "UniqueID=5001", "UserShell=/bin/sh")
        self.put("users", "toor", "UniqueID=0", "UserShell=/bin/sh")
        self.assertRegex(self.getent("passwd", "root"), r"^root:[^:]*:0:0:")
        self.assertEqual(self.getent("passwd", "toor"), "")


if __name__ == "__main__":
    CMAKE, BUILD = sys.argv[1:3]
    ARCHIVE = os.path.join(BUILD, "extrausers-root.tar")
    if os.geteuid() != 0:
        skip("only root can make a Debian of its own and change its root")
    if not shutil.which("mmdebstrap"):
        skip("mmdebstrap is not installed")
    if not os.path.exists(ARCHIVE):
        make_archive(ARCHIVE)
    unittest.main(argv=sys.argv[:1], verbosity=2)
