"""Schemas that nobody means well: the compiler always ends with a model or with messages."""

import os
import random
import re
import unittest

from support import SCHEMA_DIR, compileFiles, compileText

HEAD = 'module T\nnamespace N\n'
MESSAGE = re.compile(r'[\w./]+:\d+:\d+: .+', re.DOTALL)


class Hostile(unittest.TestCase):
    def testBytesThatAreNoText(self):
        rows = {
            b'\xff': '1:1: byte 0xff',
            b'module T\nnamesp\xc3\xa9 \x80': '2:9: byte 0x80',
            b'module T\n// \xc3\xa9\xe2\x82': '2:5: byte 0xe2',
            b'module T\r\n\xc0\xaf': '2:1: byte 0xc0',
        }
        for data, start in rows.items():
            module, lines = compileFiles({'t.mox': data})
            self.assertIsNone(module)
            self.assertEqual(lines, ['t.mox:%s is not UTF-8, expected UTF-8 text' % start])

    def testOddBytesAreReportedOnce(self):
        for data in (b'\0', b'module T\n\0\0\0\0', b'module T\rnamespace N\r', b'\x1bmodule T'):
            module, lines = compileFiles({'t.mox': data})
            self.assertIsNone(module)
            self.assertTrue(lines)
            self.assertEqual(len(lines), len(set(lines)))

    def testUnreadableFile(self):
        module, lines = compileFiles({}, main='none.mox')
        self.assertIsNone(module)
        self.assertEqual(lines, ["none.mox:1:1: can't read 'none.mox': No such file or directory, "
                                 'expected a schema file'])
        module, lines = compileFiles({'d.mox/x': ''}, main='d.mox')
        self.assertIsNone(module)
        self.assertEqual(len(lines), 1)

    def testDeepAndLongInputEnds(self):
        texts = {
            'braces': 'entity E ' + '{' * 20000,
            'closing braces': '}' * 20000,
            'qualified name': 'entity E named { a : ' + '::'.join(['A'] * 20000) + ' }',
            'one line': 'entity E named { ' + 'a : U8 ' * 5000 + '}',
            'many types': '\n'.join('entity E%d named { a : U8 }' % i for i in range(3000)),
            'long chain': '\n'.join('base entity E%d : E%d named {}' % (i + 1, i)
                                    for i in range(400)) + '\nbase entity E0 named {}',
            'all wrong': 'entity E named {\n' + 'a b\n' * 5000 + '}',
            'strings': 'entity E named { a : String8 = ' + '"' * 20001,
            'escapes': 'entity E named { a : String8 = "' + '\\q' * 5000 + '" }',
            'long text': 'entity E named { a : String8 = "' + 'x' * 500000 + '" }',
        }
        for name, text in texts.items():
            with self.subTest(name):
                module, lines = compileText(HEAD + text)
                self.assertEqual(module is None, bool(lines))
                for line in lines:
                    self.assertRegex(line, MESSAGE)

    def testImportsNestToALimit(self):
        for depth, accepted in ((60, True), (70, False)):
            files = {'m%d.mox' % i: 'module M%d\nimport "m%d.mox"' % (i, i + 1)
                     for i in range(depth)}
            files['m%d.mox' % depth] = 'module Last'
            module, lines = compileFiles(files, main='m0.mox')
            self.assertEqual(module is not None, accepted)
            if not accepted:
                self.assertEqual(lines, ['m63.mox:2:1: imports nest deeper than 64 files'])

    def testKeywordsAndMacrosAreRefusedEverywhere(self):
        for word in ('class', 'operator', 'xor', 'co_await', 'requires', 'errno', 'unix'):
            for text in ('entity E named { %s : U8 }', 'enum E { %s = 1 }', 'namespace %s',
                         'entity E named { notify %s }', 'entity E named { child %s[name] : E }'):
                module, lines = compileText(HEAD + text % word)
                self.assertIsNone(module)
                self.assertTrue(any("name '%s' is a" % word in line for line in lines), lines)

    def testNoMutationOfARealSchemaBreaksTheCompiler(self):
        seed = int(os.environ.get('MOXC_SEED', random.randrange(1 << 30)))
        print('\ntest_hostile: MOXC_SEED=%d' % seed)
        generator = random.Random(seed)
        sources = {}
        for name in ('InvArad.mox', 'InvSiblings.mox'):
            with open(os.path.join(SCHEMA_DIR, name), encoding='utf-8') as file:
                sources[name] = re.findall(r'\w+|\s+|.', file.read(), re.DOTALL)
        refused = 0
        for step in range(150):
            name = generator.choice(list(sources))
            files = {other: ''.join(tokens) for other, tokens in sources.items()}
            files[name] = ''.join(mutated(sources[name], generator))
            with self.subTest(seed=seed, step=step):
                module, lines = compileFiles(files, main='InvArad.mox')
                self.assertEqual(module is None, bool(lines))
                for line in lines:
                    self.assertRegex(line, MESSAGE)
            refused += module is None
        self.assertGreater(refused, 50)


def mutated(tokens, generator):
    """A copy of `tokens` with one to four changes."""
    tokens = list(tokens)
    for _ in range(generator.randint(1, 4)):
        at = generator.randrange(len(tokens))
        change = generator.randrange(6)
        if change == 0:
            del tokens[at:at + generator.choice((1, 1, 1, 5, 200))]
        elif change == 1:
            tokens.insert(at, generator.choice(tokens))
        elif change == 2:
            other = generator.randrange(len(tokens))
            tokens[at], tokens[other] = tokens[other], tokens[at]
        elif change == 3:
            tokens[at] = generator.choice(('{', '}', '[', ']', ':', '::', '=', '-', '"', '///x\n',
                                           '\\', '0x', '9' * 30, '\0', '\r', 'key', 'named', 'base',
                                           'wrapped', 'null', 'U8', 'entity', '\u00e9'))
        elif change == 4:
            tokens[at] = generator.choice(tokens)
        else:
            del tokens[at:]
        if not tokens:
            tokens = [' ']
    return tokens


if __name__ == '__main__':
    unittest.main()
