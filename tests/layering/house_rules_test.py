#!/usr/bin/env python3
"""Plants one fault after the other in a small tree and asks house_rules.py to find it."""
import contextlib
import io
import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import house_rules  # noqa: E402

SOUND = {
    "README.md": "",
    "docs/README.md": "",
    "bench/README.md": "",
    "CMakeLists.txt": "",
    "src/CMakeLists.txt": "",
    "bench/CMakeLists.txt": "",
    "fuzz/corpus/json/empty": "",
    "fuzz/corpus/plist/empty": "",
    "paddock": "",
    "packaging/pam.d/paddock": "",
    "src/value.cc": "int value = 1;\n",
    "src/.value.cc.swp": "",
}
AUTHOR = ("-c", "user.name=a", "-c", "user.email=a@b")


def numbered(count, text="int value%d;"):
    return "".join(text % number + "\n" for number in range(count))


def write(root, files):
    for path, text in files.items():
        os.makedirs(os.path.dirname(os.path.join(root, path)), exist_ok=True)
        with open(os.path.join(root, path), "w", encoding="utf-8") as f:
            f.write(text)


class TreeTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = folder.name

    def faults(self, planted=None, mirrors=None, after=""):
        write(self.root, {**SOUND, **(planted or {})})
        return list(house_rules.faults(self.root, mirrors or {}, after))

    def assert_one(self, planted, *words, **options):
        found = self.faults(planted, **options)
        self.assertEqual(len(found), 1, found)
        for word in words:
            self.assertIn(word, found[0])

    def commit(self, subject):
        """A commit of all there is; its name."""
        write(self.root, SOUND)
        if not house_rules.has_history(self.root):
            house_rules.git(self.root, "init", "--quiet")
        house_rules.git(self.root, "add", "--all")
        house_rules.git(self.root, *AUTHOR, "commit", "--quiet", "--allow-empty", "--message", subject)
        return house_rules.git(self.root, "rev-parse", "HEAD").strip()


class Sizes(TreeTest):
    def test_a_sound_tree_has_no_fault(self):
        self.assertEqual(self.faults(), [])

    def test_a_tree_without_sources(self):
        self.assertEqual(list(house_rules.faults(self.root, {}, "")), ["no source files below " + self.root])

    def test_a_source_file_has_500_lines_at_most(self):
        self.assertEqual(self.faults({"src/large.h": numbered(500)}), [])
        self.assert_one({"src/large.h": numbered(501)}, "src/large.h:501:", "has 501 lines", "at most 500", "part it")

    def test_a_test_has_600_lines_at_most(self):
        for path in ("src/large_test.cc", "tests/support/large.h"):
            self.assertEqual(self.faults({path: numbered(600)}), [])
            self.assert_one({path: numbered(601)}, path + ":601:", "has 601 lines", "at most 600")
            os.unlink(os.path.join(self.root, path))

    def test_every_folder_of_sources_is_read(self):
        for folder in ("src", "include", "plugins", "apps", "bench", "fuzz", "scripts", "tests"):
            path = folder + "/a/large.cc"
            self.assert_one({path: numbered(601)}, path + ":")
            os.unlink(os.path.join(self.root, path))

    def test_the_body_of_a_test_has_50_lines_at_most(self):
        text = "TEST_F(AFixture,\n       Name) {\n%s}\n\nint other() {\n%s}\n"
        self.assertEqual(self.faults({"src/long_test.cc": text % (numbered(49), numbered(60, "int own%d;"))}), [])
        self.assert_one({"src/long_test.cc": text % (numbered(50), "")},
                        "src/long_test.cc:1:", "body has 51 lines", "at most 50")

    def test_a_folder_holds_60_files_of_its_own_at_most(self):
        files = {"src/many/file%d.cc" % number: "" for number in range(60)}
        files["src/many/below/another.cc"] = files["src/many/CMakeLists.txt"] = ""
        self.assertEqual(self.faults(files), [])
        self.assert_one({"src/many/one_more.h": ""}, "src/many:", "61 C++ files", "at most 60", "sort them")


class Names(TreeTest):
    def test_a_name_that_stands_twice(self):
        self.assert_one({"docs/value.cc": ""}, "src/value.cc:", "stands 2 times", "docs/value.cc", "of its own")

    def test_a_name_of_an_exception_stands_once_elsewhere(self):
        self.assert_one({"docs/paddock": ""}, "paddock:", "docs/paddock")

    def test_in_a_tarball_what_was_built_is_not_read(self):
        self.assertEqual(self.faults({"build/dev/value.cc": ""}), [])

    def test_only_what_git_keeps_and_is_still_there_is_read(self):
        write(self.root, {"docs/value.cc": ""})
        self.commit("Begin")
        self.assert_one({"apps/notes": "", "docs/notes": ""}, "src/value.cc:", "docs/value.cc")
        os.unlink(os.path.join(self.root, "docs/value.cc"))
        self.assertEqual(self.faults(), [])


class Repeats(TreeTest):
    def test_six_lines_that_stand_in_two_files(self):
        self.assertEqual(self.faults({"src/a.cc": numbered(5), "src/b.cc": "int b;\n" + numbered(5)}), [])
        self.assert_one({"src/a.cc": numbered(6) + "int a;\n", "src/b.cc": "int b;\n" + numbered(6)},
                        "src/a.cc:1: 6 lines (to line 6)", "src/b.cc:2", "write them once")

    def test_a_longer_run_is_named_once_with_its_whole_length(self):
        self.assert_one({"src/a.cc": numbered(20), "tests/b_test.cc": "int b;\n" + numbered(20)},
                        "src/a.cc:1: 20 lines (to line 20)", "tests/b_test.cc:2")

    def test_lines_that_stand_in_three_files(self):
        found = self.faults({"src/%s.cc" % name: numbered(6) for name in "abc"})
        self.assertEqual(len(found), 3, found)

    def test_lines_that_stand_twice_in_one_file(self):
        self.assert_one({"src/a.cc": numbered(6) + "int a;\n" + numbered(6)}, "src/a.cc:1: 6 lines", "src/a.cc:8")

    def test_a_line_that_follows_itself_is_one_run(self):
        self.assertEqual(self.faults({"src/a.cc": "step();\n" * 11}), [])
        self.assert_one({"src/a.cc": "step();\n" * 12}, "src/a.cc:1: 6 lines", "src/a.cc:7")

    def test_what_does_not_count_is_passed_over(self):
        between = ("\n}\n  });\n#include <new>\n// why\n/* one\n two\n three */\nusing std::string;\n"
                   "namespace a::b {\n}  // end\n")
        parted = between.join(numbered(6).splitlines(True))
        self.assert_one({"src/a.cc": numbered(6), "src/b.cc": parted}, "src/a.cc:1: 6 lines", "src/b.cc:1")
        self.assertEqual(self.faults({"src/a.cc": numbered(5) + between, "src/b.cc": numbered(5) + between}), [])

    def test_white_space_at_the_ends_of_lines_is_passed_over(self):
        self.assert_one({"src/a.cc": numbered(6), "src/b.cc": numbered(6, "\tint value%d; ")}, "src/b.cc:1")

    def test_code_with_a_comment_behind_it_counts(self):
        lines = numbered(6, "int value%d;  // of these")
        self.assert_one({"src/a.cc": lines, "src/b.cc": lines}, "6 lines")

    def test_declarations_with_override_are_repeated_by_every_implementation(self):
        declared = numbered(9, "int call%d(int first,\n          int second) override;")
        self.assertEqual(self.faults({"src/a.h": "class A {\n" + declared, "src/b.h": "class B {\n" + declared}), [])
        defined = numbered(6, "int call%d() override { return 0; }")
        self.assert_one({"src/a.h": declared + defined, "src/b.h": defined}, "src/a.h:19: 6 lines", "src/b.h:1")

    def test_what_stands_before_a_declaration_with_override_counts(self):
        lines = numbered(6) + "int call() override;\n"
        self.assert_one({"src/a.h": lines, "src/b.h": lines}, "6 lines (to line 6)")
        lines = numbered(5) + "last\n};\nint call() override;\n"
        self.assert_one({"src/a.h": lines, "src/b.h": lines}, "6 lines (to line 6)")

    def test_a_pair_of_mirrors_may_hold_the_same_lines_and_a_third_file_may_not(self):
        mirrors = {("src/a.cc", "src/b.cc"): "why"}
        self.assertEqual(self.faults({"src/a.cc": numbered(6), "src/b.cc": numbered(6)}, mirrors), [])
        self.assertEqual(len(self.faults({"src/c.cc": numbered(6)}, mirrors)), 2)

    def test_a_pair_of_mirrors_that_is_none_any_more(self):
        self.assert_one({}, "src/a.cc: holds no lines of src/b.cc", "MIRRORS",
                        mirrors={("src/a.cc", "src/b.cc"): "why"})


class Subjects(TreeTest):
    LONG = "x" * 73

    def test_a_subject_has_72_characters_at_most(self):
        self.commit("\u00fc" * 72 + "\n\n" + "A body may be wider. " * 9)
        self.assertEqual(self.faults(), [])
        name = self.commit(self.LONG)
        self.assert_one({}, "commit " + name[:7], "73 characters", "at most 72", "reword", self.LONG)

    def test_subjects_up_to_the_start_are_not_read(self):
        self.commit(self.LONG)
        start = self.commit(self.LONG)
        self.assertEqual(self.faults(after=start), [])
        self.commit(self.LONG)
        self.assert_one({}, "73 characters", after=start)

    def test_a_start_that_the_history_does_not_hold(self):
        self.commit(self.LONG)
        self.assert_one({}, "73 characters", after="0" * 40)

    def test_subjects_up_to_the_last_tag_are_not_read(self):
        self.commit(self.LONG)
        house_rules.git(self.root, "tag", "v1")
        self.assertEqual(self.faults(), [])
        self.commit(self.LONG)
        self.assert_one({}, "73 characters")

    def test_a_history_that_git_cannot_read(self):
        write(self.root, {".git/HEAD": "nonsense"})
        with self.assertRaises(SystemExit):
            self.faults()


class Program(TreeTest):
    def run_program(self, planted):
        write(self.root, {**SOUND, **planted})
        house_rules.MIRRORS, kept = {}, house_rules.MIRRORS
        self.addCleanup(setattr, house_rules, "MIRRORS", kept)
        with contextlib.redirect_stdout(io.StringIO()) as printed:
            status = house_rules.main(["house_rules.py", self.root])
        return status, printed.getvalue()

    def test_a_tarball_is_told_that_its_subjects_are_not_read(self):
        self.assertEqual(self.run_program({}), (0, "tree: commit subjects are not read: there is no .git\n"
                                                   "tree: 0 faults\n"))

    def test_a_fault_is_printed_and_ends_with_1(self):
        self.commit("Begin")
        status, printed = self.run_program({"src/large.cc": numbered(501)})
        self.assertEqual(status, 1)
        self.assertRegex(printed, r"^src/large\.cc:501: .*\ntree: 1 fault\n$")


if __name__ == "__main__":
    unittest.main()
