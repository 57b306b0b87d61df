"""In the guest: lists at random on files and folders of an NFS export, and what users can do with them
over a mount of it.

    effective_access.py [SEED]
"""
import json
import os
import random
import subprocess
import sys

from socket_requests import SocketRequests
from tried import INSIDE, tried, wanted

PROGRAM = "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs"
SHARED, MOUNTED = "/vol/shared", "/mnt/nfs"
CASES = 4  # of files and of folders each
SECONDS = 120  # that an answer may take in a guest
USERS = {"anna": 21001, "bert": 21002, "carl": 21003, "dora": 21004}
GROUPS = {"crew": 21100, "night": 21200}
MEMBERS = {"crew": ("bert", "dora"), "night": ("dora", "carl")}
MODES = (0o755, 0o700, 0o750, 0o770, 0o644, 0o705, 0o640, 0o604)
BITS = {2, 4, 8}


def run(*command):
    return subprocess.run(command, check=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          encoding="utf-8").stdout


def gids_of(user):
    return [USERS[user]] + [GROUPS[group] for group in GROUPS if user in MEMBERS[group]]


def make_accounts():
    """As useradd and groupadd would, at once."""
    with open("/etc/passwd", "a", encoding="ascii") as passwd, open("/etc/group", "a", encoding="ascii") as group:
        for user, uid in USERS.items():
            passwd.write("%s:x:%d:%d::/nonexistent:/usr/sbin/nologin\n" % (user, uid, uid))
            group.write("%s:x:%d:\n" % (user, uid))
        for name, gid in GROUPS.items():
            group.write("%s:x:%d:%s\n" % (name, gid, ",".join(MEMBERS[name])))


def entry(chosen):
    who = chosen.choice(({"isUser": 0, "uniqueID": chosen.choice(list(USERS.values()))},
                         {"isUser": 1, "groupID": chosen.choice(list(GROUPS.values()))}))
    bitmap = chosen.choice((2, 4 + 32 + 64, 8, 2 + 8, 2 + 4 + 8 + 32 + 64, 16382))
    return {"allowPermission": chosen.choice(("YES", "YES", "NO")), "bitmap": bitmap, "flags": 0, **who}


def make_case(requests, chosen, number, is_folder):
    """The name of what was made, with what it was made of."""
    name = "%s%d" % ("folder" if is_folder else "file", number)
    path = os.path.join(SHARED, name)
    if is_folder:
        os.mkdir(path)
    with open(os.path.join(path, INSIDE) if is_folder else path, "w", encoding="ascii") as file:
        file.write("content")
    privileges = {"owner": chosen.choice(list(USERS)), "group": chosen.choice(list(GROUPS)),
                  "privs": "%03o" % chosen.choice(MODES), "acl": [entry(chosen) for _ in range(chosen.randrange(4))]}
    status, reply = requests.post("paddock_sharing", "writeSettings", {
        "optionalArguments": {"path": path}, "configuration": {"fileAccessPrivs": privileges}})
    assert (status, reply["writeStatus"]) == (200, 0), reply
    return name, privileges


def explain_all(cases):
    """Of each case and user where the kernel is said to agree: who can do what."""
    agreeing = []
    for name, privileges in cases:
        for user, uid in USERS.items():
            path = os.path.join(SHARED, name)
            explained = json.loads(run(PROGRAM, "-p", path, "-u", str(uid), "--explain", "--json"))
            if not BITS & {line["bit"] for line in explained["kernelDisagrees"]}:
                agreeing.append((name, privileges, user, wanted(explained["bitmap"], path, uid, gids_of(user))))
    return agreeing


def compare_over(version, seed, agreeing):
    """Whether users can do exactly that, over a mount of this version."""
    run("mount", "-t", "nfs", "-o", "vers=%s,nolock,proto=tcp,noac" % version, "127.0.0.1:" + SHARED, MOUNTED)
    failed = 0
    for name, privileges, user, expected in agreeing:
        could = tried(os.path.join(MOUNTED, name), USERS[user], gids_of(user))
        if could != expected:
            failed += 1
            print("FAILED: seed %d, NFS %s, %s %s: %s can do %d, and should %d" % (
                seed, version, name, privileges, user, could, expected))
    run("umount", MOUNTED)
    return failed == 0


def main():
    seed = int(sys.argv[1]) if len(sys.argv) > 1 else random.SystemRandom().randrange(1 << 32)
    print("seed %d" % seed, flush=True)
    chosen = random.Random(seed)
    make_accounts()
    os.mkdir(SHARED, 0o755)
    os.makedirs(MOUNTED, exist_ok=True)
    requests = SocketRequests("/run/paddock/paddockd.sock", SECONDS)
    cases = [make_case(requests, chosen, number, is_folder) for number in range(CASES) for is_folder in (False, True)]
    run("keelhouse", "share", "add", SHARED, "--nfs", "127.0.0.1(rw,no_subtree_check,fsid=1)")
    agreeing, asked = explain_all(cases), len(cases) * len(USERS)
    results = [compare_over(version, seed, agreeing) for version in ("4.2", "3")]
    print("of %d answers, %d are about what the kernel agrees in" % (asked, len(agreeing)))
    sys.exit(0 if all(results) and len(agreeing) * 2 > asked else 1)


if __name__ == "__main__":
    main()
