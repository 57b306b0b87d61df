"""The NFS server's exportfs, on files of the run.

The run has a mount namespace of its own, so that what is mounted here is seen by nobody else.
"""

import os

from processes import CannotMeasure, run, time_of


class NfsServer:
    def __init__(self, exports, state):
        os.makedirs(state)
        run(["mount", "--bind", state, "/var/lib/nfs"])
        self.exports = exports

    def time_of_export_all(self, expected):
        # Mounted each time: a file that was replaced is another one.
        if not os.path.exists("/etc/exports"):
            raise CannotMeasure("nfs-kernel-server left no /etc/exports to mount ours on")
        run(["mount", "--bind", self.exports, "/etc/exports"])
        try:
            took = time_of(["exportfs", "-ra"])
        finally:
            run(["umount", "/etc/exports"])
        with open("/var/lib/nfs/etab", encoding="utf-8") as file:
            found = sum(1 for _ in file)
        if found != expected:
            raise CannotMeasure(f"exportfs -ra exports {found} folders, not {expected}")
        return took
