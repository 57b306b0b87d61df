#!/usr/bin/env python3
"""Compile commands for clang-tidy: compile_commands.py FROM TO [PRECOMPILED]

Of the build folder FROM, one command for each source (some are compiled for several programs) into the
folder TO. Tests get PRECOMPILED, a header precompiled by clang with the flags that they share; without it,
these flags are printed, one to a line, for making it.
"""
import collections
import json
import pathlib
import shlex
import sys

GOOGLETEST = "-DGTEST_HAS_PTHREAD=1"

def flags(command):
    """Without the compiler, what it writes, and the source."""
    words = shlex.split(command)[1:]
    return words[: words.index("-o")]


def kind(command):
    """The flags that a precompiled header and its user have in common."""
    return [flag for flag in flags(command) if flag == GOOGLETEST or not flag.startswith(("-D", "-I"))]


def kind_of_tests(commands):
    """That of most tests: a library of theirs may be compiled otherwise."""
    kinds = collections.Counter(tuple(kind(command)) for command in commands if GOOGLETEST in command)
    return list(kinds.most_common(1)[0][0])


def main():
    build, folder = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    commands = {}
    for command in json.loads((build / "compile_commands.json").read_text()):
        commands.setdefault(command["file"], command)
    tests = kind_of_tests(command["command"] for command in commands.values())
    if len(sys.argv) < 4:
        print("\n".join(tests))
        return
    for command in commands.values():
        if kind(command["command"]) == tests:
            command["command"] += " -include-pch " + shlex.quote(sys.argv[3])
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "compile_commands.json").write_text(json.dumps(list(commands.values()), indent=0))


main()
