#!/usr/bin/env python3
"""docs/statuses.md has every status of the code, with the code's numbers and names, and no other.

    statuses_page_test.py PROJECT
"""
import errno
import glob
import os
import re
import sys
import unittest

MODULE, DIRECTORY, SYSTEM = "The module's statuses", "The directory layer's statuses", "System error numbers"
# The operations' own answers. Elsewhere in the sources errno is looked at, as in a comparison, and does not
# get to a reply.
ANSWERS = ("plugins/*/*.cc", "src/daemon/http/exchange.cc", "src/daemon/http/reply.cc",
           "src/platform/linux/ldap/ldap_error.cc", "src/platform/linux/database/sqlite.cc")
GIVEN = re.compile(r"(?<![=!]= )\b(E[A-Z0-9]+)\b")
ERRORS = re.compile(r"DirectoryError\((E[A-Z0-9]+)")
LAYERS = ("exports", "handler", "platform", "platform/linux", "platform/linux/*", "privileges", "store",
          "store/backup", "volumes")


def text_of(path):
    with open(os.path.join(PROJECT, path), encoding="utf-8") as file:
        return file.read()


def sources(*patterns):
    """Their texts by path, without tests."""
    paths = [path for pattern in patterns for path in glob.glob(os.path.join(PROJECT, pattern))]
    return {path: text_of(path) for path in paths if not path.endswith("_test.cc")}


def module_sources():
    return sources(*("src/%s/*.%s" % (layer, ending) for layer in LAYERS for ending in ("cc", "h")))


def rows(section):
    """The cells of a section's table, without its heading."""
    lines = text_of("docs/statuses.md").split("\n## %s\n" % section, 1)[1].split("\n## ", 1)[0].splitlines()
    table = [[cell.strip() for cell in line.strip("|").split("|")] for line in lines if line.startswith("|")]
    return table[2:]


def enumerators():
    """Name to number of the module's enumeration."""
    body = re.search(r"enum SharingStatus : Status \{(.*?)\};", text_of("src/base/status.h"), re.S).group(1)
    result, number = {}, None
    for name, given in re.findall(r"(\w+)(?: = (\d+))?,", body):
        number = int(given) if given else number + 1
        result[name] = number
    return result


class StatusesPage(unittest.TestCase):
    def test_has_every_status_of_the_module(self):
        told = {row[1]: int(row[0]) for row in rows(MODULE)}
        self.assertEqual(told, enumerators())
        self.assertEqual([int(row[0]) for row in rows(MODULE)], list(range(100050, 100081)))

    def test_has_the_texts_of_the_module(self):
        names = re.search(r"kStatusNames = \{(.*?)\};", text_of("src/base/status.cc"), re.S).group(1)
        self.assertEqual([row[1] for row in rows(MODULE)], re.findall(r'"(\w+)"', names))

    def test_calls_reserved_what_no_code_returns(self):
        code = "\n".join(re.sub(r"//.*", "", text) for text in module_sources().values())
        for row in rows(MODULE):
            self.assertEqual(row[2] == "reserved", not re.search(r"\b%s\b" % row[1], code), row[1])

    def test_has_every_status_of_the_directory_layer(self):
        texts = [*module_sources().values(), text_of("src/base/status.h")]
        numbers = {int(number) for text in texts for number in re.findall(r"constexpr Status k\w+ = (-\d+);", text)}
        self.assertEqual({int(row[0]) for row in rows(DIRECTORY)}, numbers)

    def test_has_system_errors_as_the_system_has_them(self):
        told = [(int(row[0]), row[1], row[2]) for row in rows(SYSTEM)]
        for number, name, text in told:
            self.assertEqual(number, getattr(errno, name, None), name)
            self.assertEqual(text, os.strerror(number), name)
        self.assertEqual(told, sorted(told))

    def test_has_every_system_error_that_an_answer_names(self):
        named = set()
        for text in sources(*ANSWERS).values():
            named.update(name for name in GIVEN.findall(re.sub(r"//.*", "", text))
                         if hasattr(errno, name))
        for text in module_sources().values():
            named.update(ERRORS.findall(text))
        page = text_of("docs/statuses.md")
        self.assertLessEqual({"EACCES", "EBUSY", "EEXIST", "EINVAL", "ENOENT", "ETIMEDOUT"}, named)
        self.assertEqual([name for name in sorted(named) if not re.search(r"\b%s\b" % name, page)], [])

    def test_says_why_and_what_to_do(self):
        for section in (MODULE, DIRECTORY, SYSTEM):
            for row in rows(section):
                self.assertEqual(len(row), {MODULE: 5, DIRECTORY: 4, SYSTEM: 6}[section], row)
                self.assertTrue("reserved" in row or all(row[:-1]), row)


if __name__ == "__main__":
    PROJECT = sys.argv[1]
    unittest.main(argv=sys.argv[:1], verbosity=2)
