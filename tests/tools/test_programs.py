"""inventoryd and inventoryctl as processes. Finds dumps that differ, events that are lost or doubled,
wrong exit codes and texts, and ends of either side that the other doesn't survive.

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

    def run_(self, name, *arguments, **options):
        options = {'stdin': subprocess.DEVNULL, 'capture_output': True, **options}
        return subprocess.run([BINARY / name, *map(str, arguments)], timeout=LIMIT, **options)

    def ctl(self, *arguments, **options):
        return self.run_('inventoryctl', *self.unix, *arguments, **options)

    def assertEnds(self, result, code, pattern):
        """One line of standard error, nothing on standard output."""
        self.assertEqual((result.returncode, result.stdout), (code, b''), result.stderr)
        self.assertRegex(result.stderr.decode(), '^inventoryctl: %s\n$' % pattern)

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
            for endpoint in self.unix, ['--tcp', '127.0.0.1:0', '--buffer', SMALLEST_BUFFER]:
                server = self.start('inventoryd', *endpoint, *board)
                at = server.errorLine('listening on ').split('listening on ')[1]
                for form in [], ['--json']:
                    with self.subTest(board=board, form=form, endpoint=endpoint):
                        own = self.run_('inventoryd', '--dump', *form, *board)
                        self.assertGreater(len(own.stdout), 4000)
                        client = self.run_('inventoryctl', endpoint[0], at, 'dump', *form)
                        self.assertEqual((client.returncode, client.stderr), (0, b''))
                        self.assertEqual(client.stdout, own.stdout)
                server.kill(signal.SIGTERM)
                self.assertEqual(server.end()[0], 0)

    def testTextHasALineForEachValueAndStrictServesNothing(self):
        lines = self.run_('inventoryd', '--dump', BOARD).stdout.decode().splitlines()
        self.assertEqual(lines[:4], [
            "slice: Inventory::Arad::AradSlice 'slice'", 'slice.numPorts = 0',
            "slice/fap[fap0]: Inventory::Arad::Arad 'fap0'", "slice/fap[fap0].description = ''"])
        self.assertEqual(len(lines), len(set(lines)))
        bad = os.path.join(self.directory.name, 'bad.soc')
        pathlib.Path(bad).write_text('ucode_port_1=CGE999\n')
        self.assertIn(b'CGE999', self.run_('inventoryd', '--dump', bad).stdout)
        strict = self.run_('inventoryd', '--strict', *self.unix, bad)
        self.assertEqual(strict.returncode, 1)
        self.assertIn(b'bad.soc:1: ', strict.stderr)
        self.assertFalse(os.path.exists(self.path))


class WatchTest(ProgramTest):

    # A command of the server, and the events that come of it.
    FAP = 'slice/fap[fap0]'
    AT = "slice/fap[fap0]/elkGlobalSocProperties.property['a.b] c']"
    EVENTS = [
        ("set %s.description 'it\\'s'" % FAP, ["changed %s.description: '' -> 'it\\'s'" % FAP]),
        ('set %s.description up' % FAP, ["changed %s.description: 'it\\'s' -> 'up'" % FAP]),
        ("set %s 'v 1'" % AT, ["added %s: 'v 1'" % AT]),
        ('set %s v2' % AT, ["changed %s: 'v 1' -> 'v2'" % AT]),
        ('del %s' % AT, ["removed %s: 'v2'" % AT]),
        ('add %s/qsgmii 30' % FAP, ["created %s/qsgmii[30]: Inventory::Arad::Qsgmii ''" % FAP,
                                    'added %s/qsgmii[30].id: 30' % FAP]),
        ('set %s/qsgmii[30].serdes 4' % FAP, ['changed %s/qsgmii[30].serdes: 72 -> 4' % FAP]),
        ('del %s/qsgmii[30]' % FAP, ['deleted %s/qsgmii[30]' % FAP]),
    ]

    def testEachChangeIsShownInBothForms(self):
        server = self.server('--stdin')
        text, other = self.watcher(server=server), self.watcher('--json', server=server)
        # Both have seen the change that put the second in step.
        server.tell('set slice.numPorts 5', *(command for command, _ in self.EVENTS), 'quit')
        while '-> 5' not in text.line():
            pass
        expected = [line for _, lines in self.EVENTS for line in lines]
        self.assertEqual([text.line() for _ in expected], expected)
        self.assertIsNone(text.line())
        self.assertIsLost(text)
        events = []
        while (line := other.line()) is not None:
            events.append(json.loads(line))
        events = events[-len(expected):]
        self.assertEqual([event['event'] for event in events],
                         [line.split()[0] for line in expected])
        self.assertEqual(events[0], {'event': 'changed', 'entity': self.FAP,
                                     'attribute': 'description', 'old': '', 'new': "it's"})
        self.assertEqual(events[4]['key'], 'a.b] c')
        self.assertEqual((server.end()[0], os.path.exists(self.path)), (0, False))

    def testWhatTheServerCantDoIsReportedWithItsLineAndChangesNothing(self):
        server = self.server('--stdin')
        refused = [
            ('frob', 'no such command: frob'),
            ('set', 'set: no path'),
            ('set nowhere.x 1', 'no such entity: nowhere.x'),
            ('set slice.numPorts ' + '7' * (1 << 20), 'the line is too long'),
            ('set slice.numPorts', 'set: no value for slice.numPorts'),
            ('del slice/fap[fap0]/qsgmii[71] x', 'del: x is too much; expected one path'),
        ]
        for number, (command, cause) in enumerate(refused, 1):
            server.tell(command)
            self.assertEqual(server.errorLine('line %d:' % number),
                             'inventoryd: standard input, line %d: %s' % (number, cause))
        own = self.run_('inventoryd', '--dump', BOARD).stdout
        self.assertEqual(self.ctl('dump').stdout, own)

    def testAWatcherOutlivesItsServerAndShowsOnlyWhatTheNextOneHasOtherwise(self):
        server = self.server('--stdin')
        watcher = self.start('inventoryctl', *self.unix, 'watch')
        server.errorLine(': connected')
        self.inStep(watcher, server)
        for kill in signal.SIGKILL, signal.SIGTERM:
            server.kill(kill)
            server.end()
            self.assertRegex(watcher.line(watcher.process.stderr),
                             '^inventoryctl: connection lost: %s; trying again$' % GONE)
            server = self.server('--stdin')
            self.assertEqual(watcher.line(watcher.process.stderr), 'inventoryctl: in step again')
            server.tell("set slice/fap[fap0].description 'next'")
            lines = [watcher.line()]
            while not lines[-1].endswith(" -> 'next'"):
                lines.append(watcher.line())
            self.assertLessEqual(set(line.split(':')[0] for line in lines),
                                 {'changed slice.numPorts', 'changed slice/fap[fap0].description'})
        watcher.kill(signal.SIGTERM)
        self.assertEqual(watcher.end()[0], 0)


class EndsTest(ProgramTest):

    def testWrongCommandLinesEndWithOneLine(self):
        nobody = os.path.join(self.directory.name, 'nobody')
        for name, code, arguments, text in (
                ('inventoryctl', 3, ['--unix', nobody, 'dump'], 'no server: %s: No such' % nobody),
                ('inventoryctl', 3, ['--unix', nobody], 'no server: '),
                ('inventoryctl', 3, ['--unix', nobody, 'top', '--once'], 'no status: '),
                ('inventoryctl', 2, ['--tcp', ':1', 'top', '--once'], '--status PATH'),
                ('inventoryctl', 2, ['--tcp', 'x', 'dump'], "'x' is not HOST:PORT"),
                ('inventoryctl', 2, ['--tcp', ':1', '--unix', 'x', 'dump'], ''),
                ('inventoryctl', 2, ['bogus'], ''),
                ('inventoryctl', 1, ['decode', nobody], 'No such file'),
                ('inventoryd', 2, [], ''),
                ('inventoryd', 2, ['--buffer', '131071', BOARD], ''),
                ('inventoryd', 2, ['--json', BOARD], ''),
                ('inventoryd', 2, ['--mode', '999', BOARD], "'999' is no mode such as 0660"),
                ('inventoryd', 1, ['--listen', nobody, BOARD], 'is not unix:PATH or tcp:HOST:PORT'),
                ('inventoryd', 1, ['--capture', '/dev/full', *self.unix, BOARD], 'No space left')):
            with self.subTest(name=name, arguments=arguments):
                result = self.run_(name, *arguments)
                self.assertEqual((result.returncode, result.stdout), (code, b''))
                line = result.stderr.decode().splitlines()[-1]
                self.assertTrue(line.startswith(name + ': '), line)
                self.assertIn(text, line)

    def fake(self, answer, closes):
        """A listener that sends `answer` to whoever comes."""
        if os.path.exists(self.path):
            os.unlink(self.path)
        listener = socket.socket(socket.AF_UNIX)
        listener.bind(self.path)
        listener.listen()
        kept = []

        def serve():
            connection, _ = listener.accept()
            connection.sendall(answer)
            kept.append(connection)
            if closes:
                connection.close()
        thread = threading.Thread(target=serve)
        thread.start()
        self.addCleanup(lambda: [each.close() for each in kept + [listener]])
        self.addCleanup(thread.join)

    def testAServerThatIsNoneOrStopsIsNamedSo(self):
        server = self.server()
        with socket.socket(socket.AF_UNIX) as peer:
            peer.connect(self.path)
            stream = peer.recv(65536)
            peer.sendall(stream)
            peer.settimeout(LIMIT)
            while len(stream) < 5000:
                stream += peer.recv(65536)
        server.kill()
        server.end()
        third = stream[:len(stream) // 3]
        for answer, closes, code, text in (
                (b'HTTP/1.1 400 Bad Request\r\n\r\n', True, 4, 'wrong protocol: BadGreeting at '
                 'stream offset 0, entity 0x0, attribute 0'),
                (b'', False, 3, 'no server: %s: no greeting within 700 ms' % self.path),
                (stream[:12], True, 5, 'connection lost: %s( before its greeting)?' % GONE),
                (third, True, 5, 'connection lost: %s' % GONE),
                (third, False, 5, 'connection lost: nothing received for 700 ms')):
            with self.subTest(text=text):
                self.fake(answer, closes)
                self.assertEnds(self.ctl('--timeout', '0.7', 'dump'), code, text)

    def testEitherEndSurvivesTheOther(self):
        server = self.server('--stdin')
        for bytes_ in b'GET / HTTP/1.0\r\n\r\n', b'\0' * 5000, b'MOXLOG1\n\0\x40', b'':
            with socket.socket(socket.AF_UNIX) as peer:
                peer.connect(self.path)
                peer.sendall(bytes_)
                peer.shutdown(socket.SHUT_WR)
                while peer.recv(65536):
                    pass
            server.errorLine('unknown peer: ')
        first, second = self.watcher(server=server), self.watcher(server=server)
        first.kill()
        first.end()
        self.assertRegex(server.errorLine('inventoryctl-%d-' % first.process.pid), ': %s$' % GONE)
        server.kill(signal.SIGSTOP)
        self.assertEqual(self.ctl('--timeout', '0.5', 'dump').returncode, 3)
        server.kill(signal.SIGCONT)
        again = self.run_('inventoryd', *self.unix, BOARD)
        self.assertEqual(again.returncode, 1)
        self.assertEqual(again.stderr.decode().splitlines()[-1],
                         'inventoryd: %s: somebody listens there already' % self.path)
        server.kill()
        server.end()
        self.assertIsLost(second)
        # The file of the killed server is no obstacle.
        self.assertTrue(os.path.exists(self.path))
        server = self.server('--stdin')
        watcher = self.watcher(server=server)
        watcher.process.stdout.close()
        server.tell('set slice.numPorts 1', 'set slice.numPorts 2')
        self.assertEqual(watcher.process.wait(LIMIT), 0)
        watcher.process.stdout = watcher.process.stderr
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing, 'wb') as closed, open('/dev/full', 'wb') as full:
            reason = b"inventoryctl: standard output can't be written\n"
            for output, code, text in (closed, 0, b''), (full, 1, reason):
                done = self.ctl('dump', capture_output=False, stdout=output, stderr=subprocess.PIPE)
                self.assertEqual((done.returncode, done.stderr), (code, text))


class PlacesTest(ProgramTest):

    def testEachPlaceHasItsRightsItsModeAndItsWarning(self):
        other, status = self.path + '2', self.path + '3'
        server = self.server('--mode', '0660', '--listen', 'unix:%s,rw' % self.path, '--listen',
                             'unix:%s' % other, '--listen', 'tcp:0.0.0.0:0,rw',
                             endpoint=['--status', status])
        self.assertEqual(server.address, self.path + ', peers may write')
        self.assertRegex(server.errors[-2], 'warning: whoever reaches 0.0.0.0:[0-9]+ may change')
        for path, grants in (self.path, True), (other, False):
            with socket.socket(socket.AF_UNIX) as peer:
                peer.connect(path)
                bits = int.from_bytes(peer.recv(65536)[14:16], 'big')
            self.assertEqual(bool(bits & 4), grants)
        for path in self.path, other, status:
            self.assertEqual(os.stat(path).st_mode & 0o777, 0o660)
        self.unix = ['--unix', other]
        self.assertEnds(self.ctl('set', 'slice.numPorts', '5'), 6,
                        'set: the server takes no changes from this connection')

    def testConnectionsAreLimitedAndTheStatusIsStillThere(self):
        server = self.server('--max-connections', '2')
        peers = [socket.socket(socket.AF_UNIX) for _ in range(30)]
        for peer in peers:
            self.addCleanup(peer.close)
            peer.connect(self.path)
        server.errorLine(': refused, 2 connections are the most')
        status = json.loads(self.ctl('top', '--once', '--json').stdout)
        self.assertEqual(len(status['connections']), 2)

    @unittest.skipUnless(os.geteuid() == 0, 'only root can start a server as another user')
    def testAServerOfAnotherUserIsNotBelieved(self):
        os.chmod(self.directory.name, 0o777)
        server = subprocess.Popen([BINARY / 'inventoryd', *self.unix, BOARD], user=65534,
                                  stderr=subprocess.PIPE, text=True)
        self.addCleanup(server.stderr.close)
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        while 'listening' not in (line := server.stderr.readline()):
            if not line:
                self.skipTest('another user may not run the programs here')
        for command in ['dump'], ['top', '--once']:
            self.assertEnds(self.ctl(*command), 3, '.*: the server runs as user 65534, .*')
        self.assertEqual(self.ctl('--server-user', '65534', 'dump').returncode, 0)


class CommandTest(ProgramTest):
    """inventoryctl's commands on a server that lets it write."""

    FAP = 'slice/fap[fap0]'

    def setUp(self):
        super().setUp()
        self.server('--stdin', '--listen', 'unix:%s,rw' % self.path, endpoint=[])

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
        session = self.ctl(stdin=None, input='\n'.join(line for line, _ in self.SESSION).encode())
        self.assertEqual(session.stdout.decode().splitlines(),
                         [line for _, answer in self.SESSION for line in answer or []])
        refused = [number for number, (_, answer) in enumerate(self.SESSION, 1) if answer is None]
        self.assertEqual([line.split(':')[1] for line in session.stderr.decode().splitlines()],
                         [' line %d' % number for number in refused])
        self.assertEqual(session.returncode, 6)
        lines = self.ctl('dump').stdout.decode().splitlines()
        for line in ('slice.numPorts = 12', self.FAP + "/qsgmii[30].description = 'up link'",
                     self.FAP + "/port[3].managedPhy = 'bcm84848'"):
            self.assertTrue(line in lines, line)

    def testRefusalsNameTheAttributeTheValueAndWhatWasExpected(self):
        before = self.ctl('dump').stdout
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
                result = self.ctl(*words)
                self.assertEnds(result, 6, '.*')
                for part in parts:
                    self.assertIn(part, result.stderr.decode())
        self.assertEqual(self.ctl('dump').stdout, before)

    def testJsonHasTheSameContent(self):
        def json_(*words):
            return json.loads(self.ctl(*words, '--json').stdout)
        fap = json_('dump')['slice']['attributes']['fap']['fap0']
        self.assertEqual(list(fap['attributes']['port']), [str(i) for i in range(1, 11)])
        self.assertIsNone(fap['attributes']['pciDevice'])
        port = fap['attributes']['port']['3']
        self.assertEqual(json_('get', self.FAP + '/port[3]'), port)
        self.assertEqual(json_('ls', self.FAP + '/port[3]')[self.FAP + '/port[3].managedPhy'],
                         port['attributes']['managedPhy'])
        qsgmii, = json_('types', 'Qsgmii')
        self.assertEqual([(each['id'], each['name'], each['kind']) for each in qsgmii['attributes']],
                         [(258, 'id', 'constant'), (259, 'description', 'value'),
                          (260, 'serdes', 'value')])
        self.assertLessEqual({'Inventory::Arad::AradSlice', 'Inventory::Arad::SerdesCoreType'},
                             {each['type'] for each in json_('types')})

    def testAWatchOfAPathShowsNothingElse(self):
        watcher = self.start('inventoryctl', *self.unix, stdin=subprocess.PIPE)
        watcher.tell('watch %s/port[3]' % self.FAP, 'get slice.numPorts')
        self.assertEqual(watcher.line(), '0')
        for path, value in (('/port[4].lane', 1), ('/port[3].lane', 2), ('/port[3].numQPairs', 3)):
            self.assertEqual(self.ctl('set', self.FAP + path, str(value)).returncode, 0)
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
            found = self.ctl('complete', word).stdout.decode().splitlines()
            if word == 'slice':
                self.assertIn('slice.numPorts', found)
            else:
                self.assertEqual(sorted(found), expected, word)
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


class RecordTest(ProgramTest):
    """Captures and the status."""

    def testARecordedConnectionIsShownAndMakesTheSameTree(self):
        file, bad = (os.path.join(self.directory.name, name) for name in ('capture', 'bad'))
        server = self.server('--stdin', '--capture', file)
        watcher = self.watcher(server=server)
        server.tell("set slice/fap[fap0]/qsgmii[71].serdes 4", 'add slice/fap[fap0]/qsgmii 30')
        while 'qsgmii[30].id' not in watcher.line():
            pass
        dump = self.ctl('dump')
        watcher.kill()
        server.tell('quit')
        server.end()
        decoded = self.run_('inventoryctl', 'decode', file)
        self.assertEqual((decoded.returncode, decoded.stderr), (0, b''))
        lines = [line.split(' ', 2) for line in decoded.stdout.decode().splitlines()]
        first = [text for number, _, text in lines if number == '1']
        self.assertEqual(first[0].split(',')[0], '  opened: process %d' % watcher.process.pid)
        self.assertEqual(first[-1], '  closed')
        self.assertEqual({text[:10] for text in first[1:3]}, {'> greeting', '< greeting'})
        self.assertEqual([text for text in first if 'qsgmii[30]' in text][0],
                         '> child slice/fap[fap0]/qsgmii[30]: Inventory::Arad::Qsgmii(30)')
        self.assertTrue('> set slice/fap[fap0]/qsgmii[71].serdes = 4' in first)
        for number in '1', '2':
            replayed = self.run_('inventoryctl', 'replay', '--connection', number, file)
            self.assertEqual((replayed.stderr, replayed.stdout), (b'', dump.stdout))
        self.assertEnds(self.run_('inventoryctl', 'replay', '--connection', '9', file), 1,
                        '%s: no connection 9' % file)
        whole = pathlib.Path(file).read_bytes()
        half = len(whole) // 2
        for content, cause in ((whole[:half], 'the capture is cut at offset %d' % half),
                               (b'text', 'not a capture')):
            pathlib.Path(bad).write_bytes(content)
            for command in 'decode', 'replay':
                result = self.run_('inventoryctl', command, bad)
                self.assertEqual((result.returncode, result.stderr.decode()),
                                 (1, 'inventoryctl: %s: %s\n' % (bad, cause)))

    def testTheStatusShowsWhatIsOwedToAMirrorThatIsStopped(self):
        server = self.server('--stdin', '--buffer', SMALLEST_BUFFER)
        watcher = self.watcher(server=server)
        watcher.kill(signal.SIGSTOP)
        for i in range(100):
            server.tell("set slice/fap[fap0].description %s%d" % ('d' * 30000, i),
                        "set slice/fap[fap0]/elkGlobalSocProperties.property[k%d] 1" % i)
        server.tell('frob')
        server.errorLine('frob')

        def status():
            result = self.ctl('top', '--once', '--json')
            self.assertEqual((result.returncode, result.stderr), (0, b''))
            only, = json.loads(result.stdout)['connections']
            return only
        stopped = status()
        self.assertEqual((stopped['owedAttributes'], stopped['owedEntities']), (1, 2))
        self.assertGreater(stopped['owedKeys'], 10)
        self.assertGreater(stopped['waitingBytes'], 60000)
        table = self.ctl('top', '--once').stdout.decode().splitlines()
        self.assertEqual(table[2].split()[:2], ['1', 'inventoryctl-%d-%s' % (
            watcher.process.pid, stopped['peer'].split('-')[-1])])
        watcher.kill(signal.SIGCONT)
        while "%d'" % 99 not in watcher.line():
            pass
        giveUp = time.monotonic() + LIMIT
        while status()['owedKeys'] and time.monotonic() < giveUp:
            pass
        self.assertEqual([status()[name] for name in ('owedEntities', 'owedAttributes', 'owedKeys',
                                                      'waitingBytes')], [0] * 4)


if __name__ == '__main__':
    unittest.main()
