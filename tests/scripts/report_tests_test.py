#!/usr/bin/env python3
"""What a test run is told about its inventory and its skipped tests."""
import contextlib
import io
import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts"))
import report_tests  # noqa: E402

GOOGLE_TEST_OUTPUT = """[ RUN      ] Quota.isEnforced
/somewhere/quota_test.cc:12: Skipped
needs a kernel with quotas,
and this one has none

[  SKIPPED ] Quota.isEnforced (0 ms)
"""

SILENT_OUTPUT = """[ RUN      ] Quota.isEnforced
/somewhere/quota_test.cc:12: Skipped

[  SKIPPED ] Quota.isEnforced (0 ms)
"""


def faults(built, listed, skipped=()):
    with contextlib.redirect_stdout(io.StringIO()) as out:
        count = report_tests.report(built, listed, list(skipped))
    return count, out.getvalue()


class Report(unittest.TestCase):
    def test_a_full_run_has_no_fault(self):
        self.assertEqual(faults(["a", "b"], ["a", "b"])[0], 0)

    def test_a_listed_test_that_is_gone(self):
        count, text = faults(["a"], ["a", "b"])
        self.assertEqual(count, 1)
        self.assertIn("missing: b", text)

    def test_a_test_that_is_not_listed(self):
        count, text = faults(["a", "b"], ["a"])
        self.assertEqual(count, 1)
        self.assertIn("unlisted: b", text)

    def test_two_tests_of_one_name(self):
        self.assertEqual(faults(["a", "a"], ["a"])[0], 1)

    def test_an_inventory_that_is_not_sorted(self):
        self.assertEqual(faults(["a", "b"], ["b", "a"])[0], 1)

    def test_a_skipped_test_with_its_reason(self):
        count, text = faults(["a"], ["a"], [("a", "no kernel")])
        self.assertEqual(count, 0)
        self.assertIn("skipped (1): no kernel\n    a\n", text)

    def test_a_skipped_test_without_a_reason(self):
        count, text = faults(["a"], ["a"], [("a", "")])
        self.assertEqual(count, 1)
        self.assertIn("skipped without saying why: a", text)


class Reason(unittest.TestCase):
    def test_of_a_google_test(self):
        self.assertEqual(report_tests.reason_in(GOOGLE_TEST_OUTPUT),
                         "needs a kernel with quotas, and this one has none")

    def test_of_a_google_test_that_gives_none(self):
        self.assertEqual(report_tests.reason_in(SILENT_OUTPUT), "")

    def test_of_a_script(self):
        self.assertEqual(report_tests.reason_in("some words\nskipped: no guest\n"), "no guest")

    def test_of_no_output(self):
        self.assertEqual(report_tests.reason_in(""), "")


class Results(unittest.TestCase):
    def skipped_in(self, text):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "results.xml")
            with open(path, "w", encoding="utf-8") as f:
                f.write(text)
            return list(report_tests.skipped_in(path))

    def test_name_each_skipped_test(self):
        self.assertEqual(self.skipped_in(
            '<testsuite><testcase name="a" status="run"/>'
            '<testcase name="b" status="notrun"><skipped message="x"/>'
            '<system-out>skipped: no guest\n</system-out></testcase></testsuite>'), [("b", "no guest")])

    def test_count_a_disabled_test_as_skipped(self):
        self.assertEqual(self.skipped_in('<testsuite><testcase name="a" status="disabled"/></testsuite>'),
                         [("a", "")])


if __name__ == "__main__":
    unittest.main()
