"""The shared libraries export what cmake/exports.txt lists, and nothing of the C++ library's."""

import os
import re
import subprocess
import unittest

SOURCE_DIR = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BINARY_DIR = os.environ['BINARY_DIR']
# Said of a class by the compiler, not by the class.
ABOUT = re.compile(r'(typeinfo name for|typeinfo for|vtable for|VTT for|guard variable for|'
                   r'construction vtable for|(non-)?virtual thunk to) ')
NAMESPACES = {'Mox', 'Mox::NboAttrLog', 'Mox::NboAttrLog::FrameParser', 'Mox::NboAttrLog::Marks',
              'Mox::generic', 'Hardware', 'Hardware::Sand'}


def listed():
    """The entries of each library."""
    entries = {}
    with open(os.path.join(SOURCE_DIR, 'cmake', 'exports.txt'), encoding='utf-8') as file:
        for line in file:
            if line.startswith('lib'):
                entries[line.strip()] = current = set()
            elif line.strip() and not line.startswith('#'):
                current.add(line.strip())
    return entries


def exported(library):
    """(letter of nm, name without parameters) of each symbol."""
    made = subprocess.run(['nm', '-D', '--defined-only', '--format=posix',
                           os.path.join(BINARY_DIR, library + '.so')],
                          capture_output=True, text=True, check=True)
    symbols = [line.split()[:2] for line in made.stdout.splitlines()
               if not line.startswith('__odr_asan')]
    names = subprocess.run(['c++filt', '-p'], input='\n'.join(name for name, _ in symbols),
                           capture_output=True, text=True, check=True).stdout.splitlines()
    return {(letter, ABOUT.sub('', name).replace('[abi:cxx11]', ''))
            for (_, letter), name in zip(symbols, names)}


def entryOf(name):
    """The class, with its template's arguments, or the function that a name belongs to."""
    depth = 0
    for part in re.finditer(r'operator\S+|[<>]|::', name):
        if part[0] in '<>':
            depth += 1 if part[0] == '<' else -1
        elif part[0] == '::' and depth == 0:
            if name[:part.start()] not in NAMESPACES:
                return name[:part.start()]
    return name


def isClang():
    with open(os.path.join(BINARY_DIR, 'CMakeCache.txt'), encoding='utf-8') as cache:
        return re.search(r'^CMAKE_CXX_COMPILER:.*clang', cache.read(), re.MULTILINE)


@unittest.skipIf(isClang(), 'a Clang build exports all: see cmake/Library.cmake')
class Exports(unittest.TestCase):
    def testEachExportedNameIsListed(self):
        libraries = listed()
        roots = tuple({entry.split('::')[0] + '::' for entry in set().union(*libraries.values())})
        for library, entries in libraries.items():
            whole = tuple(entry for entry in entries if entry.endswith('::'))
            found = set()
            for letter, name in exported(library):
                # Weak ones are the compiler's choice: inline and instantiated from the headers.
                if letter in 'WVu':
                    self.assertTrue(name.startswith(roots), (library, name))
                elif not name.startswith(whole):
                    found.add(entryOf(name))
            wanted = entries - set(whole)
            self.assertEqual((library, sorted(found - wanted), sorted(wanted - found)),
                             (library, [], []))

    def testThePointerAccessorsOfAnEntityCanBeReached(self):
        names = {name.split('(')[0] for _, name in exported('libInvArad')}
        for accessor in 'operator*', 'operator->':
            self.assertIn('Mox::Ptr<Inventory::Arad::Qsgmii>::' + accessor, names)


if __name__ == '__main__':
    unittest.main()
