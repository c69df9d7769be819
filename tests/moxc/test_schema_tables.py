"""What the tests of the generated code can't see of the project's schemas."""

import unittest

import support
from support import entityNamed


class InvAradTables(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.module = support.loadSchema('InvArad.mox')

    def testWrappers(self):
        found = ['%s.%s' % (entity.name, attr.wrapperName) for entity in self.module.entities
                 for attr in entity.attrs if attr.wrapperName]
        self.assertEqual(found, [
            'SocProperties.MoxProperty', 'NifSerdes.MoxJerichoNifSerdesTuning', 'Xlge.MoxSerdes',
            'Xlge2.MoxSerdes', 'Cge.MoxSerdesAllocated', 'Cge.MoxSerdesUsed',
            'Arad.MoxDdrTuneSetting', 'Arad.MoxSerdesClockSocPropertyValue'])

    def testLinksListsAndPiecewiseTexts(self):
        entities = self.module.entities
        self.assertEqual([e.name for e in entities if not e.hasNext], ['AradSlice'])
        self.assertEqual([e.name for e in entities if not e.ownsList], ['Arad'])
        arad = entityNamed(self.module, 'Arad')
        self.assertEqual(arad.listOwner.qualified, 'Inventory::ComponentBase')
        self.assertEqual([base.name for base in arad.bases], ['FapBase', 'ComponentBase'])
        families = {}
        for entity in entities:
            for attr in entity.attrs:
                if attr.family in ('pieces', 'stringKeyed'):
                    families.setdefault(attr.family, []).append(entity.name + '.' + attr.name)
        self.assertEqual(families, {
            'stringKeyed': ['SocProperties.property', 'Arad.ddrTuneSetting',
                            'Arad.serdesClockSocPropertyValue'],
            'pieces': ['Qsgmii.description', 'Xlge.description', 'Xlge2.description',
                       'Cge.description']})

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

    def testFapTypeOfTheChip(self):
        fapType = next(enum for enum in self.module.enums if enum.name == 'FapType')
        self.assertEqual({e.name: e.value for e in fapType.enumerators}['fapTypeArad'], 3)

    def testOnlyTheWrappedTypeAndBasesHaveNoLink(self):
        self.assertEqual([entity.name for entity in self.module.entities if not entity.hasNext],
                         ['JerichoNifSerdesTuning', 'ComponentBase', 'FapBase'])


if __name__ == '__main__':
    unittest.main()
