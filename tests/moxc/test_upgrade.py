"""Each edit of a schema, its verdict, and what is printed of it."""

import os
import subprocess
import sys
import tempfile
import unittest

import support

import upgrade

SCHEMA = '''module Fleet
namespace Fleet
enum Fuel { none = 0  diesel = 1  power = 2 }
identifier DockId : U8 { null 40 }
value Units::Weight from "Weight.h"
entity Wheel { key id : U8  pressure : double }
base entity Vehicle named { owner : String8 }
entity Truck : Vehicle named { fuel : Fuel  dock : DockId  child wheel[id] : Wheel }
root entity Yard named { open : bool  lit : bool  child truck[name] : Truck }
'''

# what is replaced, by what, and the lines that the comparison prints
EDITS = [
    ('', '', []),
    ('bool  lit', 'bool = true  lit', []),
    ('name] : Truck }', 'name] : Truck  note[U8] : U16 }', ['safe: Fleet::Yard.note (0x105) is new']),
    ('child wheel[id] : Wheel }', '}', ['safe: Fleet::Truck.wheel (0x204) is gone']),
    ('lit : bool', 'bright : bool', ['safe: Fleet::Yard.lit is now called bright']),
    ('open : bool  lit : bool', 'lit : bool  open : bool', [
        'unsafe: Fleet::Yard.open has id 0x103, was 0x102',
        'unsafe: Fleet::Yard.lit has id 0x102, was 0x103']),
    ('open : bool  ', '', [
        'unsafe: Fleet::Yard.lit has id 0x102, was 0x103',
        'unsafe: Fleet::Yard.truck has id 0x103, was 0x104']),
    ('open : bool', 'area : U8  open : bool', [
        'unsafe: Fleet::Yard.open has id 0x103, was 0x102',
        'unsafe: Fleet::Yard.lit has id 0x104, was 0x103',
        'unsafe: Fleet::Yard.truck has id 0x105, was 0x104']),
    ('lit : bool', 'lit : U8', ['unsafe: Fleet::Yard.lit is value of U8, was value of bool']),
    ('lit : bool', 'lit[U8] : bool',
     ['unsafe: Fleet::Yard.lit is value collection of bool by U8, was value of bool']),
    ('key id : U8', 'key id : U16', [
        'unsafe: Fleet::Wheel is made of (id U16), was (id U8)',
        'unsafe: Fleet::Wheel.id is constructor value of U16, was constructor value of U8',
        'unsafe: Fleet::Truck.wheel is child collection of Fleet::Wheel by U16 (id U16), '
        'was child collection of Fleet::Wheel by U8 (id U8)']),
    ('key id : U8  pressure', 'key id : U8  param load : U8  pressure', [
        'unsafe: Fleet::Wheel is made of (id U8, load U8), was (id U8)',
        'unsafe: Fleet::Wheel.pressure has id 0x104, was 0x103',
        'unsafe: Fleet::Truck.wheel is child collection of Fleet::Wheel by U8 (id U8, load U8), '
        'was child collection of Fleet::Wheel by U8 (id U8)']),
    ('Truck : Vehicle named', 'Truck named', [
        'unsafe: Fleet::Truck derives from Mox::Entity, was Fleet::Vehicle',
        'unsafe: Fleet::Truck.fuel has id 0x102, was 0x202',
        'unsafe: Fleet::Truck.dock has id 0x103, was 0x203',
        'unsafe: Fleet::Truck.wheel has id 0x104, was 0x204']),
    ('root entity', 'entity Lamp { key id : U8 }\nroot entity', ['safe: entity Fleet::Lamp is new']),
    ('power = 2', 'power = 2  gas = 3', ['safe: Fleet::Fuel::gas (3) is new']),
    ('  power = 2', '', ['safe: Fleet::Fuel::power (2) is gone']),
    ('power = 2', 'electric = 2', ['safe: Fleet::Fuel::power is now called electric']),
    ('diesel = 1  power = 2', 'diesel = 2  power = 1', [
        'unsafe: Fleet::Fuel::diesel is 2, was 1', 'unsafe: Fleet::Fuel::power is 1, was 2']),
    ('null 40', 'null 41', ['unsafe: Fleet::DockId accepts 0 to 41, was 0 to 40']),
    ('null 40', 'max 40', ['unsafe: the null of Fleet::DockId is None, was 40']),
    ('DockId : U8', 'DockId : U16', ['unsafe: Fleet::DockId is stored as U16, was U8']),
    ('Weight.h', 'Mass.h', ['unsafe: value Units::Weight comes from Mass.h, was Weight.h']),
    ('enum Fuel { none = 0  diesel = 1  power = 2 }', 'identifier Fuel : U8 { null 9 }', [
        'unsafe: Fleet::Fuel is an identifier, was an enum']),
]


class UpgradeTest(unittest.TestCase):
    maxDiff = None

    def testEachEditHasItsVerdict(self):
        old, errors = support.compileText(SCHEMA)
        self.assertEqual(errors, [])
        for before, after, expected in EDITS:
            with self.subTest(after):
                self.assertIn(before, SCHEMA)
                new, errors = support.compileText(SCHEMA.replace(before, after, 1))
                self.assertEqual(errors, [])
                self.assertEqual([str(edit) for edit in upgrade.compare(old, new)], expected)

    def testTheCommandTellsTheVerdictByItsCode(self):
        with tempfile.TemporaryDirectory() as directory:
            def compare(edited):
                for name, text in (('old.mox', SCHEMA), ('new.mox', edited)):
                    with open(os.path.join(directory, name), 'w', encoding='utf-8') as file:
                        file.write(text)
                done = subprocess.run([sys.executable, '-B', support.COMPILER, '--compare',
                                       'old.mox', 'new.mox'], capture_output=True, text=True,
                                      cwd=directory, check=False)
                return done.returncode, done.stdout, done.stderr

            self.assertEqual(compare(SCHEMA), (0, '', ''))
            self.assertEqual(compare(SCHEMA.replace('power = 2', 'power = 2  gas = 3')),
                             (0, 'safe: Fleet::Fuel::gas (3) is new\n', ''))
            self.assertEqual(compare(SCHEMA.replace('lit : bool', 'lit : U8'))[:2],
                             (1, 'unsafe: Fleet::Yard.lit is value of U8, was value of bool\n'))
            code, out, err = compare('module Fleet\nnamespace Fleet\nenum E {}\n')
            self.assertEqual((code, out), (1, ''))
            self.assertIn("enumeration 'E' is empty", err)


if __name__ == '__main__':
    unittest.main()
