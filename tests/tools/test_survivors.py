"""One of two processes is killed or stopped at a random moment of a transfer; the other goes on, and
is in step again when the first is back.

SURVIVOR_ROUNDS says how often for each board, SURVIVOR_SEED which moments; the longest time from a
return to being in step is printed.
"""

import os
import random
import re
import select
import signal
import subprocess
import time

import test_programs as programs

ROUNDS = int(os.environ.get('SURVIVOR_ROUNDS', 1))
SEED = int(os.environ.get('SURVIVOR_SEED', 1))


class SurvivorTest(programs.ProgramTest):

    def setUp(self):
        super().setUp()
        self.random = random.Random(SEED)
        self.marker = 1000000
        self.longest = {}
        self.history = []
        self.addCleanup(lambda: self.history and print('failed in', self.history[-1]))

    def aMoment(self, most=0.05):
        """Lets a random time pass: which moment is hit is the point, nothing is waited for."""
        select.select([], [], [], self.random.uniform(0, most))

    def serve(self, board):
        server = self.start('inventoryd', *self.unix, '--stdin', *board, stdin=subprocess.PIPE)
        server.errorLine('listening on ')
        return server

    def told(self, watcher, pattern):
        """Reads the watcher's lines until one matches."""
        while (line := watcher.line()) is not None:
            if re.search(pattern, line):
                return
        self.fail('the watcher has ended: %s' % watcher.errors)

    def inStepAgain(self, what, watcher, server, since):
        self.marker += 1
        server.tell('set slice.numPorts %d' % self.marker)
        self.told(watcher, r'slice\.numPorts: \d+ -> %d$' % self.marker)
        took = time.monotonic() - since
        self.longest[what] = max(self.longest.get(what, 0), took)

    def isWhole(self, own):
        """A mirror made now has all that the server has."""
        mirror = self.run_('inventoryctl', *self.unix, 'dump')
        self.assertEqual(mirror.returncode, 0, mirror.stderr)
        cut = re.compile(rb'^slice\.numPorts = .*$', re.MULTILINE)
        self.assertEqual(cut.sub(b'', mirror.stdout), cut.sub(b'', own))

    def serverIsKilled(self, board, server, watcher, own):
        server.tell('set slice.fap[fap0].description gone', 'add slice/fap[fap0]/mdioAccelBlock 9 1 2')
        if self.random.random() < 0.7:
            self.told(watcher, 'mdioAccelBlock')
        victim = self.start('inventoryctl', *self.unix, 'dump')
        self.aMoment()
        server.kill()
        server.close()
        self.aMoment()
        server = self.serve(board)
        self.inStepAgain('server killed', watcher, server, time.monotonic())
        victim.close()
        return server

    def watcherIsStopped(self, board, server, watcher, own):
        self.aMoment(0.01)
        watcher.kill(signal.SIGSTOP)
        for number in range(2000):
            server.tell("set slice/fap[fap0]/elkGlobalSocProperties.property['x%d'] '%s'" %
                        (number % 50, 'v' * 2000))
        server.tell(*("del slice/fap[fap0]/elkGlobalSocProperties.property['x%d']" % number
                      for number in range(50)))
        self.isWhole(own)
        watcher.kill(signal.SIGCONT)
        self.inStepAgain('watcher stopped', watcher, server, time.monotonic())
        return server

    def testTheOtherGoesOnAndIsInStepAgain(self):
        for board in programs.boards() if ROUNDS > 1 else [[str(programs.BOARD)]]:
            own = self.run_('inventoryd', '--dump', *board).stdout
            server = self.serve(board)
            watcher = self.start('inventoryctl', *self.unix, 'watch')
            server.errorLine(': connected')
            self.inStep(watcher, server)
            for number in range(ROUNDS):
                events = [self.serverIsKilled, self.watcherIsStopped]
                self.random.shuffle(events)
                for event in events:
                    self.history.append((board[-1], number, event.__name__))
                    server = event(board, server, watcher, own)
            self.isWhole(own)
            watcher.close()
            server.close()
        self.history = []
        print('longest times until in step again, in s:',
              ', '.join('%s %.3f' % each for each in sorted(self.longest.items())))
