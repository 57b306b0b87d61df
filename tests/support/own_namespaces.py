"""Namespaces of a test's own, where nothing of this machine is asked or disturbed."""
import fcntl
import os
import shutil
import socket
import struct
import subprocess
import sys

INNER = "PADDOCK_IN_NAMESPACES"


def skip(reason):
    print("skipped: " + reason)
    sys.exit(77)


def in_namespaces(test, arguments, programs):
    """Runs a test's file in namespaces of its own, and ends with its status. Every process that it
    starts ends with it. In there it returns: /run is empty, and the only network is a loopback."""
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    if INNER in os.environ:
        subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "none", "/run"], check=True)
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
