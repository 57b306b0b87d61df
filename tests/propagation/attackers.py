"""An unprivileged owner who swaps and moves what is in his folders while root walks them."""
import ctypes
import mmap
import os
import random
import signal
import struct

AT_FDCWD, RENAME_EXCHANGE = -100, 2
LIBC = ctypes.CDLL(None, use_errno=True)


def exchange(one, other):
    """Swaps two names, whatever they are. Whether it could."""
    return LIBC.renameat2(AT_FDCWD, one, AT_FDCWD, other, RENAME_EXCHANGE) == 0


class Attackers:
    """Processes of the user that do each of the steps over and over, in turn, until they are stopped.
    A step returns how many swaps it has made."""

    def __init__(self, uid, *loops):
        self.loops, self.counts = len(loops), mmap.mmap(-1, 8 * len(loops))
        self.pids = [self._start(uid, number, steps) for number, steps in enumerate(loops)]

    def _start(self, uid, number, steps):
        child = os.fork()
        if child:
            return child
        try:
            os.setgroups([])
            os.setresgid(uid, uid, uid)
            os.setresuid(uid, uid, uid)
            self._attack(number, steps)
        finally:
            os._exit(1)

    def _attack(self, number, steps):
        choose = random.Random(number)
        swaps = 0
        while True:
            swaps += choose.choice(steps)()
            struct.pack_into("=Q", self.counts, 8 * number, swaps)

    def swaps(self):
        return sum(struct.unpack_from("=%dQ" % self.loops, self.counts))

    def stop(self):
        """None may have ended by itself."""
        pids, self.pids = self.pids, []
        for pid in pids:
            os.kill(pid, signal.SIGKILL)
        ended = [os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]) for pid in pids]
        assert ended == [-signal.SIGKILL] * len(pids), "attackers ended with %s" % ended
