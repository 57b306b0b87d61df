#!/usr/bin/env python3
"""The routines that the sharing module has for others are dynamic symbols of its shared object, also
when it was stripped.

    module_symbols_test.py MODULE NM STRIP
"""
import os
import subprocess
import sys
import tempfile
import unittest

FUNCTIONS = ("AllocInheritableACL", "AllocInheritedACLComposite", "FreeInheritedACLComposite",
             "GetInheritableACL", "SetInheritedPrivs")
VARIABLES = ("gDebugBreak",)


def dynamic_symbols(module):
    """Name to kind, as nm has it."""
    lines = subprocess.run([NM, "--dynamic", "--defined-only", module], check=True, stdin=subprocess.DEVNULL,
                           stdout=subprocess.PIPE, encoding="utf-8").stdout.splitlines()
    return {name: kind for _, kind, name in (line.split(maxsplit=2) for line in lines)}


class ModuleSymbols(unittest.TestCase):
    def check(self, module):
        symbols = dynamic_symbols(module)
        for name in FUNCTIONS:
            self.assertEqual(symbols.get(name), "T", name)
        for name in VARIABLES:
            self.assertIn(symbols.get(name), ("B", "D"), name)

    def test_are_exported_by_the_module(self):
        self.check(MODULE)

    def test_are_exported_by_the_stripped_module(self):
        with tempfile.TemporaryDirectory() as folder:
            stripped = os.path.join(folder, "stripped.so")
            subprocess.run([STRIP, "--strip-all", "-o", stripped, MODULE], check=True)
            self.check(stripped)


if __name__ == "__main__":
    MODULE, NM, STRIP = sys.argv[1:4]
    unittest.main(argv=sys.argv[:1], verbosity=2)
