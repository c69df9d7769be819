"""The code of one real type, the simplest, stands beside the tests: what the compiler makes can be
read without building, and a change of a template shows what it does.

MOXC_UPDATE_GOLDEN=1 writes the files anew; read the difference before it is committed.
"""

import os
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


if __name__ == '__main__':
    unittest.main()
