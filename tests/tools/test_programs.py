"""inventoryd and inventoryctl as processes: equal dumps, watching, refusals, ends of either side.

Nothing here sleeps to let something happen: every wait is for a line, an end or a condition, and
gives up after LIMIT seconds.
"""

import json
import os
import pathlib
import select
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BINARY = pathlib.Path(os.environ.get('BINARY_DIR', SOURCE / 'build' / 'release')) / 'tools'
BOARD = SOURCE / 'examples' / 'board.soc'
DATA = SOURCE.parent / 'shared' / 'data'
LIMIT = 60
# The system tells a reset where the peer has left bytes unread.
GONE = '(closed by the peer|Connection reset by peer)'
SMALLEST_BUFFER = '131072'


def boards():
    """The arguments that load each board there is."""
    yield [str(BOARD)]
    if (DATA / 'family-defaults.soc').exists():
        yield ['--chip', 'BCM88650', str(DATA / 'family-defaults.soc')]
        yield ['--chip', 'BCM88675', str(DATA / 'family-defaults.soc')]
        yield [str(DATA / 'linecard-unit0.soc')]
        yield [str(DATA / 'linecard-unit1.soc')]


class Process:
    """A program with its output read line by line."""

    def __init__(self, name, *arguments, stdin=subprocess.DEVNULL):
        self.process = subprocess.Popen([BINARY / name, *map(str, arguments)], stdin=stdin,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self._rest = {self.process.stdout: b'', self.process.stderr: b''}
        self.errors = []

    def line(self, stream=None):
        """The next line of standard output, or of `stream`; None at its end."""
        stream = stream or self.process.stdout
        giveUp = time.monotonic() + LIMIT
        while b'\n' not in self._rest[stream]:
            if not select.select([stream], [], [], max(0, giveUp - time.monotonic()))[0]:
                raise AssertionError('no line within %d s' % LIMIT)
            got = os.read(stream.fileno(), 65536)
            if not got:
                return None
            self._rest[stream] += got
        line, self._rest[stream] = self._rest[stream].split(b'\n', 1)
        return line.decode()

    def errorLine(self, part):
        """Waits for a line of standard error with `part` in it."""
        while True:
            line = self.line(self.process.stderr)
            if line is None:
                raise AssertionError('%r is not among %r' % (part, self.errors))
            self.errors.append(line)
            if part in line:
                return line

    def tell(self, *lines):
        self.process.stdin.write(''.join(line + '\n' for line in lines).encode())
        self.process.stdin.flush()

    def end(self):
        """Waits for the end: the exit code and what standard error still had."""
        code = self.process.wait(LIMIT)
        rest = []
        while (line := self.line(self.process.stderr)) is not None:
            rest.append(line)
        return code, rest

    def kill(self, number=signal.SIGKILL):
        self.process.send_signal(number)

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait(LIMIT)
        for stream in (self.process.stdin, self.process.stdout, self.process.stderr):
            if stream:
                stream.close()


class ProgramTest(unittest.TestCase):

    def setUp(self):
        self.directory = tempfile.TemporaryDirectory(prefix='invarad-')
        self.addCleanup(self.directory.cleanup)
        self.path = os.path.join(self.directory.name, 'sock')
        self.unix = ['--unix', self.path]

    def start(self, name, *arguments, **options):
        process = Process(name, *arguments, **options)
        self.addCleanup(process.close)
        return process

    def server(self, *arguments, endpoint=None, board=BOARD):
        server = self.start('inventoryd', *(self.unix if endpoint is None else endpoint), *arguments, board,
                            stdin=subprocess.PIPE)
        server.address = server.errorLine('listening on ').split('listening on ')[1]
        return server

    def run_(self, name, *arguments):
        return subprocess.run([BINARY / name, *map(str, arguments)], capture_output=True,
                              stdin=subprocess.DEVNULL, timeout=LIMIT)

    def watcher(self, *arguments, server):
        watcher = self.start('inventoryctl', *self.unix, 'watch', '--no-retry', *arguments)
        server.errorLine(': connected')
        self.inStep(watcher, server)
        return watcher

    def assertIsLost(self, watcher):
        code, lines = watcher.end()
        self.assertEqual(code, 5)
        self.assertEqual(len(lines), 1, lines)
        self.assertRegex(lines[0], '^inventoryctl: connection lost: %s$' % GONE)

    def inStep(self, watcher, server):
        """Changes a value until the watcher tells it: from then on it tells all."""
        giveUp = time.monotonic() + LIMIT
        number = 1000
        while time.monotonic() < giveUp:
            number += 1
            server.tell('set slice.numPorts %d' % number)
            if select.select([watcher.process.stdout], [], [], 0.1)[0]:
                while str(number) not in watcher.line():
                    pass
                return
        raise AssertionError('the watcher is never in step')


class DumpTest(ProgramTest):

    def testAMirrorsDumpHasTheBytesOfTheServersOwn(self):
        for board in boards():
            for form in [], ['--json']:
                own = self.run_('inventoryd', '--dump', *form, *board)
                self.assertEqual(own.returncode, 0, own.stderr)
                self.assertGreater(len(own.stdout), 4000)
                for endpoint in self.unix, ['--tcp', '127.0.0.1:0']:
                    for buffer in [], ['--buffer', SMALLEST_BUFFER]:
                        with self.subTest(board=board, form=form, endpoint=endpoint,
                                          buffer=buffer):
                            server = self.start('inventoryd', *endpoint, *buffer, *board)
                            at = server.errorLine('listening on ').split('listening on ')[1]
                            client = self.run_('inventoryctl', endpoint[0], at, 'dump', *form)
                            self.assertEqual(client.stderr, b'')
                            self.assertEqual(client.returncode, 0)
                            self.assertEqual(client.stdout, own.stdout)
                            server.kill(signal.SIGTERM)
                            self.assertEqual(server.end()[0], 0)

    def testTextHasALineForEachValueAndJsonTheSameContent(self):
        lines = self.run_('inventoryd', '--dump', BOARD).stdout.decode().splitlines()
        self.assertEqual(lines[:4], [
            "slice: Inventory::Arad::AradSlice 'slice'", 'slice.numPorts = 0',
            "slice/fap[fap0]: Inventory::Arad::Arad 'fap0'", "slice/fap[fap0].description = ''"])
        self.assertIn('slice/fap[fap0]/serdes[0].txSerdesId = 1', lines)
        self.assertEqual(len(lines), len(set(lines)))
        ports = [line.split('port[')[1].split(']')[0] for line in lines
                 if line.endswith("EthPort ''")]
        self.assertEqual(ports, sorted(ports, key=int))
        self.assertGreater(len(ports), 9)
        tree = json.loads(self.run_('inventoryd', '--dump', '--json', BOARD).stdout)
        fap = tree['slice']['attributes']['fap']['fap0']
        self.assertEqual(fap['type'], 'Inventory::Arad::Arad')
        self.assertEqual(list(fap['attributes']['port']), ports)
        self.assertIs(fap['attributes']['serdes']['0']['attributes']['swapPolarityRx'], False)
        self.assertEqual(fap['attributes']['serdes']['0']['attributes']['txSerdesId'], 1)
        self.assertIsNone(fap['attributes']['pciDevice'])

    def testStrictServesNothingIfALineIsRefused(self):
        bad = os.path.join(self.directory.name, 'bad.soc')
        pathlib.Path(bad).write_text('ucode_port_1=CGE999\n')
        loose = self.run_('inventoryd', '--dump', bad)
        self.assertEqual(loose.returncode, 0)
        self.assertIn(b'CGE999', loose.stdout)
        strict = self.run_('inventoryd', '--strict', *self.unix, bad)
        self.assertEqual(strict.returncode, 1)
        self.assertIn(b'bad.soc:1: ', strict.stderr)
        self.assertFalse(os.path.exists(self.path))


class WatchTest(ProgramTest):

    COMMANDS = [
        "set slice/fap[fap0].description 'it\\'s'",
        'set slice/fap[fap0].description up',
        'set slice/fap[fap0]/port[3].managedPhy bcm84848',
        "set slice/fap[fap0]/elkGlobalSocProperties.property['a.b] c'] 'v 1'",
        "set slice/fap[fap0]/elkGlobalSocProperties.property['a.b] c'] v2",
        "del slice/fap[fap0]/elkGlobalSocProperties.property['a.b] c']",
        'add slice/fap[fap0]/qsgmii 30',
        'set slice/fap[fap0]/qsgmii[30].serdes 4',
        'del slice/fap[fap0]/qsgmii[30]',
    ]

    def testTellsEachChangeWithOldAndNewValue(self):
        server = self.server('--stdin')
        watcher = self.watcher(server=server)
        for command in self.COMMANDS:
            server.tell(command)
        server.tell('quit')
        expected = [
            "changed slice/fap[fap0].description: '' -> 'it\\'s'",
            "changed slice/fap[fap0].description: 'it\\'s' -> 'up'",
            "changed slice/fap[fap0]/port[3].managedPhy: 'unknown' -> 'bcm84848'",
            "added slice/fap[fap0]/elkGlobalSocProperties.property['a.b] c']: 'v 1'",
            "changed slice/fap[fap0]/elkGlobalSocProperties.property['a.b] c']: 'v 1' -> 'v2'",
            "removed slice/fap[fap0]/elkGlobalSocProperties.property['a.b] c']: 'v2'",
            "created slice/fap[fap0]/qsgmii[30]: Inventory::Arad::Qsgmii ''",
            'added slice/fap[fap0]/qsgmii[30].id: 30',
            'changed slice/fap[fap0]/qsgmii[30].serdes: 72 -> 4',
            'deleted slice/fap[fap0]/qsgmii[30]',
        ]
        self.assertEqual([watcher.line() for _ in expected], expected)
        self.assertIsNone(watcher.line())
        self.assertIsLost(watcher)
        self.assertEqual(server.end()[0], 0)
        self.assertFalse(os.path.exists(self.path))

    def testJsonHasOneObjectALine(self):
        server = self.server('--stdin')
        watcher = self.watcher('--json', server=server)
        for command in self.COMMANDS:
            server.tell(command)
        server.tell('quit')
        events = []
        while (line := watcher.line()) is not None:
            events.append(json.loads(line))
        at = 'slice/fap[fap0]/elkGlobalSocProperties'
        self.assertEqual(events[1], {'event': 'changed', 'entity': 'slice/fap[fap0]',
                                     'attribute': 'description', 'old': "it's", 'new': 'up'})
        self.assertEqual(events[5], {'event': 'removed', 'entity': at, 'attribute': 'property',
                                     'key': 'a.b] c', 'old': 'v2'})
        self.assertEqual(events[6], {'event': 'created', 'entity': 'slice/fap[fap0]/qsgmii[30]',
                                     'type': 'Inventory::Arad::Qsgmii', 'name': ''})
        self.assertEqual([event['event'] for event in events],
                         ['changed'] * 3 + ['added', 'changed', 'removed', 'created', 'added',
                                            'changed', 'deleted'])

    def testWhatCantBeDoneIsToldWithItsLineAndChangesNothing(self):
        server = self.server('--stdin')
        refused = [
            ('frob', 'no such command: frob'),
            ('set', 'set: no path'),
            ('set nowhere.x 1', 'no such entity: nowhere.x'),
            ('set slice.numPorts', 'set: no value for slice.numPorts'),
            ('set slice.numPorts 5 6',
             "numPorts: expected U32, got '5 6': junk at column 1 deserializing 5 6"),
            ('del slice/fap[fap0]/qsgmii[71] x', 'del: x is too much; expected one path'),
        ]
        for number, (command, cause) in enumerate(refused, 1):
            server.tell(command)
            self.assertEqual(server.errorLine('line %d:' % number),
                             'inventoryd: standard input, line %d: %s' % (number, cause))
        server.tell('# a comment', '', '  ')
        own = self.run_('inventoryd', '--dump', BOARD).stdout
        self.assertEqual(self.run_('inventoryctl', *self.unix, 'dump').stdout, own)


class EndsTest(ProgramTest):

    def testExitCodesAndOneLine(self):
        nobody = os.path.join(self.directory.name, 'nobody')
        wrong = [
            (3, ['--unix', nobody, 'dump'], 'no server: %s: No such file or directory' % nobody),
            (2, ['--tcp', 'x', 'dump'], "'x' is not HOST:PORT"),
            (2, ['bogus'], ''),
            (3, ['--unix', nobody], 'no server: '),
            (2, ['--tcp', ':1', '--unix', 'x', 'dump'], ''),
        ]
        for code, arguments, text in wrong:
            with self.subTest(arguments=arguments):
                result = self.run_('inventoryctl', *arguments)
                self.assertEqual(result.returncode, code)
                lines = result.stderr.decode().splitlines()
                self.assertEqual(len(lines), 1, lines)
                self.assertTrue(lines[0].startswith('inventoryctl: '), lines)
                self.assertIn(text, lines[0])
                self.assertEqual(result.stdout, b'')
        for arguments in [], ['--buffer', '131071', BOARD], ['--json', BOARD]:
            result = self.run_('inventoryd', *arguments)
            self.assertEqual(result.returncode, 2)
            self.assertEqual(len(result.stderr.splitlines()), 1)

    def fake(self, answer, closes):
        """A listener that says `answer` to whoever comes."""
        listener = socket.socket(socket.AF_UNIX)
        listener.bind(self.path)
        listener.listen()
        self.addCleanup(listener.close)
        kept = []

        def serve():
            connection, _ = listener.accept()
            connection.sendall(answer)
            kept.append(connection)
            if closes:
                connection.close()
        thread = threading.Thread(target=serve)
        thread.start()
        self.addCleanup(lambda: [connection.close() for connection in kept])
        self.addCleanup(thread.join)

    def testWhoTalksSomethingElseIsTheWrongProtocol(self):
        self.fake(b'HTTP/1.1 400 Bad Request\r\n\r\n', closes=True)
        result = self.run_('inventoryctl', *self.unix, 'dump')
        self.assertEqual(result.returncode, 4)
        self.assertEqual(result.stderr.decode(), 'inventoryctl: wrong protocol: BadGreeting at '
                         'stream offset 0, entity 0x0, attribute 0\n')

    def testWhoSaysNothingIsNoServer(self):
        self.fake(b'', closes=False)
        result = self.run_('inventoryctl', *self.unix, '--timeout', '1', 'dump')
        self.assertEqual(result.returncode, 3)
        self.assertEqual(result.stderr.decode(),
                         'inventoryctl: no server: %s: no greeting within 1 s\n' % self.path)

    def testWhoStopsInTheMiddleIsLost(self):
        self.fake(b'MOXLOG1\n\0\x40', closes=True)
        result = self.run_('inventoryctl', *self.unix, 'dump')
        self.assertEqual(result.returncode, 5)
        self.assertRegex(result.stderr.decode(),
                         '^inventoryctl: connection lost: %s( before its greeting)?\n$' % GONE)

    def testAServerThatDiesOrHangsInTheTransferIsToldSo(self):
        server = self.server()
        with socket.socket(socket.AF_UNIX) as peer:
            peer.connect(self.path)
            stream = peer.recv(65536)
            peer.sendall(stream)
            peer.settimeout(LIMIT)
            # The last frame of the first transfer tells that the root is complete.
            while len(stream) < 5000 or stream[-24:-23] != b'\4':
                stream += peer.recv(65536)
        server.kill()
        server.end()
        self.assertGreater(len(stream), 5000)
        for closes, size in ((closes, size) for closes in (True, False)
                             for size in (len(stream) // 3, len(stream) - 1)):
            with self.subTest(closes=closes, size=size):
                os.unlink(self.path)
                self.fake(stream[:size], closes)
                result = self.run_('inventoryctl', *self.unix, '--timeout', '0.7', 'dump')
                self.assertEqual(result.returncode, 5)
                self.assertEqual(result.stdout, b'')
                self.assertRegex(result.stderr.decode(),
                                 '^inventoryctl: connection lost: %s\n$' % (
                                     GONE if closes else 'nothing received for 700 ms'))

    def testAServerSurvivesPeersThatTalkNonsense(self):
        server = self.server()
        for bytes_ in b'GET / HTTP/1.0\r\n\r\n', b'\0' * 5000, b'MOXLOG1\n\0\x40', b'':
            with socket.socket(socket.AF_UNIX) as peer:
                peer.connect(self.path)
                peer.sendall(bytes_)
                peer.shutdown(socket.SHUT_WR)
                while peer.recv(65536):
                    pass
            server.errorLine('unknown peer: ')
        self.assertEqual(self.run_('inventoryctl', *self.unix, 'dump').returncode, 0)

    def testKillingEitherEndLeavesTheOtherWithOneLine(self):
        server = self.server('--stdin')
        first = self.watcher(server=server)
        second = self.watcher(server=server)
        first.kill()
        first.end()
        self.assertRegex(server.errorLine('inventoryctl-%d-' % first.process.pid),
                         ': %s$' % GONE)
        server.tell('set slice.numPorts 5')
        self.assertIn('-> 5', second.line())
        server.kill()
        server.end()
        self.assertIsLost(second)
        # The file of the killed server is no obstacle.
        self.assertTrue(os.path.exists(self.path))
        self.server('--stdin')
        self.assertEqual(self.run_('inventoryctl', *self.unix, 'dump').returncode, 0)

    def testAStoppedServerIsToldInTime(self):
        server = self.server()
        server.kill(signal.SIGSTOP)
        result = self.run_('inventoryctl', *self.unix, '--timeout', '0.5', 'dump')
        self.assertEqual(result.returncode, 3)
        self.assertEqual(len(result.stderr.splitlines()), 1)
        server.kill(signal.SIGCONT)
        self.assertEqual(self.run_('inventoryctl', *self.unix, 'dump').returncode, 0)

    def testTwoServersCantHaveOnePathAndSignalsEndOne(self):
        for number in signal.SIGINT, signal.SIGTERM:
            server = self.server()
            second = self.run_('inventoryd', *self.unix, BOARD)
            self.assertEqual(second.returncode, 1)
            self.assertEqual(second.stderr.decode().splitlines()[-1],
                             'inventoryd: %s: somebody listens there already' % self.path)
            self.assertEqual(os.stat(self.path).st_mode & 0o777, 0o600)
            server.kill(number)
            self.assertEqual(server.end()[0], 0)
            self.assertFalse(os.path.exists(self.path))

    def testAReaderThatHasSeenEnoughIsNoFailure(self):
        server = self.server('--stdin')
        watcher = self.watcher(server=server)
        watcher.process.stdout.close()
        server.tell('set slice.numPorts 1', 'set slice.numPorts 2')
        self.assertEqual(watcher.process.wait(LIMIT), 0)
        watcher.process.stdout = watcher.process.stderr

    def testADumpIntoAClosedPipeIsNoFailureAndOneThatFindsNoRoomIs(self):
        self.server()
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing, 'wb') as closed, open('/dev/full', 'wb') as full:
            said = b"inventoryctl: standard output can't be written\n"
            for output, code, said in (closed, 0, b''), (full, 1, said):
                done = subprocess.run([BINARY / 'inventoryctl', *self.unix, 'dump'], stdout=output,
                                      stderr=subprocess.PIPE, timeout=LIMIT)
                self.assertEqual((done.returncode, done.stderr), (code, said))

    def testAWatcherOutlivesItsServerAndTellsWhatTheNextOneHasOtherwise(self):
        server = self.server('--stdin')
        watcher = self.start('inventoryctl', *self.unix, 'watch')
        server.errorLine(': connected')
        self.inStep(watcher, server)
        server.tell("set slice/fap[fap0].description 'first'")
        self.assertEqual(watcher.line(), "changed slice/fap[fap0].description: '' -> 'first'")
        for kill in signal.SIGKILL, signal.SIGTERM:
            server.kill(kill)
            server.end()
            self.assertRegex(watcher.line(watcher.process.stderr),
                             '^inventoryctl: connection lost: %s; trying again$' % GONE)
            server = self.server('--stdin')
            server.errorLine(': connected')
            self.assertEqual(watcher.line(watcher.process.stderr), 'inventoryctl: in step again')
            server.tell("set slice/fap[fap0].description 'next'")
            lines = [watcher.line()]
            while not lines[-1].endswith(" -> 'next'"):
                lines.append(watcher.line())
            # What both servers have alike isn't told again.
            self.assertLessEqual(set(line.split(':')[0] for line in lines),
                                 {'changed slice.numPorts', 'changed slice/fap[fap0].description'})
        watcher.kill(signal.SIGTERM)
        self.assertEqual(watcher.end()[0], 0)


class PlacesTest(ProgramTest):

    def testEachPlaceSaysWhetherPeersMayWriteAndSocketsHaveTheModeAskedFor(self):
        other = self.path + '2'
        server = self.server('--mode', '0660', '--listen', 'unix:%s,rw' % self.path, '--listen',
                             'unix:%s' % other, '--listen', 'tcp::0,ro', endpoint=['--status',
                             self.path + '3'])
        self.assertEqual(server.address, self.path + ', peers may write')
        self.assertEqual(server.errorLine('listening on ').split()[-1], other)
        at = server.errorLine('listening on ').split()[-1]
        self.assertTrue(at.startswith('127.0.0.1:'), at)
        for path, grants in (self.path, True), (other, False):
            with socket.socket(socket.AF_UNIX) as peer:
                peer.connect(path)
                bits = int.from_bytes(peer.recv(65536)[14:16], 'big')
            self.assertEqual(bool(bits & 4), grants)
        for path in self.path, other, self.path + '3':
            self.assertEqual(os.stat(path).st_mode & 0o777, 0o660)
        dumps = [self.run_('inventoryctl', option, where, 'dump').stdout for option, where in
                 (('--unix', self.path), ('--unix', other), ('--tcp', at))]
        self.assertGreater(len(dumps[0]), 4000)
        self.assertEqual(dumps, dumps[:1] * 3)

    def testWhatIsNoPlaceOrModeIsToldInOneLine(self):
        for arguments, text in ((['--listen', self.path], 'is not unix:PATH or tcp:HOST:PORT'),
                                (['--listen', 'tcp:x,rw'], "'x' is not HOST:PORT"),
                                (['--mode', '999'], "'999' is no mode such as 0660"),
                                (['--mode', '1777'], "'1777' is more than 0777")):
            result = self.run_('inventoryd', *arguments, BOARD)
            self.assertNotEqual(result.returncode, 0)
            self.assertIn(text, result.stderr.decode().splitlines()[-1])


class CommandTest(ProgramTest):
    """inventoryctl's commands on a server that lets it write."""

    FAP = 'slice/fap[fap0]'

    def setUp(self):
        super().setUp()
        self.server('--stdin', '--listen', 'unix:%s,rw' % self.path, endpoint=[])

    def command(self, *words, stdin=b''):
        return subprocess.run([BINARY / 'inventoryctl', *self.unix, *words], capture_output=True,
                              input=stdin, timeout=LIMIT)

    # A line of a session, and the lines that answer it; a refusal is told with its number.
    SESSION = [
        ('ls', ["slice: Inventory::Arad::AradSlice 'slice'"]),
        ('get slice.numPorts', ['0']),
        ('set slice.numPorts 12', []),
        ('get slice.numPorts', ['12']),
        ('add slice/fap[fap0]/qsgmii[30]', []),
        ("set slice/fap[fap0]/qsgmii[30].description 'up link'", []),
        ('ls slice/fap[fap0]/qsgmii[30]', [
            "slice/fap[fap0]/qsgmii[30]: Inventory::Arad::Qsgmii ''",
            'slice/fap[fap0]/qsgmii[30].id = 30',
            "slice/fap[fap0]/qsgmii[30].description = 'up link'",
            'slice/fap[fap0]/qsgmii[30].serdes = 72']),
        ('add slice/fap[fap0]/statsSerdes swapPolarityTx=true id=28', []),
        ('add slice/fap[fap0]/statsSerdes 29 false', []),
        ('add slice/fap[fap0]/statsSerdes[30] true', []),
        ('ls slice/fap[fap0]/statsSerdes', [
            "slice/fap[fap0]/statsSerdes[%d]: Inventory::Arad::StatsSerdes ''" % i
            for i in (28, 29, 30)]),
        ('get slice/fap[fap0]/statsSerdes[29]', [
            "slice/fap[fap0]/statsSerdes[29]: Inventory::Arad::StatsSerdes ''",
            'slice/fap[fap0]/statsSerdes[29].id = 29',
            'slice/fap[fap0]/statsSerdes[29].swapPolarityTx = false']),
        ('del slice/fap[fap0]/statsSerdes[29]', []),
        ('get slice/fap[fap0]/statsSerdes[29].id', None),
        ("add slice/fap[fap0].ddrTuneSetting['a.b] c'] 'v 1'", []),
        ("add slice/fap[fap0].ddrTuneSetting['a.b] c'] 2", None),
        ("get slice/fap[fap0].ddrTuneSetting['a.b] c']", ["'v 1'"]),
        ("del slice/fap[fap0].ddrTuneSetting['a.b] c']", []),
        ("get slice/fap[fap0].ddrTuneSetting['a.b] c']", None),
        ('set slice/fap[fap0]/port[3].managedPhy bcm84848', []),
        ('get slice/fap[fap0]/port[3].managedPhy', ["'bcm84848'"]),
        ('set slice/fap[fap0]/port[3].managedPhy 4', None),
        ('add slice/fap[fap0]/pciDevice pci', []),
        ('get slice/fap[fap0]/pciDevice', [
            "slice/fap[fap0]/pciDevice: Inventory::PciDevice 'pci'"]),
        ('del slice/fap[fap0]/pciDevice', []),
        ('# a remark', []),
        ('frob', None),
    ]

    def testASessionDoesWhatEachLineSaysAndTheServerHasIt(self):
        self.sessionTest()

    def testTheSameOnRealBoards(self):
        for board in boards():
            if 'linecard' in board[0]:  # The family's defaults have no ports.
                with self.subTest(board=board):
                    self.path = os.path.join(self.directory.name, os.path.basename(board[0]))
                    self.unix = ['--unix', self.path]
                    self.server('--listen', 'unix:%s,rw' % self.path, endpoint=[], board=board[0])
                    self.sessionTest()

    def sessionTest(self):
        session = self.command(stdin='\n'.join(line for line, _ in self.SESSION).encode())
        self.assertEqual(session.stdout.decode().splitlines(),
                         [line for _, answer in self.SESSION for line in answer or []])
        refused = [number for number, (_, answer) in enumerate(self.SESSION, 1) if answer is None]
        self.assertEqual([line.split(':')[1] for line in session.stderr.decode().splitlines()],
                         [' line %d' % number for number in refused])
        self.assertEqual(session.returncode, 6)
        lines = self.command('dump').stdout.decode().splitlines()
        for line in ('slice.numPorts = 12', self.FAP + "/qsgmii[30].description = 'up link'",
                     self.FAP + '/statsSerdes[28].swapPolarityTx = true',
                     self.FAP + "/port[3].managedPhy = 'bcm84848'"):
            self.assertTrue(line in lines, line)
        self.assertEqual([line for line in lines if 'pciDevice' in line or 'a.b' in line], [])

    def testRefusalsNameTheAttributeTheValueAndWhatWasExpected(self):
        before = self.command('dump').stdout
        for words, parts in (
                (['set', 'slice.numPorts', 'five'], ['numPorts', 'five', 'U32']),
                (['set', 'slice.numPorts', '5 6'], ['numPorts', '5 6', 'U32', 'junk at column 1']),
                (['set', self.FAP + '.fapId', '5'], ['fapId', "can't be set"]),
                (['set', self.FAP + '.ddrTuneSetting', 'x'], ['ddrTuneSetting', '[KEY]']),
                (['set', 'slice.numPorts[3]', '1'], ['numPorts', '[KEY]']),
                (['set', self.FAP + '/port[3].serdesCoreType', 'x'],
                 ['serdesCoreType', "'x'", 'one of unknownCore, warpCore, falconCore, eagleCore']),
                (['set', self.FAP + '/port[3].xcvrSlot', 'slice/nowhere'],
                 ['xcvrSlot', 'slice/nowhere', 'Slot']),
                (['set', self.FAP + '/port[3].xcvrSlot', 'slice'], ['xcvrSlot', 'slice', 'Slot']),
                (['add', self.FAP + '/qsgmii', '999'], ['qsgmii', 'id', '999', 'QsgmiiId']),
                (['add', self.FAP + '/statsSerdes', 'id=28'], ['statsSerdes', 'swapPolarityTx',
                                                              'bool']),
                (['add', self.FAP + '/qsgmii', '1', '2'], ['qsgmii', '2', 'too many']),
                (['add', 'slice.numPorts', '1'], ['numPorts', 'takes no child']),
                (['del', 'slice.numPorts'], ['numPorts', 'nothing to delete']),
                (['get', 'slice.nothing'], ['no such attribute: slice.nothing']),
                (['get', 'nowhere.x'], ['no such entity: nowhere.x']),
                (['get', self.FAP + '/port[x].lane'], ['no such entity: ' + self.FAP + '/port[x].lane']),
                (['types', 'Nothing'], ['no such type: Nothing'])):
            with self.subTest(words=words):
                result = self.command(*words)
                self.assertEqual((result.returncode, result.stdout), (6, b''))
                line, = result.stderr.decode().splitlines()
                for part in ['inventoryctl: ', *parts]:
                    self.assertIn(part, line)
        self.assertEqual(self.command('dump').stdout, before)

    def testAServerThatGrantsNoWriteIsToldBeforeAnythingChanges(self):
        self.path += '2'
        self.unix = ['--unix', self.path]
        self.server()
        result = self.command('set', 'slice.numPorts', '5')
        self.assertEqual(result.returncode, 6)
        self.assertEqual(result.stderr, b'inventoryctl: set: the server takes no changes from this '
                         b'connection\n')
        self.assertEqual(self.command('get', 'slice.numPorts').stdout, b'0\n')

    def testJsonHasTheSameContent(self):
        def json_(*words):
            return json.loads(self.command(*words, '--json').stdout)
        tree = json_('dump')
        port = tree['slice']['attributes']['fap']['fap0']['attributes']['port']['3']
        self.assertEqual(json_('get', self.FAP + '/port[3]'), port)
        self.assertEqual(json_('get', self.FAP + '/port[3].xgeId'), port['attributes']['xgeId'])
        self.assertEqual(json_('ls', self.FAP + '/port[3]')[self.FAP + '/port[3].managedPhy'],
                         port['attributes']['managedPhy'])
        self.assertEqual(json_('ls'), {'slice': {'type': 'Inventory::Arad::AradSlice',
                                                 'name': 'slice'}})
        qsgmii, = json_('types', 'Qsgmii')
        self.assertEqual(qsgmii['arguments'], [{'name': 'id', 'type': 'Hardware::Sand::QsgmiiId'}])
        self.assertEqual([(each['id'], each['name'], each['kind'])
                          for each in qsgmii['attributes']],
                         [(258, 'id', 'constant'), (259, 'description', 'value'),
                          (260, 'serdes', 'value')])
        names = {each['type'] for each in json_('types')}
        self.assertLessEqual({'Inventory::Arad::AradSlice', 'Inventory::Arad::SerdesCoreType',
                              'Inventory::Sand::FapBase'}, names)

    def testAWatchOfAPathTellsNothingElse(self):
        watcher = self.start('inventoryctl', *self.unix, stdin=subprocess.PIPE)
        watcher.tell('watch %s/port[3]' % self.FAP, 'get slice.numPorts')
        self.assertEqual(watcher.line(), '0')
        for path, value in (('/port[4].lane', 1), ('/port[3].lane', 2), ('/port[3].numQPairs', 3)):
            self.assertEqual(self.command('set', self.FAP + path, str(value)).returncode, 0)
        self.assertEqual(watcher.line(), 'changed %s/port[3].lane: 0 -> 2' % self.FAP)
        self.assertEqual(watcher.line(), 'changed %s/port[3].numQPairs: 0 -> 3' % self.FAP)
        watcher.tell('watch off', 'set %s/port[3].lane 4' % self.FAP, 'quit')
        self.assertIsNone(watcher.line())
        self.assertEqual(watcher.end(), (0, []))

    COMPLETIONS = [
        ('sl', ['slice']),
        ('slice', ['slice']),
        ('slice.num', ['slice.numPorts']),
        ('slice/f', ['slice/fap[']),
        ('slice/fap[', ['slice/fap[fap0]']),
        ('slice/fap[fap0]/xlge', ['slice/fap[fap0]/xlge2[', 'slice/fap[fap0]/xlge[']),
        ('slice/fap[fap0]/xlge[1', ['slice/fap[fap0]/xlge[16]', 'slice/fap[fap0]/xlge[17]']),
        ('slice/fap[fap0]/xlge[16].la', ['slice/fap[fap0]/xlge[16].laneWithLowMDIOAddrInQuad']),
        ('nowhere', []),
    ]

    def testPathsAreCompletedAlsoInTheShell(self):
        script = ('source %s; PATH=%s:$PATH; COMP_LINE="inventoryctl --unix %s get $1"; '
                  'COMP_POINT=${#COMP_LINE}; COMP_WORDS=(inventoryctl --unix %s get "$1"); '
                  'COMP_CWORD=4; _inventoryctl; printf "%%s\\n" "${COMPREPLY[@]}"' % (
                      SOURCE / 'tools/inventoryctl/inventoryctl.bash', BINARY,
                      self.path, self.path))
        for word, expected in self.COMPLETIONS:
            with self.subTest(word=word):
                found = self.command('complete', word).stdout.decode().splitlines()
                if word != 'slice':
                    self.assertEqual(sorted(found), expected)
                else:
                    self.assertIn('slice.numPorts', found)
                shell = subprocess.run(['bash', '-c', script, 'bash', word], capture_output=True,
                                       timeout=LIMIT)
                self.assertEqual(shell.stdout.decode().split(), found)

    def testAtATerminalTabCompletesAndTheLinesAreCarriedOut(self):
        controller, terminal = os.openpty()
        process = subprocess.Popen([BINARY / 'inventoryctl', *self.unix], stdin=terminal,
                                   stdout=terminal, stderr=terminal, start_new_session=True,
                                   env={**os.environ, 'TERM': 'dumb'})
        os.close(terminal)
        self.addCleanup(os.close, controller)
        self.addCleanup(lambda: process.poll() is None and process.kill())
        seen = b''

        def until(part):
            nonlocal seen
            giveUp = time.monotonic() + LIMIT
            while part not in seen:
                ready = select.select([controller], [], [], max(0, giveUp - time.monotonic()))[0]
                self.assertTrue(ready, seen)
                seen += os.read(controller, 65536)
            seen = seen[seen.index(part) + len(part):]
        until(b'inventory> ')
        os.write(controller, b'get slice.num\t')
        until(b'slice.numPorts')
        os.write(controller, b'\r')
        until(b'\n0\r\n')
        until(b'inventory> ')
        os.write(controller, b'get nowhere\r')
        until(b'no such entity: nowhere')
        until(b'inventory> ')
        os.write(controller, b'\x04')
        self.assertEqual(process.wait(LIMIT), 6)


class CaptureTest(ProgramTest):

    def setUp(self):
        super().setUp()
        self.file = os.path.join(self.directory.name, 'capture')

    def testARecordedConnectionIsShownAndMakesTheSameTree(self):
        server = self.server('--stdin', '--capture', self.file)
        watcher = self.watcher(server=server)
        server.tell("set slice/fap[fap0]/qsgmii[71].serdes 4", 'add slice/fap[fap0]/qsgmii 30')
        while 'qsgmii[30].id' not in watcher.line():
            pass
        dump = self.run_('inventoryctl', *self.unix, 'dump')
        watcher.kill()
        server.tell('quit')
        server.end()
        decoded = self.run_('inventoryctl', 'decode', self.file)
        self.assertEqual((decoded.returncode, decoded.stderr), (0, b''))
        lines = [line.split(' ', 2) for line in decoded.stdout.decode().splitlines()]
        first = [text for number, _, text in lines if number == '1']
        self.assertEqual(first[0].split(',')[0], '  opened: process %d' % watcher.process.pid)
        self.assertEqual(first[-1], '  closed')
        self.assertEqual({text[:10] for text in first[1:3]},
                         {'> greeting', '< greeting'})
        self.assertEqual([text for text in first if 'qsgmii[30]' in text][0],
                         '> child slice/fap[fap0]/qsgmii[30]: Inventory::Arad::Qsgmii(30)')
        self.assertTrue('> set slice/fap[fap0]/qsgmii[71].serdes = 4' in first)
        self.assertEqual([text for _, _, text in lines if 'message ' in text], [])
        for number in '1', '2':
            replayed = self.run_('inventoryctl', 'replay', '--connection', number, self.file)
            self.assertEqual(replayed.stderr, b'')
            self.assertEqual(replayed.stdout, dump.stdout)

    def testCutDamagedAndForeignFilesEndInOneLine(self):
        server = self.server('--capture', self.file)
        self.run_('inventoryctl', *self.unix, 'dump')
        server.kill(signal.SIGTERM)
        server.end()
        whole = pathlib.Path(self.file).read_bytes()
        bad = os.path.join(self.directory.name, 'bad')
        for content, cause in ((whole[:len(whole) // 2], 'the capture is cut at offset %d' %
                                (len(whole) // 2)),
                               (whole[:60] + b'\xff' * 60 + whole[120:], 'the capture is'),
                               (b'text', 'not a capture')):
            pathlib.Path(bad).write_bytes(content)
            for command in 'decode', 'replay':
                result = self.run_('inventoryctl', command, bad)
                self.assertEqual(result.returncode, 1)
                self.assertEqual(len(result.stderr.splitlines()), 1, result.stderr)
                self.assertIn('inventoryctl: %s: %s' % (bad, cause), result.stderr.decode())
        self.assertEqual(self.run_('inventoryctl', 'replay', '--connection', '9',
                                   self.file).stderr.decode(),
                         'inventoryctl: %s: no connection 9\n' % self.file)

    def testTheBytesOfOneDirectionCanBeShownWithoutACapture(self):
        self.server()
        with socket.socket(socket.AF_UNIX) as peer:
            peer.connect(self.path)
            pathlib.Path(self.file).write_bytes(peer.recv(65536))
        result = self.run_('inventoryctl', 'decode', self.file)
        self.assertRegex(result.stdout.decode(), "^greeting 'inventoryd': .*\n$")


class TopTest(ProgramTest):

    def testShowsWhatIsOwedToAMirrorThatStandsStill(self):
        server = self.server('--stdin', '--buffer', SMALLEST_BUFFER)
        watcher = self.watcher(server=server)
        watcher.kill(signal.SIGSTOP)
        for i in range(100):
            server.tell("set slice/fap[fap0].description %s%d" % ('d' * 30000, i),
                        "set slice/fap[fap0]/elkGlobalSocProperties.property[k%d] 1" % i)
        server.tell('frob')
        server.errorLine('frob')

        def status():
            result = self.run_('inventoryctl', *self.unix, 'top', '--once', '--json')
            self.assertEqual((result.returncode, result.stderr), (0, b''))
            only, = json.loads(result.stdout)['connections']
            return only
        standing = status()
        self.assertEqual(standing['owedAttributes'], 1)
        self.assertGreater(standing['owedKeys'], 10)
        self.assertEqual(standing['owedEntities'], 2)
        self.assertGreater(standing['waitingBytes'], 60000)
        table = self.run_('inventoryctl', *self.unix, 'top', '--once').stdout.decode().splitlines()
        self.assertEqual(len(table), 3)
        self.assertEqual(table[2].split()[:2], ['1', 'inventoryctl-%d-%s' % (
            watcher.process.pid, standing['peer'].split('-')[-1])])
        watcher.kill(signal.SIGCONT)
        while "%d'" % 99 not in watcher.line():
            pass
        giveUp = time.monotonic() + LIMIT
        while status()['owedKeys'] and time.monotonic() < giveUp:
            pass
        self.assertEqual([status()[name] for name in ('owedEntities', 'owedAttributes', 'owedKeys',
                                                      'waitingBytes')], [0] * 4)

    def testWhereNobodyTellsIsNoServer(self):
        server = self.server(endpoint=['--tcp', ':0'])
        result = self.run_('inventoryctl', *self.unix, 'top', '--once')
        self.assertEqual(result.returncode, 3)
        self.assertTrue(result.stderr.startswith(b'inventoryctl: no status: '), result.stderr)
        result = self.run_('inventoryctl', '--tcp', server.address, 'top', '--once')
        self.assertEqual(result.returncode, 2)


if __name__ == '__main__':
    unittest.main()
