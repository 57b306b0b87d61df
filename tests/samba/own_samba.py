"""A Samba of a test's own, in namespaces where nothing of this machine is asked or disturbed."""
import fcntl
import os
import shutil
import socket
import struct
import subprocess
import sys
import time

INNER = "PADDOCK_IN_NAMESPACES"
WINBIND_PIPE = "/run/samba/winbindd/pipe"
HOST = "TESTHOST"

CONFIGURATION = """[global]
workgroup = TESTGROUP
netbios name = {host}
server role = standalone
private dir = {folder}/private
lock directory = {folder}/lock
state directory = {folder}/state
cache directory = {folder}/cache
pid directory = {folder}/pid
ncalrpc dir = {folder}/ncalrpc
log file = {folder}/log/log
bind interfaces only = yes
interfaces = lo
idmap config * : backend = tdb
idmap config * : range = 3000-7999
disable netbios = yes
load printers = no
disable spoolss = yes
smb ports = 445
"""


def skip(reason):
    print("skipped: " + reason)
    sys.exit(77)


def in_namespaces(test, arguments, programs):
    """Runs a test's file in namespaces of its own, and ends with its status. Every process that it
    starts ends with it. In there it returns: /run is empty, and the only network is a loopback."""
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    if INNER in os.environ:
        subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "none", "/run"], check=True)
        os.makedirs("/run/samba")
        set_up_loopback()
        return
    for program in programs:
        if not shutil.which(program):
            skip(program + " is not installed")
    if os.geteuid() != 0:
        skip("needs root, for namespaces of its own")
    alone = ["unshare", "--mount", "--pid", "--net", "--fork", "--kill-child", "--mount-proc"]
    if subprocess.run(alone + ["true"], stderr=subprocess.DEVNULL, check=False).returncode != 0:
        skip("this system gives no namespaces")
    sys.exit(subprocess.run(alone + [sys.executable, "-B", os.path.abspath(test), *arguments],
                            env={**os.environ, INNER: "1"}, check=False).returncode)


def set_up_loopback():
    set_flags, up = 0x8914, 1  # SIOCSIFFLAGS and IFF_UP of netdevice(7)
    with socket.socket() as any_socket:
        fcntl.ioctl(any_socket, set_flags, struct.pack("16sh14x", b"lo", up))


class Samba:
    """Servers with a configuration and state in a folder."""

    def __init__(self, folder, shares=""):
        self.folder = folder
        for name in ("private", "lock", "state", "cache", "pid", "ncalrpc", "log"):
            os.mkdir(os.path.join(folder, name))
        self.configuration = os.path.join(folder, "smb.conf")
        with open(self.configuration, "w", encoding="ascii") as file:
            file.write(self.global_section() + shares)
        self.processes = []

    def global_section(self):
        return CONFIGURATION.format(folder=self.folder, host=HOST)

    def add_user(self, name, password):
        """Of an account that the system has."""
        subprocess.run(["smbpasswd", "-c", self.configuration, "-a", "-s", name], check=True,
                       input="%s\n%s\n" % (password, password), encoding="ascii",
                       stdout=subprocess.DEVNULL)

    def start_winbind(self):
        """Until it answers; the process."""
        return self._start("winbindd", lambda: os.path.exists(WINBIND_PIPE) and succeeds("wbinfo", "--ping"))

    def start_smbd(self):
        return self._start("smbd", takes_connections)

    def stop(self, process):
        self.processes.remove(process)
        process.terminate()
        try:
            process.wait(30)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()

    def stop_all(self):
        for process in list(self.processes):
            self.stop(process)

    def _start(self, program, answers):
        process = subprocess.Popen([program, "-s", self.configuration, "-F", "--no-process-group",
                                    "-l", os.path.join(self.folder, "log")],
                                   stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   start_new_session=True)  # a server's end is its group's
        self.processes.append(process)
        for _ in range(600):
            if process.poll() is not None:
                break
            if answers():
                return process
            time.sleep(0.1)
        raise RuntimeError("%s does not answer; its log: %s" % (program, self._log(program)))

    def _log(self, program):
        try:
            with open(os.path.join(self.folder, "log", "log." + program), encoding="utf-8") as log:
                return log.read()[-4000:]
        except FileNotFoundError:
            return "none"


def succeeds(*command):
    return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          check=False).returncode == 0


def takes_connections():
    try:
        socket.create_connection(("127.0.0.1", 445)).close()
        return True
    except OSError:
        return False
