#!/usr/bin/python3
"""What winbind says of SIDs, asked through a winbindd of this test's own.

    winbind_test.py ASK_WINBIND

Needs root, for namespaces of its own: the winbindd of this machine is neither asked nor disturbed.
"""
import errno
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

CONFIGURATION = """[global]
workgroup = TESTGROUP
netbios name = TESTHOST
server role = standalone
private dir = {folder}/private
lock directory = {folder}/lock
state directory = {folder}/state
cache directory = {folder}/cache
pid directory = {folder}/pid
ncalrpc dir = {folder}/ncalrpc
log file = {folder}/log/log
bind interfaces only = yes
interfaces = lo
idmap config * : backend = tdb
idmap config * : range = 3000-7999
"""
PIPE = "/run/samba/winbindd/pipe"
USER = "daemon"


def skip(reason):
    print("skipped: " + reason)
    sys.exit(77)


class Winbind:
    """A winbindd with one user in its own domain."""

    def __init__(self, folder):
        self.folder = folder
        for name in ("private", "lock", "state", "cache", "pid", "ncalrpc", "log"):
            os.mkdir(os.path.join(folder, name))
        self.configuration = os.path.join(folder, "smb.conf")
        with open(self.configuration, "w", encoding="ascii") as file:
            file.write(CONFIGURATION.format(folder=folder))
        subprocess.run(["smbpasswd", "-c", self.configuration, "-a", "-n", USER], check=True,
                       stdout=subprocess.DEVNULL)
        self.process = None

    def start(self):
        self.process = subprocess.Popen(
            ["winbindd", "-s", self.configuration, "-F", "--no-process-group",
             "-l", os.path.join(self.folder, "log")])
        for _ in range(600):
            if os.path.exists(PIPE) and self.answers():
                return
            time.sleep(0.1)
        raise RuntimeError("winbindd does not answer")

    def answers(self):
        return subprocess.run(["wbinfo", "--ping"], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False).returncode == 0

    def stop(self):
        if self.process:
            self.process.kill()
            self.process.wait()


def ask(*sids):
    """Each SID's answer."""
    run = subprocess.run([PROGRAM, *sids], stdout=subprocess.PIPE, encoding="ascii", check=True)
    answers = dict(line.split(" ", 1) for line in run.stdout.splitlines())
    return [answers[sid] for sid in sids]


class WinbindTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="paddock-winbind.")
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cls.winbind = Winbind(cls.folder)
        cls.addClassCleanup(cls.winbind.stop)
        cls.winbind.start()

    def test_a_user_is_a_user(self):
        sid = subprocess.run(["wbinfo", "--name-to-sid", "TESTHOST\\" + USER], check=True,
                             stdout=subprocess.PIPE, encoding="ascii").stdout.split()[0]
        self.assertTrue(sid.startswith("S-1-5-21-"), sid)
        self.assertEqual(ask(sid), ["user 1"])

    def test_a_group_is_a_group(self):
        # Authenticated users: winbind gives them a gid of its range.
        answer, = ask("S-1-5-11")
        kind, number = answer.split()
        self.assertEqual(kind, "group")
        self.assertIn(int(number), range(3000, 8000))

    def test_who_is_in_no_domain_is_nobody(self):
        self.assertEqual(ask("S-1-5-21-1-2-3-1104", "S-1-0x506164646f63-1-2-3-4"),
                         ["error %d" % errno.ENOENT] * 2)

    def test_a_winbind_that_hangs_is_waited_for_once(self):
        self.winbind.process.send_signal(signal.SIGSTOP)
        try:
            self.assertEqual(ask("S-1-5-11", *("S-1-5-21-1-2-3-%d" % rid for rid in range(500))),
                             ["error %d" % errno.ETIMEDOUT] * 501)
        finally:
            self.winbind.process.send_signal(signal.SIGCONT)

    def test_without_winbind_the_answer_comes_at_once(self):
        os.rename(PIPE, PIPE + ".elsewhere")
        try:
            self.assertEqual(ask("S-1-5-11"), ["error %d" % errno.ECONNREFUSED])
        finally:
            os.rename(PIPE + ".elsewhere", PIPE)


def in_namespaces():
    """Runs this test again where /run is empty and every process ends with it."""
    for program in ("winbindd", "wbinfo", "smbpasswd"):
        if not shutil.which(program, path=os.environ.get("PATH", "") + ":/usr/sbin"):
            skip(program + " is not installed")
    if os.geteuid() != 0:
        skip("needs root, for namespaces of its own")
    alone = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
    if subprocess.run(alone + ["true"], stderr=subprocess.DEVNULL, check=False).returncode != 0:
        skip("this system gives no namespaces")
    return subprocess.run(alone + [sys.executable, "-B", os.path.abspath(__file__), PROGRAM],
                          env={**os.environ, "PADDOCK_IN_NAMESPACES": "1"}, check=False).returncode


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    if "PADDOCK_IN_NAMESPACES" not in os.environ:
        sys.exit(in_namespaces())
    os.environ["PATH"] += ":/usr/sbin"
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "none", "/run"], check=True)
    os.makedirs("/run/samba")
    unittest.main()
