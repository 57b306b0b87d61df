"""In the guest: files made at each door in folders of a share, and who can use them at which.

    doors_in_guest.py
"""
import os
import subprocess
import sys
import time

from door_model import INHERIT, READ, TO_FILES, WRITE, Entry, Folder
from people import GROUPS, MEMBERS, PLAIN_USERS, USERS, gids_of
from socket_requests import SocketRequests
from tried import READ as CAN_READ, WRITE as CAN_WRITE, as_ids

SHARED, NFS, SMB = "/vol/shared", "/mnt/nfs", "/mnt/smb-"
SECONDS = 120  # that an answer may take in a guest
PASSWORD = "not-a-secret"
MAKERS = ("bert", "carl")
DOORS = ("smb", "nfs", "local")


def entries_with(flags):
    return [Entry(False, "user", "dora", READ | WRITE, flags), Entry(True, "user", "carl", READ | WRITE, flags),
            Entry(True, "group", "night", READ, flags)]


# Folder, and whether what is made at another door than smbd's has all that the entries say.
FOLDERS = {"passed": (Folder(0o2770, "anna", "crew", entries_with(INHERIT)), True),
           "files": (Folder(0o2770, "anna", "crew", entries_with(TO_FILES)), False)}


def run(*command, text=None):
    return subprocess.run(command, check=True, input=text or "", stdout=subprocess.PIPE, encoding="utf-8").stdout


def make_accounts():
    """As useradd and groupadd would, at once."""
    with open("/etc/passwd", "a", encoding="ascii") as passwd, open("/etc/group", "a", encoding="ascii") as group:
        for user in PLAIN_USERS:
            passwd.write("%s:x:%d:%d::/nonexistent:/usr/sbin/nologin\n" % (user, USERS[user], USERS[user]))
            group.write("%s:x:%d:\n" % (user, USERS[user]))
        for name, gid in GROUPS.items():
            group.write("%s:x:%d:%s\n" % (name, gid, ",".join(MEMBERS[name])))
    for user in PLAIN_USERS:
        run("smbpasswd", "-s", "-a", user, text="%s\n%s\n" % (PASSWORD, PASSWORD))


def make_folders(requests):
    for name, (folder, _) in FOLDERS.items():
        path = os.path.join(SHARED, name)
        os.mkdir(path)
        os.chown(path, USERS[folder.owner], GROUPS[folder.group])
        os.chmod(path, folder.mode)
        privileges = {"acl": [entry.dictionary() for entry in folder.entries]}
        status, reply = requests.post("paddock_sharing", "writeSettings", {
            "optionalArguments": {"path": path}, "configuration": {"fileAccessPrivs": privileges}})
        assert (status, reply["writeStatus"]) == (200, 0), reply


def mount_all():
    os.makedirs(NFS, exist_ok=True)
    run("mount", "-t", "nfs", "-o", "vers=4.2,proto=tcp,noac", "127.0.0.1:" + SHARED, NFS)
    run("systemctl", "start", "smbd")
    for user in PLAIN_USERS:
        os.makedirs(SMB + user, exist_ok=True)
        mount_over_smb(user)


def mount_over_smb(user):
    """By the kernel's client, which asks as the user."""
    options = "username=%s,password=%s,vers=3.1.1,uid=%d,forceuid,noperm,cache=none,soft" % (user, PASSWORD, USERS[user])
    for left in range(30, 0, -1):
        if subprocess.run(["mount", "-t", "cifs", "//127.0.0.1/shared", SMB + user, "-o", options],
                          stderr=subprocess.DEVNULL, check=False).returncode == 0:
            return
        time.sleep(1)
    raise RuntimeError("%s cannot mount the share" % user)


def at(door, user, name):
    return os.path.join({"smb": SMB + user, "nfs": NFS, "local": SHARED}[door], name)


def make(door, maker, name):
    def step():
        os.umask(0o022)
        with open(at(door, maker, name), "x", encoding="ascii") as file:
            file.write("content")
        return 0
    as_ids(USERS[maker], gids_of(maker), step)


def access(door, user, name):
    """What of reading and writing the user can do with the file."""
    def step():
        path = at(door, user, name)
        found = 0
        for bit, flags in ((CAN_READ, os.O_RDONLY), (CAN_WRITE, os.O_WRONLY)):
            try:
                os.close(os.open(path, flags))
                found |= bit
            except PermissionError:
                pass
        return found
    number = as_ids(USERS[user], gids_of(user), step)
    return {letter for letter, bit in (("r", CAN_READ), ("w", CAN_WRITE)) if number & bit}


def compare(name, folder, maker, made_at, is_exact):
    """How many answers are not as wanted."""
    failed = 0
    for user in PLAIN_USERS:
        wanted = folder.inside(user, maker, False, door=made_at)
        found = {door: access(door, user, name) for door in DOORS}
        same = all(one == found["local"] for one in found.values())
        right = found["local"] == wanted if is_exact else found["local"] <= wanted
        if not same or not right:
            failed += 1
            print("FAILED: %s made by %s over %s: %s can %s, and should %s" % (
                name, maker, made_at, user, found, wanted))
    return failed


def main():
    make_accounts()
    os.mkdir(SHARED, 0o755)
    make_folders(SocketRequests("/run/paddock/paddockd.sock", SECONDS))
    run("keelhouse", "share", "add", SHARED, "--smb-name", "shared", "--nfs", "127.0.0.1(rw,no_subtree_check,fsid=1)")
    mount_all()
    failed = asked = 0
    for kind, (folder, is_exact) in FOLDERS.items():
        for door in DOORS:
            for maker in MAKERS:
                name = "%s/%s-%s" % (kind, door, maker)
                make(door, maker, name)
                failed += compare(name, folder, maker, door, is_exact or door == "smb")
                asked += len(PLAIN_USERS) * len(DOORS)
    print("%d answers of doors compared" % asked)
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
