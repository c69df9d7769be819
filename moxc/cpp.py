"""How things of a schema are spelled in C++: literals, texts, comments, and the names that an attribute
puts into its classes. Used by checker.py, which compares those names, and by writer.py.
"""

import model

LINE_LENGTH = 100
# Of pieces that don't fit behind their opening bracket.
FILL_INDENT = 10


class Misfit(Exception):
    """A literal that is no value of its type; the text says what was expected."""


def expression(type, literal):
    """The C++ expression of a literal of `type`. Throws Misfit."""
    number = literal.value if literal.kind == 'number' else None
    isInteger = isinstance(number, int)
    if type.isValue:
        return _valueExpression(type, literal)
    if type.isEnum:
        for one in type.enumerators:
            if literal.text in (one.name, type.name + '::' + one.name) or \
                    (number is not None and number == one.value):
                return one.cpp
        raise Misfit("an enumerator of '%s'" % type.qualified)
    if type.isIdentifier:
        if literal.text == 'null' and literal.kind == 'name' and type.null is not None:
            return '%s(%s::null)' % (type.cpp, type.cpp)
        if isInteger and type.min <= number <= type.max:
            return '%s(%s)' % (type.cpp, literal.text)
        raise Misfit('a number from %d to %d%s'
                     % (type.min, type.max, " or 'null'" if type.null is not None else ''))
    if type.name == 'bool':
        if literal.kind == 'name' and literal.text in ('true', 'false'):
            return literal.text
        raise Misfit("'true' or 'false'")
    if type.isText:
        if literal.kind != 'string':
            raise Misfit('a text in quotes')
        return '%s(%s)' % (type.cpp, text(literal.value)) if literal.value else type.defaultText
    if type.name == 'double':
        if number is None:
            raise Misfit('a number')
        return '%d.0' % number if isInteger else literal.text
    low, high = model.INTEGER_RANGES[type.name]
    if not isInteger or not low <= number <= high:
        raise Misfit('a number from %d to %d' % (low, high))
    return _integer(type.name, number, literal.text)


def _valueExpression(type, literal):
    """A number is the argument of the class's constructor, a text is C++."""
    if literal.kind == 'number':
        return '%s(%s)' % (type.cpp, literal.text)
    if literal.kind == 'string' and literal.value.strip() and '\n' not in literal.value:
        return literal.value
    raise Misfit('a number, or C++ text in quotes')


def _integer(typeName, value, spelling):
    """Spelled as the schema spells it where C++ reads it so."""
    if value == -0x80000000:
        return '-2147483647 - 1'
    if value <= 0x7fffffff:
        return spelling
    return spelling + ('ull' if typeName == 'U64' else 'u')


def text(value):
    """A string literal; with its length behind it if it holds a zero byte."""
    out = ''
    data = value.encode('utf-8')
    for byte in data:
        character = chr(byte)
        if character in '"\\?':
            out += '\\' + character
        elif 0x20 <= byte < 0x7f:
            out += character
        else:
            out += '\\%03o' % byte
    return '"%s"%s' % (out, ', %d' % len(data) if 0 in data else '')


def docComment(lines, indent=0):
    """A doc comment's lines as `/// ...`, each line ended; nothing for no lines."""
    blanks = ' ' * indent
    return ''.join((blanks + '/// ' + line).rstrip() + '\n' for line in lines)


def docText(lines, indent):
    """A doc comment's lines as a string with newlines between them: literals one below the other,
    the first of them behind `indent` columns."""
    pieces = []
    for index, line in enumerate(lines):
        rest = text(line)[1:-1] + ('\\n' if index + 1 < len(lines) else '')
        room = LINE_LENGTH - indent - len('"");')
        while len(rest) > room:
            end = rest.rfind(' ', 0, room) + 1 or room
            pieces.append(rest[:end])
            rest = rest[end:]
        pieces.append(rest)
    return ('\n' + ' ' * indent).join('"%s"' % piece for piece in pieces or [''])


def fill(items, column):
    """Pieces of C++, each ended by a semicolon, as a list with commas: as many in a line as it holds,
    the first of them behind `column` columns and the others below it."""
    pieces = items.split(';')[:-1]
    if column > FILL_INDENT and max(map(len, pieces)) + column > LINE_LENGTH:
        return chr(10) + ' ' * FILL_INDENT + fill(items, FILL_INDENT)
    lines = ['']
    for index, piece in enumerate(pieces):
        last = index + 1 == len(pieces)
        piece += '' if last else ','
        room = LINE_LENGTH - column - (len('>(),') if last else 0)
        if lines[-1] and len(lines[-1]) + 1 + len(piece) > room:
            lines.append('')
        lines[-1] += (' ' if lines[-1] else '') + piece
    return (chr(10) + ' ' * column).join(lines)


def generatedNames(attr):
    """The (name, role) pairs that an attribute puts into its class and its subscriber classes."""
    x, cap = attr.name, attr.capName
    found = [(x, 'getter')]
    if attr.isMutable:
        found.append((x + 'Is', 'setter'))
    if attr.isInstantiating or attr.isCollection:
        found += [(x + 'Del', 'deleter'), ('new' + cap, 'factory')]
    if attr.isCollection:
        found += [(x + 'DelAll', 'deleter'), (x + 'Notify', 'notifier'),
                  (x + 'Iterator', 'iterator'), (x + 'IteratorConst', 'iterator'),
                  (x + 'Count', 'counter'), ('Mox' + cap, 'wrapper')]
    found += [(handler.name, 'handler') for handler in attr.handlers]
    return found
