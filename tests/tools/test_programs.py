"""inventoryd, inventoryctl and moxtypes as processes. Finds dumps that differ, events that are lost
or doubled, wrong exit codes and texts, and ends of either side that the other doesn't survive.

Nothing here sleeps to let something happen: every wait is for a line, an end or a condition, and an
alarm ends the test after LIMIT seconds.
"""

import json
import os
import pathlib
import random
import re
import select
import signal
import socket
import subprocess
import tempfile
import time
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BINARY = pathlib.Path(os.environ.get('BINARY_DIR', SOURCE / 'build' / 'release')) / 'tools'
MODULE = BINARY.parent / 'libInvArad.so'
BOARD = SOURCE / 'examples' / 'board.soc'
DATA = SOURCE.parent / 'shared' / 'data'
LIMIT = 60
# The system tells a reset where the peer has left bytes unread.
GONE = '(closed by the peer|Connection reset by peer)'
SMALLEST_BUFFER = '131072'
ROUNDS = int(os.environ.get('SURVIVOR_ROUNDS', 1))
RANDOM = random.Random(int(os.environ.get('SURVIVOR_SEED', 1)))


def boards():
    """The arguments that load each board there is."""
    family, cards = DATA / 'family-defaults.soc', DATA.glob('linecard-unit?.soc')
    return [[BOARD], *(['--chip', chip, family] for chip in ('BCM88650', 'BCM88675')
                       if family.exists()), *([card] for card in cards)]


def alarmed(*_):
    raise AssertionError('nothing within %d s' % LIMIT)


class Process(subprocess.Popen):
    """A program whose output is read line by line."""

    def __init__(self, name, *arguments, **options):
        options = {'stdin': subprocess.DEVNULL, **options}
        super().__init__([BINARY / name, *map(str, arguments)], text=True, stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, **options)

    def line(self, stream=None):
        """The next line of standard output, or of `stream`; None at its end."""
        signal.alarm(LIMIT)
        return (stream or self.stdout).readline().rstrip('\n') or None

    def errorLine(self, part):
        """Waits for a line of standard error with `part` in it."""
        while part not in (line := self.line(self.stderr) or part + ' is missing'):
            pass
        return line

    def tell(self, *lines):
        self.stdin.write(''.join(line + '\n' for line in lines))
        self.stdin.flush()

    def end(self):
        """Waits for the end: the exit code and what standard error still had."""
        return self.wait(LIMIT), self.stderr.read().splitlines()

    def close(self):
        self.kill()
        self.__exit__(None, None, None)


class ProgramTest(unittest.TestCase):

    def setUp(self):
        self.addCleanup(signal.signal, signal.SIGALRM, signal.signal(signal.SIGALRM, alarmed))
        self.addCleanup(signal.alarm, signal.alarm(LIMIT))
        self.directory = tempfile.TemporaryDirectory(prefix='invarad-')
        self.addCleanup(self.directory.cleanup)
        self.path = os.path.join(self.directory.name, 'sock')
        self.unix = ['--unix', self.path]

    def start(self, name, *arguments, **options):
        process = Process(name, *arguments, **options)
        self.addCleanup(process.close)
        return process

    def server(self, *arguments, endpoint=None, board=(BOARD,)):
        server = self.start('inventoryd', *(self.unix if endpoint is None else endpoint), *arguments,
                            *board, stdin=subprocess.PIPE)
        server.address = server.errorLine('listening on ').split('listening on ')[1]
        return server

    def run_(self, name, *arguments, **options):
        options = {'stdin': subprocess.DEVNULL, 'stdout': subprocess.PIPE, **options}
        return subprocess.run([BINARY / name, *map(str, arguments)], timeout=LIMIT, text=True,
                              stderr=subprocess.PIPE, **options)

    def ctl(self, *arguments, **options):
        return self.run_('inventoryctl', *self.unix, *arguments, **options)

    def assertEnds(self, result, code, pattern):
        """One line of standard error, nothing on standard output."""
        self.assertEqual((result.returncode, result.stdout), (code, ''), result.stderr)
        self.assertRegex(result.stderr, '^inventoryctl: %s\n$' % pattern)

    def watcher(self, *arguments, server):
        """Changes a value until the watcher shows it: from then on it shows all."""
        watcher = self.start('inventoryctl', *self.unix, 'watch', *arguments)
        server.errorLine(': connected')
        number = 1000
        while not select.select([watcher.stdout], [], [], 0.1)[0]:
            number += 1
            server.tell('set slice.numPorts %d' % number)
        while str(number) not in watcher.line():
            pass
        return watcher


class DumpTest(ProgramTest):

    def testAMirrorsDumpHasTheBytesOfTheServersOwn(self):
        for board in boards():
            for endpoint in self.unix, ['--tcp', '127.0.0.1:0', '--buffer', SMALLEST_BUFFER]:
                server = self.server(endpoint=endpoint, board=board)
                for form in [], ['--json']:
                    with self.subTest(board=board, form=form, endpoint=endpoint):
                        own = self.run_('inventoryd', '--dump', *form, *board).stdout
                        self.assertGreater(own.count('\n'), 100)
                        client = self.run_('inventoryctl', endpoint[0], server.address, 'dump', *form)
                        self.assertEqual((client.returncode, client.stderr), (0, ''))
                        self.assertEqual(client.stdout, own)
                server.terminate()
                self.assertEqual(server.end()[0], 0)

    def testTextHasALineForEachValueAndStrictServesNothing(self):
        bad = pathlib.Path(self.directory.name, 'bad.soc')
        bad.write_text('ucode_port_1=CGE999\n')
        lines = self.run_('inventoryd', '--dump', bad, '/dev/null').stdout.splitlines()
        self.assertEqual(lines[:4], [
            "slice: Inventory::Arad::AradSlice 'slice'", 'slice.numPorts = 0',
            "slice/fap[fap0]: Inventory::Arad::Arad 'fap0'", "slice/fap[fap0].description = ''"])
        self.assertEqual(len(lines), len(set(lines)))
        strict = self.run_('inventoryd', '--strict', *self.unix, bad)
        self.assertEqual((strict.returncode, strict.stderr.splitlines()[-1]),
                         (1, 'inventoryd: 1 lines refused, nothing served'))


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

    def testEachChangeIsShownInBothFormsAndARefusedOneWithItsLine(self):
        server = self.server('--stdin')
        server.tell('set slice.numPorts ' + '7' * (1 << 20), 'frob')
        for number, cause in (1, 'the line is too long'), (2, 'no such command: frob'):
            self.assertEqual(server.line(server.stderr), 'inventoryd: standard input, line %d: %s' % (
                number, cause))
        text = self.watcher('--no-retry', server=server)
        other = self.watcher('--no-retry', '--json', server=server)
        # Both have seen the change that put the second in step.
        server.tell('set slice.numPorts 5', *(command for command, _ in self.EVENTS), 'quit')
        while '-> 5' not in text.line():
            pass
        expected = [line for _, lines in self.EVENTS for line in lines]
        self.assertEqual(text.stdout.read().splitlines(), expected)
        code, (reason,) = text.end()
        self.assertEqual(code, 5)
        self.assertRegex(reason, '^inventoryctl: connection lost: %s$' % GONE)
        events = [json.loads(line) for line in other.stdout.read().splitlines()][-len(expected):]
        self.assertEqual([event['event'] for event in events],
                         [line.split()[0] for line in expected])
        self.assertEqual(events[0], {'event': 'changed', 'entity': self.FAP,
                                     'attribute': 'description', 'old': '', 'new': "it's"})
        self.assertEqual(events[4]['key'], 'a.b] c')
        self.assertEqual((server.end()[0], os.path.exists(self.path)), (0, False))


class EndsTest(ProgramTest):

    def testWrongCommandLinesEndWithOneLine(self):
        nobody = os.path.join(self.directory.name, 'nobody')
        for name, code, arguments, text in (
                ('inventoryctl', 3, ['--unix', nobody, 'dump'], 'no server: %s: No such' % nobody),
                ('inventoryctl', 3, ['--unix', nobody, 'top', '--once'], 'no status: '),
                ('inventoryctl', 2, ['--tcp', ':1', 'top', '--once'], '--status PATH'),
                ('inventoryctl', 2, ['--tcp', 'x', 'dump'], "'x' is not HOST:PORT"),
                ('inventoryctl', 1, ['replay', __file__], 'not a capture'),
                ('inventoryd', 2, ['--buffer', '131071', BOARD], ''),
                ('inventoryd', 2, ['--mode', '999', BOARD], "'999' is no mode such as 0660"),
                ('inventoryd', 1, [nobody], nobody + ': No such file or directory'),
                ('inventoryd', 1, ['/tmp'], '/tmp: Is a directory'),
                ('inventoryd', 1, ['--listen', nobody, BOARD], 'is not unix:PATH or tcp:HOST:PORT'),
                ('inventoryd', 1, ['--capture', '/dev/full', *self.unix, BOARD], 'No space left')):
            with self.subTest(name=name, arguments=arguments):
                result = self.run_(name, *arguments)
                self.assertEqual((result.returncode, result.stdout), (code, ''))
                line = result.stderr.splitlines()[-1]
                self.assertTrue(line.startswith(name + ': '), line)
                self.assertIn(text, line)

    def testAServerThatIsNoneOrStopsIsNamedSo(self):
        server = self.server()
        with socket.socket(socket.AF_UNIX) as peer:
            peer.connect(self.path)
            greeting = peer.recv(65536)
        server.terminate()
        server.end()
        for answer, closes, code, text in (
                (b'HTTP/1.1 400 Bad Request\r\n\r\n', True, 4, 'wrong protocol: BadGreeting at '
                 'stream offset 0, entity 0x0, attribute 0'),
                (b'', False, 3, 'no server: %s: no greeting within 700 ms' % self.path),
                (greeting, True, 5, 'connection lost: %s' % GONE),
                (greeting, False, 5, 'connection lost: nothing received for 700 ms')):
            with self.subTest(text=text), socket.socket(socket.AF_UNIX) as listener:
                listener.bind(self.path)
                listener.listen()
                client = self.start('inventoryctl', *self.unix, '--timeout', '0.7', 'dump')
                with listener.accept()[0] as connection:
                    connection.sendall(answer)
                    if closes:
                        connection.close()
                    ended, lines = client.end()
                os.unlink(self.path)
                self.assertEqual((ended, len(lines)), (code, 1))
                self.assertRegex(lines[0], '^inventoryctl: %s$' % text)

    def testEitherEndSurvivesTheOther(self):
        server = self.server('--stdin')
        first = self.watcher(server=server)
        first.kill()
        self.assertRegex(server.errorLine('inventoryctl-%d-' % first.pid), ': %s$' % GONE)
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing, 'wb') as closed, open('/dev/full', 'wb') as full:
            reason = "inventoryctl: standard output can't be written\n"
            for output, code, text in (closed, 0, ''), (full, 1, reason):
                done = self.ctl('dump', stdout=output)
                self.assertEqual((done.returncode, done.stderr), (code, text))
        watcher = self.watcher(server=server)
        watcher.stdout.close()
        server.tell('set slice.numPorts 1', 'set slice.numPorts 2')
        self.assertEqual(watcher.wait(LIMIT), 0)


class PlacesTest(ProgramTest):

    def testEachPlaceHasItsRightsItsModeAndItsWarningAndAllHaveOneLimit(self):
        other, status = self.path + '2', self.path + '.status'
        server = self.start('inventoryd', '--mode', '0660', '--listen', 'unix:%s,rw' % self.path,
                            '--listen', 'unix:%s' % other, '--listen', 'tcp:0.0.0.0:0,rw',
                            '--max-connections', '2', BOARD)
        server.errorLine('warning: whoever reaches 0.0.0.0:')
        server.errorLine('listening on %s, peers may write' % self.path)
        for path in self.path, other, status:
            self.assertEqual(os.stat(path).st_mode & 0o777, 0o660)
        self.assertEnds(self.run_('inventoryctl', '--unix', other, 'set', 'slice.numPorts', '5'), 6,
                        'set: the server takes no changes from this connection')
        for _ in range(30):
            peer = socket.socket(socket.AF_UNIX)
            self.addCleanup(peer.close)
            peer.connect(self.path)
        server.errorLine(': refused, 2 connections are the most')
        status = json.loads(self.ctl('top', '--once', '--json').stdout)
        self.assertEqual(len(status['connections']), 2)

    @unittest.skipUnless(os.geteuid() == 0, 'only root can start a server as another user')
    def testAServerOfAnotherUserIsNotBelieved(self):
        os.chmod(self.directory.name, 0o777)
        server = self.start('inventoryd', *self.unix, BOARD, user=65534)
        try:
            server.errorLine('listening')
        except AssertionError:
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

    # A line of a session, and the lines that answer it, or the text that refuses it.
    SESSION = [
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
        ('get slice/fap[fap0]/statsSerdes[28].swapPolarityTx', ['true']),
        ('del slice/fap[fap0]/statsSerdes[29]', []),
        ('get slice/fap[fap0]/statsSerdes[29].id', 'no such entity: slice/fap[fap0]/statsSerdes[29].id'),
        ("add slice/fap[fap0].ddrTuneSetting['a.b] c'] 'v 1'", []),
        ("add slice/fap[fap0].ddrTuneSetting['a.b] c'] 2",
         "slice/fap[fap0].ddrTuneSetting['a.b] c'] is there already"),
        ("get slice/fap[fap0].ddrTuneSetting['a.b] c']", ["'v 1'"]),
        ("del slice/fap[fap0].ddrTuneSetting['a.b] c']", []),
        ("get slice/fap[fap0].ddrTuneSetting['a.b] c']",
         "no such member: slice/fap[fap0].ddrTuneSetting['a.b] c']"),
        ('watch slice/fap[fap0]/port[3]', []),
        ('set slice/fap[fap0]/port[4].lane 1', []),
        ('set slice/fap[fap0]/port[3].managedPhy bcm84848', [
            "changed slice/fap[fap0]/port[3].managedPhy: 'unknown' -> 'bcm84848'"]),
        ('watch off', []),
        ('set slice/fap[fap0]/port[3].lane 4', []),
        ('add slice/fap[fap0]/pciDevice pci', []),
        ('get slice/fap[fap0]/pciDevice', [
            "slice/fap[fap0]/pciDevice: Inventory::PciDevice 'pci'"]),
        ('# a remark', []),
        ('set slice.numPorts 5 6',
         "numPorts: expected U32, got '5 6': junk at column 1 deserializing 5 6"),
        ('add slice/fap[fap0]/qsgmii 1 2', 'qsgmii: 2 is one argument too many'),
        ('set slice.numPorts', 'set: no value for slice.numPorts'),
        ('ls slice slice', 'ls: slice is too much; expected one word'),
        ('types Nothing', 'no such type: Nothing'),
    ]

    def testASessionDoesWhatEachLineSaysAndTheServerHasIt(self):
        session = self.ctl(stdin=None, input='\n'.join(line for line, _ in self.SESSION))
        answers, refusals = [], []
        for number, (_, answer) in enumerate(self.SESSION, 1):
            if isinstance(answer, str):
                refusals.append('inventoryctl: line %d: %s' % (number, answer))
            else:
                answers += answer
        self.assertEqual(session.stderr.splitlines(), refusals)
        self.assertEqual(session.stdout.splitlines(), answers)
        self.assertEqual(session.returncode, 6)
        self.assertLessEqual({'slice.numPorts = 12', self.FAP + "/qsgmii[30].description = 'up link'",
                              self.FAP + "/port[3].managedPhy = 'bcm84848'"},
                             set(self.ctl('dump').stdout.splitlines()))

    def testJsonHasTheSameContent(self):
        def json_(*words):
            return json.loads(self.ctl(*words, '--json').stdout)
        fap = json_('dump')['slice']['attributes']['fap']['fap0']['attributes']
        self.assertEqual(list(fap['port']), [str(i) for i in range(1, 11)])
        self.assertIsNone(fap['pciDevice'])
        self.assertEqual(json_('get', self.FAP + '/port[3]'), fap['port']['3'])
        qsgmii, = json_('types', 'Qsgmii')
        self.assertEqual([(each['id'], each['name'], each['kind']) for each in qsgmii['attributes']],
                         [(258, 'id', 'constant'), (259, 'description', 'value'),
                          (260, 'serdes', 'value')])

    def testPathsAreCompletedInTheShell(self):
        script = ('source %s; PATH=%s:$PATH; COMP_LINE="inventoryctl --unix %s get $1"; '
                  'COMP_POINT=${#COMP_LINE}; COMP_WORDS=(inventoryctl --unix %s get "$1"); '
                  'COMP_CWORD=4; _inventoryctl; printf "%%s " "${COMPREPLY[@]}"' % (
                      SOURCE / 'tools/inventoryctl/inventoryctl.bash', BINARY,
                      self.path, self.path))
        for word, expected in (
                ('sl', 'slice '),
                ('slice.num', 'slice.numPorts '),
                (self.FAP + '/xlge', self.FAP + '/xlge[ ' + self.FAP + '/xlge2[ '),
                (self.FAP + '/xlge[1', self.FAP + '/xlge[16] ' + self.FAP + '/xlge[17] '),
                ('nowhere', ' ')):
            shell = subprocess.run(['bash', '-c', script, 'bash', word], capture_output=True,
                                   text=True, timeout=LIMIT)
            self.assertEqual(shell.stdout, expected)

    def testAtATerminalTabCompletesAndTheLinesAreCarriedOut(self):
        controller, terminal = os.openpty()
        process = subprocess.Popen([BINARY / 'inventoryctl', *self.unix], stdin=terminal,
                                   stdout=terminal, stderr=terminal, start_new_session=True,
                                   env={**os.environ, 'TERM': 'dumb'})
        os.close(terminal)
        self.addCleanup(os.close, controller)
        self.addCleanup(process.wait, LIMIT)
        self.addCleanup(process.kill)
        seen = b''
        for typed, answers in ((b'', [b'inventory> ']), (b'get slice.num\t', [b'slice.numPorts']),
                               (b'\r', [b'\n0\r\n', b'inventory> ']),
                               (b'get nowhere\r', [b'no such entity: nowhere', b'inventory> '])):
            os.write(controller, typed)
            for answer in answers:
                while answer not in seen:
                    self.assertTrue(select.select([controller], [], [], LIMIT)[0], seen)
                    seen += os.read(controller, 65536)
                seen = seen.split(answer, 1)[1]
        os.write(controller, b'\x04')
        self.assertEqual(process.wait(LIMIT), 6)


class RecordTest(ProgramTest):
    def testARecordedConnectionIsShownAndMakesTheSameTree(self):
        file, bad = (pathlib.Path(self.directory.name, name) for name in ('capture', 'bad'))
        server = self.server('--stdin', '--capture', file)
        watcher = self.watcher(server=server)
        server.tell("set slice/fap[fap0]/qsgmii[71].serdes 4", 'add slice/fap[fap0]/qsgmii 30')
        while 'qsgmii[30].id' not in watcher.line():
            pass
        dump = self.ctl('dump')
        watcher.kill()
        server.tell('quit')
        server.end()
        lines = [line.split(' ', 2)
                 for line in self.run_('inventoryctl', 'decode', file).stdout.splitlines()]
        first = [text for number, _, text in lines if number == '1']
        self.assertEqual((first[0].split(',')[0], first[-1]),
                         ('  opened: process %d' % watcher.pid, '  closed'))
        self.assertTrue('> set slice/fap[fap0]/qsgmii[71].serdes = 4' in first)
        for number in '1', '2':
            replayed = self.run_('inventoryctl', 'replay', '--connection', number, file)
            self.assertEqual((replayed.stderr, replayed.stdout), ('', dump.stdout))
        self.assertEnds(self.run_('inventoryctl', 'replay', '--connection', '9', file), 1,
                        '%s: no connection 9' % file)
        half = bad.write_bytes(file.read_bytes()[:file.stat().st_size // 2])
        for command in 'decode', 'replay':
            result = self.run_('inventoryctl', command, bad)
            self.assertEqual((result.returncode, result.stderr), (
                1, 'inventoryctl: %s: the capture is cut at offset %d\n' % (bad, half)))

    def testTheStatusShowsWhatIsOwedToAMirrorThatIsStopped(self):
        server = self.server('--stdin', '--buffer', SMALLEST_BUFFER)
        watcher = self.watcher(server=server)
        watcher.send_signal(signal.SIGSTOP)
        for i in range(100):
            server.tell("set slice/fap[fap0].description %s%d" % ('d' * 30000, i),
                        "set slice/fap[fap0]/elkGlobalSocProperties.property[k%d] 1" % i)
        server.tell('frob')
        server.errorLine('frob')

        def status():
            only, = json.loads(self.ctl('top', '--once', '--json').stdout)['connections']
            return only
        stopped = status()
        self.assertEqual((stopped['owedAttributes'], stopped['owedEntities']), (1, 2))
        self.assertGreater(stopped['owedKeys'], 10)
        row = self.ctl('top', '--once').stdout.splitlines()[2]
        self.assertRegex(row, '^ *1  inventoryctl-%d-[0-9a-f]{8} ' % watcher.pid)
        watcher.send_signal(signal.SIGCONT)
        while "%d'" % 99 not in watcher.line():
            pass
        while status()['owedKeys']:
            pass
        self.assertEqual([status()[name] for name in ('owedEntities', 'owedAttributes', 'owedKeys',
                                                      'waitingBytes')], [0] * 4)


class SurvivorTest(ProgramTest):
    """One of two processes is killed or stopped at a random moment of a transfer; the other goes on,
    and is in step again when the first is back: SURVIVOR_ROUNDS times for each board."""

    def aMoment(self, most):
        """Lets a random time pass: which moment is hit is the point, nothing is waited for."""
        select.select([], [], [], RANDOM.uniform(0, most))

    def inStepAgain(self, others='.*'):
        """Until the watcher shows a new change; what it shows before is among `others`."""
        since = time.monotonic()
        self.marker += 1
        self.running.tell('set slice.numPorts %d' % self.marker)
        while not (line := self.watching.line()).endswith(' -> %d' % self.marker):
            self.assertRegex(line, others)
        self.longest = max(self.longest, time.monotonic() - since)

    def serverIsKilled(self, board):
        self.running.tell('set slice/fap[fap0].description gone',
                          'add slice/fap[fap0]/mdioAccelBlock 9 1 2')
        while RANDOM.random() < 0.7 and 'mdioAccelBlock' not in self.watching.line():
            pass
        self.start('inventoryctl', *self.unix, 'dump')
        self.aMoment(0.05)
        self.running.send_signal(RANDOM.choice([signal.SIGKILL, signal.SIGTERM]))
        self.running.end()
        self.assertRegex(self.watching.line(self.watching.stderr),
                         '^inventoryctl: connection lost: %s; trying again$' % GONE)
        self.running = self.server('--stdin', board=board)
        self.assertEqual(self.watching.line(self.watching.stderr), 'inventoryctl: in step again')
        self.inStepAgain(r'\S+ (slice\.numPorts|slice/fap\[fap0\](\.desc|/mdioAccelBlock))')

    def watcherIsStopped(self, board):
        self.aMoment(0.01)
        self.watching.send_signal(signal.SIGSTOP)
        key = "slice/fap[fap0]/elkGlobalSocProperties.property['x%d']"
        for number in range(2000):
            self.running.tell(('set ' + key + " '%s'") % (number % 50, 'v' * 2000))
        self.running.tell(*('del ' + key % number for number in range(50)))
        self.watching.send_signal(signal.SIGCONT)
        self.inStepAgain()

    def testTheOtherGoesOnAndIsInStepAgain(self):
        for board in boards() if ROUNDS > 1 else [[BOARD]]:
            self.marker, self.longest = 1000000, 0
            self.running = self.server('--stdin', board=board)
            self.watching = self.watcher(server=self.running)
            for number in range(ROUNDS):
                for event in RANDOM.sample([self.serverIsKilled, self.watcherIsStopped], 2):
                    with self.subTest(board=board, number=number, event=event.__name__):
                        event(board)
            # A mirror made now has all that the server has.
            mirror, own = (re.sub(r'slice\.numPorts = .*', '', made.stdout) for made in (
                self.ctl('dump'), self.run_('inventoryd', '--dump', *board)))
            self.assertEqual(mirror, own)
            self.watching.terminate()
            self.assertEqual(self.watching.end()[0], 0)
            print('longest time until in step again, in s: %.3f' % self.longest)
            self.running.close()


class MoxtypesTest(ProgramTest):

    def testFilesThatDescribeNoTypesOrAreDamagedAreRefused(self):
        whole = MODULE.read_bytes()
        cut = os.path.join(self.directory.name, 'cut.so')
        for path, size, cause in ((MODULE.parent / 'libMox.so', 0, 'describes no types'),
                                  (__file__, 0, 'not an object file'),
                                  (cut, 3, 'not an object file'),
                                  (cut, 4096, 'a damaged object file'),
                                  (cut, len(whole) - 1, 'a damaged object file')):
            pathlib.Path(cut).write_bytes(whole[:size])
            made = self.run_('moxtypes', path)
            self.assertEqual((made.returncode, made.stdout, made.stderr),
                             (1, '', 'moxtypes: %s: %s\n' % (path, cause)))

    def testEachFormShowsTheSameTypes(self):
        names = self.run_('moxtypes', MODULE).stdout.splitlines()
        types = json.loads(self.run_('moxtypes', '--attributes', '--json', MODULE).stdout)
        self.assertEqual(sorted(type['name'] for type in types), sorted(names))
        reference = self.run_('moxtypes', '--attributes', '--own', '--markdown', MODULE).stdout
        self.assertEqual((SOURCE / 'docs/schema-reference.md').read_text('utf-8'), reference,
                         'make docs/schema-reference.md anew')


if __name__ == '__main__':
    unittest.main()
