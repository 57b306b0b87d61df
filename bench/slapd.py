"""An OpenLDAP server with its files in a folder of its own, on a socket there."""

import os
import subprocess
import time
import urllib.parse

from processes import CannotMeasure, run, stop

SLAPD = "/usr/sbin/slapd"
SLAPADD = "/usr/sbin/slapadd"
CONFIGURATION = """include /etc/ldap/schema/core.schema
include /etc/ldap/schema/cosine.schema
include /etc/ldap/schema/nis.schema
include /etc/ldap/schema/inetorgperson.schema
include {schema}
pidfile {folder}/pid
modulepath /usr/lib/ldap
moduleload back_mdb.so
database mdb
maxsize 1073741824
dbnosync
suffix "dc=example"
directory {folder}/data
index objectClass,paddockType,paddockMatch,paddockDirectoryPath,entryUUID,uidNumber eq
access to * by * read
"""
TOP = """dn: dc=example
objectClass: domain
dc: example

dn: ou=paddock,dc=example
objectClass: organizationalUnit
ou: paddock

"""


class Slapd:
    def __init__(self, folder, schema, entries):
        os.makedirs(os.path.join(folder, "data"))
        self.configuration = os.path.join(folder, "slapd.conf")
        self.socket = os.path.join(folder, "socket")
        self.uri = "ldapi://" + urllib.parse.quote(self.socket, safe="")
        with open(self.configuration, "w", encoding="utf-8") as file:
            file.write(CONFIGURATION.format(folder=folder, schema=schema))
        listing = os.path.join(folder, "entries.ldif")
        with open(listing, "w", encoding="utf-8") as file:
            file.write(TOP + entries)
        run([SLAPADD, "-q", "-f", self.configuration, "-l", listing])
        self.process = subprocess.Popen([SLAPD, "-f", self.configuration, "-h", self.uri, "-d", "0"],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        for _ in range(300):
            if os.path.exists(self.socket):
                return
            time.sleep(0.05)
        self.close()
        raise CannotMeasure("slapd does not start")

    def close(self):
        stop(self.process)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
