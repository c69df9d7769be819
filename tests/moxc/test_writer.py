"""For faults of writing: files that are touched, left half or come out otherwise on another run; template
errors without a place; value classes that are refused late; the command line.
"""

import os
import re
import subprocess
import sys
import tempfile
import textwrap
import unittest

from support import COMPILER, ROOT_DIR, SCHEMA_DIR, compileText

from writer import Output, TemplateError, Writer, writeIfChanged

SCHEMA = '''module T
namespace A::B
/// First.
/// "Second".
enum Color { red = 0  green = 1 }
identifier Id : U8 { null 7 }
value Units::V from "values/V.h"
entity One { key id : Id  color : Color = green  v : Units::V }
entity Two named { child one[id] : One }
'''

OUTPUTS = [
    Output('entity.h', 'entity', '{module}/{stem}.h', 'entity'),
    Output('types.h', 'module', '{module}/Types.h', 'enum identifier'),
    Output('enum.txt', 'enum', 'text/{stem}.txt'),
]

TEMPLATES = {
    'entity.h': '''\
        {% for type in entity.usedTypes + entity.memberEntities %}
        // {{ type|header }}
        {% endfor %}
        {% for attr in entity.attrs %}
        {{ attr.storedCpp }} {{ attr.name }};  // {{ attr.id|hex(8) }} {{ attr.default|default }}
        {% endfor %}
        ''',
    'types.h': '// {{ outputPath }} {{ module.name|cppText }}\n',
    'enum.txt': '{{ enum.doc|doc(2) }}{{ enum.name }}\n',
}

EXPECTED = {
    'T/One.h': '''\
        // T/Types.h
        // T/Types.h
        // values/V.h
        A::B::Id id;  // 0x00000102 None
        A::B::Color color;  // 0x00000103 A::B::Color::green
        Units::V v;  // 0x00000104 Units::V()
        ''',
    'T/Two.h': '''\
        // T/Types.h
        // T/One.h
        Mox::Ptr<A::B::One> one;  // 0x00000102 None
        ''',
    'T/Types.h': '// T/Types.h "T"\n',
    'text/Color.txt': '  /// First.\n  /// "Second".\nColor\n',
}


class WithDirectory(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name

    def path(self, *names):
        return os.path.join(self.directory, *names)

    def put(self, name, text):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), 'w', encoding='utf-8') as file:
            file.write(text)

    def allFiles(self, name):
        """{relative path: (bytes, inode, time of change)} below a directory."""
        found = {}
        for root, _, names in os.walk(self.path(name)):
            for one in names:
                path = os.path.join(root, one)
                with open(path, 'rb') as file:
                    status = os.stat(path)
                    found[os.path.relpath(path, self.path(name))] = (
                        file.read(), status.st_ino, status.st_mtime_ns)
        return found


class Writing(WithDirectory):
    def writer(self, schema=SCHEMA, templates=None, outputs=None):
        for name, text in (templates or TEMPLATES).items():
            self.put('templates/' + name, textwrap.dedent(text))
        module, lines = compileText(schema)
        self.assertEqual(lines, [])
        return Writer(module, outputs or OUTPUTS, self.path('templates'))

    def testFilesAreWhatTheTableAndTheTemplatesSay(self):
        writer = self.writer()
        self.assertEqual(writer.paths(), list(EXPECTED))
        self.assertEqual(writer.write(self.path('out')), list(EXPECTED))
        found = {name: data.decode() for name, (data, _, _) in self.allFiles('out').items()}
        self.assertEqual(found, {name: textwrap.dedent(text) for name, text in EXPECTED.items()})

    def testUnchangedFilesAreNotTouched(self):
        self.writer().write(self.path('out'))
        before = self.allFiles('out')
        self.assertEqual(self.writer().write(self.path('out')), [])
        self.assertEqual(self.allFiles('out'), before)
        changed = SCHEMA.replace('named { child', 'named { more : U8  child')
        self.assertEqual(self.writer(changed).write(self.path('out')), ['T/Two.h'])
        after = self.allFiles('out')
        self.assertEqual([name for name in after if after[name] != before[name]], ['T/Two.h'])

    def testAFaultInATemplateIsToldWithItsPlaceAndNothingIsWritten(self):
        rows = {
            '\n\n{{ enum.nmae }}': "enum.txt:3: 'model.Enum object' has no attribute 'nmae'",
            'x\n{% if enum.doc.first.second %}{% endif %}':
                "enum.txt:2: 'list object' has no attribute 'first'",
            '\n{% for %}': "enum.txt:2: Expected an expression, got 'end of statement block'",
            '\n{{ enum|nothing }}': "enum.txt:2: No filter named 'nothing'.",
            '{% include "none" %}': 'no template none',
            '{{ 1 // 0 }}': 'enum.txt:1: integer division or modulo by zero',
        }
        for text, message in rows.items():
            writer = self.writer(templates={**TEMPLATES, 'enum.txt': text})
            with self.assertRaises(TemplateError) as raised:
                writer.write(self.path('out'))
            self.assertEqual(str(raised.exception), message)
            self.assertFalse(os.path.exists(self.path('out')))

    def testHeaderOfAKindThatNoRowDeclares(self):
        writer = self.writer(outputs=[OUTPUTS[0]])
        with self.assertRaisesRegex(TemplateError, r"^entity\.h:2: .*no row of OUTPUTS declares "
                                                   r"types of kind 'identifier' \(A::B::Id\)"):
            writer.render()

    def testAFailedReplacementLeavesTheOldFileAndNoTemporary(self):
        self.put('out/file', 'old')
        replace = os.replace

        def fail(*_):
            raise OSError('disk full')

        os.replace = fail
        try:
            with self.assertRaises(OSError):
                writeIfChanged(self.path('out/file'), 'new')
        finally:
            os.replace = replace
        self.assertEqual([(name, data) for name, (data, _, _) in self.allFiles('out').items()],
                         [('file', b'old')])


class CommandLine(WithDirectory):
    def run_(self, *arguments, **environment):
        done = subprocess.run([sys.executable, '-B', COMPILER, *arguments], capture_output=True,
                              text=True, cwd=self.directory, check=False,
                              env={**os.environ, **environment})
        return done.returncode, done.stdout, done.stderr

    def testErrorsGoToStandardErrorAndNothingIsWritten(self):
        self.put('t.mox', 'module T\nnamespace N\nenum E {}\nentity F named { a : X }\n')
        for option in ([], ['--list-outputs'], ['--dump-model'], ['--depfile', 'd']):
            code, out, err = self.run_('--out', 'out', *option, 't.mox')
            self.assertEqual((code, out), (1, ''))
            self.assertEqual(err, "t.mox:3:6: enumeration 'E' is empty, expected at least one "
                                  "enumerator\nt.mox:4:22: unknown type 'X', expected a builtin, a "
                                  "type of namespace 'N' or a qualified name\n")
        self.assertEqual(os.listdir(self.directory), ['t.mox'])

    def testWrongCommandLines(self):
        for arguments in ([], ['t.mox'], ['--out', 'x'], ['--out', 'x', '--no', 't.mox'],
                          ['--out', 'x', 'a.mox', 'b.mox']):
            code, out, err = self.run_(*arguments)
            self.assertEqual((code, out), (2, ''))
            self.assertIn('usage: moxc.py', err)

    def testTheSchemasCompileTheSameWithAnyHashSeed(self):
        for schema in ('InvSiblings.mox', 'InvArad.mox'):
            path = os.path.join(SCHEMA_DIR, schema)
            code, listed, err = self.run_('--out', 'out', '--list-outputs', path)
            self.assertEqual((code, err), (0, ''))
            code, out, err = self.run_('--out', 'out', '--depfile', 'd', path, PYTHONHASHSEED='1')
            self.assertEqual((code, out, err), (0, '', ''))
            for name in listed.split():
                self.assertTrue(os.path.isfile(self.path(name)), name)
            before = self.allFiles('out')
            code, out, err = self.run_('--out', 'out', path, PYTHONHASHSEED='2')
            self.assertEqual((code, out, err), (0, '', ''))
            self.assertEqual(self.allFiles('out'), before)
            dumps = [self.run_('--dump-model', path, PYTHONHASHSEED=seed) for seed in '12']
            self.assertEqual(dumps[0], dumps[1])

    def testDepfileNamesSchemasImportsAndCompiler(self):
        self.put('lib/b.mox', 'module B\n')
        self.put('a dir/t.mox', 'module T\nimport "b.mox"\n')
        code, _, err = self.run_('--out', 'out', '--depfile', 'd', '--import-dir', 'lib',
                                 'a dir/t.mox')
        self.assertEqual((code, err), (0, ''))
        with open(self.path('d'), encoding='utf-8') as file:
            text = file.read()
        root = os.path.realpath(self.directory)
        for name in (root + '/a\\ dir/t.mox', root + '/lib/b.mox', COMPILER):
            self.assertIn(' %s' % name, text)

    def testAValueClassThatLacksSomethingIsRefusedAtItsLineOfTheSchema(self):
        whole = ('#include "values/ValueText.h"\nnamespace A { struct V { int x = 0;\n'
                 'bool operator==(V const&) const = default;\n};\n'
                 'Mox::String8 valueToStrep(V const&);\n'
                 'V sequenceToValue(Mox::String8::IteratorConst&, Mox::String8::IteratorConst '
                 'const&, V*);\nint valueToWire(V const&);\nV wireToValue(int, V*);\n}\n')
        self.put('t.mox', 'module T\nnamespace A\n\n  value A::V from "v.h"\n')
        self.assertEqual(self.run_('--out', 'out', 't.mox'), (0, '', ''))
        for lack, message in (('', None), ('bool operator==', 'no default, copy or operator=='),
                              ('Mox::String8 valueToStrep', 'no valueToStrep or sequenceToValue'),
                              ('V sequenceToValue', 'no valueToStrep or sequenceToValue'),
                              ('int valueToWire', 'no valueToWire or wireToValue'),
                              ('V wireToValue', 'no valueToWire or wireToValue')):
            self.put('out/v.h', '\n'.join(line for line in whole.splitlines()
                                          if not lack or not line.startswith(lack)))
            done = subprocess.run(['c++', '-std=c++20', '-fsyntax-only', '-xc++', '-I' + ROOT_DIR,
                                   '-Iout', 'out/T/Values.h'], capture_output=True, text=True,
                                  cwd=self.directory, check=False)
            errors = [line for line in done.stderr.splitlines() if ': error: ' in line]
            self.assertEqual(len(errors), message is not None, done.stderr)
            for error in errors:
                self.assertRegex(error, r'\At\.mox:4:\d+: error: .*value A::V: ' + re.escape(message))

    def testUnwritableOutputIsOneLine(self):
        self.put('t.mox', SCHEMA)
        self.put('out', 'a file where a directory should be')
        code, _, err = self.run_('--out', 'x', '--depfile', 'out/d', 't.mox')
        self.assertEqual(code, 1)
        self.assertRegex(err, r"\Amoxc: .*'out[^\n]*'\n\Z")


if __name__ == '__main__':
    unittest.main()
