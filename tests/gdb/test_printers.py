"""What GDB shows of a tree with the pretty printers."""

import os
import shutil
import subprocess
import unittest

SOURCE_DIR = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PRINTERS = os.path.join(SOURCE_DIR, 'tools', 'gdb', 'mox_printers.py')
SUBJECT = os.path.join(os.environ['BINARY_DIR'], 'tests', 'gdb_subject')


def shown(*expressions):
    commands = ['set startup-with-shell off', 'set confirm off', 'source ' + PRINTERS, 'break look',
                'run', 'set print pretty off'] + ['print ' + text for text in expressions]
    arguments = [argument for command in commands for argument in ('-ex', command)]
    made = subprocess.run([shutil.which('gdb'), '-nx', '-batch', *arguments, SUBJECT],
                          capture_output=True, text=True, timeout=120, check=False)
    lines = [line.split(' = ', 1)[1] for line in made.stdout.splitlines() if line.startswith('$')]
    if len(lines) != len(expressions):
        raise AssertionError(made.stdout + made.stderr)
    return lines


class PrintersTest(unittest.TestCase):
    def testATreeIsShownByItsAttributes(self):
        tree, numPorts, name = shown('*slice.object_', 'slice.object_->numPorts_',
                                     'slice.object_->name_')
        self.assertIn('Inventory::Arad::AradSlice "slice" version ', tree)
        for part in ('numPorts = 12', 'fap = 1 member = {', 'Inventory::Arad::Arad "fap0" version ',
                     'description = "line card"', 'fapId = 7',
                     'Inventory::Arad::Qsgmii "" version 1 = {id = 3, description = "", serdes = 5}',
                     'serdes = 1 member = {[9] = true}',
                     'ddrTuneSetting = 1 member = {[speed] = "fast"}', 'pciDevice = null'):
            self.assertIn(part, tree)
        self.assertEqual((numPorts, name), ('12', '"slice"'))

    def testAPointerTellsItsCount(self):
        self.assertRegex(shown('slice')[0],
                         r'\(Inventory::Arad::AradSlice \*\) 0x[0-9a-f]+, 1 reference = ')


if __name__ == '__main__':
    unittest.main()
