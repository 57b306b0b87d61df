"""Hosts of a test's own, each with a network namespace, a D-Bus and an Avahi daemon."""
import os
import re
import socket
import subprocess
import sys
import time

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from own_namespaces import in_namespaces, skip

PROGRAMS = ("dbus-daemon", "avahi-daemon", "avahi-browse", "avahi-set-host-name", "ip", "nsenter")
SUPPRESSIONS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "tsan.supp")
PATIENCE = 60
LOOK = 10

BUS = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
"""

AVAHI = """[server]
host-name={name}
use-ipv4=yes
use-ipv6=no
enable-dbus=yes
allow-interfaces=cable
[wide-area]
enable-wide-area=no
[publish]
publish-hinfo=no
publish-workstation=no
{publish}
"""


def eventually(condition, what):
    """What the condition returns, once that is true."""
    deadline = time.monotonic() + PATIENCE
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise AssertionError("in %d s not: %s" % (PATIENCE, what() if callable(what) else what))
        time.sleep(0.1)


class Service:
    """A line of avahi-browse: a service that was found and resolved."""

    def __init__(self, line):
        fields = line.split(";", 9)
        self.name = unescape(fields[3])
        self.type, self.host, self.port = fields[4], fields[6], int(fields[8])
        self.txt = [unescape(text) for text in re.findall(r'"((?:[^"\\]|\\.)*)"', fields[9])]

    def __repr__(self):
        return "%s on %s:%d %s" % (self.name, self.host, self.port, self.txt)


def unescape(text):
    """Of avahi-browse --parsable: a byte as a backslash and its number, or as itself."""
    return re.sub(rb"\\(\d{3}|.)", lambda match: bytes([int(match[1])]) if len(match[1]) == 3 else match[1],
                  text.encode("utf-8", "surrogateescape")).decode("utf-8", "surrogateescape")


class Host:
    def __init__(self, folder, name):
        """Without servers."""
        self.name = name
        self.folder = os.path.join(folder, name)
        os.mkdir(self.folder)
        self.socket = os.path.join(self.folder, "bus")
        self.environment = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": "unix:path=" + self.socket, "LC_ALL": "C.UTF-8",
                            "TSAN_OPTIONS": "%s suppressions=%s" % (os.environ.get("TSAN_OPTIONS", ""), SUPPRESSIONS)}
        self._write("bus.conf", BUS.format(socket=self.socket))
        self.configure()
        self.bus = self.avahi = None
        self._holder = subprocess.Popen(
            ["unshare", "--net", "--mount", "sh", "-c",
             "mount -t tmpfs -o mode=755 none /run && ip link set lo up && echo && exec sleep infinity"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        with self._holder.stdout as output:
            assert output.readline(), "this system gives no namespaces"
        self.namespace = str(self._holder.pid)

    def configure(self, publish=""):
        """The Avahi that is started next; `publish` is one more line of that section."""
        self._write("avahi.conf", AVAHI.format(name=self.name, publish=publish))

    def connect(self, other, address, other_address):
        """By a cable; the addresses are of one network."""
        subprocess.run(["ip", "link", "add", "cable", "netns", self.namespace, "type", "veth",
                        "peer", "name", "cable", "netns", other.namespace], check=True)
        for host, its_address in ((self, address), (other, other_address)):
            host.run("ip", "address", "add", its_address + "/24", "dev", "cable")
            host.run("ip", "link", "set", "cable", "up")

    def run(self, *command, patience=PATIENCE):
        """Its output."""
        return subprocess.run(self._inside(command), check=True, stdout=subprocess.PIPE,
                              stdin=subprocess.DEVNULL, encoding="utf-8", errors="surrogateescape",
                              env=self.environment, timeout=patience).stdout

    def start(self, *command, **options):
        return subprocess.Popen(self._inside(command), env=self.environment, **options)

    def start_bus(self):
        self.bus = self._start_server("bus", "dbus-daemon", "--nofork", "--nopidfile", "--config-file",
                                      os.path.join(self.folder, "bus.conf"))
        eventually(self._bus_accepts, "a bus")

    def stop_bus(self):
        self.bus = self._stop(self.bus)
        if os.path.exists(self.socket):
            os.unlink(self.socket)

    def start_avahi(self):
        self.avahi = self._start_server("avahi", "avahi-daemon", "--file", os.path.join(self.folder, "avahi.conf"),
                                        "--no-drop-root", "--no-chroot", "--no-rlimits", "--no-proc-title")
        eventually(self._avahi_answers, lambda: "an Avahi; its log: " + self.log("avahi"))

    def stop_avahi(self, kill=False):
        self.avahi = self._stop(self.avahi, kill)

    def end(self):
        for process in (self.avahi, self.bus, self._holder):
            self._stop(process, kill=True)

    def log(self, server):
        with open(os.path.join(self.folder, server + ".log"), encoding="utf-8", errors="replace") as log:
            return log.read()[-4000:]

    def browse(self, service_type="_adisk._tcp"):
        """The services that it sees now; None when that cannot be said."""
        command = ["avahi-browse", "--resolve", "--parsable", "--no-db-lookup", "--terminate", service_type]
        try:
            lines = self.run(*command, patience=LOOK).splitlines()
        except subprocess.TimeoutExpired:  # it waits for ever for a service that went while it looked
            return None
        return [Service(line) for line in lines if line.startswith("=")]

    def wait_for(self, condition, what):
        """Until the condition holds of the list of services that it sees; the list."""
        seen = None

        def look():
            nonlocal seen
            seen = self.browse()
            return seen is not None and condition(seen)
        eventually(look, lambda: "%s; it sees %s" % (what, seen))
        return seen

    def _bus_accepts(self):
        with socket.socket(socket.AF_UNIX) as client:
            return client.connect_ex(self.socket) == 0

    def _avahi_answers(self):
        assert self.avahi.poll() is None, "avahi-daemon ended; its log: " + self.log("avahi")
        call = ["dbus-send", "--system", "--print-reply", "--dest=org.freedesktop.Avahi", "/",
                "org.freedesktop.Avahi.Server.GetState"]
        reply = subprocess.run(call, env=self.environment, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL, encoding="ascii", check=False)
        return "int32 2" in reply.stdout  # running

    def _inside(self, command):
        return ["nsenter", "--target", self.namespace, "--net", "--mount", "--root", "--wd", "--", *command]

    def _start_server(self, log, *command):
        with open(os.path.join(self.folder, log + ".log"), "ab") as file:
            return self.start(*command, stdin=subprocess.DEVNULL, stdout=file, stderr=file)

    @staticmethod
    def _stop(process, kill=False):
        if process is not None:
            process.kill() if kill else process.terminate()
            process.wait(PATIENCE)

    def _write(self, name, text):
        with open(os.path.join(self.folder, name), "w", encoding="utf-8") as file:
            file.write(text)
