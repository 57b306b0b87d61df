#!/usr/bin/env python3
"""What ./paddock lint says once more at its end."""
import os
import subprocess
import tempfile
import unittest

SCRIPTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts")
SCRIPT = """
set -euo pipefail
project=$1
. "$2/common.sh"
. "$2/lint.sh"
need_packages() { :; }
configure() { :; }
lint_format() { :; }
lint_scripts() { echo 'In run line 3:'; echo 'rm $x'; return 1; }
lint_layering() { echo 'no fault'; }
lint_tree() { echo 'a.h:501: long'; return 1; }
lint_tidy() { cat -- "$project/tidy"; echo 'xargs: killed' >"$(lint_log clang-tidy).stderr"; return 1; }
command_lint
"""
HEADER = "a.h:1:2: error: no [x,-warnings-as-errors]\n"
SOURCE = "b.cc:3:4: warning: hm [y]\n"


def end_of_lint(tidy):
    """(exit status, what follows after the lints themselves) when clang-tidy says `tidy`."""
    with tempfile.TemporaryDirectory() as folder:
        os.makedirs(os.path.join(folder, "build", "log"))
        with open(os.path.join(folder, "tidy"), "w", encoding="utf-8") as f:
            f.write(tidy.replace("DIR", folder))
        run = subprocess.run(["bash", "-c", SCRIPT, "bash", folder, SCRIPTS], check=False,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return run.returncode, run.stdout.decode().split("== shellcheck found:\n")[1]


class Lint(unittest.TestCase):
    def test_repeats_every_finding_once_and_names_what_failed(self):
        tidy = "DIR/" + SOURCE + "  3 | code\n" + "DIR/" + HEADER + "DIR/" + HEADER
        self.assertEqual(end_of_lint(tidy), (1, "In run line 3:\nrm $x\n== tree found:\na.h:501: long\n"
                                             "== clang-tidy found:\n" + HEADER + SOURCE +
                                             "paddock: lint: these found faults: shellcheck tree clang-tidy\n"))

    def test_a_clang_tidy_that_broke_down_without_a_finding_shows_what_it_said(self):
        self.assertIn("== clang-tidy found:\nxargs: killed\n", end_of_lint("")[1])


if __name__ == "__main__":
    unittest.main()
