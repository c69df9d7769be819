"""Finds and reads schema files: each file once, before it those that it imports.

moxc.py calls load(); checker.py makes the model of each file.
"""

import os

import checker
import parser
from errors import Position

MAX_IMPORT_DEPTH = 64


def load(path, importDirs, errors):
    """The checked Module of `path`, or None if errors were found."""
    loader = _Loader(importDirs, errors)
    module = loader.load(path, [], None)
    return None if errors else module


class _Loader:
    """Reads a schema file and, before it, the files that it imports; each once."""

    def __init__(self, importDirs, errors):
        self._importDirs = importDirs
        self._errors = errors
        self._modules = {}           # real path -> Module, None if it has errors

    def load(self, path, importing, position):
        """`importing`: real paths of the files that wait for this one."""
        realPath = os.path.realpath(path)
        if realPath in self._modules:
            return self._modules[realPath]
        try:
            with open(path, 'rb') as file:
                data = file.read()
        except OSError as failure:
            at = position or Position(path, 1, 1)
            self._errors.add(at, "can't read '%s': %s, expected a schema file"
                             % (path, failure.strerror))
            return None
        tree = parser.parse(path, data, self._errors)
        self._modules[realPath] = None
        if tree is None:
            return None
        importing = importing + [realPath]
        imports = []
        complete = tree.name is not None
        for node in tree.imports:
            imported = self._import(path, node, importing)
            complete = complete and imported is not None
            if imported in imports and imported is not None:
                self._errors.add(node.position, "'%s' is imported twice, expected it once"
                                 % node.path)
            elif imported is not None:
                imports.append(imported)
        if not complete:
            return None
        loaded = [module for module in self._modules.values() if module is not None]
        self._modules[realPath] = checker.check(tree, imports, loaded, self._errors)
        return self._modules[realPath]

    def _import(self, path, node, importing):
        for directory in [os.path.dirname(path)] + self._importDirs:
            candidate = os.path.join(directory, node.path)
            if not os.path.isfile(candidate):
                continue
            if os.path.realpath(candidate) in importing:
                self._errors.add(node.position, "import of '%s' closes a cycle, expected imports "
                                 'without one' % node.path)
                return None
            if len(importing) >= MAX_IMPORT_DEPTH:
                self._errors.add(node.position, 'imports nest deeper than %d files'
                                 % MAX_IMPORT_DEPTH)
                return None
            return self.load(candidate, importing, node.position)
        self._errors.add(node.position, "no file '%s', expected it beside this file or in an "
                         'import directory' % node.path)
        return None
