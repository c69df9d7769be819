"""Positions in a schema and the list of errors found there; every stage of the compiler adds to it.

A stage reports what it finds and goes on; moxc.py prints the list and writes nothing if it has any.
"""

from typing import NamedTuple


class Position(NamedTuple):
    """A place in a schema file; line and column count from 1, columns in characters."""

    path: str
    line: int
    column: int


class Errors:
    """Everything that is wrong with the schemas of one run, sorted by position when printed."""

    def __init__(self):
        self._fileOrder = {}
        self._found = {}

    def registerFile(self, path):
        """Fixes the place of a file in the sorted list: files come in the order they are opened."""
        self._fileOrder.setdefault(path, len(self._fileOrder))

    def add(self, position, message):
        """Reports `message` ("what, expected what"); the same message at a place counts once."""
        self.registerFile(position.path)
        self._found.setdefault((position, message))

    def __bool__(self):
        return bool(self._found)

    def lines(self):
        """The messages as `file:line:column: what, and what was expected`."""
        def order(entry):
            position = entry[0]
            return (self._fileOrder[position.path], position.line, position.column)

        return ['%s:%d:%d: %s' % (*position, message)
                for position, message in sorted(self._found, key=order)]
