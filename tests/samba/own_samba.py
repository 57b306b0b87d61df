"""A Samba of a test's own, in namespaces where nothing of this machine is asked or disturbed."""
import os
import socket
import subprocess
import sys
import time

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from own_namespaces import in_namespaces, skip

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


class Samba:
    """Servers with a configuration and state in a folder. `root`: that of another system, whose servers
    they are; it sees what is below `visible`, a folder around this one, and the accounts of this namespace."""

    def __init__(self, folder, shares="", root="", visible=None):
        self.folder = folder
        self.command = ["chroot", root] if root else []
        if root:
            show_to_root(root, visible or folder)
        os.makedirs("/run/samba", exist_ok=True)
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
        subprocess.run([*self.command, "smbpasswd", "-c", self.configuration, "-a", "-s", name], check=True,
                       input="%s\n%s\n" % (password, password), encoding="ascii",
                       stdout=subprocess.DEVNULL)

    def version(self):
        return subprocess.run([*self.command, "smbd", "--version"], check=True, stdout=subprocess.PIPE,
                              encoding="utf-8").stdout.strip()

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
        process = subprocess.Popen([*self.command, program, "-s", self.configuration, "-F", "--no-process-group",
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


def show_to_root(root, folder):
    os.makedirs(root + folder, exist_ok=True)
    for path in (folder, "/etc/passwd", "/etc/group", "/proc", "/dev", "/run"):
        subprocess.run(["mount", "--rbind", path, root + path], check=True)


def succeeds(*command):
    return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          check=False).returncode == 0


def takes_connections():
    try:
        socket.create_connection(("127.0.0.1", 445)).close()
        return True
    except OSError:
        return False
