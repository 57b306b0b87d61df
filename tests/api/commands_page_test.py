#!/usr/bin/env python3
"""Every `keelhouse ...` of the documentation is a command of the program, with options that it has.

    commands_page_test.py KEELHOUSE PROJECT

What stands as code counts: in pages between backquotes or indented, in manuals in bold or in an example.
"""
import functools
import glob
import os
import re
import shlex
import subprocess
import sys
import unittest

PAGES = ("*.md", "docs/*.md", "docs/formats/*.md")
MANUALS = ("apps/*/*.8",)
HISTORY = "CHANGELOG.md"  # where a command may be one of its time
SECONDS = 30
END = re.compile(r"[|;&>]")


@functools.lru_cache(maxsize=None)
def help_of(command):
    ran = subprocess.run([KEELHOUSE, *command, "--help"], capture_output=True, text=True, timeout=SECONDS, check=False)
    if ran.returncode != 0:
        raise RuntimeError("keelhouse %s --help: %s" % (" ".join(command), ran.stderr))
    return ran.stdout


def subcommands(command):
    section = help_of(command).partition("\nSubcommands:\n")[2]
    return set(re.findall(r"^  ([a-z][a-z-]*)", section, re.M))


def options(command):
    return set(re.findall(r"--[a-z][a-z-]*", help_of(command) + help_of(())))


def words_of(text):
    """Those of the first command of a line, as a shell has them."""
    text = re.sub(r"[\[\]]", " ", text)
    try:
        lexer = shlex.shlex(text, posix=True, punctuation_chars="|;&<>()")
        lexer.whitespace_split, lexer.commenters = True, ""
        words = list(lexer)
    except ValueError:  # a quote that a text has and a shell has not
        words = text.split()
    end = next((at for at, word in enumerate(words) if END.match(word)), len(words))
    return words[:end]


def problem_of(text):
    """None, or what the program does not know of the line "keelhouse ..."."""
    command, rest = (), words_of(text)[1:]
    while rest:
        known = subcommands(command)
        if command == ("help",) or not known:
            break
        word = rest.pop(0)
        if word in ("--root", "--socket"):
            rest = rest[1:]
        elif re.fullmatch(r"[a-z][a-z-]*", word):
            if word not in known:
                return "no command %s" % " ".join((*command, word))
            command += (word,)
        elif not word.startswith("--"):
            break  # stands for any of them
        elif word not in options(command):
            return "%s has no option %s" % (" ".join(command) or "keelhouse", word)
    if command == ("help",):
        return problem_of(" ".join(["keelhouse", *rest]))
    given = {word.partition("=")[0] for word in rest if re.match(r"--[a-z]", word)}
    missing = given - options(command)
    return "%s has no option %s" % (" ".join(command), ", ".join(sorted(missing))) if missing else None


def joined(text):
    return re.sub(r"\\\n\s*", " ", text)


def in_page(text):
    """The commands of a page."""
    code = [line for block in re.findall(r"^```.*?\n(.*?)^```", text, re.M | re.S)
            for line in joined(block).splitlines()]
    text = re.sub(r"^```.*?^```", "", text, flags=re.M | re.S)
    code += [line for line in joined(text).splitlines() if line.startswith("    ")]
    for line in code:
        yield from re.findall(r"(?:^\s*(?:\$ )?|[|;] )(keelhouse (?! )[^|]*)", line)
    prose = "\n".join(line for line in text.splitlines() if not line.startswith("    "))
    for paragraph in prose.split("\n\n"):
        for span in re.findall(r"`([^`]*)`", paragraph):
            if span.startswith("keelhouse "):
                yield " ".join(span.split())


def in_manual(text):
    """The commands of a manual."""
    text = re.sub(r"\\\(aq", "'", text).replace("\\-", "-").replace("\\&", "")
    for block in re.findall(r"^\.(?:nf|EX)\n(.*?)^\.(?:fi|EE)", text, re.M | re.S):
        for line in joined(block.replace("\\e", "\\")).splitlines():
            yield from re.findall(r"(?:^\s*(?:\$ )?|[|;] )(keelhouse [^|]*)", line)
    yield from re.findall(r"^\.B (keelhouse .*)", text, re.M)
    yield from re.findall(r'^\.B[RI] "(keelhouse [^"]*)"', text, re.M)


def commands():
    """(path, command) of all."""
    for patterns, commands_in in ((PAGES, in_page), (MANUALS, in_manual)):
        for path in sorted(path for pattern in patterns for path in glob.glob(os.path.join(PROJECT, pattern))):
            name = os.path.relpath(path, PROJECT)
            if name != HISTORY:
                with open(path, encoding="utf-8") as file:
                    yield from ((name, command) for command in commands_in(file.read()))


class CommandsOfTheDocumentation(unittest.TestCase):
    def test_are_commands_of_the_program(self):
        problems = ["%s: %s: %s" % (path, command, problem) for path, command in commands()
                    for problem in [problem_of(command)] if problem]
        self.assertEqual(problems, [])

    def test_are_found_everywhere(self):
        found = {path for path, _ in commands()}
        self.assertLessEqual({"README.md", "docs/statuses.md", "docs/samba.md", "apps/keelhouse/keelhouse.8",
                              "apps/paddockd/paddockd.8"}, found)

    def test_that_do_not_exist_are_seen(self):
        page = "A word `keelhouse quota list VOLUME`,\nand `keelhouse share\nadd PATH --wrong`.\n\n    $ keelhouse no\n"
        self.assertEqual([problem_of(command) for command in in_page(page)],
                         ["no command no", "no command quota list", "share add has no option --wrong"])
        manual = '.B keelhouse quots\n.BR "keelhouse acl sho" ,\n.nf\nkeelhouse share list \\-\\-jsn\n.fi\n'
        self.assertEqual([problem_of(command) for command in in_manual(manual)],
                         ["share list has no option --jsn", "no command quots", "no command acl sho"])
        self.assertIsNone(problem_of("keelhouse --json --root /t share set /srv --option 'a = --b' --nfs"))


if __name__ == "__main__":
    KEELHOUSE, PROJECT = sys.argv[1:]
    unittest.main(argv=sys.argv[:1], verbosity=2)
