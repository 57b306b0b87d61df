"""Runs the measures and prints them. Started by ./paddock bench, which makes what is named here."""

import argparse
import os
import platform
import signal
import sys
import time

import measures
import report
from nfs_server import NfsServer
from processes import CannotMeasure, time_of
from samba import Samba
from server import Server


class Bench:
    """What the measures share, each part made when it is first used."""

    def __init__(self, work, tree, programs):
        self.work = work
        self.programs = programs
        self.tree = tree
        self.server = Server(work, tree, programs)
        self._samba = None
        self._empty_samba = None
        self._nfs_server = None
        self._samba_count = 0

    @property
    def samba(self):
        if self._samba is None:
            self._samba = Samba(self._folder("samba"))
        return self._samba

    def fill_samba(self, folders):
        """Registry shares of the folders, once."""
        if self._samba is None:
            say("filling Samba's registry")
            self.samba.fill(folders)

    @property
    def empty_samba(self):
        if self._empty_samba is None:
            self._empty_samba = Samba(self._folder("empty_samba"))
        return self._empty_samba

    def new_samba(self):
        """One that nobody has used."""
        self._samba_count += 1
        return Samba(self._folder(f"samba{self._samba_count}"))

    def nfs_server(self, exports):
        if self._nfs_server is None:
            self._nfs_server = NfsServer(exports, os.path.join(self.work, "nfs"))
        return self._nfs_server

    def time_of_keelhouse(self, *arguments):
        return time_of([os.path.join(self.tree, "usr/sbin/keelhouse"), *arguments])

    def _folder(self, name):
        folder = os.path.join(self.work, name)
        os.makedirs(folder)
        return folder


def say(text):
    print(f"== {text}", flush=True)


def facts():
    return {"processors": os.cpu_count(), "kernel": platform.release(),
            "load": os.getloadavg()[0], "time": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())}


def parse():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--programs", required=True, help="folder of the measuring programs")
    parser.add_argument("--tree", required=True, help="folder that paddockd is installed below")
    parser.add_argument("--work", required=True, help="folder for everything that is made")
    parser.add_argument("--json", help="file to keep the figures in")
    parser.add_argument("--only", action="append", choices=measures.ALL, help="leave the rest out")
    return parser.parse_args()


def measure(arguments):
    bench = Bench(arguments.work, arguments.tree, arguments.programs)
    wanted = [name for name in measures.ALL if name in (arguments.only or measures.ALL)]
    if set(wanted) - {"exports", "names", "quotas", "counting", "privileges", "ldap", "propagation",
                      "shapes", "permissions"}:
        say("filling paddockd's directory")
        bench.server.fill(measures.sizes_for(wanted))
    rows = []
    for name in wanted:
        say(f"measuring: {name}")
        rows += measures.ALL[name](bench)
    return rows


def main():
    arguments = parse()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    began = time.monotonic()
    machine = facts()
    try:
        rows = measure(arguments)
    except (CannotMeasure, OSError) as error:
        print(f"paddock bench: cannot measure: {error}", file=sys.stderr)
        return 1
    print(report.table(rows))
    say(f"measured in {time.monotonic() - began:.0f} s on {machine['processors']} processors, "
        f"load {machine['load']:.1f} at the start")
    if arguments.json:
        with open(arguments.json, "w", encoding="utf-8") as file:
            file.write(report.as_json(rows, machine))
    return 0


if __name__ == "__main__":
    sys.exit(main())
