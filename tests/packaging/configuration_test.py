#!/usr/bin/env python3
"""The configuration that is shipped: the daemon accepts it, and it shows every key.

    configuration_test.py PADDOCKD PROJECT
"""
import os
import re
import subprocess
import sys
import tempfile
import unittest

KEY = re.compile(r"^#?([a-z_]+) = ", re.MULTILINE)
TABLE = re.compile(r"^#?\[\[?([a-z]+)\]\]?$")


def shipped():
    with open(os.path.join(PROJECT, "packaging", "paddockd.toml"), encoding="utf-8") as f:
        return f.read()


def uncommented(text):
    """The text with every commented key and table in force."""
    return re.sub(r"^#(\[\[|\w+ = )", r"\1", text, flags=re.MULTILINE)


def keys_in(text):
    table, keys = "", set()
    for line in text.split("\n"):
        heading, key = TABLE.match(line), KEY.match(line)
        if heading:
            table = heading.group(1)
        elif key:
            keys.add((table, key.group(1)))
    return keys


def keys_of_daemon():
    path = os.path.join(PROJECT, "src", "configuration", "configuration_schema.cc")
    with open(path, encoding="utf-8") as f:
        return set(re.findall(r'ConfigurationKey\{"(\w+)", "(\w+)"', f.read()))


def check(text):
    """What paddockd --check-config says of a configuration: exit status and text."""
    with tempfile.TemporaryDirectory() as root:
        folder = os.path.join(root, "etc", "paddock")
        os.makedirs(folder)
        with open(os.path.join(folder, "paddockd.toml"), "w", encoding="utf-8") as f:
            f.write(text)
        done = subprocess.run([PADDOCKD, "--root", root, "--check-config"], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        return done.returncode, done.stdout


class ShippedConfiguration(unittest.TestCase):
    def test_is_accepted(self):
        self.assertEqual(check(shipped())[0], 0, check(shipped())[1])

    def test_is_accepted_with_every_key_in_force(self):
        text = uncommented(shipped())
        self.assertEqual(check(text)[0], 0, check(text)[1])

    def test_shows_every_key_that_the_daemon_knows_and_no_other(self):
        self.assertTrue(keys_of_daemon())
        self.assertEqual(keys_in(shipped()), keys_of_daemon())

    def test_is_refused_with_a_key_that_there_is_not(self):
        status, text = check(shipped() + "[limits2]\nnothing = 1\n")
        self.assertEqual(status, 1)
        self.assertIn("limits2", text)


if __name__ == "__main__":
    PADDOCKD, PROJECT = sys.argv[1:3]
    unittest.main(argv=sys.argv[:1])
