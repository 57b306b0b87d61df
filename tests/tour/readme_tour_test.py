#!/usr/bin/env python3
"""The README's tour, typed as it stands there, prints what stands there.

    readme_tour_test.py CMAKE BUILD_FOLDER README

It is typed on a copy of this system whose changes are thrown away (an overlay), so that paths, names
and mount points are those of the page. What must differ is left out of the comparison: time, pid,
request id and milliseconds. JSON that the page breaks over several lines is compared as a value.
"""
import json
import os
import re
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from own_namespaces import in_namespaces, skip  # noqa: E402

DIFFERS = ("ms", "pid", "request", "time")
INSTALL = "./paddock install "
END = "--- end of the output, status "


def steps_of(page):
    """The tour's commands with what the page says that each prints."""
    tour = page.split("\n## A tour\n", 1)[1].split("\n## ", 1)[0]
    steps = []
    for line in re.findall(r"^    (.*)$", tour, re.M):
        if line.startswith("$ "):
            steps.append([line[2:], []])
        elif steps[-1][0].endswith("\\"):
            steps[-1][0] += "\n" + line
        else:
            steps[-1][1].append(line)
    return steps


def as_json(lines):
    """Their value, when they are a dictionary in JSON, however it is broken over the lines."""
    text = "".join(lines)
    return json.loads(text) if text.startswith("{") else None


def without_what_differs(value):
    return {key: held for key, held in value.items() if key not in DIFFERS}


class Shell:
    """A shell that a person types into, on the system that is thrown away."""

    def __init__(self, root, build):
        self.build = build
        self.process = subprocess.Popen(["chroot", root, "/bin/bash"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True, bufsize=1,
                                        env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "LC_ALL": "C.UTF-8"})

    def type(self, command):
        """What it prints, by lines, and its status."""
        if command.startswith(INSTALL):
            command = "DESTDIR=%s %s --install '%s' --prefix /usr >/dev/null" % (
                command[len(INSTALL):], CMAKE, self.build)
        if command.endswith("&"):
            command = command[:-1] + ">/tmp/daemon.log 2>&1 </dev/null &"
        self.process.stdin.write(command + "\nprintf '\\n%s%%s\\n' $?\n" % END)
        lines = []
        for line in self.process.stdout:
            if line.startswith(END):
                if lines and lines[-1] == "":
                    lines.pop()
                return lines, int(line[len(END):])
            lines.append(line.rstrip("\n"))
        raise AssertionError("the shell ended: " + "\n".join(lines))

    def await_daemon(self):
        """What a person's fingers take longer than."""
        for _ in range(300):
            if self.type("keelhouse status")[1] != 3:
                return
            time.sleep(0.1)
        raise AssertionError("the daemon does not answer: " + "\n".join(self.type("cat /tmp/daemon.log")[0]))

    def end(self):
        self.type("kill %1; wait")
        self.process.stdin.close()
        self.process.wait()
        self.process.stdout.close()


def mount(*words):
    subprocess.run(["mount", *words], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def thrown_away_system(build):
    """A root folder that shows this system, and keeps changes in memory."""
    for name in ("changes", "work", "root"):
        os.makedirs("/run/tour/" + name)
    try:
        mount("-t", "overlay", "overlay", "-o", "lowerdir=/,upperdir=/run/tour/changes,workdir=/run/tour/work",
              "/run/tour/root")
    except subprocess.CalledProcessError:
        skip("this system mounts no overlay of its root folder")
    root = "/run/tour/root"
    for folder in ("/proc", "/dev"):
        mount("--rbind", folder, root + folder)
    os.makedirs(root + build, exist_ok=True)
    mount("--bind", build, root + build)
    return root


class ReadmeTour(unittest.TestCase):
    maxDiff = None

    def check_output(self, command, told, printed):
        value = as_json(told)
        if value is None:
            self.assertEqual(printed, told, command)
        else:
            self.assertEqual(without_what_differs(as_json(printed)), without_what_differs(value), command)

    def test_prints_what_the_page_says(self):
        with open(README, encoding="utf-8") as page:
            steps = steps_of(page.read())
        self.assertGreater(len(steps), 10)
        shell = Shell(thrown_away_system(BUILD), BUILD)
        self.addCleanup(shell.end)
        for command, told in steps:
            with self.subTest(command=command):
                printed, status = shell.type(command)
                self.assertEqual(status, 0, "%s: %s" % (command, printed))
                self.check_output(command, told, printed)
            if command.startswith("PATH="):
                shell.await_daemon()
        print("%d commands of the tour printed what the page says" % len(steps))


if __name__ == "__main__":
    in_namespaces(__file__, sys.argv[1:], ("unshare", "curl"))
    CMAKE, BUILD, README = sys.argv[1:4]
    unittest.main(argv=sys.argv[:1])
