#!/usr/bin/python3
"""The model of the rules, by hand-made examples.

    tree_rules_test.py
"""
import unittest

import own_copyprivs  # says where its parts are
import access_lists
import posix_acls
from access_lists import (ALLOW, DENY, FILES_INHERIT, FOLDERS_INHERIT, INHERIT_ONLY, INHERITED, MARKER,
                          ONE_LEVEL, AccessList, Entry, Invalid, Stored)
from file_tree import Object
from tree_rules import (ACL, GROUP_CLASS, OTHER_CLASS, OWNER, OWNER_CLASS, Pusher, expected, inherited,
                        list_after, passed_to, pushed_mode)

BOTH = FILES_INHERIT | FOLDERS_INHERIT
ANNA, CREW = own_copyprivs.USERS["anna"], own_copyprivs.GROUPS["crew"]


def entry(flags, who="S-1-22-1-21001", mask=0x100001, kind=ALLOW):
    return Entry(kind, flags, mask, who, b"")


def stored(*entries, complete=False):
    return Stored(1, 0x8404, None, None, None, AccessList(entries, complete))


def thing(kind="file", mode=0o640, held=None, uid=0, access=None):
    value = held.value if isinstance(held, Invalid) else b"present" if held else None
    return Object(kind, uid, 0, mode, value, held, access, None, (), (), 0)


class FakeTree(dict):
    def __init__(self, objects):
        super().__init__(objects)
        self.inside = {path: [inside for inside in objects if inside and inside.rpartition(b"/")[0] == path]
                       for path, there in objects.items() if there.kind == "folder"}


class ModeTest(unittest.TestCase):

    def test_an_owner_who_can_read_a_folder_can_search_it_and_set_id_bits_go(self):
        self.assertEqual(pushed_mode(0o2644, 0o640, OWNER_CLASS, True), 0o744)

    def test_a_file_keeps_its_execute_bits(self):
        self.assertEqual(pushed_mode(0o755, 0o666, OWNER_CLASS | GROUP_CLASS | OTHER_CLASS, False), 0o777)
        self.assertEqual(pushed_mode(0o640, 0o777, OWNER_CLASS | GROUP_CLASS | OTHER_CLASS, False), 0o666)

    def test_classes_that_are_not_named_stay(self):
        self.assertEqual(pushed_mode(0o5751, 0o222, GROUP_CLASS, False), 0o731)
        self.assertEqual(pushed_mode(0o1751, 0o004, OTHER_CLASS, True), 0o755)

    def test_a_class_of_a_folder_without_read_and_write_is_not_searched(self):
        self.assertEqual(pushed_mode(0o777, 0o700, 28, True), 0o700)

    def test_another_owner_takes_the_set_id_bits_of_a_file_away(self):
        root = thing("folder", 0o755, uid=ANNA)
        pusher = Pusher(OWNER, root, False, own_copyprivs.groups_of)
        self.assertEqual(pusher.mode(thing(mode=0o6755)), 0o755)
        self.assertEqual(pusher.mode(thing(mode=0o6745)), 0o2745)
        self.assertEqual(pusher.mode(thing(mode=0o6755, uid=ANNA)), 0o6755)
        self.assertEqual(pusher.mode(thing("folder", 0o6755)), 0o6755)


class PassedTest(unittest.TestCase):

    def test_only_who_is_meant_inherits(self):
        self.assertIsNone(passed_to(entry(FILES_INHERIT), "folder", 1))
        self.assertIsNone(passed_to(entry(FOLDERS_INHERIT), "file", 1))
        self.assertEqual(passed_to(entry(FILES_INHERIT), "other", 1).flags, INHERITED)
        self.assertEqual(passed_to(entry(FOLDERS_INHERIT), "other", 0).flags, INHERITED)

    def test_a_folder_passes_it_on_and_a_file_does_not(self):
        self.assertEqual(passed_to(entry(BOTH), "folder", 4).flags, INHERITED | BOTH)
        self.assertEqual(passed_to(entry(BOTH), "file", 4).flags, INHERITED)

    def test_one_level_is_depth_one_and_goes_no_further(self):
        self.assertEqual(passed_to(entry(BOTH | ONE_LEVEL), "folder", 1).flags, INHERITED | ONE_LEVEL)
        self.assertEqual(passed_to(entry(BOTH | ONE_LEVEL), "file", 1).flags, INHERITED | ONE_LEVEL)
        for depth in (0, 2, 3):
            self.assertIsNone(passed_to(entry(BOTH | ONE_LEVEL), "folder", depth))

    def test_only_inherit_is_for_the_folder_that_has_it(self):
        self.assertEqual(passed_to(entry(BOTH | INHERIT_ONLY), "folder", 1).flags, INHERITED | BOTH)

    def test_the_mask_is_its_permissions(self):
        self.assertEqual(passed_to(entry(BOTH, mask=0xFFFFFFFF), "file", 1).mask, 0x1F01FF)
        self.assertEqual(passed_to(entry(BOTH, mask=0xFFFFFFFF, kind=DENY), "file", 1).mask, 0xF01FF)

    def test_nearer_levels_come_first(self):
        near, far = entry(BOTH, "S-1-1-0"), entry(BOTH)
        self.assertEqual([passed.sid for passed in inherited([[near], [far]], "file")], [near.sid, far.sid])

    def test_without_an_entry_in_any_level_nothing_is_inherited(self):
        self.assertIsNone(inherited([[], []], "file"))
        self.assertEqual(inherited([[entry(FOLDERS_INHERIT)]], "file"), ())

    def test_depth_counts_from_the_first_level_also_when_levels_are_empty(self):
        limited = entry(BOTH | ONE_LEVEL)
        self.assertEqual(len(inherited([[limited]], "file")), 1)
        self.assertEqual(len(inherited([[], [limited]], "folder")), 1)
        self.assertEqual(len(inherited([[], [limited]], "file")), 0)
        self.assertEqual(len(inherited([[limited]], "other")), 0)
        self.assertEqual(len(inherited([[], [limited]], "other")), 1)


class ListTest(unittest.TestCase):

    def test_inherited_entries_are_replaced_and_the_others_stay_in_front(self):
        own, old = entry(0, "S-1-1-0"), entry(INHERITED, "S-1-5-11")
        after = list_after(stored(old, own), [[entry(BOTH)]], "file")
        self.assertEqual([there.sid for there in after.entries], ["S-1-1-0", "S-1-22-1-21001"])

    def test_a_complete_list_stays_complete_also_without_entries(self):
        self.assertEqual(list_after(stored(entry(INHERITED), complete=True), [[]], "file"), AccessList((), True))

    def test_another_list_without_entries_goes(self):
        self.assertIsNone(list_after(stored(entry(INHERITED)), [[]], "file"))

    def test_a_list_that_is_made_is_not_complete(self):
        self.assertFalse(list_after(None, [[entry(BOTH)]], "file").complete)

    def test_without_a_list_and_without_entries_there_is_none(self):
        self.assertIsNone(list_after(None, [[]], "file"))
        self.assertIsNone(list_after(None, [[entry(FOLDERS_INHERIT)]], "file"))


class TreeTest(unittest.TestCase):

    def lists(self, tree, what=ACL):
        return {path: expectation.outcomes[0].list and expectation.outcomes[0].list.entries
                for path, expectation in expected(FakeTree(tree), what, False, own_copyprivs.groups_of).items()}

    def test_a_folder_passes_on_its_own_entries_and_those_from_above(self):
        above, inside = entry(BOTH, "S-1-1-0"), entry(BOTH)
        lists = self.lists({b"": thing("folder", held=stored(above)),
                            b"a": thing("folder", held=stored(inside, entry(BOTH | INHERITED, "S-1-5-11"))),
                            b"a/b": thing()})
        self.assertEqual([there.sid for there in lists[b"a"]], [inside.sid, above.sid])
        self.assertEqual([there.sid for there in lists[b"a/b"]], [inside.sid, above.sid])

    def test_the_folder_that_is_pushed_passes_on_what_it_inherited(self):
        lists = self.lists({b"": thing("folder", held=stored(entry(BOTH | INHERITED))), b"a": thing()})
        self.assertEqual([there.flags for there in lists[b"a"]], [INHERITED])

    def test_one_level_of_the_folder_that_is_pushed_reaches_its_own_children(self):
        limited = entry(BOTH | ONE_LEVEL)
        lists = self.lists({b"": thing("folder", held=stored(limited)), b"a": thing("folder"),
                            b"a/b": thing(), b"a/c": thing("folder"), b"d": thing()})
        self.assertEqual({path for path, entries in lists.items() if entries}, {b"a", b"d"})

    def test_one_level_of_a_folder_reaches_what_is_neither_file_nor_folder_in_it(self):
        above, inside = entry(BOTH | ONE_LEVEL, "S-1-1-0"), entry(BOTH | ONE_LEVEL)
        lists = self.lists({b"": thing("folder", held=stored(above)), b"a": thing("other"),
                            b"b": thing("folder", held=stored(inside)), b"b/c": thing("other"),
                            b"b/d": thing("folder"), b"b/d/e": thing("other")})
        self.assertEqual([there.sid for there in lists[b"a"]], [above.sid])
        self.assertEqual([there.sid for there in lists[b"b/c"]], [inside.sid])
        self.assertFalse(lists[b"b/d/e"])

    def test_a_damaged_list_stays_and_is_an_error(self):
        tree = FakeTree({b"": thing("folder", held=stored(entry(BOTH))), b"a": thing(held=Invalid(b"junk"))})
        expectation = expected(tree, ACL, False, own_copyprivs.groups_of)[b"a"]
        self.assertEqual((expectation.outcomes[0].list, expectation.fails), (b"junk", True))
        expectation = expected(tree, OWNER, False, own_copyprivs.groups_of)[b"a"]
        self.assertEqual((expectation.outcomes[0].list, expectation.fails), (b"junk", False))

    def test_a_link_gets_owner_and_group_alone(self):
        tree = FakeTree({b"": thing("folder", 0o700, stored(entry(BOTH)), uid=ANNA), b"a": thing("link", 0o777)})
        outcome = expected(tree, 63, True, own_copyprivs.groups_of)[b"a"].outcomes[0]
        self.assertEqual((outcome.uid, outcome.mode, outcome.list), (ANNA, 0o777, None))


class TailTest(unittest.TestCase):

    def test_the_tail_of_a_plain_mode(self):
        self.assertEqual(access_lists.tail_of((), ANNA, CREW, 0o640, False), (
            (ALLOW, 0, "S-1-22-1-21001", 0x16019F), (ALLOW, 0, "S-1-22-2-21100", 0x120089),
            (ALLOW, 0, "S-1-1-0", 0x120080)))

    def test_denials_keep_an_earlier_class_from_gaining_by_a_later_one(self):
        self.assertEqual([kind for kind, *_ in access_lists.tail_of((), 1, 2, 0o046, False)],
                         [DENY, ALLOW, DENY, ALLOW, ALLOW])

    def test_it_is_told_from_the_entries(self):
        own = entry(BOTH)
        whole = access_lists.with_tail((own,), ANNA, CREW, 0o750, True)
        read = access_lists.decode(access_lists.encode(whole, ANNA, CREW), True)
        self.assertEqual(read.list, AccessList((own,), False))
        as_file = access_lists.decode(access_lists.encode(whole, ANNA, CREW), False)
        self.assertEqual((as_file.list.complete, len(as_file.list.entries)), (True, len(whole) - 1))

    def test_a_marker_elsewhere_is_dropped(self):
        entries = (Entry(ALLOW, 0, 0, MARKER, b""), entry(0))
        read = access_lists.decode(access_lists.encode(entries, ANNA, CREW), False)
        self.assertEqual(read.list, AccessList((entry(0),), True))


class KernelListTest(unittest.TestCase):

    def digit(self, acl, tag, number=posix_acls.NO_ID):
        return acl[tag, number]

    def test_a_named_user_has_what_the_list_gives_and_the_rest_from_the_mode(self):
        acl = posix_acls.access_acl((entry(0, mask=2),), False, 0o744, 0, own_copyprivs.groups_of)
        self.assertEqual(self.digit(acl, posix_acls.USER, ANNA), 6)
        acl = posix_acls.access_acl((entry(0, mask=2),), True, 0o744, 0, own_copyprivs.groups_of)
        self.assertEqual(self.digit(acl, posix_acls.USER, ANNA), 2)

    def test_a_default_gives_only_what_reaches_everything(self):
        about = (False, 0o700, 0, own_copyprivs.groups_of)
        for flags, digit in ((BOTH, 1), (FILES_INHERIT, 0), (BOTH | ONE_LEVEL, 0), (BOTH | INHERIT_ONLY, 1)):
            acl = posix_acls.default_acl((entry(flags, mask=0x20),), *about)
            self.assertEqual(self.digit(acl, posix_acls.USER, ANNA), digit)

    def test_a_list_that_names_nobody_leaves_none(self):
        self.assertIsNone(posix_acls.access_acl((entry(0, "S-1-1-0"),), False, 0o700, 0, own_copyprivs.groups_of))


if __name__ == "__main__":
    unittest.main()
