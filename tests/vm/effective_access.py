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
from tried import INSIDE, READ, WRITE, as_ids, make_in, opens, tried, wanted

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
    """Of each case and user where the kernel is said to agree: who can do what. Of all of them: what the door
    NFS is said to let through."""
    agreeing, doors = [], []
    for name, privileges in cases:
        for user, uid in USERS.items():
            path = os.path.join(SHARED, name)
            explained = json.loads(run(PROGRAM, "-p", path, "-u", str(uid), "--explain", "--json"))
            doors.append((path, user, explained["doors"]["nfs"]))
            if not BITS & {line["bit"] for line in explained["kernelDisagrees"]}:
                agreeing.append((name, privileges, user, wanted(explained["bitmap"], path, uid, gids_of(user))))
    return agreeing, doors


def could(step, *arguments):
    """Also where the server refuses because nothing can be written there."""
    try:
        step(*arguments)
        return True
    except OSError:
        return False


def verdict(path, user):
    """What a user can do with a path of a mount, in the words of a door."""
    def found():
        if os.path.isdir(path):
            return READ * could(os.listdir, path) + WRITE * could(make_in, path)
        return READ * could(opens, path, os.O_RDONLY) + WRITE * could(opens, path, os.O_WRONLY)
    can = as_ids(USERS.get(user, 0), gids_of(user) if user in USERS else [0], found)
    read, write = can & READ, can & WRITE
    return "yes" if read and write else "read" if read else "write" if write else "no"


def mounted(version, shared):
    """Whether it can be mounted."""
    return subprocess.run(["mount", "-t", "nfs", "-o", "vers=%s,nolock,proto=tcp,noac" % version,
                           "127.0.0.1:" + shared, MOUNTED], check=False, stdin=subprocess.DEVNULL).returncode == 0


def compare_doors(version, doors):
    """Whether users can do over a mount of the whole export what the door is said to let through."""
    assert mounted(version, SHARED)
    failed = 0
    for path, user, door in doors:
        found = verdict(os.path.join(MOUNTED, os.path.relpath(path, SHARED)), user)
        if found != door["verdict"]:
            failed += 1
            print("FAILED: NFS %s, %s: %s can \"%s\", and is said to: %s" % (version, path, user, found, door))
    run("umount", MOUNTED)
    return failed == 0


def make_special(name, mode, owner="root"):
    path = os.path.join("/vol", name)
    os.makedirs(path)
    with open(os.path.join(path, INSIDE), "w", encoding="ascii") as file:
        file.write("content")
    os.chown(path, USERS.get(owner, 0), 0)
    os.chmod(path, mode)
    return path


def nfs_door(path, user):
    return json.loads(run(PROGRAM, "-p", path, "-u", str(USERS.get(user, 0)), "--explain", "--json"))["doors"]["nfs"]


def compare_specials(version, doors):
    """Exports of all kinds, whose options matter; `doors`: what is said of each path and user."""
    failed = 0
    for path in {path for path, _ in doors}:
        assert mounted(version, path), path
        for user in ("anna", "bert", "root"):
            door, found = doors[path, user], verdict(MOUNTED, user)
            if found != door["verdict"] or door["clients"][0]["client"] != "127.0.0.1":
                failed += 1
                print("FAILED: NFS %s, %s: %s can \"%s\", and is said to: %s" % (version, path, user, found, door))
        run("umount", MOUNTED)
    return failed == 0


def export_specials():
    """Each with the options that it is about; what is said of them."""
    made = {make_special("read-only", 0o777): "ro", make_special("squashed", 0o700, "anna"): "rw,all_squash,anonuid=%d"
            % USERS["anna"], make_special("roots", 0o700): "rw,root_squash",
            make_special("unsquashed", 0o700): "rw,no_root_squash", make_special("open", 0o777): "rw"}
    os.makedirs("/vol/private")
    made[make_special("private/inside", 0o777)] = "rw"
    os.chmod("/vol/private", 0o700)
    for number, (path, options) in enumerate(made.items(), 2):
        run("exportfs", "-o", "%s,no_subtree_check,fsid=%d" % (options, number), "127.0.0.1:" + path)
    return {(path, user): nfs_door(path, user) for path in made for user in ("anna", "bert", "root")}


def compare_quota():
    """Whether a user whose quota is used up is said to be kept from writing, and nobody else."""
    path = make_special("quota", 0o777)
    run("setquota", "-u", "bert", "0", "64", "0", "0", "/vol")
    as_ids(USERS["bert"], gids_of("bert"), lambda: write_all(os.path.join(path, "much")))
    said = {user: json.loads(run(PROGRAM, "-p", path, "-u", str(USERS[user]), "--explain", "--json"))
            for user in ("anna", "bert")}
    local = {user: said[user]["doors"]["local"] for user in said}
    could = {user: as_ids(USERS[user], gids_of(user), lambda: write_all(os.path.join(path, "more-" + user)))
             for user in ("anna", "bert")}
    ok = (local["anna"]["write"], local["bert"]["write"]) == ("yes", "no") and could == {"anna": 1, "bert": 0}
    if not ok or "quota of user bert is used up" not in said["bert"]["answer"]["text"]:
        print("FAILED: quota: %s, could %s" % (said, could))
        return False
    return True


def write_all(path):
    """1 when 64 KiB can be written there, else 0."""
    try:
        with open(path, "wb", buffering=0) as file:
            for _ in range(16):
                if file.write(bytes(4096)) != 4096:
                    return 0
        return 1
    except OSError:
        return 0


def compare_read_only():
    """Whether a read-only mount is said to be one."""
    run("mount", "-o", "bind", "/vol/open", MOUNTED)
    run("mount", "-o", "remount,bind,ro", MOUNTED)
    said = json.loads(run(PROGRAM, "-p", MOUNTED, "-u", str(USERS["anna"]), "--explain", "--json"))
    run("umount", MOUNTED)
    if "mounted read-only" not in said["answer"]["text"] or said["doors"]["local"]["verdict"] != "read":
        print("FAILED: read-only mount: %s" % said)
        return False
    return True


def compare_stopped():
    """Whether a server that does not run is said not to serve."""
    run("systemctl", "stop", "nfs-server")
    door = json.loads(run(PROGRAM, "-p", "/vol/open", "-u", str(USERS["anna"]), "--explain", "--json"))["doors"]["nfs"]
    if door["verdict"] != "no" or door["clients"]:  # stopping it takes back what was exported
        print("FAILED: stopped: %s" % door)
        return False
    return True


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
    (agreeing, doors), asked = explain_all(cases), len(cases) * len(USERS)
    results = [compare_over(version, seed, agreeing) for version in ("4.2", "3")]
    results += [compare_doors(version, doors) for version in ("4.2", "3")]
    specials = export_specials()
    results.append(compare_specials("3", specials))
    # Over NFS 4 a client walks to the export through the folders above, too.
    results.append(compare_specials("4.2", {key: door for key, door in specials.items() if "private" not in key[0]}))
    results += [compare_quota(), compare_read_only(), compare_stopped()]
    print("of %d answers, %d are about what the kernel agrees in" % (asked, len(agreeing)))
    sys.exit(0 if all(results) and len(agreeing) * 2 > asked else 1)


if __name__ == "__main__":
    main()
