"""Two processes built from two versions of a schema keep in step what both know. Finds attributes,
enumerators and types that one version drops, invents or stumbles over."""

import os
import queue
import subprocess
import tempfile
import threading
import unittest

TESTS = os.path.join(os.environ['BINARY_DIR'], 'tests')
OLD = os.path.join(TESTS, 'upgrade_Greenhouse')
NEXT = os.path.join(TESTS, 'upgrade_GreenhouseNext')
TURNS = 4


class Upgrade(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.socket = os.path.join(self.directory.name, 'socket')

    def start(self, *command, **environment):
        process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True,
                                   env={**os.environ, **environment})
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        for stream in (process.stdin, process.stdout, process.stderr):
            self.addCleanup(stream.close)
        return process

    def connected(self, server, client, **environment):
        """A server, and a mirror that tries until it listens; the mirror's lines come by a queue."""
        serving = self.start(server, 'serve', self.socket, **environment)
        mirror = self.start(client, 'mirror', self.socket, **environment)
        lines = queue.Queue()
        threading.Thread(target=lambda: [lines.put(line) for line in mirror.stdout],
                         daemon=True).start()
        return serving, mirror, lines

    def shown(self, server, client):
        """What the mirror prints in each turn, and what it reports."""
        serving, mirror, lines = self.connected(server, client)
        shown = [lines.get(timeout=60)]
        for _ in range(TURNS - 1):
            serving.stdin.write('change\n')
            serving.stdin.flush()
            shown.append(lines.get(timeout=60))
        serving.stdin.close()
        reports = mirror.stderr.read().splitlines()
        self.assertEqual(serving.wait(60), 0)
        self.assertEqual(mirror.wait(60), 0)
        return shown, [line for line in reports if 'passes over' in line], reports

    def expected(self, odd):
        return ['turn %d, wind %d, bed 3 tomatoes %d %d, bed %d peas 0 0, roof turn %d, %d\n'
                % (turn, 50 + turn, odd if turn % 2 else 1, turn, 10 + turn, turn, turn + 1)
                for turn in range(1, TURNS + 1)]

    def testTheSameVersion(self):
        self.assertEqual(self.shown(OLD, OLD)[:2], (self.expected(2), []))
        self.assertEqual(self.shown(NEXT, NEXT)[:2], (self.expected(3), []))

    def testAnOlderMirrorPassesOverWhatItDoesntKnow(self):
        shown, passed, reports = self.shown(NEXT, OLD)
        self.assertEqual(shown, self.expected(3), reports)
        # Each once, whatever the number of messages.
        self.assertEqual(sorted(line[line.index('passes over'):] for line in passed), [
            'passes over attribute %d of Greenhouse::%s' % row for row in
            [(262, 'Bed'), (262, 'House'), (263, 'Bed'), (263, 'House'), (264, 'Bed')]])

    def testANewerMirrorKeepsItsOwnForWhatIsntSent(self):
        self.assertEqual(self.shown(OLD, NEXT)[:2], (self.expected(2), []))

    def testAStrictPeerRefusesTheOther(self):
        _, mirror, lines = self.connected(NEXT, OLD, STRICT='1')
        self.assertEqual(mirror.wait(60), 1)
        self.assertIn('BadSchema', mirror.stderr.read())
        self.assertTrue(lines.empty())


if __name__ == '__main__':
    unittest.main()
