"""For faults in what the language accepts: names that resolve to another type, ids and defaults that
come out wrong, a hash that misses what peers must agree on.
"""

import unittest

from support import attrNamed, compileFiles, compileText, entityNamed

import dump


def accepted(test, text):
    module, lines = compileText(text)
    test.assertEqual(lines, [])
    return module


class Language(unittest.TestCase):
    def testKeywordsAreNamesWhereTheyNameAnAttribute(self):
        words = ('param', 'ref', 'child', 'init', 'block', 'wrapped', 'reacts', 'notify', 'entity',
                 'value', 'identifier', 'named', 'base', 'root', 'unlinked', 'null', 'min')
        module = accepted(self, 'module T\nnamespace N\nentity E named {\n'
                          + '\n'.join('%s : U8' % word for word in words)
                          + '\nmax[U8] : U8\n}')
        self.assertEqual([attr.name for attr in module.entities[0].attrs], [*words, 'max'])

    def testBlanksLinesAndCommentsMeanNothing(self):
        text = 'module T namespace N enum E{a=1 b=2} entity F named{x:E=b y[U8]:String8}'
        spaced = ('\ufeffmodule T // name\r\n\r\nnamespace N\r\n//// no doc comment\r\nenum E\r\n{'
                  '\ta\t=\t1\r\nb = 2 }\r\nentity F\r\nnamed\r\n{\r\nx : E\r\n= b\r\ny [ U8 ]\r\n:'
                  '\r\nString8\r\n}\r\n')
        self.assertEqual(dump.dump(accepted(self, text)), dump.dump(accepted(self, spaced)))

    def testDocCommentsAttachToWhatFollows(self):
        module = accepted(self, 'module T\nnamespace N\n/// An  enumeration.\n///\n///   Two.\n'
                                'enum E {\n/// The one.\na = 1\nb = 2\n}\n/// F.\n'
                                'entity F named {\n/// Text: "x" \u00e9.\nx : U8\ny : U8\n}')
        enum, entity = module.types
        self.assertEqual(enum.doc, ['An  enumeration.', '', 'Two.'])
        self.assertEqual([e.doc for e in enum.enumerators], [['The one.'], []])
        self.assertEqual(entity.doc, ['F.'])
        self.assertEqual([a.doc for a in entity.attrs], [['Text: "x" \u00e9.'], []])

    def testNamespacesReopenAndNamesResolveInTheirOwnFirst(self):
        module = accepted(self, 'module T\nnamespace A\nenum E { one = 1 }\nnamespace A::B\n'
                                'enum E { two = 2 }\nentity F named { x : E y : A::E z : A::B::E }\n'
                                'namespace A\nentity G named { x : E }\n'
                                'namespace C\nentity E named { ref x : E }')
        names = [[(attr.typeText, attr.type.qualified) for attr in entity.attrs]
                 for entity in module.entities]
        self.assertEqual(names, [
            [('E', 'A::B::E'), ('A::E', 'A::E'), ('E', 'A::B::E')],
            [('E', 'A::E')], [('E', 'C::E')]])
        self.assertEqual([run.namespace for run in module.namespaceRuns], ['A', 'A::B', 'A', 'C'])

    def testImportsAreFoundBesideTheFileAndInImportDirectories(self):
        base = 'module B\nnamespace B\nbase entity Base named { a : U8 }\n'
        top = 'module T\nimport "b.mox"\nnamespace N\nentity E : B::Base named { b : U8 }\n'
        for files, dirs in (({'t.mox': top, 'b.mox': base}, []),
                            ({'t.mox': top, 'x/b.mox': base, 'y/b.mox': 'module Other'},
                             ['none', 'x', 'y'])):
            module, lines = compileFiles(files, importDirs=dirs)
            self.assertEqual(lines, [])
            self.assertEqual([(a.id, a.name) for a in module.entities[0].allAttrs],
                             [(258, 'a'), (514, 'b')])
            self.assertEqual([b.qualified for b in module.foreignBases], ['B::Base'])

    def testDiamondImportsGiveOneType(self):
        module, lines = compileFiles({
            't.mox': 'module T\nimport "l.mox"\nimport "r.mox"\nimport "b.mox"\nnamespace N\n'
                     'entity E named { a : B::F = one  ref l : L::X  ref r : R::X }',
            'l.mox': 'module L\nimport "b.mox"\nnamespace L\nentity X named { a : B::F }',
            'r.mox': 'module R\nimport "b.mox"\nnamespace R\nentity X named { a : B::F }',
            'b.mox': 'module B\nnamespace B\nenum F { one = 1 }'})
        self.assertEqual(lines, [])
        self.assertEqual([m.name for m in module.allImports], ['B', 'L', 'R'])
        left, right = (attrNamed(module.entities[0], n).type for n in 'lr')
        self.assertIs(left.attrs[0].type, right.attrs[0].type)

    def testDefaultsAsCpp(self):
        cases = {
            'a : bool = true': 'true', 'a : bool': 'false', 'a : U8 = 0xfF': '0xfF',
            'a : U32 = 4294967295': '4294967295u', 'a : U32 = 2147483647': '2147483647',
            'a : U64 = 0xffffffffffffffff': '0xffffffffffffffffull', 'a : U64': '0',
            'a : int = -5': '-5', 'a : int = -2147483648': '-2147483647 - 1',
            'a : double = 3': '3.0', 'a : double = -2.5e-3': '-2.5e-3', 'a : double': '0.0',
            'a : String8': 'Mox::String8()', 'a : String8 = ""': 'Mox::String8()',
            'a : String8 = "a\\"b\\\\\\n\\t\u00e9?"':
                r'Mox::String8("a\"b\\\012\011\303\251\?")',
            'a : String8 = "x\0y"': r'Mox::String8("x\000y", 3)',
            'a : Name = "x"': 'Mox::Name("x")',
            'a : F = two': 'N::F::two', 'a : F = 2': 'N::F::two', 'a : F = F::two': 'N::F::two',
            'a : F': 'static_cast<N::F>(0)', 'a : G': 'N::G::zero',
            'a : I': 'N::I()', 'a : I = null': 'N::I(N::I::null)', 'a : I = 3': 'N::I(3)',
            'a : J': 'N::J(4)', 'a : A::V': 'A::V()', 'a : A::V = 2': 'A::V(2)',
            'a : A::V = "A::V::best()"': 'A::V::best()', 'a : A::W': 'A::W(-1.5)',
        }
        for line, expected in cases.items():
            module, lines = compileText(
                'module T\nnamespace N\nenum F { two = 2 }\nenum G { one = 1 zero = 0 }\n'
                'identifier I : U8 { null 9 }\nidentifier J : U8 { min 4 max 9 }\n'
                'value A::V from "v.h"\nvalue A::W from "v.h" = -1.5\n'
                'entity E named {\n%s\n}' % line)
            self.assertEqual(lines, [], line)
            self.assertEqual(attrNamed(module.entities[0], 'a').default, expected, line)

    def testConstructorParametersOfBasesCanBeDefaults(self):
        module = accepted(self, 'module T\nnamespace N\nbase entity B named { param p : U8 }\n'
                                'entity E : B named { a : U8 = p }')
        attr = attrNamed(module.entities[1], 'a')
        self.assertEqual((attr.default, attr.defaultFrom.entity.name), ('p', 'B'))

    def testBlocksOfAChain(self):
        module = accepted(self, 'module T\nnamespace N\nbase entity A named { a : U8 }\n'
                                'base entity B : A named { block 0x1f0  b : U8 }\n'
                                'base entity C : B named { c : U8 }\n'
                                'entity D : C named { block 0x1000 d : U8 }')
        self.assertEqual([(e.level, e.attrs[0].id, e.attrs[0].dirtyBit) for e in module.entities],
                         [(0, 0x102, 1), (1, 0x1f2, 0), (2, 0x202, 0), (3, 0x1002, 0)])


    def testInheritedKeysAndNames(self):
        module = accepted(self, 'module T\nnamespace N\nbase entity B named { key id : U8 }\n'
                                'entity E : B named by id { param p : U8 }\n'
                                'base entity C named {}\nentity F : C { key k : U16 }\n'
                                'entity O named { child e[id] : E  child f[k] : F  child g : F }')
        rows = {attr.name: (attr.namesMemberByKey, [a.name for a in attr.memberArgs])
                for attr in entityNamed(module, 'O').attrs}
        self.assertEqual(rows, {'e': (True, ['id', 'p']), 'f': (True, ['k']),
                                'g': (False, ['name', 'k'])})

    def testTypesWhoseFilesWouldMeetGetDifferentStems(self):
        module = accepted(self, 'module T\nnamespace A\nenum Ab { x = 1 }\nentity AB named {}\n'
                                'namespace B\nentity Ab named {}')
        self.assertEqual([type.stem for type in module.types], ['Ab', 'A_AB', 'B_Ab'])

    def testMaximalTypes(self):
        lines = ['a%d : U8' % i for i in range(31)] + ['param p%d : U8' % i for i in range(223)]
        module = accepted(self, 'module T\nnamespace N\nentity E named {\n%s\n}' % '\n'.join(lines))
        self.assertEqual(module.entities[0].attrs[-1].id, 0x1ff)
        self.assertEqual(module.entities[0].dirtyMask, 0xfffffffe)
        module = accepted(self, 'module T\nnamespace N\nbase entity B named {}\nentity E : B named {'
                                '\n%s\n}' % '\n'.join('a%d : U8' % i for i in range(32)))
        self.assertEqual(module.entities[1].dirtyMask, 0xffffffff)

    def testEmptyModulesAndEmptyTypes(self):
        self.assertEqual(accepted(self, 'module T').types, [])
        entity = accepted(self, 'module T\nnamespace N\nentity E named {}').entities[0]
        self.assertEqual([row.name for row in entity.descriptors],
                         ['moxHasAttrLogInterface', 'fwkKey'])


class SchemaHash(unittest.TestCase):
    def testFollowsWhatPeersAgreeOnAndNothingElse(self):
        text = 'module T\nnamespace N\nenum F { a = 1 }\nentity E named { x : U8 y : F }'
        first = accepted(self, text).schemaHash
        self.assertRegex(first, '^[0-9a-f]{16}$')
        self.assertEqual(accepted(self, '// c\n' + text.replace('enum', '\n/// Doc.\nenum'))
                         .schemaHash, first)
        for old, new in (('x : U8', 'x : U16'), ('x : U8', 'z : U8'), ('a = 1', 'a = 2'),
                         ('x : U8 y : F', 'y : F x : U8'), ('E named', 'G named')):
            self.assertNotEqual(accepted(self, text.replace(old, new)).schemaHash, first)

    def testFollowsImports(self):
        def hashOf(type):
            module, lines = compileFiles({
                't.mox': 'module T\nimport "b.mox"',
                'b.mox': 'module B\nnamespace B\nentity E named { a : %s }' % type})
            self.assertEqual(lines, [])
            return module.schemaHash

        self.assertNotEqual(hashOf('U8'), hashOf('U16'))


if __name__ == '__main__':
    unittest.main()
