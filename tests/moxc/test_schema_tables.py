"""For faults in the project's schemas that the tests of the generated code can't see: constructors, dirty
bits, missing documentation.
"""

import unittest

import support
from support import entityNamed


class InvAradTables(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.module = support.loadSchema('InvArad.mox')


    def testDirtyBitsCountUpInDeclarationOrderBehindTheFirstWordsOwn(self):
        for module in (self.module, self.module.imports[0]):
            for entity in module.entities:
                first = 0 if entity.level else 1
                self.assertEqual([(attr.dirtyBit, attr.dirtyMask) for attr in entity.mutableAttrs],
                                 [(bit, 1 << bit) for bit in
                                  range(first, first + len(entity.mutableAttrs))], entity.name)

    def testEverythingIsDocumented(self):
        for module in (self.module, self.module.imports[0]):
            for type in module.types:
                self.assertTrue(type.doc, type.qualified)
                for attr in type.attrs if type.isEntity else ():
                    self.assertTrue(attr.doc, '%s.%s' % (type.qualified, attr.name))


class SiblingTables(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.module = support.loadSchema('InvSiblings.mox')

    def testConstructorsOnTheStreamAndInCpp(self):
        expected = {
            'Fru::ConnectionEndpoint': ('id', 'unsigned int id'),
            'Hardware::Sand::JerichoNifSerdesTuning':
                ('tuningMode', 'Mox::Name name, Hardware::Sand::JerichoNifSerdesTuningMode '
                               'tuningMode'),
            'Inventory::PciDevice': ('name', 'Mox::Name name'),
            'Inventory::Si5327': ('name, pllRole', 'Mox::Name name, unsigned int pllRole'),
            'Inventory::Mdio::AccelBlock':
                ('id, offset, busSpeed', 'Hardware::VesperAccelId id, unsigned int offset, '
                                         'Units::Megahertz const& busSpeed'),
            'Inventory::Sand::SerdesQuartet':
                ('id', 'Mox::Name name, Hardware::Sand::SerdesQuartetId id'),
            'Inventory::Sand::FapBase': ('name, fapId', 'Mox::Name name, unsigned int fapId'),
        }
        for name, (stream, cpp) in expected.items():
            entity = entityNamed(self.module, name)
            self.assertEqual(', '.join(arg.name for arg in entity.constructorArgs), stream)
            self.assertEqual(', '.join('%s %s' % (arg.paramCpp, arg.name)
                                       for arg in entity.cppParams), cpp)


if __name__ == '__main__':
    unittest.main()
