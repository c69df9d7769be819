"""moxtypes: the names of a module's types from its file, and what the loaded types tell."""

import json
import os
import subprocess
import unittest

SOURCE_DIR = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BINARY_DIR = os.environ['BINARY_DIR']
REFERENCE = os.path.join(SOURCE_DIR, 'docs', 'schema-reference.md')


def moxtypes(*arguments):
    made = subprocess.run([os.path.join(BINARY_DIR, 'tools', 'moxtypes'), *arguments],
                          capture_output=True, text=True, timeout=60, check=False)
    return made.returncode, made.stdout, made.stderr


def library(name):
    return os.path.join(BINARY_DIR, 'lib%s.so' % name)


class MoxtypesTest(unittest.TestCase):
    maxDiff = None

    def testNamesStandInTheFile(self):
        code, out, err = moxtypes(library('InvArad'))
        self.assertEqual((code, err), (0, ''))
        names = out.splitlines()
        self.assertEqual((len(names), names[0], names[-1]),
                         (12, 'Inventory::Arad::AradSlice', 'Inventory::Arad::AradManagedPhy'))

    def testFilesThatDescribeNoTypesAreRefused(self):
        for path, cause in ((library('Mox'), 'describes no types'),
                            (__file__, 'not an object file'),
                            ('/no/such/file', 'No such file or directory')):
            for options in ([], ['--attributes']):
                self.assertEqual(moxtypes(*options, path),
                                 (1, '', 'moxtypes: %s: %s\n' % (path, cause)))

    def testADamagedModuleIsRefused(self):
        with open(library('InvArad'), 'rb') as file:
            whole = file.read()
        path = os.path.join(os.environ.get('TMPDIR', '/tmp'), 'moxtypes_%d.so' % os.getpid())
        try:
            for length in (3, 64, 4096, len(whole) // 2, len(whole) - 1):
                with open(path, 'wb') as file:
                    file.write(whole[:length])
                code, out, err = moxtypes(path)
                self.assertEqual((code, out), (1, ''))
                self.assertRegex(err, '^moxtypes: .*: (not|a damaged) (an )?object file\n$')
        finally:
            os.remove(path)

    def testAttributesAsJson(self):
        code, out, err = moxtypes('--attributes', '--json', library('InvArad'))
        self.assertEqual((code, err), (0, ''))
        types = {type['name']: type for type in json.loads(out)}
        stats = types['Inventory::Arad::StatsSerdes']
        self.assertEqual(stats['arguments'],
                         [{'name': 'id', 'type': 'Hardware::Sand::AradStatsSerdesId'},
                          {'name': 'swapPolarityTx', 'type': 'bool'}])
        attributes = {row['name']: row for row in types['Inventory::Arad::Arad']['attributes']}
        self.assertEqual(attributes['serdes']['memberKey'], 'id')
        self.assertEqual(attributes['numCores']['of'], 'Inventory::Sand::FapBase')
        self.assertEqual(attributes['pllClock']['flags'], [0x08220143, 0x01000400])
        lane = {row['name']: row for row in types['Inventory::Arad::NifSerdes']['attributes']}
        self.assertEqual([lane['txSerdesId'][key] for key in ('least', 'largest', 'default')],
                         [0, 72, 'id'])
        self.assertTrue(lane['txSerdesId']['doc'] and types['Inventory::Arad::NifSerdes']['doc'])

    def testTheTextAlignsWhatItPrints(self):
        code, out, _ = moxtypes('--attributes', '--own', library('InvArad'))
        self.assertEqual(code, 0)
        lines = out.splitlines()
        at = lines.index('Inventory::Arad::Qsgmii : Mox::Entity (id (Hardware::Sand::QsgmiiId))')
        column = lines[at + 2].index('Kind')
        self.assertEqual([line[column:].split('  ')[0] for line in lines[at + 3:at + 8]],
                         ['interface', 'constructor value', 'value', 'value', 'key'])

    def testTheReferenceIsCurrent(self):
        code, out, _ = moxtypes('--attributes', '--own', '--markdown', library('InvArad'))
        self.assertEqual(code, 0)
        with open(REFERENCE, encoding='utf-8') as file:
            self.assertEqual(file.read(), out, 'make docs/schema-reference.md anew')


if __name__ == '__main__':
    unittest.main()
