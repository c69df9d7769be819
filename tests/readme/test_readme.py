"""The README shows code that is compiled and run, names files that exist, and maps every folder."""

import os
import re
import unittest

ROOT_DIR = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def read(*path):
    with open(os.path.join(ROOT_DIR, *path), encoding='utf-8') as file:
        return file.read()


class Readme(unittest.TestCase):
    def setUp(self):
        self.text = read('README.md')

    def test_its_code_is_an_example(self):
        blocks = re.findall(r'```cpp\n(.*?)```', self.text, re.DOTALL)
        self.assertEqual(len(blocks), 1)
        self.assertIn(blocks[0], read('examples', 'first.cc'))

    def test_its_commands_and_links_exist(self):
        commands = re.findall(r'^\./(\w+)', self.text, re.MULTILINE)
        self.assertEqual(commands, ['demo', 'check'])
        for command in commands:
            self.assertTrue(os.access(os.path.join(ROOT_DIR, command), os.X_OK), command)
        for link in re.findall(r'\]\(([^)]+)\)', self.text):
            self.assertTrue(os.path.exists(os.path.join(ROOT_DIR, link)), link)

    def test_its_map_has_every_folder(self):
        rows = [line.split('|')[1] for line in self.text.splitlines() if line.startswith('| `')]
        mapped = {name for row in rows for name in re.findall(r'`(\w+)/`', row)}
        present = {entry.name for entry in os.scandir(ROOT_DIR)
                   if entry.is_dir() and not entry.name.startswith(('.', 'build'))}
        self.assertEqual(mapped, present)


if __name__ == '__main__':
    unittest.main()
