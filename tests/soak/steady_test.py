#!/usr/bin/python3
"""The daemon under many requests of many clients: what each one read is explained by what was written, and its
descriptors, threads and memory stay what they were.

    steady_test.py CMAKE BUILD_FOLDER

PADDOCK_CLIENTS (8) and PADDOCK_REQUESTS (100, for each of them) say how many; PADDOCK_READS (8,000) how many
requests the second test makes. Needs root, for namespaces of its own.
"""
import os
import random
import sys
import threading
import time
import unittest

from soak_world import SEED, SHARING, SoakTest, count_of, in_namespaces, share_point

CLIENTS = count_of("PADDOCK_CLIENTS", 8)
REQUESTS = count_of("PADDOCK_REQUESTS", 100)
READS = count_of("PADDOCK_READS", 8000)
FOLDERS = 4
READ, WRITE = "read", "write"
# Between the halves of a run: what grows with each request grows by more than this.
MEMORY_SLOPE = 2048  # KiB


class Event:
    """A request of one client: when it began and ended, and the value that it wrote or read."""

    def __init__(self, kind, folder, value, began, ended):
        self.kind, self.folder, self.value, self.began, self.ended = kind, folder, value, began, ended


def unexplained(events, first):
    """What no order of the requests explains, in which each takes effect at one moment between its beginning and
    its end. All written values differ; `first` is the value before."""
    writes = {event.value: event for event in events if event.kind == WRITE}
    for read in (event for event in events if event.kind == READ):
        source = writes.get(read.value)
        if source is None and read.value != first:
            yield "%r was read, which nobody wrote" % read.value
            continue
        if source is not None and source.began > read.ended:
            yield "%r was read before it was written" % read.value
        since = source.ended if source is not None else float("-inf")
        for other in writes.values():
            if other is not source and since < other.began and other.ended < read.began:
                yield "%r was read after %r had been written over it" % (read.value, other.value)
                break


class Client(threading.Thread):
    """Reads and writes of settings, one after the other."""

    def __init__(self, world, number, folders):
        super().__init__()
        self.socket = world.socket()
        self.number = number
        self.folders = folders
        self.choose = random.Random("%d/%d" % (SEED, number))
        self.events = []
        self.failure = None

    def run(self):
        try:
            for at in range(REQUESTS):
                self.request(at)
        except Exception as failure:  # pylint: disable=broad-except
            self.failure = failure
        finally:
            self.socket.close()

    def ask(self, operation, body, key):
        status, reply = self.socket.post(SHARING, operation, body)
        if status != 200 or reply.get(key) != 0:
            raise AssertionError("%s: %d %r" % (operation, status, reply))
        return reply["configuration"]

    def request(self, at):
        folder = self.choose.choice(self.folders)
        began = time.monotonic()
        if self.choose.random() < 0.4:
            value = "c%d-%d" % (self.number, at)
            self.ask("writeSettings", share_point(folder, nameOverSMB=value), "writeStatus")
            self.events.append(Event(WRITE, folder, value, began, time.monotonic()))
        else:
            read = self.ask("readSettings", {"optionalArguments": {"path": folder}}, "readStatus")
            self.events.append(Event(READ, folder, read["sharePointRecord"]["nameOverSMB"], began,
                                     time.monotonic()))


class SteadyTest(SoakTest):

    def setUp(self):
        self.daemon.start()
        self.addCleanup(self.daemon.stop)

    def share(self, folder, name):
        socket = self.socket()
        status, reply = socket.post(SHARING, "writeSettings", share_point(folder, name=name, nameOverSMB=name))
        socket.close()
        self.assertEqual((status, reply["writeStatus"]), (200, 0), reply)

    def test_every_reply_is_explained_by_the_writes(self):
        folders = [self.shared_folder("f%d" % at) for at in range(FOLDERS)]
        for at, folder in enumerate(folders):
            self.share(folder, "first%d" % at)
        clients = [Client(self, number, folders) for number in range(CLIENTS)]
        for client in clients:
            client.start()
        for client in clients:
            client.join()
            self.assertIsNone(client.failure)
        events = [event for client in clients for event in client.events]
        for at, folder in enumerate(folders):
            of_folder = [event for event in events if event.folder == folder]
            self.assertEqual(list(unexplained(of_folder, "first%d" % at)), [])
        print("%d requests of %d clients, %d of them writes" %
              (len(events), CLIENTS, sum(event.kind == WRITE for event in events)), flush=True)

    def test_descriptors_threads_and_memory_stay(self):
        folder = self.shared_folder("steady")
        self.share(folder, "steady")
        socket = self.socket()
        self.addCleanup(socket.close)
        self.read(socket, folder, READS // 4)  # what is made once is made
        before = self.usage()
        self.read(socket, folder, READS // 2)
        middle = self.usage()
        self.read(socket, folder, READS // 2)
        after = self.usage()
        print("%d requests: descriptors %d %d %d, threads %d %d %d, memory %d %d %d KiB" %
              (READS * 5 // 4, *(usage[at] for at in range(3) for usage in (before, middle, after))), flush=True)
        self.assertEqual(after[:2], middle[:2])
        self.assertLess(after[2] - middle[2], MEMORY_SLOPE)

    def read(self, socket, folder, number):
        """And every hundredth time a change, which has a line in the audit log and runs programs."""
        for at in range(number):
            if at % 100 == 99:
                body = share_point(folder, nameOverSMB="name%d" % (at % 7))
                status, reply = socket.post(SHARING, "writeSettings", body)
                self.assertEqual((status, reply["writeStatus"]), (200, 0), reply)
                continue
            status, reply = socket.post(SHARING, "readSettings", {"optionalArguments": {"path": folder}})
            self.assertEqual((status, reply["readStatus"]), (200, 0), reply)

    def usage(self):
        """Descriptors, threads and resident KiB of the daemon, after its last programs have ended."""
        time.sleep(0.3)
        process = "/proc/%d/" % self.daemon.process.pid
        with open(process + "status", encoding="ascii") as status:
            lines = dict(line.split(":", 1) for line in status)
        return len(os.listdir(process + "fd")), int(lines["Threads"]), int(lines["VmRSS"].split()[0])


class ModelTest(unittest.TestCase):
    """That the judge of the first test sees what it is for."""

    @staticmethod
    def event(kind, value, began, ended):
        return Event(kind, "folder", value, began, ended)

    def test_a_lost_update_is_seen(self):
        events = [self.event(WRITE, "a", 0, 1), self.event(WRITE, "b", 2, 3), self.event(READ, "a", 4, 5)]
        self.assertEqual(len(list(unexplained(events, "first"))), 1)
        self.assertEqual(len(list(unexplained([events[0], self.event(READ, "first", 4, 5)], "first"))), 1)

    def test_what_nobody_wrote_yet_is_seen(self):
        events = [self.event(WRITE, "a", 2, 3), self.event(READ, "a", 0, 1), self.event(READ, "c", 4, 5)]
        self.assertEqual(len(list(unexplained(events, "first"))), 2)

    def test_requests_at_the_same_time_have_either_order(self):
        events = [self.event(WRITE, "a", 0, 5), self.event(WRITE, "b", 1, 4), self.event(READ, "a", 6, 7),
                  self.event(READ, "first", 2, 3)]
        self.assertEqual(list(unexplained(events, "first")), [])


if __name__ == "__main__":
    in_namespaces(__file__, sys.argv[1:], ())
    unittest.main(argv=sys.argv[:1])
