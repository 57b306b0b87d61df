#!/usr/bin/env python3
"""What the end of a CI run says, with the lints and the tests replaced by scripts."""
import os
import shutil
import subprocess
import tempfile
import unittest

PROJECT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")

CLEAN_LINT = "echo '== lint found nothing'"
FAILING_LINT = "echo 'a.cc:1: error: x'; echo 'paddock: lint: these found faults: shellcheck' >&2; exit 1"
NOTICE = "The lints did not pass: paddock: lint: these found faults: shellcheck"
PASSING_TESTS = "echo some tests; echo '100% tests passed, 0 tests failed out of 2'; echo; echo 'Total Test time'"
FAILING_TESTS = "echo some tests; echo '50% tests passed, 1 tests failed out of 2'; echo 'Total Test time'; exit 1"
BROKEN_BUILD = "echo 'building failed' >&2; exit 1"


def ci_run(lint, tests):
    """(exit status, lines) of a CI run."""
    with tempfile.TemporaryDirectory() as folder:
        os.mkdir(os.path.join(folder, ".ci"))
        shutil.copy(os.path.join(PROJECT, ".ci", "run"), os.path.join(folder, ".ci", "run"))
        script = os.path.join(folder, "paddock")
        with open(script, "w", encoding="utf-8") as f:
            f.write("#!/bin/sh\ncase $1 in\nlint) %s ;;\ntest) %s ;;\nesac\n" % (lint, tests))
        os.chmod(script, 0o755)
        run = subprocess.run([os.path.join(folder, ".ci", "run")], stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, check=False)
        return run.returncode, [line for line in run.stdout.decode().split("\n") if line]


class CiRun(unittest.TestCase):
    def test_says_nothing_of_lints_that_passed(self):
        status, lines = ci_run(CLEAN_LINT, PASSING_TESTS)
        self.assertEqual(status, 0)
        self.assertEqual(lines[-3:], ["some tests", "100% tests passed, 0 tests failed out of 2", "Total Test time"])

    def test_names_the_lints_that_failed_before_the_summary_of_the_tests(self):
        for tests, summary in (PASSING_TESTS, "100% tests passed, 0 tests failed out of 2"), \
                              (FAILING_TESTS, "50% tests passed, 1 tests failed out of 2"):
            status, lines = ci_run(FAILING_LINT, tests)
            self.assertEqual(status, 1)
            self.assertEqual(lines[-4:], ["some tests", NOTICE, summary, "Total Test time"])

    def test_names_them_at_the_end_when_there_is_no_summary(self):
        status, lines = ci_run(FAILING_LINT, BROKEN_BUILD)
        self.assertEqual(status, 1)
        self.assertEqual(lines[-2:], ["building failed", NOTICE])

    def test_fails_when_only_the_tests_fail(self):
        status, lines = ci_run(CLEAN_LINT, FAILING_TESTS)
        self.assertEqual(status, 1)
        self.assertEqual(lines[-1], "Total Test time")


if __name__ == "__main__":
    unittest.main()
