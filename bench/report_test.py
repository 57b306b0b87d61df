"""Tests of report.py."""

import json
import unittest

import report


class Verdict(unittest.TestCase):
    def test_a_ratio_at_its_target_meets_it(self):
        self.assertTrue(report.ratio_row("m", 50, 1000, 0.05).met)

    def test_a_ratio_above_its_target_does_not(self):
        row = report.ratio_row("m", 51, 1000, 0.05)
        self.assertFalse(row.met)
        self.assertEqual(row.verdict, "NOT met")

    def test_a_row_without_a_target_has_no_verdict(self):
        row = report.ratio_row("m", 51, 1000)
        self.assertIsNone(row.met)
        self.assertEqual(row.verdict, "")


class Texts(unittest.TestCase):
    def test_times_keep_three_digits(self):
        self.assertEqual(report.milliseconds(1_234_567), "1.23 ms")
        self.assertEqual(report.milliseconds(12_345_678_901), "12,346 ms")

    def test_the_table_has_a_line_per_row_below_its_head(self):
        text = report.table([report.ratio_row("first", 1e6, 2e6, 1),
                             report.ratio_row("second", 4e6, 2e6, 1)])
        lines = text.splitlines()
        self.assertEqual(len(lines), 4)
        self.assertEqual(lines[2].split(), ["first", "1", "ms", "2", "ms", "0.5", "<=", "1", "met"])
        self.assertTrue(lines[3].endswith("NOT met"))

    def test_json_keeps_the_numbers(self):
        rows = [report.ratio_row("first", 1e6, 2e6, 1, samples={"ours": [1e6]})]
        kept = json.loads(report.as_json(rows, {"processors": 2}))
        self.assertEqual(kept["machine"], {"processors": 2})
        self.assertEqual(kept["measures"][0]["value"], 0.5)
        self.assertIs(kept["measures"][0]["met"], True)
        self.assertEqual(kept["measures"][0]["samples"], {"ours": [1e6]})


if __name__ == "__main__":
    unittest.main()
