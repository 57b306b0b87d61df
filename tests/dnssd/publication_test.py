#!/usr/bin/python3
"""What another host sees of services that are published, changed and withdrawn.

    publication_test.py PUBLISH_SERVICE

Needs root, for a network of its own.
"""
import sys
import tempfile
import time
import unittest

from own_network import PROGRAMS, Host, in_namespaces
from publishing import AT_ONCE, PORT, Publisher


class PublicationTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="paddock-dnssd.")
        cls.addClassCleanup(folder.cleanup)
        cls.here, cls.there = Host(folder.name, "here"), Host(folder.name, "there")
        for host in (cls.here, cls.there):
            cls.addClassCleanup(host.end)
        cls.here.connect(cls.there, "192.0.2.1", "192.0.2.2")
        for host in (cls.here, cls.there):
            host.start_bus()
            host.start_avahi()

    def setUp(self):
        self.wait_until_nothing_is_seen()

    def start(self, host=None):
        publisher = Publisher(PROGRAM, host or self.here)
        self.addCleanup(self.end, publisher)
        return publisher

    def end(self, publisher):
        self.assertEqual(publisher.finish(), 0)
        self.assertLess(publisher.slowest, AT_ONCE)

    def wait_until_seen(self, *expected):
        """Services of these names."""
        return self.there.wait_for(lambda seen: sorted(one.name for one in seen) == sorted(expected),
                                   "exactly " + ", ".join(expected))

    def wait_until_txt(self, *texts):
        return self.there.wait_for(lambda seen: [one.txt for one in seen] == [list(texts)],
                                   "one with the TXT strings %s" % (texts,))

    def wait_until_nothing_is_seen(self):
        self.there.wait_for(lambda seen: not seen, "nothing")

    def test_another_host_sees_port_and_strings_under_the_hosts_name(self):
        publisher = self.start()
        publisher.publish("a", "sys=waMa=0,adVF=0x100", "dk0=adVN=Alpha,adVF=0xa1,adVU=1")
        service, = self.wait_until_seen("here")
        self.assertEqual((service.port, service.host), (PORT, "here.local"))
        self.assertEqual(service.txt, ["sys=waMa=0,adVF=0x100", "dk0=adVN=Alpha,adVF=0xa1,adVU=1"])
        self.assertEqual(publisher.told("a"), ["willPublish a"])
        publisher.wait_for_line('log 6 paddock_sharing: "_adisk._tcp" is advertised on the network as "here", '
                                'port 311')

    def test_a_changed_record_is_seen(self):
        publisher = self.start()
        publisher.publish("a", "sys=1", "dk0=old")
        self.wait_until_txt("sys=1", "dk0=old")
        publisher.set_txt("a", "sys=1", "dk0=new", "dk1=more")
        self.wait_until_txt("sys=1", "dk0=new", "dk1=more")
        publisher.set_txt("a", "sys=1")
        self.wait_until_txt("sys=1")

    def test_a_service_without_strings_is_published(self):
        publisher = self.start()
        publisher.publish("a")
        self.wait_until_txt()

    def test_a_stopped_service_is_not_seen_and_can_be_published_again(self):
        publisher = self.start()
        publisher.publish("a", "one=1")
        self.wait_until_seen("here")
        publisher.do("stop", "a")
        self.wait_until_nothing_is_seen()
        publisher.wait_for_line("didStop a")
        publisher.do("publish", "a")
        self.wait_until_txt("one=1")
        self.assertEqual(publisher.told("a"), ["willPublish a", "didStop a", "willPublish a"])

    def test_a_destroyed_service_is_not_seen_and_its_delegate_not_called(self):
        publisher = self.start()
        publisher.publish("a", "one=1")
        self.wait_until_seen("here")
        publisher.do("destroy", "a")
        self.wait_until_nothing_is_seen()
        self.assertEqual(publisher.told("a"), ["willPublish a"])

    def test_a_service_that_takes_the_place_of_a_stopped_one_has_its_name(self):
        publisher = self.start()
        publisher.publish("a", "one=1")
        self.wait_until_seen("here")
        publisher.do("stop", "a")
        publisher.do("destroy", "a")
        publisher.publish("b", "one=2")
        self.wait_until_txt("one=2")
        self.wait_until_seen("here")

    def test_the_end_of_the_services_withdraws_all(self):
        publisher = self.start()
        publisher.publish("a", "one=1")
        publisher.publish("b", "one=1", name="Another")
        self.wait_until_seen("here", "Another")
        publisher.end_services()
        self.wait_until_nothing_is_seen()
        publisher.do("publish", "a")  # of no effect any more
        self.assertEqual(publisher.told("b"), ["willPublish b"])

    def test_the_end_of_the_process_withdraws_all_however_it_ends(self):
        publisher = Publisher(PROGRAM, self.here)
        self.addCleanup(publisher.kill)
        publisher.publish("a", "one=1")
        self.wait_until_seen("here")
        publisher.kill()
        self.wait_until_nothing_is_seen()

    def test_a_name_that_this_host_has_is_replaced(self):
        first, second = self.start(), self.start()
        first.publish("a", "of=first", name="Backups")
        self.wait_until_seen("Backups")
        second.publish("a", "of=second", name="Backups")
        self.wait_until_seen("Backups", "Backups #2")
        second.publish("b", "of=third", name="Backups")
        seen = self.wait_until_seen("Backups", "Backups #2", "Backups #3")
        self.assertEqual({one.name: one.txt for one in seen},
                         {"Backups": ["of=first"], "Backups #2": ["of=second"], "Backups #3": ["of=third"]})
        second.wait_for_line('is advertised on the network as "Backups #3", port 311')

    def test_a_name_that_another_host_has_is_replaced(self):
        other, publisher = self.start(self.there), self.start()
        other.publish("a", "of=there", name="Backups")
        self.wait_until_seen("Backups")
        publisher.publish("a", "of=here", name="Backups")
        seen = self.there.wait_for(lambda all_seen: {"Backups", "Backups #2"} <= {one.name for one in all_seen},
                                   "both")
        self.assertEqual({(one.name, one.host) for one in seen},
                         {("Backups", "there.local"), ("Backups #2", "here.local")})
        self.assertEqual(publisher.told("a"), ["willPublish a"])

    def test_a_host_that_gets_another_name_is_followed(self):
        publisher = self.start()
        publisher.publish("a", "one=1")
        publisher.publish("b", "one=1", name="Fixed")
        self.wait_until_seen("here", "Fixed")
        self.addCleanup(self.rename_host, "here")
        self.rename_host("elsewhere")
        seen = self.wait_until_seen("elsewhere", "Fixed")
        self.assertEqual({one.host for one in seen}, {"elsewhere.local"})

    def rename_host(self, name):
        self.here.run("avahi-set-host-name", name)

    def test_strings_of_up_to_255_bytes_arrive_as_they_are(self):
        publisher = self.start()
        texts = ["dk0=" + "a" * 250, "dk1=" + "b" * 251, 'dk2=adVN="quoted; \\ and, comma"',
                 "dk3=\U0001f4be \u05e9\u05dc\u05d5\u05dd", "dk4=\x01\x7f\udcff"]
        publisher.publish("a", *texts)
        self.wait_until_txt(*texts)

    def test_of_a_record_that_no_packet_carries_the_first_strings_are_seen(self):
        publisher = self.start()
        texts = ["dk%d=%s" % (number, "x" * 90) for number in range(10, 40)]
        publisher.publish("a", *texts)
        self.wait_until_txt(*texts[:13])
        publisher.wait_for_line('log 4 paddock_sharing: "_adisk._tcp" has a TXT record of 2880 bytes, and 1300 fit '
                                'into a packet of the network: the last 17 of its 30 strings are left out: ' +
                                ", ".join(texts[13:]))
        publisher.set_txt("a", *texts[:13])
        publisher.set_txt("a", *texts[5:15])
        self.wait_until_txt(*texts[5:15])
        self.assertEqual(len([line for line in publisher.log() if "left out" in line]), 1)

    def test_where_packets_are_large_a_record_of_8800_bytes_is_seen(self):
        self.addCleanup(self.set_packets, 1500)
        self.set_packets(9000)
        publisher = self.start()
        texts = ["dk%d=%s" % (number, "x" * 194) for number in range(10, 54)]  # each of 200 bytes with its length
        publisher.publish("a", *texts, "dk54=over", name="n" * 63)
        self.wait_until_txt(*texts)
        publisher.wait_for_line("has a TXT record of 8810 bytes, and 8800 fit into a packet of the network: the last 1 "
                                "of its 45 strings are left out: dk54=over")

    def set_packets(self, size):
        for host in (self.here, self.there):
            host.run("ip", "link", "set", "cable", "mtu", str(size))

    def test_a_name_of_63_bytes_is_published_and_one_of_64_refused(self):
        publisher = self.start()
        publisher.publish("a", "one=1", name="\U0001f4be" * 15 + "abc")
        self.wait_until_seen("\U0001f4be" * 15 + "abc")
        publisher.publish("b", "one=1", name="\U0001f4be" * 16)
        publisher.wait_for_line("didNotPublish b Invalid service name")
        self.wait_until_seen("\U0001f4be" * 15 + "abc")

    def test_what_is_wrong_with_a_service_is_told_and_keeps_no_other_from_being_published(self):
        publisher = self.start()
        wrong = {"type": ({"service_type": "nonsense"}, "Invalid service type"),
                 "typebytes": ({"service_type": "_\udcff._tcp"}, "Invalid service type"),
                 "long": ({"name": "n" * 300}, "Invalid service name"),
                 "bytes": ({"name": "\udcff"}, "Invalid service name"),
                 "port": ({"port": 0}, "Invalid port number"),
                 "domain": ({"domain": "." * 300}, "Invalid domain name"),
                 "domainbytes": ({"domain": "\udcff"}, "Invalid domain name")}
        for service, (arguments, _) in wrong.items():
            publisher.publish(service, "one=1", **arguments)
        publisher.publish("right", "one=1")
        self.wait_until_seen("here")
        for service, (_, text) in wrong.items():
            self.assertEqual(publisher.told(service), ["didNotPublish %s %s" % (service, text)])
        self.assertEqual(len([line for line in publisher.log() if "cannot be advertised" in line]), len(wrong))

    def test_many_services_come_and_go(self):
        publisher = self.start()
        names = ["Service %d" % number for number in range(20)]
        for name in names:
            publisher.publish(name, "of=" + name, name=name)
        self.wait_until_seen(*names)
        for name in names[1:]:
            publisher.do("destroy", name)
        self.wait_until_seen(names[0])

    def test_services_that_are_destroyed_while_they_are_being_published_leave_nothing(self):
        publisher = self.start()
        for number in range(100):
            publisher.publish("a", "number=%d" % number, name="Short %d" % (number % 3))
            publisher.do("destroy", "a")
        publisher.publish("b", "one=1", name="Last")
        self.wait_until_seen("Last")

    def test_services_that_change_all_the_time_end_in_what_was_wanted_last(self):
        publisher = self.start()
        publisher.create("a")
        for number in range(300):
            publisher.set_txt("a", "number=%d" % number)
            publisher.do("publish" if number % 3 else "stop", "a")
        publisher.do("publish", "a")
        self.wait_until_txt("number=299")

    def test_a_record_that_changes_while_its_name_is_probed_for_keeps_the_name(self):
        publisher = self.start()
        publisher.create("a")
        for number in range(9, 0, -1):  # of two records that collide, the lesser one loses its name
            publisher.set_txt("a", "number=%d" % number)
            publisher.do("publish", "a")
            time.sleep(0.15)
        self.wait_until_txt("number=1")
        self.wait_until_seen("here")


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    in_namespaces(__file__, [PROGRAM, *sys.argv[1:]], PROGRAMS)
    unittest.main()
