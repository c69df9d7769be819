"""Cuts the text of a schema into tokens. Called by parser.py.

Text is UTF-8 with LF or CRLF line ends; `//` opens a comment, `///` a doc comment, which is a
token.
"""

import re
from dataclasses import dataclass

from errors import Position

MAX_NUMBER_DIGITS = 20  # enough for every 64-bit number; longer ones are refused unread


@dataclass
class Token:
    """One token. `kind`: name, number, string, doc, punctuation or end."""

    kind: str
    text: str           # as written; a string without its quotes, a doc comment without its slashes
    value: object       # number: int or float; string: the str it stands for; else None
    position: Position
    firstOnLine: bool   # nothing but blanks stands before it on its line

    def describe(self):
        """How messages name this token."""
        if self.kind == 'end':
            return 'the end of the file'
        if self.kind == 'doc':
            return 'a doc comment'
        if self.kind == 'string':
            return 'the text "%s"' % self.text
        return "'%s'" % self.text


_TOKEN = re.compile(r'''
    (?P<blank>   [ \t\f]+ )
  | (?P<doc>     ///(?!/)[^\n]* )
  | (?P<comment> //[^\n]* )
  | (?P<number>  [0-9][0-9A-Za-z_]*(?:\.[0-9][0-9A-Za-z_]*)?(?:(?<=[eE])[+-][0-9]+)? )
  | (?P<name>    [A-Za-z_][A-Za-z0-9_]* )
  | (?P<string>  "(?:[^"\\\n]|\\[^\n])*" )
  | (?P<open>    "[^\n]* )
  | (?P<punctuation> :: | [{}\[\]:=-] )
''', re.VERBOSE)

_ESCAPES = {'n': '\n', 't': '\t', 'r': '\r', '"': '"', '\\': '\\'}
_DECIMAL = re.compile(r'[0-9]+\Z')
_HEX = re.compile(r'0[xX][0-9a-fA-F]+\Z')
_FLOAT = re.compile(r'[0-9]+(\.[0-9]+)?([eE][+-]?[0-9]+)?\Z')


def decode(path, data, errors):
    """The text of a schema file, or None if it isn't UTF-8 (reported with its place)."""
    if data.startswith(b'\xef\xbb\xbf'):
        data = data[3:]
    try:
        return data.decode('utf-8')
    except UnicodeDecodeError as failure:
        line = data.count(b'\n', 0, failure.start) + 1
        lineStart = data.rfind(b'\n', 0, failure.start) + 1
        column = len(data[lineStart:failure.start].decode('utf-8')) + 1
        errors.add(Position(path, line, column),
                   'byte 0x%02x is not UTF-8, expected UTF-8 text' % data[failure.start])
        return None


def tokenize(path, text, errors):
    """The tokens of `text`, with an end token last; what can't be read is reported and left out."""
    tokens = []
    lines = text.replace('\r\n', '\n').split('\n')
    for lineNumber, line in enumerate(lines, 1):
        column = 0
        firstOnLine = True
        while column < len(line):
            position = Position(path, lineNumber, column + 1)
            match = _TOKEN.match(line, column)
            if match is None:
                errors.add(position, 'character %s has no meaning in a schema, expected a name, a '
                                     'number, a text or one of { } [ ] : = -' % _show(line[column]))
                column += 1
                continue
            column = match.end()
            token = _token(match.lastgroup, match.group(), position, firstOnLine, errors)
            if token is not None:
                tokens.append(token)
            if match.lastgroup != 'blank':
                firstOnLine = False
    last = Position(path, len(lines), len(lines[-1]) + 1)
    tokens.append(Token('end', '', None, last, True))
    return tokens


def _token(group, text, position, firstOnLine, errors):
    """The token of one match; None for what makes no token."""
    if group in ('blank', 'comment'):
        return None
    if group == 'open':
        errors.add(position, 'text without an end, expected a closing " on the same line')
        return Token('string', text[1:], text[1:], position, firstOnLine)
    if group == 'doc':
        if not firstOnLine:
            errors.add(position, 'doc comment behind a declaration, expected it on a line of its '
                                 'own above what it describes')
            return None
        body = text[3:].strip()
        if body.endswith('\\'):
            errors.add(position, 'doc comment ends with a backslash, expected another last '
                                 'character')
            return None
        return Token('doc', body, None, position, True)
    if group == 'number':
        return Token('number', text, _number(text, position, errors), position, firstOnLine)
    if group == 'string':
        return Token('string', text[1:-1], _unescape(text[1:-1], position, errors), position,
                     firstOnLine)
    return Token(group, text, None, position, firstOnLine)


def _number(text, position, errors):
    """The value of a number; 0 after a report."""
    if len(text) > MAX_NUMBER_DIGITS + 4:
        errors.add(position, 'number of %d characters, expected at most %d digits'
                   % (len(text), MAX_NUMBER_DIGITS))
        return 0
    if _DECIMAL.match(text):
        if len(text) > 1 and text[0] == '0':
            errors.add(position, "number '%s' begins with 0, expected it without" % text)
        return int(text)
    if _HEX.match(text):
        return int(text, 16)
    if _FLOAT.match(text):
        value = float(text)
        if value in (float('inf'), float('-inf')):
            errors.add(position, "number '%s' is too large for a double" % text)
            return 0
        return value
    errors.add(position, "malformed number '%s', expected decimal or hexadecimal digits" % text)
    return 0


def _unescape(text, position, errors):
    """The text that a string token stands for."""
    def one(match):
        letter = match.group(1)
        if letter not in _ESCAPES:
            at = position._replace(column=position.column + 1 + match.start())
            errors.add(at, 'unknown escape \\%s, expected \\n, \\t, \\r, \\" or \\\\' % letter)
            return ''
        return _ESCAPES[letter]

    return re.sub(r'\\(.)', one, text)


def _show(character):
    """A character as messages show it: itself, or its number if it can't be printed."""
    return "'%s'" % character if character.isprintable() else 'U+%04X' % ord(character)
