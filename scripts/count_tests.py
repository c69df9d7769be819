#!/usr/bin/python3
"""Sums up a CTest run: prints `PASSED FAILED`, and on standard error what failed. Called by check.

count_tests.py CTEST_JUNIT.xml REPORTS_DIR

An entry that wrote REPORTS_DIR/NAME.xml (GoogleTest's form) counts with the tests in it, any other
as one test. An entry that failed counts at least one failure, however far its report got.
"""

import os
import sys
from xml.etree import ElementTree


def count(junitPath, reportsDir):
    passed = 0
    failed = []
    for entry in ElementTree.parse(junitPath).getroot().iter('testcase'):
        name = entry.get('name')
        broken = []
        total = 1
        report = os.path.join(reportsDir, name + '.xml')
        if os.path.exists(report):
            cases = [case for case in ElementTree.parse(report).getroot().iter('testcase')
                     if case.get('status') != 'notrun' and case.find('skipped') is None]
            broken = ['.'.join(filter(None, (case.get('classname'), case.get('name'))))
                      for case in cases if case.find('failure') is not None]
            total = len(cases)
        if entry.get('status') != 'run' and not broken:
            broken = [name]
        passed += max(total - len(broken), 0)
        failed += broken
    return passed, failed


if __name__ == '__main__':
    passedCount, failedNames = count(sys.argv[1], sys.argv[2])
    for failedName in failedNames:
        print('    failed: ' + failedName, file=sys.stderr)
    print(passedCount, len(failedNames))
