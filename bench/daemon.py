"""paddockd in an installed tree, and requests to it."""

import json
import os
import subprocess
import time

from processes import CannotMeasure, stop

STARTING = 30  # seconds


class Requests:
    """Requests over one connection that stays open."""

    def __init__(self, program, socket):
        self.process = subprocess.Popen([program, "--bodies", socket], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE)

    def ask(self, operation, request):
        """The reply and the nanoseconds until its end. A request that is refused ends the run."""
        line = f"paddock_sharing/{operation} {json.dumps(request)}\n"
        self.process.stdin.write(line.encode())
        self.process.stdin.flush()
        answer = self.process.stdout.readline().split(b" ", 2)
        if len(answer) != 3:
            raise CannotMeasure(f"paddockd does not answer {operation}")
        if answer[0] != b"200":
            raise CannotMeasure(f"paddockd answers {operation} with {answer[0].decode()}: "
                                f"{answer[2].decode().strip()}")
        return answer[2], int(answer[1])

    def close(self):
        self.process.stdin.close()
        self.process.wait()
        self.process.stdout.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class Daemon:
    """paddockd from its start to its end."""

    def __init__(self, tree, programs, log):
        self.tree = tree
        self.programs = programs
        self.socket = os.path.join(tree, "run/paddock/paddockd.sock")
        self.log = log
        self.process = None

    def __enter__(self):
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(
                [os.path.join(self.tree, "usr/sbin/paddockd"), "--root", self.tree],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        try:
            self._wait()
        except BaseException:
            stop(self.process)
            raise
        return self

    def __exit__(self, *_):
        status = stop(self.process)
        if status != 0:
            raise CannotMeasure(f"paddockd ended with status {status}; its log: {self.last_lines()}")

    def _wait(self):
        deadline = time.monotonic() + STARTING
        health = ["curl", "-sf", "-o", os.devnull, "--unix-socket", self.socket,
                  "http://paddock/v1/health"]
        while subprocess.run(health, check=False).returncode != 0:
            if self.process.poll() is not None or time.monotonic() > deadline:
                raise CannotMeasure(f"paddockd does not start; its log: {self.last_lines()}")
            time.sleep(0.02)

    def last_lines(self):
        with open(self.log, encoding="utf-8", errors="replace") as log:
            return "".join(log.readlines()[-20:]).strip()

    def requests(self):
        return Requests(os.path.join(self.programs, "bench_requests"), self.socket)

    def memory(self, name="VmRSS"):
        """A line of the daemon's memory status, in KiB."""
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as file:
            for line in file:
                if line.startswith(name + ":"):
                    return int(line.split()[1])
        raise CannotMeasure(f"paddockd has no {name}")


def require_status(reply, key):
    """The reply as a tree; its status under `key` must be 0."""
    tree = json.loads(reply)
    if tree.get(key) != 0:
        raise CannotMeasure(f"paddockd replies {reply[:2000].decode(errors='replace')}")
    return tree


def share(requests, folder, export=None):
    """Shares a folder as `keelhouse share add` does; the nanoseconds that it took."""
    name = os.path.basename(folder)
    record = {"path": folder, "name": name, "nameOverVSP": name[:31], "isSharedOverVSP": True,
              "nameOverSMB": name, "nameOverFTP": name}
    if export:
        record["nfsExportRecord"] = export
    reply, took = requests.ask("writeSettings", {"optionalArguments": {"path": folder},
                                                 "configuration": {"sharePointRecord": record}})
    require_shared(reply, True)
    return took


def rename(requests, folder, number):
    """Gives a shared folder a name over SMB by the number; the nanoseconds that it took."""
    record = {"path": folder, "nameOverSMB": f"{os.path.basename(folder)}-{number}"}
    reply, took = requests.ask("writeSettings", {"optionalArguments": {"path": folder},
                                                 "configuration": {"sharePointRecord": record}})
    require_shared(reply, True)
    return took


def index(requests, folder):
    """Switches the search indexing of a shared folder on."""
    record = {"path": folder, "isIndexingEnabled": True}
    reply, _ = requests.ask("writeSettings", {"optionalArguments": {"path": folder},
                                              "configuration": {"sharePointRecord": record}})
    require_shared(reply, True)


def unshare(requests, folder):
    """Takes a folder out of sharing; the nanoseconds that it took."""
    settings = {"sharePointRecord": {"isShared": False}}
    reply, took = requests.ask("writeSettings", {"optionalArguments": {"path": folder},
                                                 "configuration": settings})
    require_shared(reply, False)
    return took


def require_shared(reply, expected):
    configuration = require_status(reply, "writeStatus")["configuration"]
    if configuration["sharePointRecord"].get("isShared") is not expected:
        raise CannotMeasure(f"paddockd replies {reply[:2000].decode(errors='replace')}")
