#!/usr/bin/python3
"""The codec of the ACL attribute and Samba's own read and write the same.

    acl_codec_test.py ACL_CODEC
"""
import os
import random
import re
import subprocess
import sys
import unittest

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))

try:
    from nt_acl_attribute import descriptor_in, in_attribute
    from samba.dcerpc import misc, security, xattr
    from samba.ndr import ndr_pack, ndr_unpack
except ImportError as error:
    print("skipped: python3-samba is not installed (%s)" % error)
    sys.exit(77)

OBJECT_TYPES = (5, 6, 7, 8)
LIST_PRESENT = 0x0004
SYSTEM_LIST_PRESENT = 0x0010


def ask(*lines):
    """The codec's answer to each line."""
    run = subprocess.run([CODEC], input="\n".join(lines) + "\n", stdout=subprocess.PIPE,
                         encoding="ascii", check=True)
    answers = run.stdout.splitlines()
    assert len(answers) == len(lines), "%d answers to %d questions" % (len(answers), len(lines))
    return answers


def sid_text(sid):
    # Samba leaves out leading zeros of a hexadecimal authority.
    return re.sub("(?<=0x)[0-9a-f]+", lambda digits: digits[0].rjust(12, "0"), str(sid))


def part_text(sid):
    return "-" if sid is None else sid_text(sid)


def ace_text(ace):
    foreign = ace.type not in (0, 1)
    return "%x,%x,%x,%s,%s" % (ace.type, ace.flags, ace.access_mask, sid_text(ace.trustee),
                               ndr_pack(ace).hex() if foreign else "")


def list_text(acl):
    if acl is None:
        return "-"
    return ";".join(ace_text(ace) for ace in acl.aces) or "."


def text_of(descriptor):
    """The descriptor in the codec's language."""
    return "%x %s %s %s" % (descriptor.type, part_text(descriptor.owner_sid),
                            part_text(descriptor.group_sid), list_text(descriptor.dacl))


class Maker:
    """Descriptors at random."""

    def __init__(self, seed):
        self.random = random.Random(seed)

    def sid(self):
        authority = self.random.choice([1, 3, 5, 22, 0x506164646F63])
        subs = [str(self.random.getrandbits(32)) for _ in range(self.random.randint(1, 15))]
        text = str(authority) if authority < 2 ** 32 else "0x%012x" % authority
        return security.dom_sid("-".join(["S-1", text] + subs))

    def guid(self):
        return misc.GUID(bytes(self.random.randrange(256) for _ in range(16)))

    def ace(self):
        ace = security.ace()
        ace.type = self.random.choice((0, 0, 0, 1, 1) + OBJECT_TYPES[:2])
        ace.flags = self.random.randrange(256)
        ace.access_mask = self.random.getrandbits(32)
        ace.trustee = self.sid()
        if ace.type in OBJECT_TYPES:
            ace.object.flags = self.random.randrange(4)
            if ace.object.flags & 1:
                ace.object.type = self.guid()
            if ace.object.flags & 2:
                ace.object.inherited_type = self.guid()
        ace.size = len(ndr_pack(ace))
        return ace

    def acl(self):
        acl = security.acl()
        acl.revision = self.random.choice((2, 4))
        aces = [self.ace() for _ in range(self.random.randrange(12))]
        acl.aces, acl.num_aces = aces, len(aces)
        return acl

    def descriptor(self):
        made = security.descriptor()
        made.type = 0x8000 | self.random.choice((0, 0x0400))
        if self.random.randrange(8):
            made.owner_sid = self.sid()
        if self.random.randrange(8):
            made.group_sid = self.sid()
        if self.random.randrange(8):
            made.type |= LIST_PRESENT
            made.dacl = self.acl()
        if not self.random.randrange(4):
            made.type |= SYSTEM_LIST_PRESENT
            made.sacl = self.acl()
        return made


SMALL = "O:S-1-22-1-0G:S-1-22-2-100D:AI(A;OICI;0x1f01ff;;;S-1-22-1-1000)(D;ID;FR;;;S-1-5-21-1-2-3-1104)"


def from_text(text):
    return security.descriptor.from_sddl(text, security.dom_sid())


class CodecTest(unittest.TestCase):

    def test_reads_what_samba_writes_in_every_version(self):
        maker = Maker(1)
        made = [(version, maker.descriptor()) for version in (1, 2, 3, 4) for _ in range(400)]
        answers = ask(*("decode " + in_attribute(version, descriptor, maker.random).hex()
                        for version, descriptor in made))
        for (version, descriptor), answer in zip(made, answers):
            self.assertEqual(answer, text_of(descriptor), "version %d" % version)

    def test_samba_reads_what_it_writes(self):
        maker = Maker(2)
        made = [maker.descriptor() for _ in range(1000)]
        answers = ask(*("encode " + text_of(descriptor) for descriptor in made))
        for descriptor, answer in zip(made, answers):
            value = bytes.fromhex(answer)
            self.assertEqual(ndr_unpack(xattr.NTACL, value).version, 1)
            self.assertEqual(text_of(descriptor_in(value)), text_of(descriptor))

    def test_it_writes_the_bytes_that_samba_writes(self):
        maker = Maker(3)
        for _ in range(200):
            descriptor = maker.descriptor()
            descriptor.sacl = None
            if descriptor.dacl is not None:
                kinds = {ace.type for ace in descriptor.dacl.aces}
                descriptor.dacl.revision = 4 if kinds.intersection(OBJECT_TYPES) else 2
            self.assertEqual(ask("encode " + text_of(descriptor)),
                             [in_attribute(1, descriptor).hex()])

    def test_the_text_of_a_descriptor_is_kept(self):
        for text in (SMALL, "O:S-1-22-1-0G:S-1-22-2-0D:", "G:S-1-22-2-0D:P(A;;FA;;;WD)",
                     "O:S-1-22-1-0G:S-1-22-2-0D:AI(A;OICIIO;FA;;;CO)(A;OICIIO;FX;;;CG)(A;;FR;;;WD)"):
            descriptor = from_text(text)
            value, = ask("encode " + text_of(descriptor))
            self.assertEqual(descriptor_in(bytes.fromhex(value)).as_sddl(), descriptor.as_sddl())

    def test_an_absent_list_is_not_an_empty_one(self):
        for text, expected in (("O:S-1-22-1-0", "-"), ("O:S-1-22-1-0D:", ".")):
            answer, = ask("decode " + in_attribute(1, from_text(text)).hex())
            self.assertEqual(answer.split()[3], expected)

    def test_what_it_accepts_of_a_damaged_value_samba_reads_alike(self):
        accepted = 0
        for version in (1, 2, 3, 4):
            whole = in_attribute(version, from_text(SMALL))
            damaged = []
            for bit in range(len(whole) * 8):
                value = bytearray(whole)
                value[bit // 8] ^= 1 << bit % 8
                damaged.append(bytes(value))
            for value, answer in zip(damaged, ask(*("decode " + v.hex() for v in damaged))):
                if answer != "invalid":
                    accepted += 1
                    self.assertEqual(answer, text_of(descriptor_in(value)), value.hex())
        self.assertGreater(accepted, 0)

    def test_what_samba_cannot_read_is_invalid(self):
        for version in (1, 2, 3, 4):
            whole = in_attribute(version, from_text(SMALL))
            pieces = [whole[:length] for length in range(len(whole))]
            pieces += [whole + bytes(count) for count in range(1, 9)]
            for value in pieces:
                self.assertRaises(RuntimeError, ndr_unpack, xattr.NTACL, value)
            self.assertEqual(set(ask(*("decode " + value.hex() for value in pieces))), {"invalid"})


if __name__ == "__main__":
    CODEC = sys.argv.pop(1)
    unittest.main()
