#!/usr/bin/python3
"""What effectiveprivs does with paths, users and lists that are not as they should be: a number or one
message, and never both.

    bad_input_test.py CMAKE BUILD_FOLDER

Needs root, for namespaces of its own.
"""
import json
import os
import socket
import subprocess
import threading
import time

import effective_world as world
import nt_list
from effective_model import ALL
from nt_list import EVERYONE, group_sid, user_sid

ANNA = world.HOST_USERS["anna"]
OTHERS_READ = 2 + 512 + 128 + 2048
MANY, MANY_GROUPS, LOCAL_GROUPS = 25000, 10000, 300


class PathsTest(world.EffectiveTest):

    def make(self, name, mode=0o644):
        path = os.path.join(self.place, name)
        with open(path, "w", encoding="ascii"):
            pass
        os.chmod(path, mode)
        return path

    def assert_path_refused(self, path, reason):
        self.assertIn(reason, self.assert_refused("-p", path, "-u", str(ANNA)))

    def test_a_missing_path_is_refused_by_name(self):
        path = os.path.join(self.place, "missing")
        message = self.assert_refused("-p", path, "-u", str(ANNA))
        self.assertIn(path, message)
        self.assertIn("No such file or directory", message)

    def test_a_link_is_followed(self):
        path = self.make("file", 0o604)
        os.symlink("file", path + ".link")
        os.symlink(path + ".link", path + ".link2")
        self.assertEqual(self.effective(path + ".link2", ANNA), self.effective(path, ANNA))
        self.assertEqual(self.effective(path + ".link", ANNA), OTHERS_READ)

    def test_a_link_has_the_parent_of_what_it_leads_to(self):
        for name, mode in (("open", 0o777), ("shut", 0o755)):
            os.mkdir(os.path.join(self.place, name))
            os.chmod(os.path.join(self.place, name), mode)
        path = self.make("shut/file")
        os.symlink(path, os.path.join(self.place, "open/link"))
        self.assertEqual(self.effective(os.path.join(self.place, "open/link"), ANNA), OTHERS_READ)
        path = self.make("open/file")
        os.symlink(path, os.path.join(self.place, "shut/link"))
        self.assertEqual(self.effective(os.path.join(self.place, "shut/link"), ANNA), OTHERS_READ + 16)

    def test_a_dangling_link_is_refused(self):
        path = os.path.join(self.place, "link")
        os.symlink("missing", path)
        self.assert_path_refused(path, "No such file or directory")

    def test_links_in_a_circle_are_refused(self):
        path = os.path.join(self.place, "link")
        os.symlink("link", path)
        self.assert_path_refused(path, "Too many levels of symbolic links")

    def test_below_a_folder_that_nobody_may_search_there_is_a_number(self):
        folder = os.path.join(self.place, "closed")
        os.mkdir(folder)
        path = self.make("closed/file")
        os.chmod(folder, 0)
        self.assertEqual(self.effective(path, ANNA), OTHERS_READ)

    def test_what_is_below_a_file_is_refused(self):
        self.assert_path_refused(os.path.join(self.make("file"), "below"), "Not a directory")
        self.assert_path_refused(self.make("file2") + "/", "Not a directory")

    def test_a_path_that_is_too_long_is_refused(self):
        self.assert_path_refused("/" + "x" * 300, "File name too long")
        self.assert_path_refused("/x" * 3000, "File name too long")

    def test_an_empty_path_is_refused(self):
        self.assert_refused("-p", "", "-u", str(ANNA))

    def test_a_name_that_is_no_text_has_a_number(self):
        path = os.path.join(os.fsencode(self.place), b"\xff\xfe\n\t%s")
        os.close(os.open(path, os.O_CREAT | os.O_WRONLY, 0o604))
        os.chmod(path, 0o604)
        self.assertEqual(self.effective(path, ANNA), OTHERS_READ)
        self.assertEqual(len(self.assert_refused("-p", path + b".missing", "-u", str(ANNA)).splitlines()), 1)

    def test_a_folder_is_found_with_a_slash_behind_it(self):
        self.assertEqual(self.effective(self.place + "/", ANNA), self.effective(self.place, ANNA))

    def test_the_root_folder_has_a_number(self):
        self.assertEqual(self.effective("/", 0), ALL)
        self.assertEqual(self.effective("/", ANNA) & ~ALL, 0)

    def test_what_is_neither_file_nor_folder_has_a_number_at_once(self):
        pipe = os.path.join(self.place, "pipe")
        os.mkfifo(pipe)
        device = os.path.join(self.place, "device")
        os.mknod(device, 0o20666, os.makedev(1, 3))
        name = os.path.join(self.place, "socket")
        with socket.socket(socket.AF_UNIX) as listening:
            listening.bind(name)
            for path in (pipe, device, name):
                os.chmod(path, 0o604)
                self.assertEqual(self.effective(path, ANNA), OTHERS_READ)

    def test_a_loop_of_mounted_folders_has_the_parent_that_is_seen(self):
        folder = os.path.join(self.place, "folder")
        os.mkdir(folder)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=704", "none", folder], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", folder], check=True)
        os.chmod(self.place, 0o777)
        self.assertEqual(self.effective(folder, ANNA), OTHERS_READ + 16)


class UsersTest(world.EffectiveTest):

    def setUp(self):
        super().setUp()
        self.path = os.path.join(self.place, "file")
        with open(self.path, "w", encoding="ascii"):
            pass
        os.chmod(self.path, 0o604)

    def set_list(self, *entries):
        os.setxattr(self.path, nt_list.ATTRIBUTE, nt_list.value(
            [*entries, *nt_list.tail(0, 0, 0o604, False, False)]))

    def test_root_has_every_bit(self):
        os.chmod(self.path, 0)
        self.set_list(nt_list.entry(nt_list.DENY, EVERYONE, nt_list.mask_of(ALL)))
        self.assertEqual(self.effective(self.path, 0), ALL)

    def test_a_user_whom_nobody_knows_is_judged_like_any_other(self):
        self.set_list(nt_list.entry(nt_list.DENY, user_sid(world.UNKNOWN), nt_list.mask_of(2)))
        self.assertEqual(self.effective(self.path, world.UNKNOWN), OTHERS_READ - 2)
        self.assertEqual(self.effective(self.path, world.UNKNOWN - 1), OTHERS_READ)

    def test_a_user_whom_nobody_knows_has_what_everybody_has(self):
        for uid in (2 ** 31 - 1, 2 ** 31, 2 ** 32 - 2, 2 ** 32 - 1, world.UNKNOWN):
            os.removexattr(self.path, nt_list.ATTRIBUTE) if os.listxattr(self.path) else None
            self.assertEqual(self.effective(self.path, uid), OTHERS_READ, uid)
            self.set_list(nt_list.entry(nt_list.DENY, EVERYONE, nt_list.mask_of(2)),
                          nt_list.entry(nt_list.ALLOW, nt_list.AUTHENTICATED, nt_list.mask_of(8)))
            self.assertEqual(self.effective(self.path, uid), OTHERS_READ - 2, uid)

    def test_what_is_no_user_id_is_refused(self):
        for text in ("", " ", "anna", "-1", "-0", "+5", "4294967296", "18446744073709551616", "5x", "x5", " 5", "5 ",
                     "0x10", "1e3", "1.0", "5\n", "٥", "--", "9" * 5000):
            with self.subTest(text=text[:20]):
                self.assert_refused("-p", self.path, "-u", text)

    def test_arguments_that_are_missing_or_too_many_are_refused(self):
        for arguments in ([], ["-p"], ["-u"], ["-p", self.path], ["-u", "0"], ["-p", self.path, "-u"],
                          ["-p", self.path, "-u", "0", "more"], ["-p", self.path, "-u", "0", "-x"],
                          [self.path, "0"], ["-u", "0", "-p"]):
            with self.subTest(arguments=arguments):
                self.assert_refused(*arguments)

    def test_who_is_not_root_gets_no_guess(self):
        """What the lists and the directory hold is not for everybody to read."""
        ended = subprocess.run(
            ["setpriv", "--reuid", str(ANNA), "--regid", str(ANNA), "--clear-groups", self.program,
             "-p", self.path, "-u", str(ANNA)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
        self.assertEqual(ended.stdout, b"")
        self.assertNotEqual(ended.returncode, 0)
        self.assertTrue(ended.stderr)

    def test_an_environment_that_is_empty_changes_nothing(self):
        ended = subprocess.run([self.program, "-p", self.path, "-u", str(ANNA)], env={}, check=False,
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual((ended.returncode, ended.stdout, ended.stderr), (0, b"%d\n" % OTHERS_READ, b""))

    def test_a_number_that_cannot_be_written_is_an_error(self):
        with open("/dev/full", "wb") as full:
            ended = subprocess.run([self.program, "-p", self.path, "-u", str(ANNA)], stdout=full,
                                   stderr=subprocess.PIPE, check=False)
        self.assertNotEqual(ended.returncode, 0)
        self.assertTrue(ended.stderr)


class CorruptListsTest(world.EffectiveTest):
    GOOD = nt_list.value([nt_list.entry(nt_list.ALLOW, user_sid(ANNA), 1)])

    def values(self):
        good = self.GOOD
        many = [nt_list.entry(nt_list.ALLOW, user_sid(ANNA), 1)] * 1001
        return {
            "nothing": b"", "a byte": b"\1", "text": b"no list at all", "cut short": good[:-1],
            "cut in the descriptor": good[:20], "one byte more": good + b"\0",
            "another version": b"\5\0\5\0" + good[4:],
            "two versions": b"\1\0\2\0" + good[4:], "no pointer": good[:4] + bytes(4) + good[8:],
            "another revision": good[:8] + b"\2" + good[9:], "a list far away": good[:24] + b"\xff\0\0\0" + good[28:],
            "an owner in the header": good[:12] + b"\4\0\0\0" + good[16:], "too many entries": nt_list.value(many),
            "an entry too long": good[:-22] + b"\xff" + good[-21:], "a list of no such revision": good.replace(
                b"\2\0" + good[62:64], b"\7\0" + good[62:64], 1)}

    def test_a_list_that_does_not_decode_is_an_error(self):
        for is_folder in (False, True):
            path = os.path.join(self.place, "folder" if is_folder else "file")
            if is_folder:
                os.mkdir(path)
            else:
                with open(path, "w", encoding="ascii"):
                    pass
            self.assertNotEqual(self.values()["a list of no such revision"], self.GOOD)
            for name, value in self.values().items():
                with self.subTest(name, folder=is_folder):
                    os.setxattr(path, nt_list.ATTRIBUTE, value)
                    self.assertIn(path, self.assert_refused("-p", path, "-u", str(ANNA)))
            os.setxattr(path, nt_list.ATTRIBUTE, self.GOOD)
            self.assertEqual(self.effective(path, ANNA), 2)

    def test_a_folder_above_whose_list_does_not_decode_is_an_error_where_it_is_asked(self):
        path = os.path.join(self.place, "file")
        with open(path, "w", encoding="ascii"):
            pass
        os.setxattr(self.place, nt_list.ATTRIBUTE, b"no list")
        self.assertIn(self.place, self.assert_refused("-p", path, "-u", str(ANNA)))


class ManyGroupsTest(world.EffectiveTest):

    @classmethod
    def make_accounts(cls):
        users = ["root:x:0:0::/:/bin/false", "many:x:%d:%d::/:/bin/false" % (MANY, MANY)]
        world.use_as_etc(cls.folder, "passwd", users, cls.addClassCleanup)
        world.use_as_etc(cls.folder, "group", ["root:x:0:", "many:x:%d:" % MANY] + [
            "g%d:x:%d:many" % (number, MANY + number) for number in range(1, MANY_GROUPS + 1)], cls.addClassCleanup)

    @classmethod
    def records(cls):
        """Each group holds the one before, so that the last is far from the host's."""
        return [("Groups", "l%d" % number, {
            "PrimaryGroupID": str(MANY + MANY_GROUPS + 1 + number),
            "NestedGroups": [world.fixed_group_guid(MANY + MANY_GROUPS)]}) for number in range(LOCAL_GROUPS)]

    def test_a_user_in_many_groups_has_what_each_of_them_has(self):
        for gid in (MANY, MANY + 1, MANY + MANY_GROUPS // 2, MANY + MANY_GROUPS, MANY + MANY_GROUPS + LOCAL_GROUPS):
            path = os.path.join(self.place, str(gid))
            with open(path, "w", encoding="ascii"):
                pass
            os.setxattr(path, nt_list.ATTRIBUTE, nt_list.value(
                [nt_list.entry(nt_list.ALLOW, group_sid(gid), nt_list.mask_of(2 + 8192))]))
            self.assertEqual(self.effective(path, MANY), 2 + 8192, gid)
        path = os.path.join(self.place, "another")
        with open(path, "w", encoding="ascii"):
            pass
        os.setxattr(path, nt_list.ATTRIBUTE, nt_list.value([nt_list.entry(nt_list.ALLOW, group_sid(MANY - 1), 1)]))
        self.assertEqual(self.effective(path, MANY), 0)


class SilentServerTest(world.EffectiveTest):
    """Of a directory server that takes connections and never says anything."""
    configuration = world.CONFIGURATION + """
[[ldap]]
name = "silent"
uri = "%s"
base = "dc=example"
tls = "none"
timeout = 1
"""

    @classmethod
    def setUpClass(cls):
        cls.listening = socket.create_server(("127.0.0.1", 0))
        cls.addClassCleanup(cls.listening.close)
        cls.taken = []
        threading.Thread(target=cls.take, daemon=True).start()
        uri = "ldap://127.0.0.1:%d" % cls.listening.getsockname()[1]
        cls.configuration = SilentServerTest.configuration % uri
        super().setUpClass()

    @classmethod
    def take(cls):
        while True:
            try:
                cls.taken.append(cls.listening.accept()[0])
            except OSError:
                return

    def setUp(self):
        super().setUp()
        self.path = os.path.join(self.place, "file")
        with open(self.path, "w", encoding="ascii"):
            pass

    def test_without_a_server_that_does_not_answer_the_number_is_what_is_sure(self):
        before = len(self.taken)
        started = time.monotonic()
        self.assertEqual(self.effective(self.path, ANNA), OTHERS_READ)
        self.assertLess(time.monotonic() - started, 30)
        self.assertGreater(len(self.taken), before)

    def assert_silent_one_is_named(self, *arguments):
        ended = self.run_program("-p", self.path, "-u", str(ANNA), *arguments)
        self.assertEqual((ended.returncode, ended.stderr), (4, b""))
        self.assertIn(b"/LDAP/silent", ended.stdout)
        return ended.stdout

    def test_an_explanation_says_what_is_not_known(self):
        self.assertIn(b"\nNot known: what /LDAP/silent alone knows of people and groups",
                      self.assert_silent_one_is_named("--explain"))
        explained = json.loads(self.assert_silent_one_is_named("--explain", "--json"))
        self.assertEqual([node["path"] for node in explained["nodesLeftOut"]], ["/LDAP/silent"])

    def test_a_server_that_refuses_connections_is_left_out_too(self):
        configuration = os.path.join(self.tree, "etc/paddock/paddockd.toml")
        with open(configuration, encoding="utf-8") as file:
            text = file.read()
        with socket.create_server(("127.0.0.1", 0)) as other:
            port = other.getsockname()[1]
        with open(configuration, "w", encoding="utf-8") as file:
            file.write(text.replace(str(self.listening.getsockname()[1]), str(port)))
        try:
            self.assertEqual(self.effective(self.path, ANNA), OTHERS_READ)
            self.assert_silent_one_is_named("--explain")
        finally:
            with open(configuration, "w", encoding="utf-8") as file:
                file.write(text)

    def test_a_configuration_that_does_not_parse_is_an_error(self):
        configuration = os.path.join(self.tree, "etc/paddock/paddockd.toml")
        with open(configuration, encoding="utf-8") as file:
            text = file.read()
        with open(configuration, "w", encoding="utf-8") as file:
            file.write("[acl\n")
        try:
            self.assert_refused("-p", self.path, "-u", str(ANNA))
        finally:
            with open(configuration, "w", encoding="utf-8") as file:
                file.write(text)


if __name__ == "__main__":
    world.run_tests(__file__)
