#!/usr/bin/env python3
"""The two files of the schema say the same, and an OpenLDAP server takes both.

    schema_test.py PROJECT
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SLAPADD = "/usr/sbin/slapadd"
SLAPTEST = "/usr/sbin/slaptest"
CORE = "/etc/ldap/schema/core"


def read(name):
    with open(os.path.join(PROJECT, "packaging", "ldap", name), encoding="ascii") as f:
        return f.read()


def words(text):
    return " ".join(text.split())


def of_schema():
    text = re.sub(r"^#.*\n", "", read("paddock.schema"), flags=re.MULTILINE)
    parts = re.split(r"\n(?=attributetype|objectclass|objectidentifier)", "\n" + text)
    return [words(part) for part in parts if part.strip()]


def of_ldif():
    names = {"olcAttributeTypes": "attributetype", "olcObjectClasses": "objectclass",
             "olcObjectIdentifier": "objectidentifier"}
    text = re.sub(r"^#.*\n", "", read("paddock.ldif"), flags=re.MULTILINE).replace("\n ", "")
    lines = [line.split(": ", 1) for line in text.split("\n") if line]
    return [words(names[name] + " " + value) for name, value in lines if name in names]


class Schema(unittest.TestCase):
    def test_both_files_define_the_same(self):
        self.assertEqual(of_schema(), of_ldif())
        self.assertGreater(len(of_schema()), 15)

    def test_no_identifier_is_given_twice(self):
        used = re.findall(r"\( (paddock\w+:\d+) ", read("paddock.schema"))
        self.assertEqual(len(used), len(set(used)))

    def test_slapd_takes_the_schema(self):
        with tempfile.TemporaryDirectory() as folder:
            configuration = os.path.join(folder, "slapd.conf")
            with open(configuration, "w", encoding="ascii") as f:
                f.write("include %s.schema\ninclude \"%s/packaging/ldap/paddock.schema\"\n" % (CORE, PROJECT))
            self.run_program(SLAPTEST, "-u", "-f", configuration)

    def test_a_server_with_its_configuration_in_entries_takes_the_ldif(self):
        with tempfile.TemporaryDirectory() as folder:
            with open(CORE + ".ldif", encoding="utf-8") as f:
                core = f.read()
            entries = ("dn: cn=config\nobjectClass: olcGlobal\ncn: config\n\n"
                       "dn: cn=schema,cn=config\nobjectClass: olcSchemaConfig\ncn: schema\n\n" +
                       core + "\n" + read("paddock.ldif"))
            self.run_program(SLAPADD, "-n", "0", "-F", folder, text=entries)

    def run_program(self, *command, text=""):
        done = subprocess.run(command, input=text, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              check=False)
        self.assertEqual(done.returncode, 0, done.stdout)


if __name__ == "__main__":
    PROJECT = sys.argv[1]
    if not shutil.which(SLAPTEST):
        print("skipped: slapd is not installed")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1])
