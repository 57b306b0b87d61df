#!/usr/bin/env python3
"""Compares a test run with the inventory of tests, and says what was skipped and why.

    report_tests.py BUILD_FOLDER RESULTS_XML INVENTORY
    report_tests.py --write BUILD_FOLDER INVENTORY

Exits 1 when a listed test is missing from the build, an unlisted one is in it, one that ran was
skipped without saying why, or there are no results.
"""
import json
import re
import subprocess
import sys
import xml.etree.ElementTree as ElementTree


def names_in_build(folder):
    listing = subprocess.run(["ctest", "--test-dir", folder, "--show-only=json-v1"],
                             check=True, stdout=subprocess.PIPE).stdout
    return sorted(test["name"] for test in json.loads(listing)["tests"])


def names_in_inventory(path):
    with open(path, encoding="utf-8") as f:
        return [line for line in f.read().split("\n") if line]


def reason_in(output):
    """Why a test says that it was skipped; "" when it does not."""
    # GoogleTest: "FILE:LINE: Skipped", the reason, an empty line. A script: "skipped: REASON".
    found = re.search(r"^[^\n]*:\d+: Skipped\n(.*?)(?:\n\s*\n|^\[  SKIPPED \])", output, re.DOTALL | re.MULTILINE)
    found = found or re.search(r"^skipped:([^\n]*)$", output, re.MULTILINE)
    return " ".join(found.group(1).split()) if found else ""


def skipped_in(results):
    """(name, reason) of each test that the run skipped."""
    for case in ElementTree.parse(results).getroot().iter("testcase"):
        if case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
            yield case.get("name"), reason_in(case.findtext("system-out") or "")


def compare(built, listed):
    for name in sorted(set(listed) - set(built)):
        yield "missing: %s is in tests/inventory.txt, but there is no such test" % name
    for name in sorted(set(built) - set(listed)):
        yield "unlisted: %s (./paddock inventory adds it)" % name
    for name in sorted({n for n in built if built.count(n) > 1}):
        yield "twice: %s names more than one test" % name
    if listed != sorted(set(listed)):
        yield "tests/inventory.txt is not sorted (./paddock inventory sorts it)"


def report(built, listed, skipped):
    """Prints what there is to say; returns the number of faults."""
    faults = list(compare(built, listed))
    by_reason = {}
    for name, reason in skipped:
        if reason:
            by_reason.setdefault(reason, []).append(name)
        else:
            faults.append("skipped without saying why: " + name)
    for reason, names in sorted(by_reason.items()):
        print("\nskipped (%d): %s" % (len(names), reason))
        for name in sorted(names):
            print("    " + name)
    print("\ninventory: %d tests listed, %d in the build, %d skipped, %d fault%s"
          % (len(listed), len(built), sum(map(len, by_reason.values())), len(faults), "" if len(faults) == 1 else "s"))
    for fault in faults:
        print("    " + fault)
    print(flush=True)
    return len(faults)


def main(argv):
    if len(argv) == 4 and argv[1] == "--write":
        names = names_in_build(argv[2])
        with open(argv[3], "w", encoding="utf-8") as f:
            f.write("".join(name + "\n" for name in names))
        print("%d tests" % len(names))
        return 0
    if len(argv) != 4:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        skipped = list(skipped_in(argv[2]))
    except (OSError, ElementTree.ParseError) as error:
        print("no results: %s" % error)
        return 1
    return 1 if report(names_in_build(argv[1]), names_in_inventory(argv[3]), skipped) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
