#!/usr/bin/env python3
"""What docs/architecture.md and CONTRIBUTING.md say of the tree is what is there.

    architecture_page_test.py PROJECT

Every path that they name exists; the picture of the tree has every folder and no other; every function and class
that the picture of a request and the table of rules name is declared or defined in the file beside it.
"""
import glob
import os
import re
import sys
import tempfile
import unittest

ARCHITECTURE, CONTRIBUTING = "docs/architecture.md", "CONTRIBUTING.md"
PATH = re.compile(r"[\w.*-]+(?:/[\w.*-]+)+\.(?:cc|h|md|cmake|py|sh|toml)")
TREE, REQUEST, RULES = "The tree", "One request", "Rules, and where they are"
ROOTS = ("src", "include", "plugins", "apps", "tests")
CODE = (".cc", ".h", ".py", ".sh")


def text_of(project, path):
    with open(os.path.join(project, path), encoding="utf-8") as file:
        return file.read()


def section(page, title):
    """Of a page, what stands below the heading; nothing without it."""
    return ("\n" + page).partition("\n## %s\n" % title)[2].partition("\n## ")[0]


def spans(text):
    """What stands between backquotes, pictures left out."""
    return re.findall(r"`([^`\n]+)`", "\n".join(line for line in text.splitlines() if not line.startswith("    ")))


def pictured(text):
    """The paths of pictures."""
    for line in text.splitlines():
        if line.startswith("    "):
            yield from (word for word in line.split() if PATH.fullmatch(word))


def missing_paths(project, page):
    """The paths of a page that do not exist. An absolute one is the system's."""
    named = [span for span in spans(page) if PATH.fullmatch(span)] + list(pictured(page))
    return sorted({path for path in named if not glob.glob(os.path.join(project, path))})


def is_declared(code, name):
    """Whether C++ has the function, class, member or constant. That it is called there is not enough."""
    scope, _, last = name.rpartition("::")
    if scope and not re.search(r"\b%s\b" % scope, code):
        return False
    kind = r"^ *(?:class|struct|enum|enum class) %s\b" % last
    no_call = r"(?!(?:return|throw|else|case|delete|new)\b)"
    typed = r"^ *(?:\[\[\w+\]\] )?" + no_call + r"\w[\w :<>,*&~\[\]]*[ *&](?:\w+::)*%s *[({=;]"
    broken = r"^(?:\w+::)*%s\("  # a definition whose type stands on the line above
    return any(re.search(pattern, code, re.M) for pattern in (kind, typed % last, broken % last))


def absent_names(project, places):
    """Of (path, name), those that the file does not declare. A::b is b, of an A that is there too."""
    problems = []
    for path, name in places:
        if not os.path.exists(os.path.join(project, path)):
            problems.append("%s: there is no such file" % path)
        elif not is_declared(re.sub(r"//.*", "", text_of(project, path)), name):
            problems.append("%s: no %s" % (path, name))
    return problems


def places_of_rules(page):
    """(path, name) of the table of rules, whose last cell has `path`: `name`, `name`; `path`: `name`."""
    for line in section(page, RULES).splitlines():
        path = None
        for span in spans(line.strip("|").rpartition(" | ")[2]) if line.startswith("|") else ():
            if PATH.fullmatch(span):
                path = span
            else:
                yield path or "(no file in: %s)" % line, span


def places_of_request(page):
    """(path, name) of the picture of a request, whose lines are "name, name   path"."""
    for line in section(page, REQUEST).splitlines():
        found = re.fullmatch(r" {4,}(\S.*?) {2,}(\S+)", line)
        if found and PATH.fullmatch(found.group(2)):
            for name in found.group(1).split(", "):
                yield found.group(2), name


def folders_of_picture(page):
    lines = [line.split() for line in section(page, TREE).splitlines() if line.startswith("    ")]
    return [words[0] for words in lines if re.fullmatch(r"[\w.-]+(?:/[\w.-]+)*", words[0])]


def folders_with_code(project):
    found = set()
    for root in ROOTS:
        for folder, _, files in os.walk(os.path.join(project, root)):
            if any(name.endswith(CODE) for name in files):
                found.add(os.path.relpath(folder, project))
    return found


class MapsOfTheTree(unittest.TestCase):
    def test_name_paths_that_exist(self):
        for name in (ARCHITECTURE, CONTRIBUTING):
            self.assertEqual(missing_paths(PROJECT, text_of(PROJECT, name)), [], name)

    def test_name_functions_beside_their_files(self):
        page = text_of(PROJECT, ARCHITECTURE)
        self.assertEqual(absent_names(PROJECT, places_of_rules(page)), [])
        self.assertEqual(absent_names(PROJECT, places_of_request(page)), [])

    def test_have_every_folder_and_no_other(self):
        pictured_folders = folders_of_picture(text_of(PROJECT, ARCHITECTURE))
        self.assertEqual([path for path in pictured_folders if not os.path.isdir(os.path.join(PROJECT, path))], [])
        self.assertEqual(sorted(folders_with_code(PROJECT) - set(pictured_folders)), [])
        self.assertEqual(len(pictured_folders), len(set(pictured_folders)))

    def test_are_read_as_a_whole(self):
        page = text_of(PROJECT, ARCHITECTURE)
        rows = [line for line in section(page, RULES).splitlines() if line.startswith("| ")]
        self.assertGreater(len(rows), 40)
        self.assertGreater(len(set(path for path, _ in places_of_rules(page))), 40)
        self.assertGreater(len(list(places_of_request(page))), 30)
        self.assertGreater(len([span for span in spans(text_of(PROJECT, CONTRIBUTING)) if PATH.fullmatch(span)]), 10)


class WrongMaps(unittest.TestCase):
    """Of a project of two files, maps that say something else."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.project = folder.name
        code = "// once oldName()\nint Names::freeName(int limit) {\n  called(limit);\n  return called(limit);\n}\n"
        for path, text in (("src/store/names.cc", code),
                           ("tests/store/names_test.py", "")):
            os.makedirs(os.path.dirname(os.path.join(self.project, path)))
            with open(os.path.join(self.project, path), "w", encoding="utf-8") as file:
                file.write(text)

    def test_with_a_wrong_path_are_seen(self):
        page = "`src/store/names.cc`, `src/store/name.cc`, `/etc/a/b.toml`, `names.cc`,\n" \
               "`src/*/names.cc`, `src/*/no.cc`\n\n    freeName    src/names.cc\n"
        self.assertEqual(missing_paths(self.project, page), ["src/*/no.cc", "src/names.cc", "src/store/name.cc"])

    def test_with_a_wrong_name_are_seen(self):
        page = "## %s\n\n| Rule | Where |\n|---|---|\n" % RULES + \
               "| a `word` | `src/store/names.cc`: `Names::freeName`, `called`, `oldName` |\n" \
               "| b | `src/store/no.cc`: `freeName`; `src/store/names.cc`: `Other::freeName` |\n| c | `freeName` |\n"
        self.assertEqual(absent_names(self.project, places_of_rules(page)),
                         ["src/store/names.cc: no called", "src/store/names.cc: no oldName",
                          "src/store/no.cc: there is no such file", "src/store/names.cc: no Other::freeName",
                          "(no file in: | c | `freeName` |): there is no such file"])

    def test_of_a_request_are_seen(self):
        page = "## %s\n\n    the lock is taken\n    freeName, takenName    src/store/names.cc\n" % REQUEST
        self.assertEqual(absent_names(self.project, places_of_request(page)), ["src/store/names.cc: no takenName"])

    def test_with_other_folders_are_seen(self):
        page = "## %s\n\n    src/store     names\n    src/exports   none\n\n## Other\n\n    src/base    none\n" % TREE
        self.assertEqual(folders_of_picture(page), ["src/store", "src/exports"])
        self.assertEqual(folders_with_code(self.project), {"src/store", "tests/store"})


if __name__ == "__main__":
    PROJECT = sys.argv[1]
    unittest.main(argv=sys.argv[:1], verbosity=2)
