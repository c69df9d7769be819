"""What ./check counts: every test of a report once, and whatever broke without one."""

import os
import subprocess
import sys
import tempfile
import unittest

ROOT_DIR = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
COUNTER = os.path.join(ROOT_DIR, 'scripts', 'count_tests.py')

PASSED = '<testcase name="P" classname="S" status="run"/>'
FAILED = '<testcase name="F" classname="S" status="run"><failure/><failure/></testcase>'
SKIPPED = '<testcase name="K" classname="S" status="run"><skipped/></testcase>'
DISABLED = '<testcase name="D" classname="S" status="notrun"/>'


class CountTests(unittest.TestCase):
    def count(self, entries):
        """Counts a run of `entries`: (CTest's status, the report's test cases or None)."""
        with tempfile.TemporaryDirectory() as directory:
            junit = os.path.join(directory, 'ctest.xml')
            with open(junit, 'w', encoding='utf-8') as file:
                file.write('<testsuite>%s</testsuite>' % ''.join(
                    '<testcase name="e%d" status="%s"/>' % (number, status)
                    for number, (status, _) in enumerate(entries)))
            for number, (_, report) in enumerate(entries):
                if report is not None:
                    path = os.path.join(directory, 'e%d.xml' % number)
                    with open(path, 'w', encoding='utf-8') as file:
                        file.write('<testsuites>%s</testsuites>' % report)
            done = subprocess.run([sys.executable, '-B', COUNTER, junit, directory],
                                  capture_output=True, text=True, check=True)
            return done.stdout.strip(), [line.split()[-1] for line in done.stderr.splitlines()]

    def test_each_kind_of_entry(self):
        table = [
            ('no report', [('run', None)], '1 0', []),
            ('failed without a report', [('fail', None)], '0 1', ['e0']),
            ('never started', [('notrun', None)], '0 1', ['e0']),
            ('all passed', [('run', PASSED * 3)], '3 0', []),
            ('one failed, twice', [('fail', PASSED * 2 + FAILED)], '2 1', ['S.F']),
            ('failed, which CTest overlooked', [('run', FAILED)], '0 1', ['S.F']),
            ('crashed behind its report', [('fail', PASSED * 3)], '2 1', ['e0']),
            ('skipped and disabled ones', [('run', PASSED + SKIPPED + DISABLED)], '1 0', []),
            ('several', [('run', PASSED), ('fail', None), ('run', None)], '2 1', ['e1']),
        ]
        for what, entries, counts, names in table:
            with self.subTest(what):
                self.assertEqual(self.count(entries), (counts, names))


if __name__ == '__main__':
    unittest.main()
