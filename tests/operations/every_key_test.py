#!/usr/bin/python3
"""Every operation of every plug-in, with every key that it reads missing, empty and of every other type.

    every_key_test.py CMAKE BUILD_FOLDER

PADDOCK_EVERY_VALUE=1 tries all values on the slow operations, too.
Each is answered with a reply or the documented error, the module's lock is free afterwards, and the
daemon goes on. Needs root, for namespaces of its own.
"""
import crypt
import os
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from own_daemon import OwnDaemon
from own_namespaces import in_namespaces
from socket_requests import SocketRequests
from variants import FEW, OTHER_VALUES, changed, variants

SHARING = "paddock_sharing"
DIRECTORY = "paddock_directory"
USERS = "dsRecTypeStandard:Users"
GROUPS = "dsRecTypeStandard:Groups"
SHARES = "dsRecTypeStandard:SharePoints"
SLOW = {} if "PADDOCK_EVERY_VALUE" in os.environ else {"writeSettings": FEW, "startPropagate": FEW}
SECONDS = 20  # that an answer may take on a busy machine
ANNA = {"name": "anna", "uid": 21001, "password": "anna's secret"}
GUID = "00112233-4455-6677-8899-AABBCCDDEEFF"

CONFIGURATION = """
[acl]
winbind = false
[accounts]
extrausers = false
[dnssd]
enabled = false
[volumes]
quota_checker = "/usr/sbin/quotascan"
[limits]
reading_body_bytes = 1048576  # a long text is longer than what readings may be by default
"""


def text(request, *keys):
    """What stands there when it is a text."""
    found = item(request, *keys)
    return found if isinstance(found, str) else None


def item(request, *keys):
    for key in keys:
        request = request.get(key) if is_dictionary(request) else None
    return request


def is_dictionary(value):
    """Data have the form of one."""
    return isinstance(value, dict) and set(value) != {"$data"}


def has_null_in_array(value):
    items = value.values() if isinstance(value, dict) else value if isinstance(value, list) else ()
    return isinstance(value, list) and None in value or any(has_null_in_array(one) for one in items)


class OperationsTest(unittest.TestCase):
    """One daemon for all of them."""
    options = ()
    called = set()

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="paddock-operations.")
        cls.addClassCleanup(os.rmdir, cls.folder)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "none", cls.folder], check=True)
        cls.addClassCleanup(subprocess.run, ["umount", "--lazy", cls.folder], check=True)
        os.chdir(cls.folder)
        cls.addClassCleanup(os.chdir, "/")
        cls.tree = os.path.join(cls.folder, "tree")
        cls.daemon = OwnDaemon(*cls.options, cls.tree, CONFIGURATION)
        cls.daemon.start()
        cls.addClassCleanup(cls.daemon.stop)
        cls.socket = SocketRequests(os.path.join(cls.tree, "run/paddock/paddockd.sock"), SECONDS)
        cls.addClassCleanup(cls.socket.close)
        cls.make_administrator()

    @classmethod
    def make_administrator(cls):
        """Whose password is quickly compared."""
        for kind, name, attributes in (
                (USERS, ANNA["name"], {"dsAttrTypeStandard:UniqueID": str(ANNA["uid"])}),
                (GROUPS, "paddock", {"dsAttrTypeStandard:GroupMembership": [ANNA["name"]]})):
            status, reply = cls.socket.post(DIRECTORY, "putRecord",
                                            {"type": kind, "name": name, "attributes": attributes})
            assert (status, reply) == (200, {"status": 0}), (status, reply)
        cls.set_quick_password()

    @classmethod
    def set_quick_password(cls):
        path = os.path.join(cls.tree, "var/lib/paddock/directory.sqlite")
        made = crypt.crypt(ANNA["password"], "$5$rounds=1000$salt$")
        database = sqlite3.connect(path)
        with database:
            database.execute("INSERT OR REPLACE INTO passwords SELECT record, ? FROM names WHERE folded = ?"
                             " AND type = ?", (made, ANNA["name"], USERS))
        database.close()

    def setUp(self):
        self.shared = os.path.join(self.folder, "shared")
        os.makedirs(self.shared, exist_ok=True)

    def call(self, plugin, operation, request):
        self.called.add((plugin, operation))
        return self.socket.post(plugin, operation, request)

    def settings(self):
        """Of the folder, which only answers when the lock is free."""
        status, reply = self.call(SHARING, "readSettings", {"optionalArguments": {"path": self.shared}})
        self.assertEqual(status, 200)
        return reply["configuration"]

    def try_variants(self, plugin, operation, good, check):
        """`check` gets each request with its HTTP status and reply."""
        for name, request in [("the good request", good), *variants(good, SLOW.get(operation, OTHER_VALUES))]:
            with self.subTest("%s of %s: %s" % (operation, plugin, name)):
                started = time.monotonic()
                status, reply = self.call(plugin, operation, request)
                if has_null_in_array(request):
                    self.assertEqual(status, 400)
                else:
                    check(request, status, reply)
                if status != 200:
                    self.assertEqual(list(reply), ["error"])
                    self.assertTrue(reply["error"])
                self.assertEqual(self.settings()["path"], self.shared)
                self.assertLess(time.monotonic() - started, SECONDS)
                self.assertIsNone(self.daemon.process.poll(), self.daemon.log())


class SharingTest(OperationsTest):

    def try_sharing(self, operation, good, check):
        self.try_variants(SHARING, operation, good, check)

    def assert_reply(self, wanted):
        """A check for requests that all have the same reply."""
        return lambda request, status, reply: self.assertEqual((status, reply), (200, wanted))

    def test_state_and_log_paths_are_the_same_for_every_request(self):
        anything = {"path": self.shared, "optionalArguments": {"path": self.shared}}
        self.try_sharing("getState", anything, self.assert_reply(
            {"state": "UNKNOWN", "readWriteSettingsVersion": 1}))
        self.try_sharing("getLogPaths", anything, self.assert_reply(
            {"consoleLog": "/var/tmp/console.log", "sampleLog": "/var/log/system.log"}))

    def test_lists_of_share_points_and_nodes_are_the_same_for_every_request(self):
        _, shares = self.call(SHARING, "getSharePointList", {})
        self.assertEqual(shares["readStatus"], 0)
        self.try_sharing("getSharePointList", {"path": self.shared}, self.assert_reply(shares))
        self.try_sharing("getDSNodes", {"dsNodeName": "/Local"}, self.assert_reply(
            {"dsNodeArray": ["/Local"]}))

    def test_settings_are_the_folders_when_the_path_is_a_text_and_the_servers_otherwise(self):
        def check(request, status, reply):
            self.assertEqual(status, 200)
            self.assertEqual(set(reply), {"configuration", "readStatus"})
            configuration = reply["configuration"]
            path = text(request, "optionalArguments", "path")
            if path is None:
                self.assertLessEqual(set(configuration), {"sharePointList"})
                self.assertEqual(reply["readStatus"], 0)
                return
            self.assertEqual(configuration["path"], path)
            self.assertLessEqual({"fileAccessPrivs", "sharePointRecord"}, set(configuration))
            if path != self.shared:
                self.assertEqual(configuration["fileAccessPrivs"].get("posixErr"), "FILE_NOT_FOUND_ERR")
        self.try_sharing("readSettings", {"optionalArguments": {"path": self.shared}}, check)

    def test_an_authentication_is_refused_and_an_unknown_node_is_an_error_of_the_server(self):
        def check(request, status, reply):
            if text(request, "dsNodeName") != "/Local":
                self.assertEqual(status, 500)
            elif (text(request, "dsAdminName"), text(request, "dsAdminPW")) == (ANNA["name"], ANNA["password"]):
                self.assertEqual((status, reply), (200, {"canAuth": True}))
            else:
                self.assertEqual((status, reply), (200, {"canAuth": False, "error": "Permission denied"}))
        self.try_sharing("canAuthDSNode", {"dsNodeName": "/Local", "dsAdminName": ANNA["name"],
                                           "dsAdminPW": ANNA["password"]}, check)

    def test_what_would_be_inherited_is_a_list(self):
        self.try_sharing("fileInheritACL", {"path": self.shared}, self.assert_reply({"acl": []}))

    def test_a_propagation_that_names_no_path_is_not_started(self):
        def check(request, status, reply):
            paths = item(request, "paths")
            if paths == []:
                self.assertEqual(status, 500)
                self.assertIn("paths", reply["error"])
            elif not isinstance(paths, list) or not isinstance(paths[0], str):
                self.assertEqual((status, reply), (200, {"error": "CANNOT_PROPAGATE_PRIVS_ERR"}))
            else:
                self.assertEqual(status, 200)
                self.assert_started(paths[0], reply)
        self.try_sharing("startPropagate", {
            "paths": [self.shared], "propOwnerName": 0, "propGroupName": 0, "propOwnerPerm": 0,
            "propGroupPerm": 0, "propWorldPerm": 0, "propACL": 0}, check)

    def assert_started(self, path, reply):
        """Unless no program can be given that path."""
        if "\0" in path:
            self.assertEqual(reply, {"error": "CANNOT_PROPAGATE_PRIVS_ERR"})
            return
        self.assertEqual(set(reply), {"path", "copyPrivsPid", "copyPrivsStatusFile"})
        self.assertEqual(reply["path"], path)

    def test_the_status_of_a_propagation_that_is_not_known_is_the_documented_error(self):
        self.try_sharing(
            "statusCopyPrivs",
            {"copyPrivsPid": 4711, "copyPrivsStatusFile": os.path.join(self.tree, "tmp/CopyPrivsTemp.000000")},
            self.assert_reply({"error": "COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR"}))

    def test_effective_permissions_are_a_number_and_never_an_error(self):
        def check(request, status, reply):
            self.assertEqual(status, 200)
            path = text(request, "path")
            self.assertEqual(set(reply), {"bitmap"} if path is None else {"bitmap", "path"})
            self.assertEqual(reply.get("path"), path)
            self.assertIs(type(reply["bitmap"]), int)
            self.assertEqual(reply["bitmap"] & ~16382, 0)
            if path != self.shared or not self.names_a_user(request.get("uid")):
                self.assertEqual(reply["bitmap"], 0)
            else:
                self.assertNotEqual(reply["bitmap"], 0)
        self.try_sharing("getEffectivePerms", {"path": self.shared, "uid": ANNA["uid"]}, check)

    @staticmethod
    def names_a_user(uid):
        """None is root; a boolean is a number here, and a decimal text, too."""
        return uid is None or isinstance(uid, int) and 0 <= uid < 2 ** 32 or isinstance(uid, str) and uid.isdigit()


class WritingTest(OperationsTest):
    """writeSettings reads most keys."""

    def setUp(self):
        super().setUp()
        self.before = None

    def try_writing(self, configuration, check, good=None):
        """`check` gets each configuration, what the folder's privileges were before it, and the reply."""
        good = good or {"optionalArguments": {"path": self.shared}, "configuration": configuration}

        def check_reply(request, status, reply):
            self.assertEqual(status, 200)
            self.assertLessEqual({"configuration", "writeStatus", "readStatus"}, set(reply))
            self.assertEqual(reply["readStatus"], 0)
            self.assertEqual(reply["writeStatus"] != 0, "writeError" in reply)
            check(request, reply)
        self.try_variants(SHARING, "writeSettings", good, check_reply)

    def privileges(self):
        return self.settings()["fileAccessPrivs"]

    def test_privileges_of_a_wrong_type_are_left_as_they_are(self):
        good = {"owner": "root", "group": "root", "privs": "750", "acl": []}

        def check(request, reply):
            given = item(request, "configuration", "fileAccessPrivs")
            path = text(request, "optionalArguments", "path")
            if not is_dictionary(given) or path is None:
                self.assertEqual(reply["writeStatus"], 0)
            elif path != self.shared:
                self.assertNotEqual(reply["writeStatus"], 0)
            elif text(given, "owner") not in (None, "", "root"):
                self.assertEqual(reply["writeError"], "USER_NOT_FOUND_ERR")
            elif text(given, "group") not in (None, "", "root"):
                self.assertEqual(reply["writeError"], "GROUP_NOT_FOUND_ERR")
            else:
                self.assertEqual(reply["writeStatus"], 0, reply)
            found = self.privileges()
            self.assertEqual((found["owner"], found["group"], found["acl"]), ("root", "root", []))
            self.assertIn(found["privs"], ("750", "755"))
        os.chmod(self.shared, 0o755)
        self.try_writing({"fileAccessPrivs": good}, check)

    def test_an_entry_without_what_it_needs_leaves_the_list_as_it_was(self):
        entries = [{"guid": GUID, "allowPermission": "YES", "bitmap": 2, "flags": 0},
                   {"allowPermission": "NO", "bitmap": 4, "flags": 96, "isUser": 0, "uniqueID": ANNA["uid"]},
                   {"allowPermission": "YES", "bitmap": 6, "flags": 0, "isUser": 1, "groupID": 21100}]
        errors = {"no principal": 100066, "no kind": 100070, "no uid": 100071, "no gid": 100072}

        def wanted_status(entry):
            """The documented one; None where the texts leave it open."""
            if text(entry, "allowPermission") not in ("YES", "NO"):
                return 0
            if text(entry, "guid") is not None:
                return 0 if entry["guid"] == GUID else errors["no principal"]
            if entry.get("isUser") is None:
                return errors["no kind"]
            if type(entry["isUser"]) is not int or not 0 <= entry["isUser"] < 2 ** 31:
                return None
            key = "groupID" if entry["isUser"] else "uniqueID"
            if entry.get(key) is None:
                return errors["no gid" if entry["isUser"] else "no uid"]
            return 0 if type(entry[key]) is int and 0 <= entry[key] < 2 ** 32 - 1 else None

        def check(request, reply):
            given = item(request, "configuration", "fileAccessPrivs", "acl")
            if text(request, "optionalArguments", "path") != self.shared:
                return
            if not isinstance(given, list):
                self.assertEqual(reply["writeStatus"], 0)
                return
            stops = [wanted_status(one) for one in given]
            if None not in stops:
                aborted = [text(one, "allowPermission") not in ("YES", "NO") for one in given]
                first = next((status for status, ended in zip(stops, aborted) if status or ended), 0)
                self.assertEqual(reply["writeStatus"], first, reply)
            if reply["writeStatus"] != 0:
                self.assertEqual(self.privileges()["acl"], self.before)
            self.before = self.privileges()["acl"]
        self.before = self.privileges()["acl"]
        self.try_writing({"fileAccessPrivs": {"acl": entries}}, check)
        self.clear_list()

    def clear_list(self):
        status, reply = self.call(SHARING, "writeSettings", {
            "optionalArguments": {"path": self.shared}, "configuration": {"fileAccessPrivs": {"acl": []}}})
        self.assertEqual((status, reply["writeStatus"]), (200, 0))

    def test_quotas_are_switched_by_a_dictionary_alone(self):
        def check(request, reply):
            given = item(request, "configuration", "volumeQuotas")
            if not is_dictionary(given) or given.get("isEnabled") is None or \
                    text(request, "optionalArguments", "path") is None:
                self.assertEqual(reply["writeStatus"], 0, reply)
            else:
                self.assertIn(reply["writeStatus"], (0, 100080))
        self.try_writing({"volumeQuotas": {"isEnabled": False}}, check)

    RECORD = {"name": "one", "nameOverVSP": "one", "nameOverSMB": "one", "nameOverFTP": "one",
              "isSharedOverVSP": True, "isBackstowBackup": False, "backstowBackupUUID": GUID,
              "isAutomounted": False, "automountMountPath": "/Network/one", "automountFileSystemType": 1,
              "automountDSPath": "/Local", "isIndexingEnabled": False, "mountedOnPath": "/", "isShared": True,
              "isDeleted": False,
              "nfsExportRecord": {"path": "", "clients": [{"host": "192.0.2.7", "options": ["ro", "sync"]}],
                                  "isDeleted": False}}

    def record(self):
        export = dict(self.RECORD["nfsExportRecord"], path=self.shared)
        return dict(self.RECORD, path=self.shared, nfsExportRecord=export)

    def check_share_point(self, request, reply):
        """Statuses of records that cannot be written are the module's or the system's own."""
        given = item(request, "configuration", "sharePointRecord")
        self.assertIs(type(reply["writeStatus"]), int)
        if given is None:
            self.assertEqual(reply["writeStatus"], 0, reply)
        if "writeError" in reply:
            self.assertTrue(reply["writeError"])
        shared = self.settings()["sharePointRecord"]
        self.assertIs(type(shared["isShared"]), bool)
        asked = given.get("isShared") if is_dictionary(given) else None
        path = text(request, "optionalArguments", "path")
        if path == self.shared and (asked == "NO" or asked is False or type(asked) is int and asked == 0):
            self.assertFalse(shared["isShared"])

    def test_a_share_point_of_wrong_types_is_written_or_refused(self):
        self.try_writing({"sharePointRecord": self.record()}, self.check_share_point)

    def test_an_automounted_share_point_needs_credentials_of_the_right_types(self):
        record = {"path": self.shared, "isAutomounted": True, "automountMountPath": "/Network/one",
                  "automountFileSystemType": 1, "automountDSPath": "/Local"}
        credentials = [{"nodePath": "/Local", "adminUserName": ANNA["name"], "adminPassword": ANNA["password"]}]
        self.try_writing({"sharePointRecord": record, "dsCredentials": credentials}, self.check_share_point)

    def test_a_list_of_share_points_that_is_none_changes_nothing(self):
        def check(request, reply):
            if not isinstance(item(request, "configuration", "sharePointList"), list):
                self.assertEqual(reply["writeStatus"], 0, reply)
            self.assertNotIn("path", reply["configuration"])
        good = {"configuration": {"sharePointList": [
            {"path": self.shared, "name": "one"}, {"path": self.shared, "isDeleted": True}]}}
        self.try_writing(None, check, good)


class SiblingsTest(OperationsTest):
    ADMINISTRATOR = {"node": "/Local", "adminUserName": ANNA["name"], "adminPassword": ANNA["password"]}

    def check_administrator(self, request, reply):
        """Whether node and administrator are those that may; else the status is the documented one."""
        if request.get("node") is not None and isinstance(request["node"], str) and request["node"] != "/Local":
            self.assertEqual(reply["status"], 2)
            return False
        name, password = text(request, "adminUserName"), text(request, "adminPassword")
        if name is not None and (name, password) != (ANNA["name"], ANNA["password"]):
            self.assertEqual(reply["status"], 13)
            return False
        return True

    def try_records(self, operation, good, required, check):
        """`check` gets requests that have all that is required, and the reply."""
        def check_reply(request, status, reply):
            self.assertEqual(status, 200)
            self.assertEqual(reply["status"] != 0, "error" in reply, reply)
            if not all(text(request, key) for key in required):
                self.assertEqual(reply["status"], 22)
            elif any(request.get(key) is not None and not isinstance(request[key], str)
                     for key in ("node", "adminUserName", "adminPassword")):
                self.assertEqual(reply["status"], 22)
                self.assertIn("is no string", reply["message"])
            elif operation == "putRecord" and reply["status"] == 22:
                pass  # what its attributes may be is checked below
            elif self.check_administrator(request, reply):
                check(request, reply)
        self.try_variants(DIRECTORY, operation, dict(good, **self.ADMINISTRATOR), check_reply)

    def test_nodes_are_listed_for_every_request(self):
        def check(request, status, reply):
            paths = request.get("paths")
            wrong = paths is not None and not isinstance(paths, list)
            self.assertEqual((status, reply["status"]), (200, 22 if wrong else 0))
            if wrong:
                self.assertEqual(reply["message"], "paths is no array")
            elif not isinstance(paths, list):
                self.assertEqual([node["path"] for node in reply["nodes"]], ["/Local", "/System"])
            else:
                self.assertEqual([node["path"] for node in reply["nodes"]],
                                 [path for path in paths if isinstance(path, str)])
        self.try_variants(DIRECTORY, "listNodes", {"paths": ["/Local"]}, check)

    def test_records_are_listed_by_a_type_alone(self):
        def check(request, reply):
            names = [name for record in reply["records"] for name in record["dsAttrTypeStandard:RecordName"]]
            self.assertEqual(ANNA["name"] in names, request["type"] == USERS)
        self.try_records("listRecords", {"type": USERS}, ["type"], check)

    def test_a_record_is_found_by_type_and_name(self):
        self.try_records(
            "getRecord", {"type": USERS, "name": ANNA["name"]}, ["type", "name"],
            lambda request, reply: self.assertEqual(
                "record" in reply, (request["type"], request["name"]) == (USERS, ANNA["name"])))

    def test_a_record_is_put_with_attributes_that_are_texts_or_arrays_of_them(self):
        def check(request, reply):
            attributes = request.get("attributes")
            fits = attributes is None or is_dictionary(attributes) and all(
                value is None or isinstance(value, str) or isinstance(value, list) and value and
                all(isinstance(one, str) for one in value) for value in attributes.values())
            self.assertTrue(fits, "these attributes were taken: %s" % attributes)
        self.try_records("putRecord", {"type": SHARES, "name": "a record",
                                       "attributes": {"one": ["1", "2"], "two": "3"}}, ["type", "name"], check)

    def test_a_missing_record_is_deleted_without_an_error(self):
        self.try_records("deleteRecord", {"type": SHARES, "name": "not there"}, ["type", "name"],
                         lambda request, reply: self.assertEqual(reply["status"], 0))

    def test_a_password_is_set_for_a_user_who_is_there(self):
        def check(request, reply):
            wanted = (0,) if request["name"] == ANNA["name"] else (2, 22)
            if len(request["password"]) > 511 or not request["password"].isprintable():
                wanted = (0, 2, 22)
            self.assertIn(reply["status"], wanted)
            self.set_quick_password()
        self.try_records("setPassword", {"name": ANNA["name"], "password": ANNA["password"]},
                         ["name", "password"], check)

    def test_access_is_judged_of_absolute_paths_alone(self):
        def check(request, status, reply):
            self.assertEqual(status, 200)
            path = text(request, "path") or ""
            if not path.startswith("/") or "\0" in path:
                self.assertEqual(list(reply), ["error"])
            elif "error" not in reply:
                self.assertEqual(set(reply) - {"report"}, {"status", "output", "errors"})
        good = {"path": self.shared, "json": True}
        self.try_variants("paddock_access", "who", good, check)
        for operation in ("effective", "explain", "answer"):
            self.try_variants("paddock_access", operation, dict(good, uid=0), check)
        self.try_variants("paddock_access", "previewPropagation", {"path": self.shared, "mask": 1}, check)

    def test_what_is_served_is_told_or_not_known(self):
        def check(key):
            def check_reply(request, status, reply):
                self.assertEqual(status, 200)
                self.assertIs(type(reply["status"]), int)
                if reply["status"] == 0:
                    self.assertIs(type(reply[key]), list)
            return check_reply
        self.try_variants("paddock_services", "getServed", {"paths": [self.shared]}, check("sharePoints"))
        self.try_variants("paddock_services", "checkShare", {
            "path": self.shared, "nameOverSMB": "plans", "mayBeNumbered": True,
            "clients": [{"host": "192.0.2.1", "options": ["ro"]}]}, check("refusals"))

    def test_states_are_the_same_for_every_request(self):
        for plugin in ("paddock_vsp", "paddock_nfs"):
            def check(request, status, reply):
                self.assertEqual(status, 200)
                self.assertIn(reply["state"], ("RUNNING", "STOPPED"))
            self.try_variants(plugin, "getState", {"command": "getState"}, check)

    def test_commands_that_read_nothing_have_a_status_for_every_request(self):
        for plugin, operation in (("paddock_vsp", "syncSharePoints"), ("paddock_nfs", "updateNFS")):
            _, first = self.call(plugin, operation, {})
            self.assertIs(type(first["status"]), int)
            self.try_variants(plugin, operation, {"command": operation},
                              lambda request, status, reply, wanted=first: self.assertEqual(
                                  (status, reply), (200, wanted)))

    def test_quotas_that_the_kernel_does_not_keep_are_refused_with_a_reason(self):
        """This folder's volume is one in memory."""
        def check(_, status, reply):
            self.assertEqual(status, 200)
            self.assertNotEqual(reply["status"], 0)
            self.assertTrue("message" in reply or "error" in reply, reply)
            self.assertEqual([name for name in os.listdir(self.shared) if name.startswith(".quota")], [])
        for operation, good in (("getUsage", {}), ("setEnabled", {"isEnabled": True}),
                                ("setLimits", {"name": ANNA["name"], "group": False, "softBytes": 1024,
                                               "hardBytes": 2048, "softFiles": 1, "hardFiles": 2})):
            self.try_variants("paddock_quotas", operation, {"path": self.shared, **good}, check)

    def test_a_list_without_denials_of_groups_has_nothing_to_be_strict_about(self):
        def check(request, status, reply):
            self.assertEqual(status, 200)
            self.assertEqual(reply["status"] != 0, "message" in reply, reply)
            if reply["status"] == 0:
                self.assertTrue(text(request, "path").startswith("/"), request)
                self.assertEqual((reply["denials"], reply["strict"]), ([], False))
        for operation, good in (("getDenied", {}), ("setStrict", {"strict": True})):
            self.try_variants("paddock_denials", operation, {"path": self.shared, **good}, check)
        self.try_variants("paddock_denials", "refreshStrict", {"path": self.shared}, lambda _, status, reply:
                          self.assertEqual((status, reply), (200, {"status": 0, "lists": []})))

    def test_a_mount_record_is_written_or_refused(self):
        def check(_, status, reply):
            self.assertEqual(status, 200)
            self.assertEqual(reply["status"] != 0, "error" in reply, reply)
        good = {"nfsServerHostName": "server", "nfsExportPath": "/export", "nfsResharePath": self.shared}
        self.try_variants("paddock_filebrowser", "nfsWriteMountRec", good, check)
        for key in good:
            self.assertNotEqual(self.call("paddock_filebrowser", "nfsWriteMountRec", changed(good, (key,), ""))[1]
                                ["status"], 0, key)

    def test_a_mode_is_told_of_what_is_there(self):
        def check(request, status, reply):
            self.assertEqual(status, 200)
            if text(request, "path") == self.shared:
                self.assertEqual((reply["status"], reply["mode"]), (0, "0755"))
            else:
                self.assertIn(reply["status"], (2, 22, 36), reply)
        os.chmod(self.shared, 0o755)
        self.try_variants("paddock_files", "getMode", {"path": self.shared}, check)

    def test_the_bits_of_a_mode_are_one_octal_digit(self):
        def check(request, status, reply):
            self.assertEqual(status, 200)
            path, bits = text(request, "path"), text(request, "bits")
            if path == self.shared and bits is not None and bits in tuple("01234567"):
                self.assertEqual((reply["status"], reply["mode"]), (0, bits + "755"))
            else:
                self.assertIn(reply["status"], (2, 22, 36), reply)
        os.chmod(self.shared, 0o755)
        self.try_variants("paddock_files", "setModeBits", {"path": self.shared, "bits": "2"}, check)

    def test_the_lines_of_the_exports_file_are_told_for_a_path(self):
        def check(request, status, reply):
            self.assertEqual(status, 200)
            if text(request, "path") is None:
                self.assertEqual(reply["status"], 22)
            else:
                self.assertEqual((reply["status"], reply["exports"]), (0, []))
        self.try_variants("paddock_services", "getExports", {"path": "/not/exported"}, check)

    def test_a_list_is_told_of_and_made_complete(self):
        folder = os.path.join(self.shared, "listed")
        os.makedirs(folder, exist_ok=True)

        def check_told(request, status, reply):
            self.assertEqual(status, 200)
            if text(request, "path") == folder:
                self.assertEqual((reply["status"], reply["present"], reply["complete"]), (0, False, False))
            else:
                self.assertIn(reply["status"], (2, 22, 36), reply)

        def check_made(request, status, reply):
            self.assertEqual(status, 200)
            empty = request.get("empty")
            if text(request, "path") == folder and (empty is None or isinstance(empty, int)):
                self.assertEqual((reply["status"], reply["present"], reply["complete"]), (0, True, True))
            else:
                self.assertIn(reply["status"], (2, 22, 36), reply)
        self.try_variants("paddock_files", "getList", {"path": folder}, check_told)
        self.try_variants("paddock_files", "makeComplete", {"path": folder, "empty": True}, check_made)


class BodiesTest(OperationsTest):

    def test_a_body_that_is_no_dictionary_is_refused_by_every_operation(self):
        for plugin, operation in sorted(self.operations()):
            for body in ("[]", "7", '"path"', "null", "", "{", '{"path": 1.5}', '{"path": 1, "path": 1}'):
                with self.subTest("%s of %s: %s" % (operation, plugin, body)):
                    status, reply = self.socket.send("POST", "/v1/%s/%s" % (plugin, operation), body)
                    self.assertEqual(status, 400)
                    self.assertTrue(reply["error"])

    def test_every_operation_has_been_called(self):
        """Runs last: a new operation needs a test above."""
        self.assertEqual(self.operations() - self.called, set())

    def operations(self):
        status, reply = self.socket.get("/v1/plugins")
        self.assertEqual(status, 200)
        return {(plugin["name"], operation) for plugin in reply["plugins"] for operation in plugin["operations"]}


def in_this_order():
    """The last one looks back at what the others called."""
    loader = unittest.TestLoader()
    return unittest.TestSuite(loader.loadTestsFromTestCase(case)
                              for case in (SharingTest, WritingTest, SiblingsTest, BodiesTest))


if __name__ == "__main__":
    in_namespaces(__file__, sys.argv[1:], ())
    OperationsTest.options = sys.argv[1:3]
    sys.exit(not unittest.TextTestRunner(verbosity=2).run(in_this_order()).wasSuccessful())
