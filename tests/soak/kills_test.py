#!/usr/bin/python3
"""The daemon, and the programs that it runs, killed at every system call of a request: what was acknowledged
stays, every file is the old one or the new one, and the next daemon finishes the request.

    kills_test.py CMAKE BUILD_FOLDER

PADDOCK_KILLS says how many calls of each request are tried (8, evenly spread); 0: every one of them.
Needs root, for namespaces of its own.
"""
import collections
import os
import random
import re
import shutil
import subprocess
import sys
import unittest

from soak_world import (DIRECTORY, SEED, SHARING, SoakTest, count_of, exported_share_point, in_namespaces, paths_of,
                        require_tracing)

KILLS = count_of("PADDOCK_KILLS", 8)
EXPORTS = "etc/exports"
SAMBA = "etc/samba/paddock-shares.conf"
EXTRA_USERS = tuple("var/lib/extrausers/" + name for name in ("passwd", "group", "shadow"))
USERS = "dsRecTypeStandard:Users"
SHARES = "dsRecTypeStandard:SharePoints"


class Request:
    """One request, and the files that it replaces."""

    def __init__(self, plugin, operation, body, status, files=(), files_of_programs=(), command=None):
        """`files` are written by the daemon, `files_of_programs` by what it runs, whose failures leave the
        request done and are logged. `command`: of keelhouse, which finishes it when it is half done."""
        self.plugin, self.operation, self.body = plugin, operation, body
        self.status = status  # the key of the reply that is 0 when it is done
        self.files, self.files_of_programs = files, files_of_programs
        self.command = command

    def all_files(self):
        return self.files + self.files_of_programs



class KillsTest(SoakTest):

    @classmethod
    def setUpClass(cls):
        require_tracing()
        super().setUpClass()
        cls.installed = os.path.join(cls.folder, "installed")
        cls.keep_state(cls.installed)
        cls.kills = 0

    @classmethod
    def tearDownClass(cls):
        print("%d kills" % cls.kills, flush=True)
        super().tearDownClass()

    def setUp(self):
        """A share point that was acknowledged before, and a line that was written by hand."""
        self.restore_state(self.installed)
        self.kept = self.shared_folder("kept")
        with open(self.path(EXPORTS), "w", encoding="utf-8") as file:
            file.write("/srv/by-hand 192.0.2.1(ro)  # mine\n")
        self.daemon.start()
        self.require_done(Request(SHARING, "writeSettings", exported_share_point(self.kept, "kept"),
                                  "writeStatus"))
        self.daemon.stop()
        self.before = os.path.join(self.folder, "before")
        self.keep_state(self.before)
        self.addCleanup(shutil.rmtree, self.before)

    def ask(self, request):
        """The reply; None when the daemon died over it."""
        socket = self.socket()
        try:
            status, reply = socket.post(request.plugin, request.operation, request.body)
        except OSError:
            return None
        finally:
            socket.close()
        self.assertEqual(status, 200, reply)
        return reply

    def require_done(self, request):
        reply = self.ask(request)
        self.assertIsNotNone(reply)
        self.assertEqual(reply[request.status], 0, reply)

    def listed(self):
        return paths_of(self.ask(Request(SHARING, "getSharePointList", {}, "readStatus")))

    def result(self, request):
        """What an undisturbed run makes of the files, and the list of share points then."""
        self.restore_state(self.before)
        self.daemon.start()
        self.require_done(request)
        found = self.listed()
        self.daemon.stop()
        return {name: self.contents(name) for name in request.all_files()}, found

    def traced(self, *options):
        """strace(1) of the running daemon and what it starts, with these options."""
        tracer = subprocess.Popen(["strace", "-f", "-q", *options, "-p", str(self.daemon.process.pid)],
                                  stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        while tracer.poll() is None and not self.is_traced(self.daemon.process.pid):
            pass
        return tracer

    @staticmethod
    def is_traced(pid):
        """All of its threads, or what is left of them."""
        for thread in os.listdir("/proc/%d/task" % pid):
            try:
                with open("/proc/%d/task/%s/status" % (pid, thread), encoding="ascii") as status:
                    if re.search(r"^TracerPid:\s+0$", status.read(), re.MULTILINE):
                        return False
            except OSError:
                pass
        return True

    def kill_at(self, request, call):
        """(the reply, whether that was killed) at the call: its name and the how manieth it is of a thread."""
        self.restore_state(self.before)
        self.daemon.start()
        tracer = self.traced("-o", os.devnull, "-e", "trace=" + call[0], "-e", "inject=%s:signal=KILL:when=%d" % call)
        reply = self.ask(request)
        killed = reply is None
        self.daemon.kill()
        tracer.wait(60)
        return reply, killed

    def calls(self, request):
        """Each call that a thread or a program makes for the request, the `KILLS` of them that are tried."""
        self.restore_state(self.before)
        self.daemon.start()
        log = os.path.join(self.folder, "calls")
        tracer = self.traced("-o", log)
        self.require_done(request)
        self.daemon.stop()
        tracer.wait(60)
        made = collections.Counter()
        with open(log, encoding="utf-8", errors="replace") as lines:
            for line in lines:
                found = re.match(r"(\d+) +(\w+)\(", line)
                if found:
                    made[found[1], found[2]] += 1
        most = collections.Counter()
        for (_, name), number in made.items():
            most[name] = max(most[name], number)
        every = [(name, number) for name in sorted(most) for number in range(1, most[name] + 1)]
        return every if KILLS == 0 else every[random.Random(SEED).randrange(len(every) // KILLS)::len(every) // KILLS]

    def check(self, request, call, reply, new_files, new_list):
        acknowledged = reply is not None and reply[request.status] == 0
        for name in request.all_files():
            is_new = acknowledged and name in request.files
            allowed = (new_files[name],) if is_new else (self.old[name], new_files[name])
            self.assertIn(self.contents(name), allowed, "%s, killed at %s" % (name, call))
        self.require_whole_databases()
        self.daemon.start()
        try:
            self.check_next_daemon(request, acknowledged, new_files, new_list)
        finally:
            self.daemon.stop()

    def check_next_daemon(self, request, acknowledged, new_files, new_list):
        found = self.listed()
        self.assertIn(found, [new_list] if acknowledged else [[self.kept], new_list])
        self.finish(request)
        self.assertEqual({name: self.contents(name) for name in request.all_files()}, new_files)
        self.assertEqual(self.listed(), new_list)

    def finish(self, request):
        """What somebody does who got no answer, or one that names a program that failed: what is listed as
        unfinished is removed, and the same again."""
        for name in self.unfinished():
            self.require_done(Request(DIRECTORY, "deleteRecord", {"type": SHARES, "name": name}, "status"))
        if request.command is None:
            self.require_done(request)
            return
        ended = self.daemon.run(*request.command)
        if ended.returncode != 0:
            self.assertIn("is not shared", ended.stderr)
            subprocess.run([self.path("usr/libexec/samba/synchronize-shares")], check=True)

    def unfinished(self):
        """Names of records that have no path yet, which the list of share points shows as such."""
        reply = self.ask(Request(SHARING, "getSharePointList", {}, "readStatus"))
        return [one["name"] for one in reply.get("sharePointList", ()) if "path" not in one]

    def try_all(self, request):
        self.old = {name: self.contents(name) for name in request.all_files()}
        new_files, new_list = self.result(request)
        for call in self.calls(request):
            reply, killed = self.kill_at(request, call)
            type(self).kills += killed
            with self.subTest(call=call):
                self.check(request, call, reply, new_files, new_list)

    def test_new_share_point(self):
        folder = self.shared_folder("new")
        self.try_all(Request(SHARING, "writeSettings", exported_share_point(folder, "new"), "writeStatus",
                             (EXPORTS,), (SAMBA,)))

    def test_removed_share_point(self):
        body = {"optionalArguments": {"path": self.kept}, "configuration": {"sharePointRecord": {"isShared": False}}}
        self.try_all(Request(SHARING, "writeSettings", body, "writeStatus", (EXPORTS,), (SAMBA,),
                             ("share", "remove", self.kept)))

    def test_user_of_the_host(self):
        body = {"type": USERS, "name": "anna", "attributes": {
            "dsAttrTypeStandard:UniqueID": "21001", "dsAttrTypeStandard:PrimaryGroupID": "21001"}}
        self.try_all(Request(DIRECTORY, "putRecord", body, "status", EXTRA_USERS))


if __name__ == "__main__":
    in_namespaces(__file__, sys.argv[1:], ("strace",))
    unittest.main(argv=sys.argv[:1])
