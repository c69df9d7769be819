"""The code of one real type, the simplest, stands beside the tests: what the compiler makes can be
read without building, and a change of a template shows what it does.

MOXC_UPDATE_GOLDEN=1 writes the files anew; read the difference before it is committed.
"""

import os
import re
import unittest

import support
import writer

GOLDEN_DIR = os.path.join(support.TEST_DIR, 'golden')
STEM = 'Qsgmii'


class GoldenTest(unittest.TestCase):
    def testTheCodeOfTheSimplestTypeIsAsItStandsHere(self):
        rendered = writer.Writer(support.loadSchema('InvArad.mox')).render()
        made = {os.path.basename(path): text for path, text in rendered.items()
                if os.path.basename(path).startswith(STEM)}
        self.assertEqual(len(made), 8)
        if os.environ.get('MOXC_UPDATE_GOLDEN'):
            for name, text in made.items():
                writer.writeIfChanged(os.path.join(GOLDEN_DIR, name + '.golden'), text)
        self.maxDiff = None
        for name, text in made.items():
            with self.subTest(name), open(os.path.join(GOLDEN_DIR, name + '.golden'),
                                          encoding='utf-8') as golden:
                self.assertEqual(text, golden.read())

    def testTheHandlersOfEveryTypeStandInTheOrderOfItsAttributes(self):
        rendered = writer.Writer(support.loadSchema('InvArad.mox')).render()
        with open(os.path.join(support.TEST_DIR, 'schema_table.golden'), encoding='utf-8') as table:
            types = re.split(r'\n(?=Inventory::)', table.read())
        for text in types[1:]:
            name = re.match(r'Inventory::Arad::(\w+) : ', text)[1]
            expected = []
            for attribute, kind in re.findall(
                    r'^  0x\w+ (\w+) : .*?\b(value|reference|child|\w+ collection)(?:,| \(|$)',
                    re.sub(r'^.* constructor .*$', '', text, flags=re.M), re.M):
                on = 'on' + attribute[0].upper() + attribute[1:]
                expected += [on + '(.)', on + 'moxImmediate()', on + '()'] \
                    if kind.endswith('collection') else [on + '()']
            found = re.findall(r'virtual void (on\w+\()(.?).*\)', rendered['InvArad/%s.h' % name])
            self.assertEqual([start + ('.' if key.strip(')') else '') + ')' for start, key in found],
                             expected, name)


if __name__ == '__main__':
    unittest.main()
