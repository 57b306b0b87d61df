"""A daemon with something to administrate, and the examples of its interface.

What differs from run to run is shown as the same everywhere: see `shown`.
"""
import http.client
import json
import os
import plistlib
import pwd
import re
import socket
import subprocess
import sys
import time

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from own_daemon import OwnDaemon  # noqa: E402

TREE = "/run/example"
CONFIGURATION = """[access]
view_group = "games"
[acl]
winbind = false
[accounts]
extrausers = false
[dnssd]
enabled = false
[volumes]
quota_backend = "accounting"
quota_checker = "/usr/sbin/quotascan"
"""
# The host's users and groups: a few of those that every Debian has.
ACCOUNTS = {"passwd": """root:x:0:0:root:/root:/bin/bash
games:x:5:60:games:/usr/games:/usr/sbin/nologin
www-data:x:33:33:www-data:/var/www:/usr/sbin/nologin
nobody:x:65534:65534:nobody:/nonexistent:/usr/sbin/nologin
""", "group": """root:x:0:
www-data:x:33:
games:x:60:www-data
nogroup:x:65534:
"""}
VIEWER, STRANGER = "games", "nobody"

# The order in which the examples are run, each with its number in the document. Others are run before the last.
ORDER = """
GET /v1/health 1
GET /v1/plugins 1
paddock_sharing/getState 1
paddock_sharing/getLogPaths 1
paddock_directory/putRecord 1
paddock_directory/putRecord 2
paddock_directory/setPassword 1
paddock_directory/setPassword 2
paddock_directory/listRecords 1
paddock_directory/putRecord 3
paddock_directory/putRecord 4
paddock_directory/putRecord 5
paddock_directory/getRecord 1
paddock_directory/getRecord 2
paddock_directory/listNodes 1
paddock_sharing/getDSNodes 1
paddock_sharing/canAuthDSNode 1
paddock_sharing/canAuthDSNode 2
paddock_services/checkShare 1
paddock_sharing/writeSettings 1
paddock_sharing/readSettings 1
paddock_sharing/readSettings 2
paddock_sharing/readSettings 3
paddock_sharing/readSettings 4
paddock_sharing/getSharePointList 1
paddock_sharing/fileInheritACL 1
paddock_sharing/getEffectivePerms 1
paddock_access/effective 1
paddock_access/effective 2
paddock_access/answer 1
paddock_access/explain 1
paddock_access/who 1
paddock_access/previewPropagation 1
paddock_files/getMode 1
paddock_files/getMode 2
paddock_files/setModeBits 1
paddock_files/setModeBits 2
paddock_services/getServed 1
paddock_denials/getDenied 1
paddock_denials/setStrict 1
paddock_denials/refreshStrict 1
paddock_sharing/writeSettings 2
GET /v1/requests/{request}/log 1
paddock_sharing/startPropagate 1
paddock_sharing/statusCopyPrivs 1
paddock_sharing/statusCopyPrivs 2
paddock_quotas/getUsage 1
paddock_quotas/setLimits 1
paddock_quotas/setLimits 2
paddock_quotas/setEnabled 1
paddock_quotas/setEnabled 2
paddock_quotas/setEnabled 3
paddock_vsp/getState 1
paddock_vsp/syncSharePoints 1
paddock_nfs/getState 1
paddock_nfs/updateNFS 1
paddock_filebrowser/nfsWriteMountRec 1
paddock_filebrowser/nfsWriteMountRec 2
paddock_directory/deleteRecord 1
GET /v1/audit 1
400 1
403 1
404 1
405 1
412 1
415 1
500 1
paddock_sharing/writeSettings 3
""".split("\n")[1:-1]

NUMBERS = {"ms": 1, "milliseconds": 1, "uptimeSeconds": 1, "elapsedSeconds": 1, "pid": 4711, "copyPrivsPid": 4711}
REQUEST, UUID = "9c6f3423-10", "5B2C9A4E-3B1E-4F6C-9F55-1C1D0C6D7A10"
STATUS_FILE = TREE + "/tmp/CopyPrivsTemp.XXXXXX"
SHOWN = """Times, process ids, milliseconds and seconds, the ids of requests, UUIDs and the ends of
temporary names differ from run to run; here they are always the same. "loginuid" of audit lines is left out."""
TEXTS = ((re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z"), "2026-11-22T10:00:00.000Z"),
         (re.compile(r"CopyPrivsTemp\.\w{6}"), "CopyPrivsTemp.XXXXXX"),
         (re.compile(r"\b[0-9a-f]{8}-\d+\b(?!-)"), REQUEST),
         (re.compile(r"[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"), None),
         (re.compile(r"(<key>pid</key>\s*<integer>)\d+"), r"\g<1>4711"),
         (re.compile(r"(<key>elapsedSeconds</key>\s*<integer>)\d+"), r"\g<1>1"))
# Those of principals are always the same.
GUID_KEYS = ("guid", "displayName")


def shown(value, key=None):
    """The value as a page has it."""
    if isinstance(value, dict):
        return {name: shown(held, name) for name, held in sorted(value.items())}
    if isinstance(value, list):
        return [shown(held, key) for held in value]
    if isinstance(value, str):
        for pattern, text in TEXTS:
            if text is not None:
                value = pattern.sub(text, value)
            elif key == "backstowBackupUUID":
                value = pattern.sub(UUID, value)
        return value
    return NUMBERS.get(key, value)


def key_of(target):
    """How ORDER names the examples of a path of the document."""
    parts = target.split("/")
    return "/".join(parts[2:]) if len(parts) == 4 and parts[2].startswith("paddock_") else "GET " + target


def examples_of(document):
    """Every example by its name in ORDER: an Example Object of a response, with the response's status."""
    found = {}
    for path, item in document["paths"].items():
        for operation in item.values():
            named = operation["responses"]["200"]["content"]["application/json"].get("examples", {})
            for number, example in named.items():
                found["%s %s" % (key_of(path), number)] = (200, example)
    for status, response in document["components"]["responses"].items():
        for number, example in response["content"]["application/json"].get("examples", {}).items():
            found["%s %s" % (status, number)] = (int(status), example)
    return found


def in_order(names):
    return [*ORDER[:-1], *sorted(set(names) - set(ORDER)), ORDER[-1]]


class ApiWorld:
    """The daemon below TREE, and folders below /srv. In namespaces of its own."""

    def __init__(self, cmake, build):
        for folder in ("/srv", TREE):
            os.makedirs(folder, exist_ok=True)
            subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "example", folder], check=True)
        for name, text in ACCOUNTS.items():
            with open("/run/" + name, "w", encoding="utf-8") as file:
                file.write(text)
            subprocess.run(["mount", "--bind", "/run/" + name, "/etc/" + name], check=True)
        os.makedirs("/srv/photos/2024")
        for name, text in (("notes.txt", "notes\n"), ("2024/beach.jpg", "beach\n")):
            with open("/srv/photos/" + name, "w", encoding="utf-8") as file:
                file.write(text)
        self.daemon = OwnDaemon(cmake, build, TREE, CONFIGURATION)
        self.daemon.start()
        # A member of both groups is denied by the list, and let in by the kernel.
        self.daemon.write("/srv/photos/2024", {"fileAccessPrivs": {"acl": [
            {"isUser": 1, "groupID": 60, "allowPermission": "NO", "bitmap": 36, "flags": 0},
            {"isUser": 1, "groupID": 33, "allowPermission": "YES", "bitmap": 46, "flags": 0}]}})
        self.last = {}

    def stop(self):
        self.daemon.stop()

    def send(self, asked, user=None):
        """HTTP status, headers and text of what "x-request" describes."""
        connection = http.client.HTTPConnection("paddock")
        connection.sock = socket.socket(socket.AF_UNIX)
        connection.sock.settimeout(60)
        user = asked.get("user", user)
        if user is not None:
            os.seteuid(pwd.getpwnam(user).pw_uid)
        try:
            connection.sock.connect(TREE + "/run/paddock/paddockd.sock")
        finally:
            os.seteuid(0)
        body = asked.get("text", json.dumps(asked["body"]) if "body" in asked else None)
        connection.request(asked["method"], asked["target"], body, asked.get("headers", {}))
        response = connection.getresponse()
        text = response.read().decode()
        connection.close()
        return response.status, response.headers, text

    def get(self, target):
        status, _, text = self.send({"method": "GET", "target": target})
        assert status == 200, text
        return json.loads(text)

    def run(self, example):
        """HTTP status, reply and audit line of an example, as they are shown."""
        asked = self.with_what_was_answered(example["x-request"])
        if "copyPrivsStatusFile" in asked.get("body", {}):
            self.await_run(asked["body"]["copyPrivsStatusFile"])
        status, headers, text = self.send(asked)
        reply = json.loads(text)
        request = headers["X-Request-Id"]
        if asked["method"] == "POST":
            self.last[REQUEST] = request
        for key in ("copyPrivsPid", "copyPrivsStatusFile"):
            if key in reply:
                self.last[key] = reply[key]
        lines = [shown(line) for line in self.audit_lines() if line["request"] == request]
        for line in lines:
            line.pop("loginuid", None)
        return status, shown(reply), lines

    def audit_lines(self):
        path = TREE + "/var/log/paddock/audit.jsonl"
        if not os.path.exists(path):
            return []
        with open(path, encoding="utf-8") as log:
            return [json.loads(line) for line in log]

    def with_what_was_answered(self, asked):
        """What an example shows as always the same becomes what it was in this run."""
        asked = dict(asked, target=asked["target"].replace(REQUEST, self.last.get(REQUEST, REQUEST)))
        if "body" in asked:
            asked["body"] = {key: self.last.get(key, value) for key, value in asked["body"].items()}
        return asked

    @staticmethod
    def await_run(status_file):
        """Until the run says that it is over, or its file is gone."""
        for _ in range(600):
            try:
                with open(status_file, "rb") as file:
                    if plistlib.load(file).get("status") == "completed":
                        return
            except FileNotFoundError:
                return
            except plistlib.InvalidFileException:
                pass
            time.sleep(0.1)
        raise AssertionError("the run does not end: " + status_file)
