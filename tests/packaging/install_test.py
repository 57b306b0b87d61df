#!/usr/bin/env python3
"""A tree that is installed with DESTDIR: what is in it, that it runs where it stands, and that a
second installation keeps what an administrator changed.

    install_test.py CMAKE BUILD_FOLDER
"""
import json
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAMS = ("usr/sbin/paddockd", "usr/sbin/keelhouse", "usr/sbin/quotascan", "usr/libexec/samba/synchronize-shares",
            "usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs")
BUNDLES = ("paddock_sharing", "paddock_directory", "paddock_vsp", "paddock_nfs", "paddock_filebrowser",
           "paddock_files", "paddock_access", "paddock_quotas", "paddock_denials",
           "paddock_services")
OTHERS = ("etc/paddock/paddockd.toml", "etc/pam.d/paddock", "etc/logrotate.d/paddock", "usr/lib/systemd/system/paddockd.service",
          "usr/lib/systemd/system/paddockd.socket",
          "usr/lib/sysusers.d/paddock.conf", "usr/share/man/man8/paddockd.8", "usr/share/man/man8/keelhouse.8",
          "usr/share/man/man8/quotascan.8", "usr/share/man/man8/synchronize-shares.8",
          "usr/share/man/man8/effectiveprivs.8",
          "usr/share/paddockd/ldap/paddock.schema", "usr/share/paddockd/ldap/paddock.ldif")


def install(tree):
    subprocess.run([CMAKE, "--install", BUILD, "--prefix", "/usr"], check=True, stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, env=dict(os.environ, DESTDIR=tree))


class InstalledTree(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="paddock tree ")
        self.addCleanup(folder.cleanup)
        self.tree = folder.name
        install(self.tree)

    def path(self, name):
        return os.path.join(self.tree, name)

    def read(self, name):
        with open(self.path(name), encoding="utf-8") as f:
            return f.read()

    def test_holds_programs_bundles_and_what_is_beside_them(self):
        bundles = tuple("usr/share/paddockd/bundles/%s.bundle/Contents/%s.so" % (b, b) for b in BUNDLES)
        for name in PROGRAMS + bundles + OTHERS:
            self.assertTrue(os.path.isfile(self.path(name)), name)
        for name in PROGRAMS:
            self.assertTrue(os.access(self.path(name), os.X_OK), name)

    def test_keeps_a_changed_configuration_and_puts_the_new_one_beside_it(self):
        shipped = self.read("etc/paddock/paddockd.toml")
        with open(self.path("etc/paddock/paddockd.toml"), "a", encoding="utf-8") as f:
            f.write("# mine\n")
        install(self.tree)
        self.assertEqual(self.read("etc/paddock/paddockd.toml"), shipped + "# mine\n")
        self.assertEqual(self.read("etc/paddock/paddockd.toml.dist"), shipped)

    def test_does_not_put_an_unchanged_configuration_beside_itself(self):
        install(self.tree)
        self.assertFalse(os.path.exists(self.path("etc/paddock/paddockd.toml.dist")))

    def test_rotates_the_audit_log_and_loses_no_line(self):
        daemon = self.started()
        share = [self.path("usr/sbin/keelhouse"), "request", "paddock_directory", "deleteRecord"]

        def change(name):
            subprocess.run([*share, '{"type": "none", "name": "%s"}' % name], check=True, stdin=subprocess.DEVNULL,
                           stdout=subprocess.DEVNULL)

        change("before")
        log = self.path("var/log/paddock/audit.jsonl")
        # What the service manager would do with the words that the file has.
        commands = self.path("commands")
        os.mkdir(commands)
        with open(os.path.join(commands, "systemctl"), "w", encoding="utf-8") as f:
            f.write('#!/bin/sh\n[ "$*" = "kill --kill-who=main --signal=HUP paddockd.service" ] && kill -HUP %d\n'
                    % daemon.pid)
        os.chmod(os.path.join(commands, "systemctl"), 0o755)
        with open(self.path("rotation"), "w", encoding="utf-8") as f:
            f.write(self.read("etc/logrotate.d/paddock").replace("/var/log/paddock/audit.jsonl", '"%s"' % log))
        os.chmod(self.path("rotation"), 0o644)
        rotated = subprocess.run(["logrotate", "--force", "--state", self.path("state"), self.path("rotation")],
                                 stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                 env=dict(os.environ, PATH=commands + ":/usr/sbin:/usr/bin:/sbin:/bin"))
        self.assertEqual((rotated.returncode, rotated.stdout), (0, ""))
        for _ in range(300):
            if os.path.exists(log):
                break
            time.sleep(0.1)
        change("after")
        with open(log, encoding="utf-8") as f:
            self.assertEqual([json.loads(line)["name"] for line in f], ["after"])
        folder = self.path("var/log/paddock")
        (moved,) = [name for name in os.listdir(folder) if name != "audit.jsonl"]
        with open(os.path.join(folder, moved), encoding="utf-8") as f:
            self.assertEqual([json.loads(line)["name"] for line in f], ["before"])
        self.assertEqual(os.stat(log).st_mode & 0o777, 0o640)

    def started(self):
        daemon = subprocess.Popen([self.path("usr/sbin/paddockd"), "--root", self.tree], stdin=subprocess.DEVNULL,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: daemon.poll() is None and (daemon.kill(), daemon.wait()))
        for _ in range(300):
            asked = subprocess.run([self.path("usr/sbin/keelhouse"), "status"], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            if asked.returncode != 3:
                break
            time.sleep(0.1)
        return daemon

    def test_runs_where_it_stands_and_is_found_by_its_own_keelhouse(self):
        daemon = subprocess.Popen([self.path("usr/sbin/paddockd"), "--root", self.tree], stdin=subprocess.DEVNULL,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: daemon.poll() is None and (daemon.kill(), daemon.wait()))
        for _ in range(300):
            asked = subprocess.run([self.path("usr/sbin/keelhouse"), "status"], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            if asked.returncode != 3:
                break
            time.sleep(0.1)
        self.assertEqual(asked.returncode, 0, asked.stderr)
        for bundle in BUNDLES:
            self.assertIn("plug-in " + bundle, asked.stdout)
        daemon.send_signal(signal.SIGTERM)
        self.assertEqual(daemon.wait(60), 0)


if __name__ == "__main__":
    CMAKE, BUILD = sys.argv[1:3]
    unittest.main(argv=sys.argv[:1])
