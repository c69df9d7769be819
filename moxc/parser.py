"""Reads the tokens of one schema file into its syntax tree. Called by checker.py.

The tree says what stands in the file and where; whether it makes sense is checker.py's matter.
After an error the parser goes on with the next line, so that one run reports all of them.
"""

from dataclasses import dataclass, field

import lexer
from errors import Position

DECLARATION_KEYWORDS = ('namespace', 'enum', 'identifier', 'value', 'entity', 'base', 'root')
UNDESCRIBED_KEYWORDS = ('import', 'namespace', 'block', 'init', 'min', 'max', 'null')
MEMBER_KEYWORDS = ('key', 'param', 'ref', 'const', 'child', 'notify', 'init', 'block')


@dataclass
class NameNode:
    """A name, plain or qualified with `::`."""

    text: str
    position: Position


@dataclass
class LiteralNode:
    """A default: `kind` is number, string or name; `value` int, float or str."""

    kind: str
    text: str
    value: object
    position: Position


@dataclass
class ImportNode:
    path: str
    position: Position


@dataclass
class EnumeratorNode:
    name: NameNode
    value: int
    valuePosition: Position
    doc: list


@dataclass
class EnumNode:
    name: NameNode
    namespace: str
    doc: list
    enumerators: list = field(default_factory=list)
    damaged: bool = False


@dataclass
class IdentifierNode:
    name: NameNode
    namespace: str
    doc: list
    base: NameNode = None
    limits: dict = field(default_factory=dict)  # 'min', 'max', 'null' -> LiteralNode
    damaged: bool = False


@dataclass
class ValueNode:
    name: NameNode
    doc: list
    header: str
    headerPosition: Position
    default: LiteralNode = None


@dataclass
class AttributeNode:
    """`keyword`: key, param, ref, child, notify or '' for a plain value."""

    keyword: str
    name: NameNode
    doc: list
    isConst: bool = False
    index: NameNode = None      # what stands between [ and ]
    type: NameNode = None
    default: LiteralNode = None
    wrapped: Position = None
    reacts: NameNode = None


@dataclass
class InitNode:
    name: NameNode
    value: LiteralNode


@dataclass
class EntityNode:
    name: NameNode
    namespace: str
    doc: list
    role: str = ''              # 'base', 'root' or ''
    base: NameNode = None
    named: Position = None
    namedBy: NameNode = None
    unlinked: Position = None
    block: LiteralNode = None
    attributes: list = field(default_factory=list)
    inits: list = field(default_factory=list)
    damaged: bool = False       # something in it could not be read


@dataclass
class ModuleNode:
    path: str
    name: NameNode = None
    imports: list = field(default_factory=list)
    declarations: list = field(default_factory=list)
    namespaces: list = field(default_factory=list)  # NameNodes, as they stand
    damaged: bool = False       # a whole declaration could not be read


class _Unreadable(Exception):
    """The place can't be read any further; it has been reported."""


class Parser:
    """Recursive descent without recursion: the language nests two deep."""

    def __init__(self, path, tokens, errors):
        self._path = path
        self._tokens = tokens
        self._errors = errors
        self._at = 0
        self._namespace = ''

    def parse(self):
        module = ModuleNode(self._path)
        self._parseHead(module)
        while self._peek().kind != 'end':
            start = self._at
            try:
                self._parseDeclaration(module)
            except _Unreadable:
                module.damaged = True
                if self._at == start:
                    self._at += 1
                self._skipDeclaration()
        return module

    # -- tokens

    def _peek(self, ahead=0):
        return self._tokens[min(self._at + ahead, len(self._tokens) - 1)]

    def _next(self):
        token = self._peek()
        self._at += token.kind != 'end'
        return token

    def _is(self, text, ahead=0):
        token = self._peek(ahead)
        return token.text == text and token.kind in ('punctuation', 'name')

    def _fail(self, token, expected):
        self._errors.add(token.position, 'found %s, expected %s' % (token.describe(), expected))
        raise _Unreadable

    def _expect(self, text, expected=None):
        if not self._is(text):
            self._fail(self._peek(), expected or "'%s'" % text)
        return self._next()

    def _word(self, text):
        """Takes the contextual keyword `text` if it stands here and doesn't name an attribute."""
        if self._is(text) and not self._is(':', 1) and not self._is('[', 1):
            return self._next()
        return None

    def _name(self, expected):
        if self._peek().kind != 'name':
            self._fail(self._peek(), expected)
        token = self._next()
        return NameNode(token.text, token.position)

    def _qualifiedName(self, expected):
        name = self._name(expected)
        while self._is('::'):
            self._next()
            name.text += '::' + self._name("a name behind '::'").text
        return name

    def _literal(self, expected):
        token = self._peek()
        if token.kind == 'name':
            name = self._qualifiedName(expected)
            return LiteralNode('name', name.text, name.text, name.position)
        sign = 1
        if self._is('-'):
            self._next()
            sign = -1
            if self._peek().kind != 'number':
                self._fail(self._peek(), "a number behind '-'")
        literal = self._peek()
        if literal.kind not in ('number', 'string'):
            self._fail(literal, expected)
        self._next()
        if literal.kind == 'string':
            return LiteralNode('string', literal.text, literal.value, literal.position)
        text = ('-' if sign < 0 else '') + literal.text
        return LiteralNode('number', text, sign * literal.value, token.position)

    def _integer(self, expected):
        literal = self._literal(expected)
        if literal.kind != 'number' or not isinstance(literal.value, int):
            self._errors.add(literal.position, "found '%s', expected %s" % (literal.text, expected))
            raise _Unreadable
        return literal

    def _doc(self):
        """The doc comment that stands here; it must have something to describe."""
        lines = []
        first = self._peek()
        while self._peek().kind == 'doc':
            lines.append(self._next().text)
        if lines and not self._isDescribable():
            self._errors.add(first.position, 'doc comment with nothing to describe, expected a '
                                             'type, an attribute or an enumerator behind it')
        return lines

    def _isDescribable(self):
        token = self._peek()
        isName = self._is(':', 1) or self._is('[', 1) or self._is('=', 1)
        return token.kind == 'name' and (isName or token.text not in UNDESCRIBED_KEYWORDS)

    def _skipDeclaration(self):
        """Goes on behind a declaration that can't be read."""
        depth = 0
        while self._peek().kind != 'end':
            token = self._peek()
            if token.firstOnLine and (token.kind == 'doc' or token.text in DECLARATION_KEYWORDS) \
                    and depth == 0:
                return
            depth += self._is('{')
            depth -= self._is('}') and depth > 0
            self._next()

    def _skipMember(self):
        """Goes on behind a member that can't be read: with the next line or the closing brace."""
        while self._peek().kind != 'end' and not self._is('}') and not self._peek().firstOnLine:
            self._next()

    def _members(self, node, parseOne):
        """Reads `{ member... }`; a member that can't be read marks the node damaged."""
        opening = self._expect('{')
        while not self._is('}'):
            if self._peek().kind == 'end':
                self._errors.add(opening.position, "'{' without its end, expected a closing '}'")
                raise _Unreadable
            if self._looksLikeNextDeclaration():
                self._errors.add(opening.position, "'{' without its end, expected a closing '}' "
                                 'before line %d' % self._peek().position.line)
                node.damaged = True
                return
            start = self._at
            try:
                parseOne()
            except _Unreadable:
                node.damaged = True
                if self._at == start:
                    self._at += 1
                self._skipMember()
        self._next()

    def _looksLikeNextDeclaration(self):
        """True at `entity Name`, `enum Name` and the like in the first column of a line."""
        token = self._peek()
        return (token.firstOnLine and token.position.column == 1
                and token.text in DECLARATION_KEYWORDS and self._peek(1).kind == 'name')

    # -- the head of a file

    def _parseHead(self, module):
        self._doc()
        try:
            self._expect('module', "'module' and the module's name")
            module.name = self._name("the module's name")
        except _Unreadable:
            module.damaged = True
            self._skipMember()
        while self._is('import'):
            self._parseImport(module)

    def _parseImport(self, module):
        keyword = self._next()
        try:
            if self._peek().kind != 'string':
                self._fail(self._peek(), 'the file to import in quotes')
            module.imports.append(ImportNode(self._next().value, keyword.position))
        except _Unreadable:
            module.damaged = True
            self._skipMember()

    # -- declarations

    def _parseDeclaration(self, module):
        doc = self._doc()
        token = self._peek()
        if self._is('namespace'):
            self._next()
            name = self._qualifiedName("the namespace's name")
            self._namespace = name.text
            module.namespaces.append(name)
        elif self._is('enum'):
            self._parseEnum(module, doc)
        elif self._is('identifier'):
            self._parseIdentifier(module, doc)
        elif self._is('value'):
            self._parseValue(module, doc)
        elif token.text in ('entity', 'base', 'root') and token.kind == 'name':
            self._parseEntity(module, doc)
        elif self._is('import'):
            self._errors.add(token.position, 'import behind the first declaration, expected it '
                                             "directly behind the line of 'module'")
            self._parseImport(module)
        elif token.kind == 'end':
            return
        else:
            self._fail(token, "a declaration ('namespace', 'enum', 'identifier', 'value' or "
                              "'entity')")

    def _parseEnum(self, module, doc):
        self._next()
        node = EnumNode(self._name("the enumeration's name"), self._namespace, doc, damaged=True)
        module.declarations.append(node)

        def enumerator():
            doc = self._doc()
            if self._is('}'):
                return
            name = self._name("an enumerator or '}'")
            self._expect('=', "'=' and the enumerator's value")
            value = self._integer("the enumerator's value")
            node.enumerators.append(EnumeratorNode(name, value.value, value.position, doc))

        node.damaged = False
        self._members(node, enumerator)

    def _parseIdentifier(self, module, doc):
        self._next()
        node = IdentifierNode(self._name("the identifier's name"), self._namespace, doc)
        module.declarations.append(node)
        self._expect(':', "':' and the number type of the identifier")
        node.base = self._qualifiedName('the number type of the identifier')

        def limit():
            word = self._name("'min', 'max', 'null' or '}'")
            if word.text not in ('min', 'max', 'null'):
                self._errors.add(word.position, "found '%s', expected 'min', 'max', 'null' or '}'"
                                 % word.text)
                raise _Unreadable
            if word.text in node.limits:
                self._errors.add(word.position, "'%s' is given twice, expected it once" % word.text)
            node.limits.setdefault(word.text, self._integer("the number of '%s'" % word.text))

        self._members(node, limit)

    def _parseValue(self, module, doc):
        self._next()
        name = self._qualifiedName("the value type's C++ name")
        self._expect('from', "'from' and the header that defines the type")
        if self._peek().kind != 'string':
            self._fail(self._peek(), 'the header that defines the type in quotes')
        header = self._next()
        node = ValueNode(name, doc, header.value, header.position)
        if self._is('='):
            self._next()
            node.default = self._literal('a number, or C++ text in quotes')
        module.declarations.append(node)

    def _parseEntity(self, module, doc):
        role = ''
        if not self._is('entity'):
            role = self._next().text
        self._expect('entity')
        node = EntityNode(self._name("the entity type's name"), self._namespace, doc, role,
                          damaged=True)
        module.declarations.append(node)
        if self._is(':'):
            self._next()
            node.base = self._qualifiedName('the base type')
        while not self._is('{'):
            word = self._peek()
            if self._is('named') and node.named is None:
                node.named = self._next().position
                if self._is('by'):
                    self._next()
                    node.namedBy = self._name('the key attribute that names the entity')
            elif self._is('unlinked') and node.unlinked is None:
                node.unlinked = self._next().position
            else:
                self._fail(word, "':' and a base type, 'named', 'unlinked' or '{'"
                           if node.base is None else "'named', 'unlinked' or '{'")
        node.damaged = False
        self._members(node, lambda: self._parseMember(node))

    # -- members of an entity

    def _parseMember(self, entity):
        doc = self._doc()
        token = self._peek()
        if self._is('}'):
            return                                # behind a lonely doc comment
        if token.kind != 'name':
            self._fail(token, "an attribute or '}'")
        if self._is(':', 1) or self._is('[', 1):
            self._parseAttribute(entity, '', doc)
        elif token.text not in MEMBER_KEYWORDS:
            self._next()
            self._fail(self._peek(), "':' and the type of attribute '%s'" % token.text)
        elif token.text == 'block':
            self._next()
            block = self._integer('the number of the id block')
            if entity.block is not None:
                self._errors.add(token.position, "'block' is given twice, expected it once")
            entity.block = block
        elif token.text == 'init':
            self._next()
            name = self._name('the attribute to initialise')
            self._expect('=', "'=' and the attribute's first value")
            entity.inits.append(InitNode(name, self._literal("the attribute's first value")))
        elif token.text == 'notify':
            self._next()
            entity.attributes.append(
                AttributeNode('notify', self._name("the reaction's name"), doc))
        elif token.text == 'const':
            self._next()
            self._expect('ref', "'ref' behind 'const'")
            self._parseAttribute(entity, 'ref', doc, isConst=True)
        else:
            self._next()
            self._parseAttribute(entity, token.text, doc)

    def _parseAttribute(self, entity, keyword, doc, isConst=False):
        node = AttributeNode(keyword, self._name("the attribute's name"), doc, isConst)
        if self._is('['):
            self._next()
            expected = ("the member's key attribute" if keyword == 'child' else 'the key type')
            node.index = self._qualifiedName(expected)
            self._expect(']')
        self._expect(':', "':' and the type of attribute '%s'" % node.name.text)
        if self._is(':', 1) or self._is('[', 1):  # the next attribute stands here
            self._fail(self._peek(), "the type of attribute '%s'" % node.name.text)
        node.type = self._qualifiedName("the type of attribute '%s'" % node.name.text)
        if self._is('='):
            self._next()
            node.default = self._literal("a default: a number, a text, 'true', 'false' or a name")
        while True:
            word = self._word('wrapped') or self._word('reacts')
            if word is None:
                break
            if word.text == 'wrapped':
                node.wrapped = word.position
            else:
                node.reacts = self._name("the reaction's name behind 'reacts'")
        entity.attributes.append(node)


def parse(path, data, errors):
    """The tree of the schema file `path` with the bytes `data`; None if it isn't text."""
    errors.registerFile(path)
    text = lexer.decode(path, data, errors)
    if text is None:
        return None
    return Parser(path, lexer.tokenize(path, text, errors), errors).parse()
