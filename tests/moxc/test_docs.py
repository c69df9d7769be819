"""The examples of the language's reference compile, and their numbers are true."""

import os
import re
import unittest

from support import ROOT_DIR, attrNamed, compileText, entityNamed

PAGE = os.path.join(ROOT_DIR, 'docs', 'schema-language.md')


class Reference(unittest.TestCase):
    def testExamplesCompile(self):
        with open(PAGE, encoding='utf-8') as file:
            examples = re.findall(r'^```mox\n(.*?)^```', file.read(), re.DOTALL | re.MULTILINE)
        self.assertEqual(len(examples), 2)
        modules = []
        for example in examples:
            module, lines = compileText(example)
            self.assertEqual(lines, [])
            modules.append(module)
        sensor = entityNamed(modules[0], 'Sensor')
        self.assertEqual([attr.kind for attr in sensor.attrs],
                         ['key', 'param', 'value', 'value', 'valueCollection'])
        truck = entityNamed(modules[1], 'Truck')
        self.assertEqual((attrNamed(truck, 'owner').id, attrNamed(truck, 'tuning').id),
                         (0x102, 0x202))


if __name__ == '__main__':
    unittest.main()
