"""Breaks lines of generated C++ at 100 columns, as clang-format with the project's style does for
the forms that templates write: comments, declarations, calls, aliases, class heads and bodies of one
statement. Templates write each of these on one line. Called by writer.py.
"""

import itertools
import re
import textwrap

LINE_LENGTH = 100

COMMENT = re.compile(r'( *//+<? ?)(.*)')
ONE_LINE_BODY = re.compile(r'( *)(.*\)[^(){}"]*\{) ([^{}]*;) \}$')
CLASS_HEAD = re.compile(r'( *)((?:class|struct) [\w:]+) (: public .*\{)$')
CONSTRUCTOR = re.compile(r'( *)((?:explicit )?[\w:]+\(.*?\)) : (.*) (\{\}?)$')
LAMBDA = re.compile(r'( *)(auto const \w+ = \[.*\{) (.*;) \};$')
ASSIGNMENT = re.compile(r'( *)(using [^=()]* =|(?:static )?constexpr .*? =|[^=()]* =) (.*)$')


def layout(text):
    """The text with every line broken where that is needed and possible."""
    lines = [part for line in text.split('\n') for part in fold(line)]
    return '\n'.join(_sortIncludes(lines))


def _sortIncludes(lines):
    """Runs of includes in the order of their names, each name once."""
    sortedLines = []
    for isInclude, run in itertools.groupby(lines, lambda line: line.startswith('#include "')):
        sortedLines += sorted(set(run)) if isInclude else run
    return sortedLines


def fold(line):
    """One line as lines of at most LINE_LENGTH, as far as its form is known."""
    if len(line) <= LINE_LENGTH or line.lstrip().startswith('#'):
        return [line]
    match = COMMENT.match(line)
    if match:
        return textwrap.wrap(match[2], LINE_LENGTH, initial_indent=match[1],
                             subsequent_indent=match[1], break_long_words=False,
                             break_on_hyphens=False)
    match = ONE_LINE_BODY.match(line)
    if match:
        return (fold(match[1] + match[2]) + fold(match[1] + '  ' + match[3]) + [match[1] + '}'])
    match = CLASS_HEAD.match(line)
    if match:
        return [match[1] + match[2]] + fold(match[1] + '    ' + match[3])
    match = CONSTRUCTOR.match(line)
    if match:
        indent, head, initialisers, body = match.groups()
        together = '%s    : %s %s' % (indent, initialisers, body)
        if len(together) > LINE_LENGTH:
            elements = _split(initialisers + ')', '(')[0]
            together = '%s    : %s %s' % (indent, ('\n%s      ' % indent).join(elements), body)
        return fold(indent + head) + together.split('\n')
    match = LAMBDA.match(line)
    if match:
        return [match[1] + match[2]] + fold(match[1] + '  ' + match[3]) + [match[1] + '};']
    match = ASSIGNMENT.match(line)
    if match:
        return [match[1] + match[2]] + fold(match[1] + '    ' + match[3])
    return _foldParameters(line)


def _foldParameters(line):
    indent = len(line) - len(line.lstrip())
    opening = _opening(line)
    if opening is None:
        return [line]
    pieces, _ = _split(line[indent:], '(')
    if len(pieces) > 1:  # Part of a list that begins in an earlier line.
        return _pack(' ' * indent, pieces, '', indent)[0]
    head, rest = line[:opening + 1], line[opening + 1:]
    elements, tail = _split(rest, line[opening])
    isDeclaration = _isDeclaration(line, opening)
    name = line.rfind(' ', 0, opening)
    kept = '' if elements != [''] else ')' if ' const' in tail else tail
    if isDeclaration and name > indent and len(head + kept) > LINE_LENGTH:
        # The name of a function on a line of its own, behind its type.
        return [line[:name]] + fold(' ' * indent + line[name + 1:])
    if elements == ['']:
        return [head + ')', ' ' * (indent + 4) + tail[1:].lstrip()]
    aligned, isAlignedWhole = _pack(head, elements, tail, opening + 1)
    hanging, isHangingWhole = _pack(' ' * (indent + 4), elements, tail, indent + 4)
    hanging.insert(0, head)
    if not _fits(aligned) or not isAlignedWhole and isHangingWhole:
        return hanging
    if isDeclaration or not _fits(hanging) or len(aligned) <= len(hanging):
        return aligned
    return hanging


def _opening(line):
    """Where the outermost list begins: the first parenthesis or brace outside of template
    arguments, else the first '<'. None for a line without either, or with an empty list."""
    depth = 0
    first = None
    for at, char in enumerate(line):
        if char == '"':
            return None
        if char == '<':
            first = at if first is None else first
            depth += 1
        elif char == '>' and line[at - 1] != '-':
            depth -= 1
        elif depth == 0 and (char == '(' or char == '{' and line[at - 1].isalnum()):
            return at
    return first


def _isDeclaration(line, opening):
    """Whether the list is one of parameters: of a function, by the type before its name, or of a
    constructor, by the type of the first parameter."""
    head = re.sub(r'<.*>', '', line[:opening].strip())
    if head.startswith(('return', 'if', 'for')):
        return False
    first = re.match(r'[\w:<>]+(?: const)?[&*]? \w+[,)]', line[opening + 1:])
    return ' ' in head or bool(first)


def _split(rest, bracket):
    """The elements of a list behind its opening bracket, and what stands behind its end."""
    closing = {'(': ')', '<': '>', '{': '}'}[bracket]
    depth = 0
    begin = 0
    elements = []
    for at, char in enumerate(rest):
        if depth == 0 and char == closing:
            elements.append(rest[begin:at])
            return elements, rest[at:]
        if char in '(<{[':
            depth += 1
        elif char in ')}]' or char == '>' and rest[at - 1] != '-':
            depth -= 1
        elif depth == 0 and char == ',':
            elements.append(rest[begin:at + 1])
            begin = at + 2
    return elements + ([rest[begin:]] if begin < len(rest) else []), ''


def _pack(first, elements, tail, column):
    """Lines that begin with `first` and go on at `column`, with as many elements as fit; and whether
    every element is whole."""
    lines = [first]
    isWhole = True
    for index, element in enumerate(elements):
        text = element + (tail if index == len(elements) - 1 else '')
        begins = len(lines[-1]) == column
        if not begins and len(lines[-1]) + 1 + len(text) > LINE_LENGTH:
            lines.append(' ' * column)
            begins = True
        if begins and column + len(text) > LINE_LENGTH:
            # An element that is a list itself is broken as a line of its own.
            parts = _foldParameters(' ' * column + text)
            lines[-1:] = [lines[-1] + parts[0][column:]] + parts[1:]
            isWhole = False
        else:
            lines[-1] += ('' if begins else ' ') + text
    return lines, isWhole


def _fits(lines):
    return all(len(line) <= LINE_LENGTH for line in lines)
