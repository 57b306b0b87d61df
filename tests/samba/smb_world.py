"""A host for one test: accounts, an smbd that shares a folder, and a paddockd. They are in namespaces
(own_samba), so that the machine's accounts, servers and network are not touched."""
import argparse
import contextlib
import http.client
import json
import os
import re
import socket
import subprocess
import sys
import tempfile
import unittest

from own_samba import Samba, in_namespaces, skip
from people import GROUPS, MEMBERS, PLAIN_USERS, USERS, gids_of

try:
    from samba import NTSTATUSError, credentials, ntstatus
    from samba.dcerpc import security
    from samba.samba3 import libsmb_samba_internal as libsmb
    from samba.samba3 import param
except ImportError as error:
    skip("python3-samba is not installed (%s)" % error)

PROGRAMS = ("smbd", "winbindd", "wbinfo", "smbpasswd", "smbcacls")
ATTRIBUTE = "security.NTACL"
OTHER_SAMBA = "PADDOCK_OTHER_SAMBA"
PASSWORD = "not-a-secret"
SHARE_POINTS = "dsRecTypeStandard:SharePoints"
SHARE = "shared"
# The same folder; what is made in it where no list is inherited has the folder's mode.
CAREFUL_SHARE = "careful"
SHARES = """
[{share}]
path = {folder}
read only = no
vfs objects = acl_xattr
acl_xattr:ignore system acls = yes
{more}
[{careful_share}]
copy = {share}
inherit permissions = yes

include = {published}
"""
EVERY_PART = security.SECINFO_OWNER | security.SECINFO_GROUP | security.SECINFO_DACL

def use_own_accounts(folder):
    """For all programs in this mount namespace."""
    passwd = ["%s:x:%d:%d:%s:/:/bin/false" % (name, uid, uid, name.capitalize()) for name, uid in USERS.items()]
    group = ["%s:x:%d:" % item for item in USERS.items()]
    group += ["%s:x:%d:%s" % (name, gid, ",".join(MEMBERS[name])) for name, gid in GROUPS.items()]
    files = {"passwd": passwd + ["nobody:x:65534:65534::/:/bin/false"],
             "group": group + ["nogroup:x:65534:"]}
    for name, lines in files.items():
        path = os.path.join(folder, name)
        with open(path, "w", encoding="ascii") as file:
            file.write("\n".join(lines) + "\n")
        subprocess.run(["mount", "--bind", path, "/etc/" + name], check=True)


def other_samba():
    """The root folder of another system, whose Samba is to be tested."""
    root = os.environ.get(OTHER_SAMBA, "")
    if not os.path.exists(root + "/usr/sbin/smbd") or not root:
        skip("%s does not name the root folder of a system with another Samba" % OTHER_SAMBA)
    return os.path.realpath(root)


def holds_attributes(folder, attribute=ATTRIBUTE):
    try:
        os.setxattr(folder, attribute, b"probe")
        os.removexattr(folder, attribute)
        return True
    except OSError:
        return False


def naming(attribute):
    """The line that names it to smbd, which finds no lists any more when it is told its own default."""
    return "" if attribute == ATTRIBUTE else "acl_xattr:security_acl_name = " + attribute


def use_own_file_system(image, folder, attribute):
    with open(image, "wb") as file:
        file.truncate(64 * 1024 * 1024)
    for command in (["mkfs.ext4", "-q", image], ["mount", "-o", "loop", image, folder]):
        subprocess.run(command, check=False)
    if not holds_attributes(folder, attribute):
        skip("no file system here takes the attribute " + attribute)


def as_user(user, function):
    """What the function, which is to return a small number, returns under the user's ids."""
    child = os.fork()
    if child == 0:
        number = 255
        try:
            gids = gids_of(user)
            os.setgroups(gids)
            os.setresgid(gids[0], gids[0], gids[0])
            os.setresuid(USERS[user], USERS[user], USERS[user])
            number = function()
        finally:
            os._exit(number)
    number = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    assert number != 255, "a step as %s broke down" % user
    return number


def local_access(user, path):
    """What the kernel lets a process of the user do, as in "rw-"."""
    modes = {"r": os.R_OK, "w": os.W_OK, "x": os.X_OK}

    def ask():
        return sum(mode for mode in modes.values() if os.access(path, mode))
    bits = as_user(user, ask)
    return "".join(letter if bits & mode else "-" for letter, mode in modes.items())


def session_context(configuration, user):
    """The configuration and the user's credentials, as Samba's client libraries take them."""
    context = param.get_context()
    context.load(configuration)
    who = credentials.Credentials()
    who.guess(context)
    who.set_username(user)
    who.set_password(PASSWORD)
    who.set_kerberos_state(credentials.DONT_USE_KERBEROS)
    return context, who


class Session:
    """A user's session with a share. Paths are in the share, with "/" between."""

    def __init__(self, configuration, user, share):
        self.connection = libsmb.Conn("127.0.0.1", share, *session_context(configuration, user))

    def may(self, path, mask):
        """Whether the server opens what is there for this access."""
        return allowed(lambda: self.connection.close(self._open(path, mask)))

    def read(self, path):
        """The content; None when the server denies it."""
        return result(lambda: self.connection.loadfile(smb_path(path)))

    def write(self, path, content):
        """Makes the file when it is missing. Whether the server allowed it."""
        return allowed(lambda: self.connection.savefile(smb_path(path), content))

    def names(self, path):
        """What is in the folder; None when the server denies it."""
        found = result(lambda: self.connection.list(smb_path(path)))
        return None if found is None else {entry["name"] for entry in found}

    def make_folder(self, path):
        return allowed(lambda: self.connection.mkdir(smb_path(path)))

    def rename(self, path, new_path):
        return allowed(lambda: self.connection.rename(smb_path(path), smb_path(new_path)))

    def remove(self, path):
        return allowed(lambda: self.connection.unlink(smb_path(path)))

    def remove_folder(self, path):
        return allowed(lambda: self.connection.rmdir(smb_path(path)))

    def descriptor(self, path):
        return self._with_open(path, security.SEC_STD_READ_CONTROL,
                               lambda number: self.connection.get_sd(number, EVERY_PART))

    def set_list(self, path, sddl):
        """Replaces the list as a client does that edits one: it becomes complete."""
        descriptor = security.descriptor.from_sddl(sddl, security.dom_sid())
        self._with_open(path, security.SEC_STD_WRITE_DAC, lambda number: self.connection.set_sd(
            number, descriptor, security.SECINFO_DACL))

    def _open(self, path, mask):
        return self.connection.create(smb_path(path), DesiredAccess=mask, ShareAccess=7,
                                      CreateDisposition=1)

    def _with_open(self, path, mask, step):
        number = self._open(path, mask)
        try:
            return step(number)
        finally:
            self.connection.close(number)


def smb_path(path):
    return path.replace("/", "\\")


def result(step):
    """What the step returns; None when the server denies it."""
    try:
        return step()
    except NTSTATUSError as error:
        if error.args[0] != ntstatus.NT_STATUS_ACCESS_DENIED:
            raise
        return None


def allowed(step):
    return result(lambda: (step(), True)) is not None


class Paddock:
    """A paddockd in an installed tree, and its keelhouse."""

    def __init__(self, cmake, build, tree, asks_winbind=True, attribute=ATTRIBUTE):
        """`asks_winbind`: None leaves the configuration as it is shipped."""
        subprocess.run([cmake, "--install", build, "--prefix", "/usr"], check=True,
                       stdout=subprocess.DEVNULL, env=dict(os.environ, DESTDIR=tree))
        if asks_winbind is not None:
            self._configure(tree, "winbind", "true" if asks_winbind else "false")
        if attribute != ATTRIBUTE:
            self._configure(tree, "attribute", '"%s"' % attribute)
        self.tree = tree
        self.program = os.path.join(tree, "usr/sbin/keelhouse")
        self.log = os.path.join(tree, "log")
        with open(self.log, "wb") as log:
            self.process = subprocess.Popen(
                [os.path.join(tree, "usr/sbin/paddockd"), "--root", tree],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        while self._run("status").returncode == 3:
            if self.process.poll() is not None:
                raise RuntimeError("paddockd does not start; its log: " + self.last_words())

    def stop(self):
        self.process.terminate()
        status = self.process.wait(60)
        assert status == 0, "paddockd ended with %d; its log: %s" % (status, self.last_words())

    def last_words(self):
        with open(self.log, encoding="utf-8", errors="replace") as log:
            return log.read()[-4000:]

    def use_smbcontrol(self, configuration, root=""):
        """What the tree's programs find in smbcontrol's place talks to the servers of the configuration, those
        of the system at `root` when that is given."""
        path = os.path.join(self.tree, "usr/bin/smbcontrol")
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="ascii") as file:
            file.write('#!/bin/sh\nexec %s smbcontrol -s %s "$@"\n' % (
                "chroot " + root if root else "env", configuration))
        os.chmod(path, 0o755)

    def synchronize(self):
        """Brings the shares up to date that smb.conf includes."""
        ended = subprocess.run([os.path.join(self.tree, "usr/libexec/samba/synchronize-shares")],
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, encoding="utf-8", check=False)
        assert (ended.returncode, ended.stdout) == (0, ""), "synchronize-shares: " + ended.stdout

    def request(self, plugin, operation, request):
        """Its reply, whose status must be 0."""
        connection = http.client.HTTPConnection("paddock")
        connection.sock = socket.socket(socket.AF_UNIX)
        connection.sock.connect(os.path.join(self.tree, "run/paddock/paddockd.sock"))
        with contextlib.closing(connection):
            connection.request("POST", "/v1/%s/%s" % (plugin, operation), json.dumps(request))
            response = connection.getresponse()
            reply = json.loads(response.read())
        assert response.status == 200 and reply["status"] == 0, "%s: %s" % (operation, reply)
        return reply

    def put_share_point(self, record_name, path, name_over_smb):
        self.request("paddock_directory", "putRecord", {
            "type": SHARE_POINTS, "name": record_name, "attributes": {
                "dsAttrTypeNative:directory_path": [path], "dsAttrTypeNative:smb_name": [name_over_smb]}})

    def delete_share_points(self):
        for record in self.request("paddock_directory", "listRecords", {"type": SHARE_POINTS})["records"]:
            self.request("paddock_directory", "deleteRecord", {
                "type": SHARE_POINTS, "name": record["dsAttrTypeStandard:RecordName"][0]})

    def keelhouse(self, *words):
        """Its output."""
        ended = self._run(*words)
        assert ended.returncode == 0, "keelhouse %s: %s" % (" ".join(words), ended.stderr)
        return ended.stdout

    def privileges(self, path):
        """"fileAccessPrivs" as readSettings has it."""
        return self._settings("readSettings", "readStatus", path, {})

    def set_privileges(self, path, **privileges):
        self._settings("writeSettings", "writeStatus", path,
                       {"configuration": {"fileAccessPrivs": privileges}})

    @staticmethod
    def _configure(tree, key, value):
        path = os.path.join(tree, "etc/paddock/paddockd.toml")
        with open(path, encoding="utf-8") as file:
            text = file.read()
        text, count = re.subn("^#%s = .*$" % key, "%s = %s" % (key, value), text, flags=re.MULTILINE)
        assert count == 1, "%s stands %d times in %s" % (key, count, path)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)

    def _settings(self, operation, status, path, request):
        request = {"optionalArguments": {"path": path}, **request}
        reply = json.loads(self.keelhouse("request", "paddock_sharing", operation,
                                          json.dumps(request)))
        assert reply[status] == 0, "%s of %s: %s" % (operation, path, reply)
        return reply["configuration"]["fileAccessPrivs"]

    def _run(self, *words):
        return subprocess.run([self.program, *words], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8",
                              check=False)


class World:
    """Everything that a test needs, started; `shared` is the folder that the share is."""

    def __init__(self, options, clean_up):
        folder = tempfile.TemporaryDirectory(prefix="paddock-smb.")
        clean_up(folder.cleanup)
        self.folder = folder.name
        os.chmod(self.folder, 0o755)
        use_own_accounts(self.folder)
        self.shared = self._make("shared")
        if not holds_attributes(self.shared, options.attribute):
            use_own_file_system(os.path.join(self.folder, "image"), self.shared, options.attribute)
            clean_up(lambda: subprocess.run(["umount", "--lazy", self.shared], check=True))
        tree = self._make("tree")
        root = other_samba() if options.other_samba else ""
        self.published = os.path.join(tree, "etc/samba/paddock-shares.conf")
        self.samba = Samba(self._make("samba"),
                           SHARES.format(share=SHARE, careful_share=CAREFUL_SHARE, folder=self.shared,
                                         published=self.published, more=naming(options.attribute)),
                           root, self.folder)
        for user in USERS:
            self.samba.add_user(user, PASSWORD)
        clean_up(self.samba.stop_all)
        if options.winbind:
            self.samba.start_winbind()
        self.samba.start_smbd()
        self.paddock = Paddock(options.cmake, options.build, tree, attribute=options.attribute)
        clean_up(self.paddock.stop)
        self.paddock.use_smbcontrol(self.samba.configuration, root)
        self._sessions = {}

    def session(self, user, share=SHARE):
        if (user, share) not in self._sessions:
            self._sessions[user, share] = Session(self.samba.configuration, user, share)
        return self._sessions[user, share]

    def path(self, name):
        return os.path.join(self.shared, name)

    def published_configuration(self):
        """A configuration of its own that only includes what is published."""
        path = os.path.join(self.samba.folder, "published.conf")
        with open(path, "w", encoding="ascii") as file:
            file.write("%sinclude = %s\n" % (self.samba.global_section(), self.published))
        return path

    def smbcacls(self, name, *options):
        """Samba's own program, as root."""
        return subprocess.run(["smbcacls", "-s", self.samba.configuration, "-U",
                               "root%" + PASSWORD, "//127.0.0.1/" + SHARE, name, *options],
                              stdout=subprocess.PIPE, check=True, encoding="ascii").stdout

    def _make(self, name):
        path = os.path.join(self.folder, name)
        os.mkdir(path)
        os.chmod(path, 0o755)
        return path


class SmbTest(unittest.TestCase):
    """The world is one for all tests of a file; each has its own name in the share."""
    world = None
    options = None

    @classmethod
    def setUpClass(cls):
        if SmbTest.world is None:
            SmbTest.world = World(cls.options, unittest.addModuleCleanup)

    def setUp(self):
        self.name = self.id().rsplit(".", 1)[1]
        self.path = self.world.path(self.name)

    def make_file(self, mode, owner="root", group="root"):
        with open(self.path, "w", encoding="ascii") as file:
            file.write("content")
        self._give(mode, owner, group)

    def make_folder(self, mode, owner="root", group="root"):
        os.mkdir(self.path)
        self._give(mode, owner, group)

    def set_acl(self, *entries):
        self.world.paddock.keelhouse("acl", "set", self.path, *entries)

    def set_list(self, entries):
        """As an SMB client does."""
        self.world.session("root").set_list(self.name, "D:" + "".join(entry.ace() for entry in entries))

    def write_back(self):
        """What was read, through paddockd."""
        acl = self.world.paddock.privileges(self.path)["acl"]
        self.world.paddock.set_privileges(self.path, acl=acl)

    def users_who(self, can, share=SHARE):
        """Those for whose session with the share the function is true."""
        return {user for user in PLAIN_USERS if can(self.world.session(user, share))}

    def assert_readers(self, *users):
        """Of the file, over SMB and by processes of their own."""
        self.assertEqual(self.users_who(lambda smb: smb.read(self.name) == b"content"), set(users))
        self.assertEqual({user for user in PLAIN_USERS if "r" in local_access(user, self.path)},
                         set(users))

    def sddl(self):
        """Owner, group and list as an SMB client reads them."""
        return self.world.session("root").descriptor(self.name).as_sddl(security.dom_sid())

    def aces(self):
        """The list's entries in SDDL."""
        return re.findall(r"\([^)]*\)", self.sddl())

    def _give(self, mode, owner, group):
        os.chown(self.path, USERS[owner], {**USERS, **GROUPS}[group])
        os.chmod(self.path, mode)


def run_tests(file):
    """Those of a file that is called with the program cmake and the build's folder, options, and what
    unittest takes."""
    in_namespaces(file, sys.argv[1:], PROGRAMS)
    parser = argparse.ArgumentParser()
    parser.add_argument("cmake")
    parser.add_argument("build")
    parser.add_argument("--winbind", action="store_true", help="a winbindd runs beside the smbd")
    parser.add_argument("--attribute", default=ATTRIBUTE, help="that holds the lists")
    parser.add_argument("--other-samba", action="store_true", help="the smbd is that of $" + OTHER_SAMBA)
    SmbTest.options, others = parser.parse_known_args()
    unittest.main(argv=sys.argv[:1] + others)
