"""The project's schemas against tables that were written down apart from the compiler."""

import unittest

import support
from support import attrNamed, entityNamed

import model


class InvAradTables(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.module = support.loadSchema('InvArad.mox')

    def testAttributeTable(self):
        self.assertEqual(attributeTable(self.module), support.goldenLines('schema_table.golden'))

    def testDirtyBits(self):
        lines = []
        for entity in self.module.entities:
            lines.append('%s %d' % (entity.name, entity.level))
            for attr in entity.attrs:
                if attr.dirtyBit is not None:
                    self.assertEqual(attr.dirtyMask, 1 << attr.dirtyBit)
                    lines.append('  %s %d %d%s' % (attr.name, attr.id, attr.dirtyBit,
                                                   ' synced' if attr.isCollection else ''))
        self.assertEqual(lines, support.goldenLines('dirty_bits.golden'))

    def testEnumerations(self):
        self.assertEqual({enum.qualified: [(e.value, e.name) for e in enum.enumeratorsByValue]
                          for enum in self.module.enums}, {
            'Inventory::Arad::AradManagedPhy': list(enumerate((
                'unknown', 'noPhy', 'externallyManagedPhy', 'bcm84328', 'bcm84848', 'bcm84858'))),
            'Inventory::Arad::SerdesCoreType': list(enumerate((
                'unknownCore', 'warpCore', 'falconCore', 'eagleCore')))})

    def testTypesOfTheRegistryInDeclarationOrder(self):
        self.assertEqual([type.name for type in self.module.registeredTypes], [
            'AradManagedPhy', 'SerdesCoreType', 'SocProperties', 'NifSerdes', 'Qsgmii', 'Xlge',
            'Xlge2', 'Cge', 'EthPort', 'StatsSerdes', 'Arad', 'AradSlice'])

    def testFlagWordsFollowTheTableOfSingleBits(self):
        writable = {'value', 'reference', 'child', 'value collection', 'child collection'}
        constructor = {'constructor value', 'constructor reference'}
        collections = {'value collection', 'child collection'}
        holders = {'constructor reference', 'reference', 'child', 'child collection'}
        everything = set(model.KIND_FLAGS)
        self.assertEqual(len(everything), 11)
        bits = {
            'word0': [(0x1, everything), (0x2, writable), (0x40, writable), (0x8, constructor),
                      (0x100, constructor | writable), (0x2000, {'interface'}),
                      (0x20000, everything - {'key'}),
                      (0x200000, everything - {'enumerator', 'interface', 'handler'}),
                      (0x800000, collections), (0x1000000, collections), (0x8000000, holders)],
            'word1': [(0x400, everything), (0x200000, {'enumerator'}), (0x1000000, writable),
                      (0x10000000, {'child', 'child collection'}),
                      (0x40000000, constructor | {'enumerator'})],
            'introspection': [(0x2, constructor | writable), (0x8, {'interface', 'handler'}),
                              (0x20, {'child collection'})],
        }
        for kind, flags in model.KIND_FLAGS.items():
            for word, table in bits.items():
                expected = sum(mask for mask, kinds in table if kind in kinds)
                self.assertEqual(getattr(flags, word), expected, (kind, word))

    def testHandlersInSlotOrder(self):
        collection = 'on%s(key) on%smoxImmediate on%s'
        expected = {
            'SocProperties': 'Property[]',
            'NifSerdes': 'TxSerdesId RxSerdesId JerichoNifSerdesTuning[] TxPhaseInterpolation',
            'Qsgmii': 'Description Serdes',
            'Xlge': 'Description Serdes[] PhyLaneSwap LaneWithLowMDIOAddrInQuad',
            'Xlge2': 'Description SerdesSpeed Serdes[]',
            'Cge': 'Description SerdesAllocated[] SerdesUsed[]',
            'EthPort': 'XcvrSlot QsgmiiId GeId XgeId XlgeId Xlge2Id CgeId ManagedPhy '
                       'LedManagedByPhy NumQPairs Bringup10GigButXgeNotSupported SerdesCoreType '
                       'Lane TxAlwaysEnabledAt10g FecManagedByFap Xge25gSupported TxConnection '
                       'RxConnection',
            'StatsSerdes': '',
            'Arad': 'FapRevMajor PciDevice Serdes[] NifSerdesQuartet[] Qsgmii[] Xlge[] Xlge2[] '
                    'Cge[] Port[] DdrTuneSetting[] ElkAllUnitsSocProperties '
                    'ElkPerUnitsSocProperties[] ElkGlobalSocProperties '
                    'SerdesClockSocPropertyValue[] StatsSerdes[] TolminMbId TolminMbUnit SlotId '
                    'HwResetUsingPlx HwResetUsingKyr InterruptController MdioAccelBlock[] '
                    'PllClock ElkConnection[] ExtTcamType LunetPeerName LunetPeerAddr '
                    'IlknCoreToPipeSwap',
            'AradSlice': 'NumPorts Fap[] UseMdio ManagedPhy Accelerate100gVoq CellIsAlone '
                         'MacsecIsSupported',
        }
        self.assertEqual([entity.name for entity in self.module.entities], list(expected))
        for entity in self.module.entities:
            names = []
            for name in expected[entity.name].split():
                bare = name.removesuffix('[]')
                names.append(collection % ((bare,) * 3) if name.endswith('[]') else 'on' + bare)
            actual = [handler.name + ('(key)' if handler.form == 'key' else '')
                      for handler in entity.handlers]
            self.assertEqual(' '.join(actual), ' '.join(names), entity.name)

    def testDestructorsDeleteChildrenInSchemaOrder(self):
        expected = {
            'Arad': 'pciDevice serdes nifSerdesQuartet qsgmii xlge xlge2 cge port '
                    'elkAllUnitsSocProperties elkPerUnitsSocProperties elkGlobalSocProperties '
                    'statsSerdes mdioAccelBlock elkConnection',
            'EthPort': 'txConnection rxConnection',
            'AradSlice': 'fap',
            'NifSerdes': 'jerichoNifSerdesTuning',
        }
        for entity in self.module.entities:
            self.assertEqual([attr.name for attr in entity.children],
                             expected.get(entity.name, '').split(), entity.name)

    def testDefaultsThatAreNotTheTypesOwn(self):
        found = {}
        for entity in self.module.entities:
            for attr in entity.attrs:
                if attr.kind == 'value' and attr.default != attr.type.defaultText:
                    found[entity.name + '.' + attr.name] = attr.default
        self.assertEqual(found, {
            'NifSerdes.txSerdesId': 'id', 'NifSerdes.rxSerdesId': 'id',
            'EthPort.fecManagedByFap': 'true', 'EthPort.xge25gSupported': 'true'})
        self.assertEqual([(init.attr.id, init.expression) for init in
                          entityNamed(self.module, 'Arad').inits],
                         [(387, 'Hardware::Sand::FapType::fapTypeArad')])

    def testReinstantiationComparesTheseParametersInOrder(self):
        found = {}
        for entity in self.module.entities:
            for attr in entity.attrs:
                if attr.kind == 'childCollection' and attr.memberParams:
                    found[entity.name + '.' + attr.name] = [a.name for a in attr.memberParams]
        self.assertEqual(found, {
            'Arad.serdes': ['swapPolarityTx', 'swapPolarityRx', 'preDriverCurrent',
                            'driverCurrent', 'preEmphasis'],
            'Arad.port': ['ethPort'],
            'Arad.statsSerdes': ['swapPolarityTx'],
            'Arad.mdioAccelBlock': ['offset', 'busSpeed'],
            'AradSlice.fap': ['fapId']})

    def testMembersNamedByTheirKey(self):
        found = [attr.name for entity in self.module.entities for attr in entity.children
                 if attr.namesMemberByKey]
        self.assertEqual(found, ['jerichoNifSerdesTuning', 'nifSerdesQuartet',
                                 'elkPerUnitsSocProperties'])

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

    def testTheOneReaction(self):
        found = [(entity.name, attr.name, attr.reacts.name, attr.storedCpp)
                 for entity in self.module.entities for attr in entity.attrs if attr.reacts]
        self.assertEqual(found, [('Arad', 'pllClock', 'handlePllClock',
                                  'Mox::Ptr<Inventory::Si5327 const>')])

    def testEveryAttributeOfTheModuleHasItsPointer(self):
        count = 0
        for entity in self.module.entities:
            count += 1 + len(entity.descriptors)
        self.assertEqual(count, 115)

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

    def testIdentifiers(self):
        message = '%s::value < %s::min or > %s::null not allowed'
        rows = [('Hardware::Sand::SerdesId', 'U32', 0, 304),
                ('Hardware::Sand::SerdesCurrent', 'U8', 0, 33),
                ('Hardware::Sand::SerdesQuartetId', 'U32', 0, 18),
                ('Hardware::Sand::QsgmiiId', 'U16', 0, 96),
                ('Hardware::Sand::XlgeId', 'U16', 0, 18),
                ('Hardware::Sand::Xlge2Id', 'U16', 0, 36),
                ('Hardware::Sand::AradNifSerdesId', 'U16', 0, 72),
                ('Hardware::Sand::AradStatsSerdesId', 'U16', 28, 32)]
        expected = [(name, base, low, null, null, message % ((name.split('::')[-1],) * 3))
                    for name, base, low, null in rows]
        expected.append(('Hardware::VesperAccelId', 'U8', 0, 127, None,
                         'VesperAccelId::value > 0x7f not allowed'))
        expected.append(('Hardware::SensorId', 'U8', 0, 255, None,
                         'SensorId::value > 0xff not allowed'))
        self.assertEqual([(i.qualified, i.base.name, i.min, i.max, i.null, i.message)
                          for i in self.module.identifiers], expected)

    def testIdsOfTheBases(self):
        component = entityNamed(self.module, 'ComponentBase')
        self.assertEqual([(attr.id, attr.name) for attr in component.attrs], list(enumerate((
            'description', 'modelName', 'vendorType', 'hardwareRev', 'firmwareRev', 'serialNum',
            'mfgName', 'mfgDate', 'api', 'requirement', 'uNum'), 258)))
        fap = entityNamed(self.module, 'FapBase')
        self.assertEqual([(attr.id, attr.name) for attr in fap.attrs], list(enumerate((
            'fapId', 'fapType', 'numCores', 'coreClockFreqKhz', 'fabricMode', 'nifRefClock',
            'fabricRefClock', 'comboRefClock', 'serdesQuartet', 'fabricSerdes', 'tempSensor',
            'dramConfig'), 386)))
        self.assertEqual([component.level, fap.level], [0, 1])
        self.assertEqual([attr.dirtyBit for attr in component.mutableAttrs], list(range(1, 12)))
        self.assertEqual([attr.dirtyBit for attr in fap.mutableAttrs], list(range(11)))

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

    def testDefaults(self):
        fap = entityNamed(self.module, 'FapBase')
        self.assertEqual(attrNamed(fap, 'dramConfig').default, 'Hardware::Sand::DramConfig()')
        arad = entityNamed(support.loadSchema('InvArad.mox'), 'Arad')
        self.assertEqual(attrNamed(arad, 'slotId').default, 'Fru::SlotId(0)')
        self.assertEqual(attrNamed(arad, 'fapType').default,
                         'Hardware::Sand::FapType::fapTypeUnknown')

    def testFapTypeOfTheChip(self):
        fapType = next(enum for enum in self.module.enums if enum.name == 'FapType')
        self.assertEqual({e.name: e.value for e in fapType.enumerators}['fapTypeArad'], 3)

    def testOnlyTheWrappedTypeAndBasesHaveNoLink(self):
        self.assertEqual([entity.name for entity in self.module.entities if not entity.hasNext],
                         ['JerichoNifSerdesTuning', 'ComponentBase', 'FapBase'])


def attributeTable(module):
    """The model in the form of schema_table.golden."""
    lines = []
    for entity in module.entities:
        lines.append('%s : %s (%s)' % (entity.qualified, entity.baseQualified,
                                       argsText(entity.constructorArgs)))
        for row in entity.descriptors:
            line = '  0x%x %s : %s' % (row.id, row.name, row.typeText)
            if row.keyTypeText:
                line += ' [%s]' % row.keyTypeText
            line += ' ' + row.kindText
            if row.memberKey:
                line += ', by ' + row.memberKey
            if row.memberArgs:
                line += ' (%s)' % argsText(row.memberArgs)
            lines.append(line)
    return lines


def argsText(args):
    return ', '.join('%s %s' % (arg.name, arg.typeText) for arg in args)


if __name__ == '__main__':
    unittest.main()
