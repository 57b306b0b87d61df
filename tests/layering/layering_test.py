#!/usr/bin/env python3
"""Plants one fault after the other in a small tree and asks layering.py to find it."""
import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import layering  # noqa: E402

TABLE = '''
set(PADDOCK_LAYERS
  "base           | src/base           |"
  "api            | include/paddock    | base"
  "platform       | src/platform       | base"
  "platform_linux | src/platform/linux | platform base"
  "plugins        | plugins            | platform_linux base"
  "linux_files    | src/platform/linux/files | base"
  "linux_ldap     | src/platform/linux/ldap  | base"
  "apps           | apps               | linux_* base"
)
set(PADDOCK_PLAIN_LAYERS base platform)
'''

SOUND = {
    "cmake/layers.cmake": TABLE,
    "src/base/value.h": "#pragma once\n#include <string>\n#include <sys/stat.h>\n",
    "src/base/value.cc": '#include "base/value.h"\n/* #include "platform/x.h" */\n',
    "src/base/value_test.cc": '#include "platform/clock.h"\n#include <gtest/gtest.h>\n#include "helpers.h"\n',
    "src/platform/clock.h": '#include "base/value.h"\n',
    "src/platform/linux/clock.cc": '#include <sqlite3.h>\n#include "platform/clock.h"\n',
    "include/paddock/host.h": '#include "base/value.h"\n',
    "plugins/one/one.cc": '#include "one.h"\n#include "one/one.h"\n#include "base/value.h"\n',
    "plugins/one/one.h": "",
    "tests/helpers.h": "",
}


class Layering(unittest.TestCase):
    def faults(self, planted=None):
        files = {**SOUND, **(planted or {})}
        with tempfile.TemporaryDirectory() as root:
            for path, text in files.items():
                os.makedirs(os.path.dirname(os.path.join(root, path)), exist_ok=True)
                with open(os.path.join(root, path), "w", encoding="utf-8") as f:
                    f.write(text)
            return list(layering.faults(root))

    def assert_one(self, path, text, *words):
        found = self.faults({path: text})
        self.assertEqual(len(found), 1, found)
        for word in words:
            self.assertIn(word, found[0])

    def test_a_sound_tree_has_no_fault(self):
        self.assertEqual(self.faults(), [])

    def test_an_edge_that_is_not_in_the_table(self):
        self.assert_one("src/base/up.cc", '#include "platform/clock.h"\n',
                        "src/base/up.cc:1:", "layer base may not use platform")

    def test_an_edge_written_with_other_white_space(self):
        self.assert_one("src/base/up.cc", '\n  #  include\t"platform/clock.h"  // why\n', "src/base/up.cc:2:")

    def test_the_longest_folder_decides(self):
        self.assert_one("src/platform/up.cc", '#include "platform/linux/new.h"\n', "not below")
        found = self.faults({"src/platform/linux/new.h": "",
                             "src/platform/up.cc": '#include "platform/linux/new.h"\n'})
        self.assertEqual(found, ["src/platform/up.cc:1: includes src/platform/linux/new.h: "
                                 "layer platform may not use platform_linux"])

    def test_a_pattern_stands_for_every_layer_of_that_name(self):
        headers = {"src/platform/linux/files/a.h": "", "src/platform/linux/ldap/b.h": ""}
        both = '#include "platform/linux/files/a.h"\n#include "platform/linux/ldap/b.h"\n'
        self.assertEqual(self.faults({**headers, "apps/one/one.cc": both}), [])
        self.assertEqual(self.faults({**headers, "src/platform/linux/files/x.cc": both}),
                         ["src/platform/linux/files/x.cc:2: includes src/platform/linux/ldap/b.h: "
                          "layer linux_files may not use linux_ldap"])

    def test_a_pattern_that_no_layer_has(self):
        with self.assertRaises(SystemExit):
            self.faults({"cmake/layers.cmake": TABLE.replace("linux_*", "cellar_*")})

    def test_third_party_headers_in_a_plain_layer(self):
        self.assert_one("src/base/db.cc", "#include <sqlite3.h>\n", "keeps to C++ and POSIX")

    def test_headers_of_linux_alone_in_a_plain_layer(self):
        self.assert_one("src/platform/quota.cc", "#include <sys/quota.h>\n", "keeps to C++ and POSIX")

    def test_a_project_header_in_angle_brackets(self):
        self.assert_one("src/platform/x.cc", "#include <base/value.h>\n", "double quotes")

    def test_a_quoted_header_from_elsewhere(self):
        self.assert_one("src/platform/linux/x.cc", '#include "sqlite3.h"\n', "not below src or include")

    def test_a_quoted_header_by_a_path_relative_to_the_file(self):
        self.assert_one("src/base/x.cc", '#include "value.h"\n', "not below src or include")

    def test_a_computed_include(self):
        self.assert_one("src/base/x.cc", "#include HEADER\n", "names no header")

    def test_a_file_in_no_layer(self):
        self.assert_one("src/stray/x.cc", "", "lies in no layer's folder")

    def test_a_test_is_included_by_nobody(self):
        self.assert_one("src/platform/x.cc", '#include "base/value_test.cc"\n', "includes the test")

    def test_production_code_may_not_reach_into_tests(self):
        self.assert_one("src/platform/linux/x.cc", '#include "helpers.h"\n', "not below src or include")

    def test_a_cycle_of_headers(self):
        found = self.faults({"src/base/a.h": '#include "base/b.h"\n',
                             "src/base/b.h": '#include "base/c.h"\n',
                             "src/base/c.h": '#include "base/a.h"\n'})
        self.assertEqual(found, ["include cycle: src/base/a.h -> src/base/b.h -> src/base/c.h -> src/base/a.h"])

    def test_an_edge_to_a_layer_that_the_table_lacks(self):
        broken = TABLE.replace("| platform base", "| platform cellar")
        with self.assertRaises(SystemExit):
            self.faults({"cmake/layers.cmake": broken})

    def test_a_table_that_cannot_be_read(self):
        with self.assertRaises(SystemExit):
            self.faults({"cmake/layers.cmake": "# nothing\n"})


if __name__ == "__main__":
    unittest.main()
