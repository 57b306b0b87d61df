#!/usr/bin/python3
"""The backup share points of a paddockd, as another host of the network sees them.

    backup_test.py CMAKE BUILD

Needs root, for a network of its own.
"""
import os
import re
import sys
import tempfile
import unittest

from own_network import PROGRAMS, Host, eventually, in_namespaces

from own_daemon import OwnDaemon  # own_network has said where it is

SYS = "sys=waMa=0,adVF=0x100"
UUID = re.compile(r"[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}")
CONFIGURATION = """
[acl]
attribute = "user.NTACL"
[nfs]
update_command = []
"""


class BackupTest(unittest.TestCase):

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="paddock-dnssd.")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.here, self.there = Host(self.folder, "here"), Host(self.folder, "there")
        for host in (self.here, self.there):
            self.addCleanup(host.end)
        self.here.connect(self.there, "192.0.2.1", "192.0.2.2")
        for host in (self.here, self.there):
            host.start_bus()
            host.start_avahi()

    def start(self, configuration=CONFIGURATION):
        tree = os.path.join(self.folder, "tree")
        os.mkdir(tree)
        daemon = OwnDaemon(CMAKE, BUILD, tree, configuration, self.here.environment)
        daemon.start()
        self.addCleanup(daemon.stop)
        return daemon

    def share(self, daemon, record, name=None, **properties):
        """A destination of this name."""
        path = os.path.join(self.folder, record)
        os.makedirs(path, exist_ok=True)
        daemon.write(path, {"sharePointRecord": {
            "path": path, "name": record, "nameOverVSP": record if name is None else name,
            "isSharedOverVSP": True, "isBackstowBackup": True, **properties}})
        return path

    @staticmethod
    def uuid(daemon, path):
        reply = daemon.request("readSettings", {"optionalArguments": {"path": path}})
        return reply["configuration"]["sharePointRecord"]["backstowBackupUUID"]

    def entry(self, daemon, number, name, path):
        """The string of a destination."""
        uuid = self.uuid(daemon, path)
        self.assertRegex(uuid, UUID)
        return "dk%d=adVN=%s,adVF=0xa1,adVU=%s" % (number, name, uuid)

    def wait_until_seen(self, *texts):
        """One service with these strings."""
        def is_seen(seen):
            return [one.txt for one in seen] == [list(texts)]
        service, = self.there.wait_for(is_seen, "one with %s" % (texts,))
        self.assertEqual((service.name, service.host, service.port), ("here", "here.local", 311))

    def wait_until_nothing_is_seen(self):
        self.there.wait_for(lambda seen: not seen, "nothing")

    def test_destinations_are_seen_changed_and_gone(self):
        daemon = self.start()
        alpha = self.share(daemon, "Alpha")
        self.wait_until_seen(SYS, self.entry(daemon, 0, "Alpha", alpha))
        beta = self.share(daemon, "Beta")
        self.wait_until_seen(SYS, self.entry(daemon, 0, "Alpha", alpha), self.entry(daemon, 1, "Beta", beta))
        self.share(daemon, "Beta", name="Gamma")
        self.wait_until_seen(SYS, self.entry(daemon, 0, "Alpha", alpha), self.entry(daemon, 1, "Gamma", beta))
        self.share(daemon, "Alpha", isBackstowBackup=False)
        self.wait_until_seen(SYS, self.entry(daemon, 0, "Gamma", beta))
        self.share(daemon, "Beta", isSharedOverVSP=False)
        self.wait_until_nothing_is_seen()

    def test_keelhouse_says_what_avahi_does(self):
        daemon = self.start()
        path = os.path.join(self.folder, "Said")
        os.mkdir(path)
        words = ("--no-smb", "--no-ftp", "--backup")
        ended = daemon.run("share", "add", path, *words)
        self.assertEqual(ended.returncode, 0, ended.stderr)
        self.assertIn("Shared over DNS-SD as Said of here", ended.stderr)
        self.wait_until_seen(SYS, self.entry(daemon, 0, "Said", path))
        self.here.stop_avahi()
        ended = daemon.run("share", "set", path, *words)
        self.assertIn("DNS-SD: not served: the Avahi daemon is stopped (systemctl start avahi-daemon)", ended.stderr)
        self.here.start_avahi()
        eventually(lambda: "Shared over DNS-SD as Said of here" in daemon.run("status", "--check").stdout,
                   "that it is advertised again")

    def test_the_end_of_the_daemon_is_the_end_of_the_service_and_its_start_publishes_again(self):
        daemon = self.start()
        alpha = self.share(daemon, "Alpha")
        entry = self.entry(daemon, 0, "Alpha", alpha)
        for end in (daemon.stop, daemon.kill):
            self.wait_until_seen(SYS, entry)
            end()
            self.wait_until_nothing_is_seen()
            daemon.start()
        self.wait_until_seen(SYS, entry)

    def test_names_arrive_as_they_are_and_one_that_is_too_long_keeps_no_other_back(self):
        daemon = self.start()
        names = ["\U0001f4be \u05d2\u05d9\u05d1\u05d5\u05d9", 'say "a", b; \\', "n" * 300, "last"]
        paths = [self.share(daemon, "record%d" % number, name=name) for number, name in enumerate(names)]
        entries = [self.entry(daemon, number, name, path)
                   for number, (name, path) in enumerate(zip(names, paths))]
        self.wait_until_seen(SYS, entries[0], entries[1], entries[3])
        self.assertIn("n" * 300, daemon.log())

    def test_a_string_of_254_and_255_bytes_is_seen_and_one_of_256_is_not(self):
        daemon = self.start()
        rest = len("dk0=adVN=,adVF=0xa1,adVU=") + 36
        names = [letter * (size - rest) for letter, size in (("a", 254), ("b", 255), ("c", 256))]
        paths = [self.share(daemon, "record%d" % number, name=name) for number, name in enumerate(names)]
        entries = [self.entry(daemon, number, name, path)
                   for number, (name, path) in enumerate(zip(names, paths))]
        self.assertEqual([len(entry) for entry in entries], [254, 255, 256])
        self.wait_until_seen(SYS, entries[0], entries[1])

    def test_avahi_and_the_bus_may_come_back_while_the_daemon_runs(self):
        daemon = self.start()
        alpha = self.share(daemon, "Alpha")
        entry = self.entry(daemon, 0, "Alpha", alpha)
        self.wait_until_seen(SYS, entry)
        self.here.stop_bus()
        self.here.stop_avahi()
        self.wait_until_nothing_is_seen()
        beta = self.share(daemon, "Beta")  # nobody is there to hear of it
        self.here.start_bus()
        self.here.start_avahi()
        self.wait_until_seen(SYS, entry, self.entry(daemon, 1, "Beta", beta))

    def test_nothing_is_advertised_when_the_configuration_says_so(self):
        daemon = self.start(CONFIGURATION + "[dnssd]\nenabled = false\n")
        self.share(daemon, "Alpha")
        daemon.stop()
        daemon.start()
        eventually(lambda: "listening" in daemon.log(), "a daemon")
        for _ in range(3):
            self.assertEqual(self.there.browse(), [])
        self.assertNotIn("_adisk", daemon.log())

    def test_while_the_vsp_service_is_stopped_nothing_is_advertised(self):
        daemon = self.start(CONFIGURATION + '[vsp]\nstate = "stopped"\n')
        self.share(daemon, "Alpha")
        for _ in range(3):
            self.assertEqual(self.there.browse(), [])


if __name__ == "__main__":
    CMAKE, BUILD = sys.argv[1:3]
    del sys.argv[1:3]
    in_namespaces(__file__, [CMAKE, BUILD, *sys.argv[1:]], PROGRAMS)
    unittest.main()
