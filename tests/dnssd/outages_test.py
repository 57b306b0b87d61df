#!/usr/bin/python3
"""What becomes of services while the bus or the Avahi daemon is away, ends, comes back, or hangs.

    outages_test.py PUBLISH_SERVICE

Needs root, for a network of its own.
"""
import os
import signal
import socket
import sys
import tempfile
import time
import unittest

from own_network import PROGRAMS, Host, eventually, in_namespaces
from publishing import AT_ONCE, Publisher


class OutagesTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="paddock-dnssd.")
        cls.addClassCleanup(folder.cleanup)
        cls.here, cls.there = Host(folder.name, "here"), Host(folder.name, "there")
        for host in (cls.here, cls.there):
            cls.addClassCleanup(host.end)
        cls.here.connect(cls.there, "192.0.2.1", "192.0.2.2")
        cls.there.start_bus()
        cls.there.start_avahi()

    def setUp(self):
        self.addCleanup(self.stop_servers)

    def stop_servers(self):
        self.here.stop_avahi()  # which says good-bye
        self.here.stop_bus()
        self.there.wait_for(lambda seen: not seen, "nothing")

    def start_servers(self):
        self.here.start_bus()
        self.here.start_avahi()

    def start(self, **pauses):
        publisher = Publisher(PROGRAM, self.here, **pauses)
        self.addCleanup(self.end, publisher)
        return publisher

    def end(self, publisher):
        self.assertEqual(publisher.finish(), 0)
        self.assertLess(publisher.slowest, AT_ONCE)

    def wait_until_seen(self, *texts):
        """One service with these strings."""
        self.there.wait_for(lambda seen: [one.txt for one in seen] == [list(texts)], "one with %s" % (texts,))

    def wait_until_nothing_is_seen(self):
        self.there.wait_for(lambda seen: not seen, "nothing")

    def assert_warned_once(self, publisher, part):
        self.assertEqual(len([line for line in publisher.log() if part in line]), 1, publisher.log())

    def test_nothing_is_published_before_bus_and_daemon_are_there(self):
        publisher = self.start()
        publisher.publish("a", "one=1")
        publisher.wait_for_line("log 4 paddock_sharing: The Avahi daemon cannot be reached, and is tried again: ")
        time.sleep(2)  # many tries
        self.here.start_bus()
        publisher.wait_for_line("Nothing can be advertised on the network before the Avahi daemon runs")
        publisher.set_txt("a", "one=2")
        self.here.start_avahi()
        self.wait_until_seen("one=2")
        self.assert_warned_once(publisher, "cannot be reached")
        self.assert_warned_once(publisher, "before the Avahi daemon runs")
        self.assert_warned_once(publisher, "log 6 paddock_sharing: The Avahi daemon is there"[len("log "):])
        self.assertEqual(publisher.told("a"), ["willPublish a"])

    def test_a_service_that_is_stopped_while_nobody_is_there_is_not_published_later(self):
        publisher = self.start()
        publisher.publish("a", "one=1")
        publisher.publish("b", "of=b")
        publisher.wait_for_line("cannot be reached")
        publisher.do("stop", "a")
        publisher.wait_for_line("didStop a")
        self.start_servers()
        self.wait_until_seen("of=b")

    def test_a_daemon_that_ends_or_is_killed_and_starts_again_publishes_again(self):
        self.start_servers()
        publisher = self.start()
        publisher.publish("a", "one=1")
        self.wait_until_seen("one=1")
        for kill in (False, True):
            self.here.stop_avahi(kill)
            publisher.set_txt("a", "killed=%d" % kill)
            self.here.start_avahi()
            self.wait_until_seen("killed=%d" % kill)
        self.assertEqual(publisher.told("a"), ["willPublish a"])

    def test_a_bus_that_ends_and_starts_again_publishes_again(self):
        self.start_servers()
        publisher = self.start()
        publisher.publish("a", "one=1")
        self.wait_until_seen("one=1")
        self.here.stop_bus()
        publisher.wait_for_line("cannot be reached")
        self.here.stop_avahi()
        self.wait_until_nothing_is_seen()
        self.start_servers()
        self.wait_until_seen("one=1")
        publisher.set_txt("a", "one=2")
        self.wait_until_seen("one=2")

    def test_an_outage_of_a_daemon_that_comes_back_at_once_is_survived_many_times(self):
        self.start_servers()
        publisher = self.start()
        publisher.publish("a", "one=1")
        for _ in range(5):
            self.here.stop_avahi(kill=True)
            self.here.start_avahi()
        self.wait_until_seen("one=1")

    def test_services_that_may_not_be_published_are_told_so(self):
        self.addCleanup(self.here.configure)
        self.here.configure(publish="disable-user-service-publishing=yes")
        self.start_servers()
        publisher = self.start()
        publisher.publish("a", "one=1")
        publisher.wait_for_line("didNotPublish a ")
        self.assert_warned_once(publisher, "cannot be advertised")
        self.here.stop_avahi()
        self.here.configure()
        self.here.start_avahi()
        self.wait_until_seen("one=1")

    def test_a_daemon_that_hangs_keeps_no_caller_waiting(self):
        self.start_servers()
        publisher = self.start()
        publisher.publish("a", "one=1")
        self.wait_until_seen("one=1")
        self.here.avahi.send_signal(signal.SIGSTOP)
        self.addCleanup(self.resume, self.here.avahi)
        publisher.publish("b", "one=2", name="Another")
        publisher.set_txt("a", "one=3")
        time.sleep(1)  # the thread waits for the daemon
        for command in ("stop", "publish"):
            publisher.do(command, "a")
        publisher.set_txt("a", "one=4")
        publisher.do("destroy", "b")
        self.resume(self.here.avahi)
        self.wait_until_seen("one=4")

    def test_a_bus_that_accepts_and_never_answers_keeps_no_caller_waiting(self):
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(self.here.socket)
            self.addCleanup(os.unlink, self.here.socket)
            listener.listen()
            publisher = Publisher(PROGRAM, self.here)
            self.addCleanup(publisher.kill)
            publisher.publish("a", "one=1")
            connection, _ = listener.accept()  # the thread waits for an answer
            with connection:
                publisher.set_txt("a", "one=2")
                for command in ("stop", "publish", "destroy"):
                    publisher.do(command, "a")
                publisher.publish("b", "one=3")
                publisher.end_services()
                publisher.do("destroy", "b")
                self.assertLess(publisher.slowest, AT_ONCE)
                start = time.monotonic()
                self.assertEqual(publisher.finish(), 0)
                self.assertLess(time.monotonic() - start, AT_ONCE)

    def test_a_bus_that_never_answered_and_is_replaced_by_one_that_does_is_used(self):
        publisher = self.start()
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(self.here.socket)
            listener.listen()
            publisher.publish("a", "one=1")
            listener.accept()[0].close()
        os.unlink(self.here.socket)
        self.start_servers()
        self.wait_until_seen("one=1")

    def test_without_a_service_nothing_is_asked_of_the_bus(self):
        publisher = self.start()
        publisher.create("a")
        publisher.set_txt("a", "one=1")
        publisher.do("stop", "a")
        eventually(lambda: len(os.listdir("/proc/%d/task" % publisher.process.pid)) == 1, "one thread only")
        self.assertEqual(publisher.lines, [])

    @staticmethod
    def resume(process):
        if process.poll() is None:
            process.send_signal(signal.SIGCONT)


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    in_namespaces(__file__, [PROGRAM, *sys.argv[1:]], PROGRAMS)
    unittest.main()
