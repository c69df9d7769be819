"""The rooms include only what stands below them, and only transport/ and the programs meet the system."""

import ast
import glob
import os
import re
import sys
import unittest

ROOT_DIR = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

# A room may include itself and these; the factories of registry/ make readers of the log.
ROOMS = {
    'Mox': [],
    'values': ['Mox'],
    'model': ['Mox', 'values'],
    'registry': ['Mox', 'values', 'model', 'attrlog/wire/In.h'],
    'generic': ['Mox', 'values', 'model', 'registry'],
    'attrlog/wire': ['Mox', 'values'],
    'attrlog/adapter': ['Mox', 'values', 'registry', 'attrlog/wire'],
    'attrlog/link': ['Mox', 'values', 'registry', 'attrlog/wire', 'attrlog/adapter'],
    'transport': ['Mox', 'values', 'model', 'registry', 'attrlog'],
    'simulation': ['Mox', 'values', 'registry', 'generic', 'attrlog', 'transport'],
}
SYSTEM_ROOMS = {'transport', 'simulation'}
# A hand-written reaction sees the models and what they are made of.
REACTIONS = ['InvArad', 'InvSiblings', 'Mox', 'values', 'model']

STANDARD_HEADERS = set("""
algorithm any array atomic barrier bit bitset charconv chrono codecvt compare complex concepts
condition_variable coroutine deque exception execution filesystem format forward_list fstream
functional future initializer_list iomanip ios iosfwd iostream istream iterator latch limits list
locale map memory memory_resource mutex new numbers numeric optional ostream queue random ranges
ratio regex scoped_allocator semaphore set shared_mutex source_location span sstream stack stdexcept
stop_token streambuf string string_view strstream syncstream system_error thread tuple type_traits
typeindex typeinfo unordered_map unordered_set utility valarray variant vector version
cassert cctype cerrno cfenv cfloat cinttypes climits clocale cmath csetjmp csignal cstdarg cstddef
cstdint cstdio cstdlib cstring ctime cuchar cwchar cwctype
cxxabi.h
""".split())

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"])([^>"]+)[>"]', re.MULTILINE)


def sources(folder):
    return sorted(path for kind in ('*.h', '*.cc')
                  for path in glob.glob(os.path.join(ROOT_DIR, folder, kind)))


def includes(path):
    """The (line, bracket, name) of each include of a file."""
    with open(path, encoding='utf-8') as file:
        text = file.read()
    return [(text.count('\n', 0, match.start()) + 1, match[1], match[2])
            for match in INCLUDE.finditer(text)]


def isAllowed(name, allowed):
    return any(name == entry or name.startswith(entry + '/') for entry in allowed)


class Includes(unittest.TestCase):
    def test_arrows_run_downward_only(self):
        against = []
        for room, allowed in [*ROOMS.items(), ('schema', REACTIONS),
                              ('schema/InvSiblings', REACTIONS)]:
            for path in sources(room):
                for line, bracket, name in includes(path):
                    if bracket == '"' and not isAllowed(name, [room, *allowed]):
                        against.append('%s:%d: %s' % (os.path.relpath(path, ROOT_DIR), line, name))
        self.assertEqual(against, [])

    def test_only_the_transport_includes_system_headers(self):
        against = []
        for room in [*ROOMS, 'schema']:
            if room in SYSTEM_ROOMS:
                continue
            for path in sources(room):
                for line, bracket, name in includes(path):
                    if bracket == '<' and name not in STANDARD_HEADERS:
                        against.append('%s:%d: %s' % (os.path.relpath(path, ROOT_DIR), line, name))
        self.assertEqual(against, [])

    def test_every_header_is_guarded_once(self):
        headers = [path for room in ROOMS for path in sources(room) if path.endswith('.h')]
        self.assertTrue(headers)
        for path in headers:
            with open(path, encoding='utf-8') as file:
                self.assertEqual(file.read().count('#pragma once\n'), 1, path)

    def test_the_schema_compiler_needs_python_and_its_template_engine_only(self):
        scripts = glob.glob(os.path.join(ROOT_DIR, 'moxc', '*.py'))
        own = {os.path.basename(path)[:-3] for path in scripts}
        self.assertTrue(own)
        for path in scripts:
            with open(path, encoding='utf-8') as file:
                tree = ast.parse(file.read())
            names = [alias.name for node in ast.walk(tree) if isinstance(node, ast.Import)
                     for alias in node.names]
            names += [node.module for node in ast.walk(tree) if isinstance(node, ast.ImportFrom)]
            foreign = {name.split('.')[0] for name in names} - own - {'jinja2'}
            self.assertEqual(foreign - sys.stdlib_module_names, set(), path)

    def test_nothing_but_the_schema_names_an_attribute_type(self):
        """The compiler and the run-time know no type of the model by name."""
        with open(os.path.join(ROOT_DIR, 'schema', 'InvArad.mox'), encoding='utf-8') as file:
            names = re.findall(r'^\s*(?:abstract\s+)?entity\s+(\w+)', file.read(), re.MULTILINE)
        self.assertIn('Qsgmii', names)
        word = re.compile(r'\b(?:Inventory::Arad|%s)\b' % '|'.join(sorted(names)))
        against = []
        paths = [path for room in ROOMS for path in sources(room)]
        paths += glob.glob(os.path.join(ROOT_DIR, 'moxc', '*.py'))
        paths += glob.glob(os.path.join(ROOT_DIR, 'moxc', 'templates', '*'))
        for path in paths:
            with open(path, encoding='utf-8') as file:
                for number, line in enumerate(file, 1):
                    if word.search(line.split('#' if path.endswith('.py') else '//')[0]):
                        against.append('%s:%d: %s' % (os.path.relpath(path, ROOT_DIR), number,
                                                      line.strip()))
        self.assertEqual(against, [])


if __name__ == '__main__':
    unittest.main()
