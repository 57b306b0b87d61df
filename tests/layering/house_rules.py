#!/usr/bin/env python3
"""Reads the tree against the bounds on sizes, names, repeated code and commit subjects.

    house_rules.py [PROJECT]

Prints one line per fault and exits 1 when there is one. What it asks of the tree:

- a C++ file has at most 500 lines, a test (*_test.cc, and what lies below tests) at most 600;
- the body of a test has at most 50 lines. How long any other function is, clang-tidy says
  (readability-function-size); it does not look into functions that macros of other code begin;
- a folder holds at most 60 C++ files of its own;
- no two files that git keeps have the same name, but those of ANY_FOLDER;
- six consecutive lines of C++ stand once, but those of MIRRORS. What cannot be said once is not
  counted: blank lines, comments, brackets alone, #include, using and namespace lines, and
  declarations with override, which every implementation of an interface repeats;
- a commit's subject has at most 72 characters. The commits since the last tag are read, and none
  that came before SUBJECTS_AFTER: at that one, the last whose subject is longer, the bound began.
  Where the history does not hold it, all commits there are are read.

A tree without .git, as a tarball is, has no commits to read, and all its files but those below
build stand for git's.
"""
import collections
import fnmatch
import os
import re
import subprocess
import sys

SOURCE_FOLDERS = ("src", "include", "plugins", "apps", "bench", "fuzz", "scripts", "tests")
ENDINGS = (".h", ".cc")
SOURCE_LINES, TEST_LINES = 500, 600
BODY_LINES = 50  # as .clang-tidy has it: from the line of the opening brace to that of the closing one
FOLDER_FILES = 60
REPEATED_LINES = 6
SUBJECT_LENGTH = 72
SUBJECTS_AFTER = "583d6015971105e8900576444e037bb82ffb454d"

# Files that may have the name of another one, and why: their names are given from outside.
ANY_FOLDER = {
    "README.md": "the page that is shown for a folder",
    "*/README.md": "the page that is shown for a folder",
    "CMakeLists.txt": "CMake's",
    "*/CMakeLists.txt": "CMake's",
    "fuzz/corpus/*": "named after the input, below the folder of its target",
    "packaging/pam.d/*": "PAM looks for the service's name",
    "packaging/logrotate/*": "installed as it is in /etc/logrotate.d, where files have their package's name",
}

# Pairs of files (in the order of their paths) that hold the same lines on purpose, and why.
MIRRORS = {
    ("apps/synchronize-shares/samba_configuration.cc", "apps/synchronize-shares/samba_configuration_test.cc"):
        "the options that a share gets, and the whole section that is expected",
    ("src/exports/export_options.cc", "tests/exports/exportfs_test.cc"):
        "the options that are known, and those that exportfs is asked about one by one",
}

UNCOUNTED = re.compile(r"(?:[{}()\[\];,]*\s*(?://.*)?|#\s*include\b.*|using (?:namespace )?[\w:]+;"
                       r"|(?:inline )?namespace\b[^;]*\{)$")
TEST_CASE = re.compile(r"(?:TYPED_)?TEST(?:_F|_P)?\(")
END_OF_STATEMENT = (";", "{", "}", ":")

Place = collections.namedtuple("Place", "path first last")


def git(root, *arguments):
    """What git prints about the tree `root`, whatever repository the environment names."""
    environment = {name: value for name, value in os.environ.items() if not name.startswith("GIT_")}
    run = subprocess.run(["git", "-C", root, *arguments], env=environment, check=False,
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if run.returncode != 0:
        raise SystemExit("tree: git %s: %s" % (arguments[0], run.stderr.decode("utf-8", "replace").strip()))
    return run.stdout.decode("utf-8", "replace")


def has_history(root):
    return os.path.exists(os.path.join(root, ".git"))


def cxx_files(root):
    for top in SOURCE_FOLDERS:
        for folder, _, names in os.walk(os.path.join(root, top)):
            for name in names:
                if name.endswith(ENDINGS):
                    yield os.path.relpath(os.path.join(folder, name), root)


def read_lines(root, path):
    with open(os.path.join(root, path), encoding="utf-8") as f:
        return [line.rstrip("\n") for line in f]


def is_test(path):
    return path.endswith("_test.cc") or path.startswith("tests/")


def check_lengths(texts):
    for path, lines in texts.items():
        most, kind = (TEST_LINES, "test") if is_test(path) else (SOURCE_LINES, "source")
        if len(lines) > most:
            yield "%s:%d: the %s file has %d lines, at most %d are allowed: part it by subject" % (
                path, most + 1, kind, len(lines), most)


def check_test_bodies(path, lines):
    """The faults of tests in a file that clang-format has formatted."""
    name = opened = None
    for number, line in enumerate(lines, 1):
        if name is None and TEST_CASE.match(line):
            name, opened = number, None
        if name is not None and opened is None and line.endswith("{"):
            opened = number
        elif opened is not None and line.startswith("}"):
            if number - opened > BODY_LINES:
                yield "%s:%d: the test's body has %d lines, at most %d are allowed: part it, or name its steps" % (
                    path, name, number - opened, BODY_LINES)
            name = opened = None


def check_folders(paths):
    for folder, count in collections.Counter(map(os.path.dirname, paths)).items():
        if count > FOLDER_FILES:
            yield "%s: holds %d C++ files, at most %d are allowed: sort them into folders of their subjects" % (
                folder, count, FOLDER_FILES)


def kept_files(root):
    """The files that git keeps, or those of a tarball."""
    if has_history(root):
        for path in git(root, "ls-files", "-z").split("\0"):
            if path and os.path.lexists(os.path.join(root, path)):
                yield path
        return
    for folder, folders, names in os.walk(root):
        if folder == root and "build" in folders:
            folders.remove("build")
        for name in names:
            yield os.path.relpath(os.path.join(folder, name), root)


def check_names(paths):
    places = collections.defaultdict(list)
    for path in sorted(paths):
        if not any(fnmatch.fnmatch(path, pattern) for pattern in ANY_FOLDER):
            places[os.path.basename(path)].append(path)
    for name, found in places.items():
        for path in found[1:]:
            yield "%s: the name %s stands %d times, at %s too: give it a name of its own" % (
                path, name, len(found), found[0])


def without_overrides(lines):
    """`lines` without the declarations that end in override."""
    kept = []
    for number, line in lines:
        if not line.endswith(" override;"):
            kept.append((number, line))
            continue
        while kept and kept[-1][0] == number - 1 and not kept[-1][1].endswith(END_OF_STATEMENT):
            number, _ = kept.pop()
    return kept


def counted_lines(lines):
    """(number, text) of each line that counts when lines are compared."""
    counted, in_comment = [], False
    for number, line in enumerate(lines, 1):
        line = line.strip()
        if in_comment or line.startswith("/*"):
            in_comment = "*/" not in line
        elif not UNCOUNTED.match(line):
            counted.append((number, line))
    return without_overrides(counted)


def common_length(one, at, other, there):
    length = 0
    while (at + length < len(one) and there + length < len(other)
           and one[at + length][1] == other[there + length][1]):
        length += 1
    return length


def repeats(texts):
    """(count, Place, Place) of each run of lines that stands in both places."""
    lines = {path: counted_lines(text) for path, text in sorted(texts.items())}
    windows = collections.defaultdict(list)
    for path, own in lines.items():
        for start in range(len(own) - REPEATED_LINES + 1):
            windows[tuple(line for _, line in own[start:start + REPEATED_LINES])].append((path, start))
    for found in windows.values():
        for index, (path, start) in enumerate(found):
            for other, there in found[index + 1:]:
                if start and there and lines[path][start - 1][1] == lines[other][there - 1][1]:
                    continue  # a run that began earlier
                count = common_length(lines[path], start, lines[other], there)
                if path == other:
                    count = min(count, there - start)
                if count >= REPEATED_LINES:
                    yield (count,) + tuple(Place(p, lines[p][s][0], lines[p][s + count - 1][0])
                                           for p, s in ((path, start), (other, there)))


def check_repeats(texts, mirrors):
    needed = set()
    for count, one, other in sorted(repeats(texts), key=lambda repeat: repeat[1:]):
        if (one.path, other.path) in mirrors:
            needed.add((one.path, other.path))
            continue
        yield "%s:%d: %d lines (to line %d) stand again at %s:%d: write them once, and use them in both places" % (
            one.path, one.first, count, one.last, other.path, other.first)
    for pair in mirrors:
        if pair not in needed:
            yield "%s: holds no lines of %s any more: take the pair out of MIRRORS in %s" % (
                pair + (os.path.basename(__file__),))


def check_subjects(root, after):
    ends = ["--tags"]
    if after in git(root, "rev-list", "HEAD").split():
        ends.append(after)
    for line in git(root, "log", "--format=%h %s", "HEAD", "--not", *ends).splitlines():
        commit, _, subject = line.partition(" ")
        if len(subject) > SUBJECT_LENGTH:
            yield "commit %s: its subject has %d characters, at most %d are allowed: reword it: %s" % (
                commit, len(subject), SUBJECT_LENGTH, subject)


def faults(root, mirrors, after):
    texts = {path: read_lines(root, path) for path in sorted(cxx_files(root))}
    if not texts:
        yield "no source files below " + root
    yield from check_lengths(texts)
    for path, lines in texts.items():
        yield from check_test_bodies(path, lines)
    yield from check_folders(texts)
    yield from check_names(kept_files(root))
    yield from check_repeats(texts, mirrors)
    if has_history(root):
        yield from check_subjects(root, after)


def main(argv):
    here = os.path.dirname(os.path.abspath(__file__))
    root = argv[1] if len(argv) > 1 else os.path.join(here, "..", "..")
    found = list(faults(root, MIRRORS, SUBJECTS_AFTER))
    for fault in found:
        print(fault)
    if not has_history(root):
        print("tree: commit subjects are not read: there is no .git")
    print("tree: %d fault%s" % (len(found), "" if len(found) == 1 else "s"))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
