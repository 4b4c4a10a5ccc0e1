#!/usr/bin/python3
"""Prints how many tests of JUnit files passed, failed and were skipped, as three numbers.

    junit_totals.py FILE...
"""

import sys
import xml.etree.ElementTree


def main():
    passed = failed = skipped = 0
    for name in sys.argv[1:]:
        for case in xml.etree.ElementTree.parse(name).iter("testcase"):
            if case.find("failure") is not None or case.find("error") is not None:
                failed += 1
            elif case.find("skipped") is not None:
                skipped += 1
            else:
                passed += 1
    print(passed, failed, skipped)


if __name__ == "__main__":
    main()
