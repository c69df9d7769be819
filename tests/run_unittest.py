#!/usr/bin/python3
"""Runs a folder's Python tests and writes how they went in GoogleTest's XML. Called by CTest.

run_unittest.py FOLDER REPORT.xml
"""

import os
import sys
import time
import unittest
from xml.etree import ElementTree

sys.dont_write_bytecode = True


class Result(unittest.TextTestResult):
    """Remembers the name of each test that ran: a failed sub-test counts with its test."""

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.names = []

    def startTest(self, test):
        super().startTest(test)
        self.names.append(test.id())


def failedNames(result):
    broken = result.failures + result.errors
    # A sub-test and a module that can't be loaded are known by the test they belong to.
    names = {getattr(test, 'test_case', test).id() for test, _ in broken}
    return names | {test.id() for test in result.unexpectedSuccesses}


def writeReport(path, result):
    failed = failedNames(result)
    names = sorted(set(result.names) | failed)
    skipped = {test.id() for test, _ in result.skipped}
    suites = ElementTree.Element('testsuites', tests=str(len(names)), failures=str(len(failed)),
                                 errors='0', disabled='0', skipped=str(len(skipped)))
    for name in names:
        case = ElementTree.SubElement(suites, 'testcase', name=name)
        if name in failed:
            ElementTree.SubElement(case, 'failure')
    os.makedirs(os.path.dirname(path), exist_ok=True)
    ElementTree.ElementTree(suites).write(path)


def main(folder, report):
    sys.path.insert(0, folder)
    loader = unittest.TestLoader()
    suite = unittest.TestSuite(loader.discover(folder, pattern, top_level_dir=folder)
                               for pattern in ('test_*.py', '*_test.py'))
    began = time.monotonic()
    result = unittest.TextTestRunner(resultclass=Result).run(suite)
    print('%d tests in %.1f s' % (result.testsRun, time.monotonic() - began))
    writeReport(report, result)
    return 0 if result.wasSuccessful() and result.testsRun > 0 else 1


if __name__ == '__main__':
    sys.exit(main(os.path.abspath(sys.argv[1]), sys.argv[2]))
