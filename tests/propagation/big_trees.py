"""Folders with many objects, or many levels, and privileges to push down them."""
import contextlib
import os
import signal
import threading
import time

import access_lists
from access_lists import ALLOW, DENY, FILES_INHERIT, FOLDERS_INHERIT, Entry, of_group, of_user
from file_tree import ATTRIBUTE
from own_copyprivs import GROUPS, USERS

PASSED_ON = FILES_INHERIT | FOLDERS_INHERIT


def give_privileges(folder, mode=0o750, read=0x1200A9):
    """Four entries to pass on, and an owner and group."""
    uid, gid = USERS["anna"], GROUPS["crew"]
    os.chown(folder, uid, gid)
    os.chmod(folder, mode)
    entries = [Entry(ALLOW, PASSED_ON, read, of_user(USERS["bert"]), b""),
               Entry(DENY, PASSED_ON, 0x2, of_user(USERS["carl"]), b""),
               Entry(ALLOW, PASSED_ON, 0x1301BF, of_group(GROUPS["night"]), b""),
               Entry(ALLOW, FILES_INHERIT, read, of_user(USERS["dora"]), b"")]
    os.setxattr(folder, ATTRIBUTE, access_lists.encode(
        access_lists.with_tail(entries, uid, gid, mode, True), uid, gid))


def fill_flat(folder, count):
    """All in the one folder."""
    at = os.open(folder, os.O_RDONLY | os.O_DIRECTORY)
    for number in range(count):
        os.mknod("%d" % number, 0o100600, dir_fd=at)
    os.close(at)


def fill_bushy(folder, count):
    """A hundred in each folder; exactly so many."""
    while count > 0:
        inside = os.path.join(folder, "folder%d" % count)
        os.mkdir(inside)
        fill_flat(inside, min(count - 1, 99))
        count -= 100


def fill_deep(folder, levels):
    """A folder in a folder, and a file in each."""
    at = os.open(folder, os.O_RDONLY | os.O_DIRECTORY)
    for _ in range(levels):
        os.mkdir("folder", dir_fd=at)
        os.mknod("file", 0o100600, dir_fd=at)
        inside = os.open("folder", os.O_RDONLY | os.O_DIRECTORY, dir_fd=at)
        os.close(at)
        at = inside
    os.close(at)


def time_on_cpus(pid):
    """In seconds, of all of its threads."""
    total = 0
    for thread in os.listdir("/proc/%d/task" % pid):
        with open("/proc/%d/task/%s/schedstat" % (pid, thread), encoding="ascii") as file:
            total += int(file.read().split()[0])
    return total / 1e9


@contextlib.contextmanager
def slowed(process, factor=15, running=0.001):
    """The process is halted `factor` times as long as it runs, again and again, so that there is something
    to watch also on a machine that is quick, or busy with something else."""
    done = threading.Event()

    def halt_again_and_again():
        used = 0
        while not done.is_set() and process.poll() is None:
            process.send_signal(signal.SIGSTOP)
            try:
                before, used = used, time_on_cpus(process.pid)
            except OSError:
                continue  # it, or one of its threads, has ended
            time.sleep(max(0, factor * (used - before)))
            process.send_signal(signal.SIGCONT)
            time.sleep(running)
        process.send_signal(signal.SIGCONT)

    thread = threading.Thread(target=halt_again_and_again)
    thread.start()
    try:
        yield
    finally:
        done.set()
        thread.join()
