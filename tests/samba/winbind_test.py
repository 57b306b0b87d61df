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
import unittest

from own_samba import HOST, WINBIND_PIPE, Samba, in_namespaces

USER = "daemon"


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
        samba = Samba(cls.folder)
        samba.add_user(USER, "secret")
        cls.addClassCleanup(samba.stop_all)
        cls.winbind = samba.start_winbind()
        # Its first answer may take longer than anybody is kept waiting for; these tests are not about that.
        subprocess.run(["wbinfo", "--sid-to-gid", "S-1-5-11"], check=True, stdout=subprocess.DEVNULL)

    def test_a_user_is_a_user(self):
        sid = subprocess.run(["wbinfo", "--name-to-sid", "%s\\%s" % (HOST, USER)], check=True,
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
        self.winbind.send_signal(signal.SIGSTOP)
        try:
            self.assertEqual(ask("S-1-5-11", *("S-1-5-21-1-2-3-%d" % rid for rid in range(500))),
                             ["error %d" % errno.ETIMEDOUT] * 501)
        finally:
            self.winbind.send_signal(signal.SIGCONT)

    def test_without_winbind_the_answer_comes_at_once(self):
        os.rename(WINBIND_PIPE, WINBIND_PIPE + ".elsewhere")
        try:
            self.assertEqual(ask("S-1-5-11"), ["error %d" % errno.ECONNREFUSED])
        finally:
            os.rename(WINBIND_PIPE + ".elsewhere", WINBIND_PIPE)


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    in_namespaces(__file__, [PROGRAM], ["winbindd", "wbinfo", "smbpasswd"])
    unittest.main()
