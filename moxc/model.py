"""The checked model of a schema: what templates, tests and documents read.

This is the one place where attribute ids, dirty bits, slot orders, constructor arguments and flag
words are computed. loader.load() gives the `Module` of a schema file; checker.py builds it. Every
field is described here, beside its name. Types are compared by identity.
"""

# ---------------------------------------------------------------------------------------------
# Constants of the contract

INTERFACE_ID = 0x9a          # moxHasAttrLogInterface, in every entity type
FWK_KEY_ID = 0               # fwkKey, in every entity type with a key
FIRST_BLOCK = 0x100          # id block of a type directly below Mox::Entity
BLOCK_SIZE = 0x100           # each level of inheritance takes the next block
FIRST_ID_IN_BLOCK = 2        # the ids 0 and 1 of a block are left out
MAX_ATTRIBUTE_ID = 0x7fffffff
DIRTY_WORD_BITS = 32


class Flags:
    """The flag words of an attribute kind."""

    def __init__(self, word0, word1, introspection):
        self.word0 = word0                  # Mox::MoxAttr::AttrFlags, first word
        self.word1 = word1                  # Mox::MoxAttr::AttrFlags, second word
        self.introspection = introspection  # Mox::MoxAttr::MoxAttrIntrospectionFlags


# By the name of the kind in the attribute table.
KIND_FLAGS = {
    'enumerator': Flags(0x00020001, 0x40200400, 0x0),
    'interface': Flags(0x00022001, 0x00000400, 0x8),
    'handler': Flags(0x00020001, 0x00000400, 0x8),
    'key': Flags(0x00200001, 0x00000400, 0x0),
    'constructor value': Flags(0x00220109, 0x40000400, 0x2),
    'constructor reference': Flags(0x08220109, 0x40000400, 0x2),
    'value': Flags(0x00220143, 0x01000400, 0x2),
    'reference': Flags(0x08220143, 0x01000400, 0x2),
    'child': Flags(0x08220143, 0x11000400, 0x2),
    'value collection': Flags(0x01a20143, 0x01000400, 0x2),
    'child collection': Flags(0x09a20143, 0x11000400, 0x22),
}

# The kinds of `Attr.kind`, and the name of each in the attribute table.
ATTRIBUTE_KINDS = {
    'key': 'constructor value',
    'param': 'constructor value',
    'paramRef': 'constructor reference',
    'value': 'value',
    'ref': 'reference',
    'child': 'child',
    'valueCollection': 'value collection',
    'childCollection': 'child collection',
    'handler': 'handler',
}
MUTABLE_KINDS = ('value', 'ref', 'child', 'valueCollection', 'childCollection')
COLLECTION_KINDS = ('valueCollection', 'childCollection')
INSTANTIATING_KINDS = ('child', 'childCollection')
CONSTRUCTOR_KINDS = ('key', 'param', 'paramRef')


# ---------------------------------------------------------------------------------------------
# Types

class Type:
    """What all types of a schema have in common."""

    kind = ''                    # 'builtin', 'enum', 'identifier', 'value' or 'entity'

    def __init__(self, name, namespace, doc=(), module=None, position=None):
        self.name = name                     # short name: 'Xlge', 'U16'
        self.namespace = namespace           # 'Inventory::Arad'; '' for builtins
        self.segments = namespace.split('::') if namespace else []   # ['Inventory', 'Arad']
        self.qualified = namespace + '::' + name if namespace else name
        self.cpp = self.qualified            # C++ name: 'Inventory::Arad::Xlge', 'unsigned short'
        self.doc = list(doc)                 # lines of the doc comment
        self.module = module                 # Module that declares it; None for builtins
        self.position = position             # where its name stands
        self.stem = name                     # for file names; unique in its module

    @property
    def isBuiltin(self):
        return self.kind == 'builtin'

    @property
    def isEnum(self):
        return self.kind == 'enum'

    @property
    def isIdentifier(self):
        return self.kind == 'identifier'

    @property
    def isValue(self):
        """A hand-written value type."""
        return self.kind == 'value'

    @property
    def isEntity(self):
        return self.kind == 'entity'

    @property
    def isText(self):
        """String8 or Name."""
        return self.isBuiltin and self.name in ('String8', 'Name')

    @property
    def isInteger(self):
        return self.isBuiltin and self.name in INTEGER_RANGES

    @property
    def paramCpp(self):
        """C++ type of a function parameter: scalars, texts by value; value types by reference."""
        if self.isEntity:
            return 'Mox::Ptr<%s> const&' % self.cpp
        return self.cpp + ' const&' if self.isValue else self.cpp

    @property
    def storedCpp(self):
        """C++ type of a field or a result; a strong pointer for an entity."""
        return 'Mox::Ptr<%s>' % self.cpp if self.isEntity else self.cpp

    @property
    def defaultText(self):
        """C++ expression of the value that an attribute of this type has without a default."""
        raise NotImplementedError

    @property
    def defaultShown(self):
        """The same as the schema would write it; '' where only a hand-written class knows it."""
        return ''

    @property
    def wireBase(self):
        """Name of the builtin that stands on the stream for a value: 'bool', 'U8', 'U16', 'U32',
        'U64', 'int', 'double', 'String8', 'Name'; 'U64' for an entity; '' for a value type, which
        has a form of its own."""
        raise NotImplementedError

    @property
    def fixedLength(self):
        """Bytes of the payload of a scalar update with a fixed length, else None: bool and the
        unsigned integers of up to 32 bits, themselves and not as the field of an identifier."""
        isFixed = self.isBuiltin and self.name in ('bool', 'U8', 'U16', 'U32')
        return WIRE_LENGTHS[self.name] if isFixed else None

    def textIn(self, namespace):
        """The name as a schema in `namespace` writes it: short for a type of that namespace."""
        return self.name if self.namespace == namespace else self.qualified


WIRE_LENGTHS = {'bool': 1, 'U8': 1, 'U16': 2, 'U32': 4, 'U64': 8, 'int': 4, 'double': 8}

INTEGER_RANGES = {
    'U8': (0, 0xff),
    'U16': (0, 0xffff),
    'U32': (0, 0xffffffff),
    'U64': (0, 0xffffffffffffffff),
    'int': (-0x80000000, 0x7fffffff),
}


class Builtin(Type):
    """A type of the language itself."""

    kind = 'builtin'

    def __init__(self, name, cpp, defaultText):
        super().__init__(name, '')
        self.cpp = cpp
        self._defaultText = defaultText

    @property
    def defaultText(self):
        return self._defaultText

    @property
    def defaultShown(self):
        return '""' if self.isText else self._defaultText

    @property
    def wireBase(self):
        return self.name


BUILTINS = {builtin.name: builtin for builtin in (
    Builtin('bool', 'bool', 'false'),
    Builtin('U8', 'unsigned char', '0'),
    Builtin('U16', 'unsigned short', '0'),
    Builtin('U32', 'unsigned int', '0'),
    Builtin('U64', 'unsigned long long', '0'),
    Builtin('int', 'int', '0'),
    Builtin('double', 'double', '0.0'),
    Builtin('String8', 'Mox::String8', 'Mox::String8()'),
    Builtin('Name', 'Mox::Name', 'Mox::Name()'),
)}
VOID_POINTER = Builtin('void*', 'void*', 'nullptr')   # value type of a handler; not for schemas


class Enumerator:
    def __init__(self, name, value, doc, enum, position):
        self.name = name             # 'warpCore'
        self.value = value           # 0 to 0x7fffffff
        self.doc = list(doc)
        self.cpp = enum.cpp + '::' + name     # right for scoped and unscoped enumerations
        self.position = position
        self.flags = KIND_FLAGS['enumerator']


class Enum(Type):
    kind = 'enum'

    def __init__(self, *args):
        super().__init__(*args)
        self.enumerators = []        # Enumerators in declaration order

    @property
    def enumeratorsByValue(self):
        """The enumerators in the order of their values."""
        return sorted(self.enumerators, key=lambda enumerator: enumerator.value)

    @property
    def defaultText(self):
        for enumerator in self.enumerators:
            if enumerator.value == 0:
                return enumerator.cpp
        return 'static_cast<%s>(0)' % self.cpp

    @property
    def defaultShown(self):
        return next((one.name for one in self.enumerators if one.value == 0), '0')

    @property
    def wireBase(self):
        return 'int'


class Identifier(Type):
    """A number class with a tested range."""

    kind = 'identifier'

    def __init__(self, *args):
        super().__init__(*args)
        self.base = BUILTINS['U32']  # Builtin of the field: U8, U16, U32 or U64
        self.min = 0                 # least accepted number
        self.max = 0                 # largest accepted number; `null` if there is one
        self.null = None             # the number that means "no such object", or None
        self.maxText = ''            # the largest number as the schema spells it
        self.message = ''            # text of the range exception

    @property
    def defaultText(self):
        if self.null is None and self.min > 0:
            return '%s(%d)' % (self.cpp, self.min)
        return self.cpp + '()'

    @property
    def defaultShown(self):
        return 'null' if self.null is not None else str(self.min)

    @property
    def wireBase(self):
        return self.base.name


class Value(Type):
    """A hand-written value type that the schema only names."""

    kind = 'value'

    def __init__(self, *args):
        super().__init__(*args)
        self.header = ''             # header that defines it: 'InvSiblings/Units.h'
        self._defaultText = self.cpp + '()'
        self._defaultShown = ''

    def defaultIs(self, text, shown):
        """`text`: a C++ expression; `shown`: the same as the schema writes it."""
        self._defaultText = text
        self._defaultShown = shown

    @property
    def defaultText(self):
        return self._defaultText

    @property
    def defaultShown(self):
        return self._defaultShown

    @property
    def wireBase(self):
        return ''


class Arg:
    """One constructor argument of an entity."""

    def __init__(self, name, type, attr, namespace):
        self.name = name                     # 'swapPolarityTx'; 'name' for the entity's name
        self.type = type                     # its Type
        self.attr = attr                     # the key or param attribute; None for the name
        self.isRef = type.isEntity           # a constructor reference
        self.isName = attr is None           # the entity's name
        self.typeText = type.textIn(namespace)   # as the schema writes the type
        self.paramCpp = type.paramCpp        # C++ type of the parameter
        self.storedCpp = type.storedCpp


class Init:
    """`init x = v`: the constructor's last act, a call of the setter of `attr`."""

    def __init__(self, attr, expression):
        self.attr = attr                     # own or inherited mutable scalar
        self.expression = expression         # C++ expression of the value


class Handler:
    """One virtual handler of NotifieeConst, in slot order."""

    def __init__(self, attr, name, form):
        self.attr = attr
        self.name = name                     # 'onSerdes', 'onSerdesmoxImmediate'
        self.form = form                     # 'plain' (scalar, reference, singleton), or of a
                                             # collection: 'key', 'immediate', 'whole'
        self.keyType = attr.keyType if form == 'key' else None


class Descriptor:
    """One row of the attribute table of an entity, in the registry's order: the interface
    attribute first, the own attributes, `fwkKey` last."""

    def __init__(self, name, id, kindText, type, typeText, attr=None):
        self.name = name
        self.id = id
        self.kindText = kindText             # kind as in the table: 'constructor value', ...
        self.flags = KIND_FLAGS[kindText]
        self.type = type                     # value type, or the member type
        self.typeText = typeText             # as the schema writes it
        self.attr = attr                     # Attr; None for interface and fwkKey
        self.keyType = attr.keyType if attr else None
        self.keyTypeText = attr.keyTypeText if attr else ''
        self.memberKey = attr.memberKey if attr else ''        # name of the member's key attribute
        self.memberArgs = attr.memberArgs if attr else []      # Args


class Attr:
    """An attribute of an entity."""

    def __init__(self, name, kind, entity, doc, position):
        self.name = name                     # 'serdesUsed'
        self.capName = name[0].upper() + name[1:]              # 'SerdesUsed'
        self.kind = kind                     # key of ATTRIBUTE_KINDS
        self.kindText = ATTRIBUTE_KINDS[kind]    # kind as in the attribute table
        self.flags = KIND_FLAGS[self.kindText]
        self.entity = entity                 # Entity that declares it
        self.doc = list(doc)
        self.position = position
        self.index = None                    # place among the own attributes of the entity
        self.type = None                     # value type; member type of a child (collection);
                                             # void* of a handler
        self.typeText = ''                   # the type as the schema writes it
        self.keyType = None                  # collections: type of the key, else None
        self.keyTypeText = ''
        self.keyAttr = None                  # child collections: the member's key Attr; None if
                                             # the member's `name` is the key, and elsewhere
        self.keyIsName = False               # child collections: the member's `name` is the key
        self.memberKey = ''                  # child collections: 'id', 'name'; else ''
        self.memberArgs = []                 # child, childCollection: Args to make a member; in a
                                             # collection the key is among them
        self.memberParams = []               # childCollection: memberArgs without the key; these
                                             # are compared at reinstantiation
        self.namesMemberByKey = False        # the member's constructor takes a Name first that is
                                             # no argument here: valueToStrep(key)
        self.wrapped = False                 # childCollection held through the wrapper MoxX
        self.isConstTarget = False           # ref: the target is held as const
        self.reacts = None                   # handler Attr called between store and notification
        self.default = None                  # C++ expression of the first value; the bare name of
                                             # an earlier key or param if defaultFrom is set; None
                                             # for kinds that have none
        self.defaultFrom = None              # that key or param Attr, else None
        self.defaultShown = ''               # value: the first value as the schema would write it

    @property
    def id(self):
        """The attribute id; a deletion's id is its negative."""
        return self.entity.block + FIRST_ID_IN_BLOCK + self.index

    @property
    def dirtyBit(self):
        """Bit in the type's dirty word; None if never changed."""
        if not self.isMutable:
            return None
        earlier = self.entity.attrs[:self.index]
        return self.entity.firstDirtyBit + sum(attr.isMutable for attr in earlier)

    @property
    def dirtyMask(self):
        return 1 << self.dirtyBit if self.isMutable else 0

    @property
    def family(self):
        """Of a value: 'pieces' (String8, sent in pieces) or 'plain'; of a collection of values:
        'stringKeyed' (String8 to String8, the value in pieces) or 'byIdKey'; else ''."""
        string = BUILTINS['String8']
        if self.kind == 'value':
            return 'pieces' if self.type is string else 'plain'
        if self.kind == 'valueCollection':
            return 'stringKeyed' if self.type is string and self.keyType is string else 'byIdKey'
        return ''

    @property
    def wrapperName(self):
        """Class of the members: 'MoxSerdes' of a collection of values or a wrapped one, else ''."""
        isWrapper = self.kind == 'valueCollection' or self.wrapped
        return 'Mox' + self.capName if isWrapper else ''

    @property
    def isMutable(self):
        """Can change after construction; has a dirty bit and handlers."""
        return self.kind in MUTABLE_KINDS

    @property
    def isCollection(self):
        return self.kind in COLLECTION_KINDS

    @property
    def isInstantiating(self):
        return self.kind in INSTANTIATING_KINDS

    @property
    def isConstructorArg(self):
        return self.kind in CONSTRUCTOR_KINDS

    @property
    def isScalar(self):
        """A key, a param or a value: one value in the entity."""
        return self.kind in ('key', 'param', 'value')

    @property
    def isReference(self):
        """Points to an entity owned elsewhere."""
        return self.kind in ('ref', 'paramRef')

    @property
    def targetCpp(self):
        """C++ type that a pointer of this attribute points to: 'T', or 'T const'."""
        return self.type.cpp + (' const' if self.isConstTarget else '')

    @property
    def storedCpp(self):
        """C++ type of one stored value: of the scalar, of the pointer, of a collection's value."""
        return 'Mox::Ptr<%s>' % self.targetCpp if self.type.isEntity else self.type.cpp

    @property
    def paramCpp(self):
        """C++ type of the value as a parameter of setters and constructors."""
        if self.type.isEntity:
            return 'Mox::Ptr<%s> const&' % self.targetCpp
        return self.type.cpp if self.kind == 'value' else self.type.paramCpp

    @property
    def initialiser(self):
        """C++ initialiser of a value's field; '' where the default constructor does it, or the
        entity's."""
        if self.kind != 'value' or self.defaultFrom or self.default == self.type.cpp + '()':
            return ''
        isPlain = self.type.isEnum or self.type.isBuiltin
        return '{}' if isPlain and self.default == self.type.defaultText else ' = ' + self.default

    @property
    def kindEnumerator(self):
        """The enumerator of Mox::AttributeKind: kindText in one word."""
        first, *rest = self.kindText.split()
        return first + ''.join(word.capitalize() for word in rest)

    @property
    def wireForm(self):
        """How the log sends the attribute: an enumerator of Mox::WireForm."""
        if self.kind == 'value':
            return self.family
        if self.kind == 'valueCollection':
            return 'valuesByString' if self.family == 'stringKeyed' else 'valuesById'
        return {'ref': 'reference', 'child': 'singleton', 'childCollection': 'entities'}.get(
            self.kind, 'none')

    @property
    def fixedLength(self):
        """Bytes of an update whose length isn't announced, else 0."""
        return self.type.fixedLength or 0 if self.wireForm == 'plain' else 0

    @property
    def keyLength(self):
        """Bytes of a collection's key in a message; 'variable' for a text, 0 without a key."""
        return WIRE_LENGTHS.get(self.keyType.wireBase, 'variable') if self.keyType else 0

    @property
    def argument(self):
        """Place among the keys and parameters of the constructor; None for other attributes."""
        arguments = [attr for attr in self.entity.allAttrs if attr.isConstructorArg]
        return arguments.index(self) if self in arguments else None

    @property
    def handlers(self):
        """Handlers in slot order."""
        on = 'on' + self.capName
        if self.isCollection:
            return [Handler(self, on, 'key'), Handler(self, on + 'moxImmediate', 'immediate'),
                    Handler(self, on, 'whole')]
        return [Handler(self, on, 'plain')] if self.isMutable else []


class Entity(Type):
    kind = 'entity'

    def __init__(self, *args):
        super().__init__(*args)
        self.base = None             # Entity, or None directly below Mox::Entity
        self.isBase = False          # others may derive; its setters are virtual
        self.isRoot = False          # root of a tree: made by name in a directory, has no key
        self.isUnlinked = False      # no `next`; collections hold it through a wrapper
        self.isNamed = False         # constructor takes a Name first that is an argument on the
                                     # stream and in the registry; own or inherited
        self.namedBy = None          # `named by`: the key Attr whose text is the name; the C++
                                     # constructor takes a Name first, stream and registry don't
        self.ownBlock = None         # `block`: the id block that the schema asks for
        self.attrs = []              # own Attrs in declaration order
        self.key = None              # key Attr, own or inherited, or None
        self.inits = []              # own Inits
        self.damaged = False         # could not be read whole; only while checking

    @property
    def capName(self):
        return self.name

    @property
    def defaultText(self):
        return 'nullptr'

    @property
    def wireBase(self):
        return 'U64'

    def addAttr(self, attr):
        """Appends an own attribute, which gets the next id."""
        attr.index = len(self.attrs)
        self.attrs.append(attr)

    @property
    def level(self):
        """0 directly below Mox::Entity; the N of MoxDirtyBitSetN."""
        return len(self.bases)

    @property
    def block(self):
        """The id block; its first attribute has the id block + 2."""
        if self.ownBlock is not None:
            return self.ownBlock
        return (self.base.block & ~0xff) + BLOCK_SIZE if self.base else FIRST_BLOCK

    @property
    def blocks(self):
        """The blocks that the schema may ask for: behind the ids of the base."""
        first = FIRST_BLOCK
        if self.base:
            first = max([attr.id for attr in self.base.attrs] + [self.base.block]) + 1
        return range(first, MAX_ATTRIBUTE_ID - BLOCK_SIZE + 1)

    @property
    def capacity(self):
        """How many attributes the block holds."""
        return (self.block | 0xff) + 1 - self.block - FIRST_ID_IN_BLOCK

    @property
    def firstDirtyBit(self):
        """Bits of a type without base are counted from 1."""
        return 0 if self.base else 1

    def _args(self, isName):
        attrs = [attr for attr in self.allAttrs if attr.isConstructorArg and attr.type]
        name = [Arg('name', BUILTINS['Name'], None, self.namespace)] if isName else []
        return name + [Arg(attr.name, attr.type, attr, self.namespace) for attr in attrs]

    @property
    def constructorArgs(self):
        """Args on the stream and in the registry, in order."""
        return self._args(self.isNamed)

    @property
    def cppParams(self):
        """Args of the C++ constructor, in order."""
        return self._args(self.takesName)

    @property
    def bases(self):
        """Base entities, nearest first, without Mox::Entity."""
        bases = []
        base = self.base
        while base is not None:
            bases.append(base)
            base = base.base
        return bases

    @property
    def baseCpp(self):
        return self.base.cpp if self.base else 'Mox::Entity'

    @property
    def baseQualified(self):
        """Name of the parent type in the registry."""
        return self.base.qualified if self.base else 'Mox::Entity'

    @property
    def baseArgs(self):
        """The cppParams to pass to the base's constructor; [the name] or [] for Mox::Entity."""
        if self.base:
            return self.base.cppParams
        return [arg for arg in self.cppParams if arg.isName]

    @property
    def takesName(self):
        """The C++ constructor's first parameter is a Name."""
        return self.isNamed or self.namedBy is not None

    @property
    def keyIsName(self):
        """`name` is the key: named, and no key attribute."""
        return self.isNamed and self.key is None

    @property
    def keyType(self):
        """Type of the key; None for root and base types without one."""
        if self.key:
            return self.key.type
        return BUILTINS['Name'] if self.isNamed and not self.isRoot and not self.isBase else None

    @property
    def hasNext(self):
        """Carries the link `next` of a collection's chain."""
        return not (self.isRoot or self.isBase or self.isUnlinked)

    @property
    def ownsList(self):
        """Holds the notifiee list; a derived type uses that of its level-0 base."""
        return self.base is None

    @property
    def listOwner(self):
        """The Entity of the chain that holds the notifiee list."""
        return self.bases[-1] if self.base else self

    @property
    def allAttrs(self):
        """Inherited attributes, farthest base first, then the own ones."""
        return [attr for entity in reversed(self.bases) for attr in entity.attrs] + self.attrs

    @property
    def mutableAttrs(self):
        """Own attributes that can change after construction."""
        return [attr for attr in self.attrs if attr.isMutable]

    @property
    def allMutableAttrs(self):
        return [attr for attr in self.allAttrs if attr.isMutable]

    @property
    def collections(self):
        """Own collections of both kinds."""
        return [attr for attr in self.attrs if attr.isCollection]

    @property
    def allCollections(self):
        return [attr for attr in self.allAttrs if attr.isCollection]

    @property
    def children(self):
        """Own instantiating attributes, in the order in which the destructor deletes them."""
        return [attr for attr in self.attrs if attr.isInstantiating]

    @property
    def allChildren(self):
        return [attr for attr in self.allAttrs if attr.isInstantiating]

    @property
    def handlers(self):
        """Own Handlers in slot order."""
        return [handler for attr in self.attrs for handler in attr.handlers]

    @property
    def allHandlers(self):
        return [handler for attr in self.allAttrs for handler in attr.handlers]

    @property
    def dirtyMask(self):
        """All own dirty bits."""
        return sum(attr.dirtyMask for attr in self.attrs)

    @property
    def descriptors(self):
        """The rows of the attribute table, as the registry defines them."""
        bool_ = BUILTINS['bool']
        rows = [Descriptor('moxHasAttrLogInterface', INTERFACE_ID, 'interface', bool_, 'bool')]
        rows += [Descriptor(attr.name, attr.id, attr.kindText, attr.type, attr.typeText, attr)
                 for attr in self.attrs]
        if self.keyType is not None and not self.isBase:
            rows.append(Descriptor('fwkKey', FWK_KEY_ID, 'key', self.keyType,
                                   self.keyType.textIn(self.namespace)))
        return rows

    def pointerIndex(self, attr):
        """Place of an own attribute's pointer: behind the message channel's, in the table's order."""
        return 1 + [row.attr for row in self.descriptors].index(attr)

    @property
    def usedTypes(self):
        """Types that the class declaration needs complete, without builtins and doubles: the base,
        the types of values, keys, parameters; in order of use."""
        used = [self.base] if self.base else []
        for attr in self.attrs:
            used += [attr.type, attr.keyType]
            used += [arg.type for arg in attr.memberArgs]
        return _distinct(type for type in used if type is not None and not type.isBuiltin
                         and (not type.isEntity or type is self.base))

    @property
    def memberEntities(self):
        """Entities owned by own attributes: their classes are needed to make and drop members."""
        return _distinct(attr.type for attr in self.children)

    @property
    def pointedEntities(self):
        """All entities that own attributes point to, owned or not, without the type itself and its
        bases; a forward declaration is enough to declare the class."""
        pointed = []
        for attr in self.attrs:
            pointed += [attr.type] + [arg.type for arg in attr.memberArgs]
        return _distinct(type for type in pointed
                         if type.isEntity and type is not self and type not in self.bases)


class NamespaceRun:
    """A run of types of one namespace in declaration order."""

    def __init__(self, namespace):
        self.namespace = namespace           # 'Inventory::Arad'
        self.segments = namespace.split('::') if namespace else []
        self.types = []


class TypeNames:
    """The section with a module's type names: entity types, then from a fresh boundary the
    enumerations, each run with the latest first, every name ended by a zero byte."""

    ALIGNMENT = 32

    class Row:
        def __init__(self, text, offset):
            self.text = text
            self.offset = offset
            self.zeros = 1               # bytes behind the text

    def __init__(self, runs):
        self.rows = []                   # Rows in order
        self.size = 0                    # bytes
        for types in runs:
            if self.rows and types:
                padding = -self.size % self.ALIGNMENT
                self.rows[-1].zeros += padding
                self.size += padding
            for type in reversed(types):
                self.rows.append(self.Row(type.qualified, self.size))
                self.size += len(type.qualified) + 1

    def offset(self, type):
        return next(row.offset for row in self.rows if row.text == type.qualified)


class Module:
    """A checked schema file."""

    def __init__(self, name, path):
        self.name = name             # 'InvArad'
        self.path = path             # the schema file
        self.imports = []            # Modules, in order
        self.types = []              # all declared Types in declaration order
        self.publicHeaders = []      # hand-written ones that its own header includes

    def _kind(self, kind):
        return [type for type in self.types if type.kind == kind]

    @property
    def fileName(self):
        return self.path.replace('\\', '/').rsplit('/', 1)[-1]

    @property
    def enums(self):
        return self._kind('enum')

    @property
    def identifiers(self):
        return self._kind('identifier')

    @property
    def values(self):
        return self._kind('value')

    @property
    def entities(self):
        return self._kind('entity')

    @property
    def registeredTypes(self):
        """Enumerations and entity types in declaration order: the types of the registry."""
        return [type for type in self.types if type.kind in ('enum', 'entity')]

    @property
    def valueTypes(self):
        """Types of values, each with a run-time type of its own."""
        return [type for type in self.types if type.kind != 'entity']

    @property
    def valueFlags(self):
        """Flag words of an enumeration's attribute `value`."""
        return KIND_FLAGS['value']

    @property
    def typeNames(self):
        return TypeNames([self.entities, self.enums])

    @property
    def namespaces(self):
        """The distinct namespaces in order of first use."""
        return _distinct(type.namespace for type in self.types if not type.isValue)

    @property
    def namespaceRuns(self):
        """registeredTypes, cut where the namespace changes."""
        return _runs(self.registeredTypes)

    @property
    def foreignBases(self):
        """Base entities of other modules that entities of this one derive from directly."""
        return _distinct(entity.base for entity in self.entities
                         if entity.base and entity.base.module is not self)

    @property
    def usedEntities(self):
        """Entities of other modules that attributes of this one point to, in order of use."""
        return _distinct(type for entity in self.entities for type in entity.pointedEntities
                         if type.module is not self)

    @property
    def allImports(self):
        """All modules that this one stands on, deepest first, each once."""
        found = []
        for module in self.imports:
            found += module.allImports + [module]
        return _distinct(found)

    @property
    def schemaLines(self):
        """The model as lines of text without documentation: what two ends must agree on."""
        lines = ['module ' + self.name]
        for type in self.types:
            lines += _typeLines(type)
        return lines

    @property
    def schemaHash(self):
        """64-bit FNV-1a over the schemaLines, those of imports first: 16 hexadecimal digits."""
        lines = [line for module in self.allImports + [self] for line in module.schemaLines]
        return '%016x' % _fnv1a64('\n'.join(lines).encode())


def _fnv1a64(data):
    hash = 0xcbf29ce484222325
    for byte in data:
        hash = (hash ^ byte) * 0x100000001b3 & 0xffffffffffffffff
    return hash


def _distinct(items):
    return list(dict.fromkeys(items))


def _runs(types):
    runs = []
    for type in types:
        if not runs or runs[-1].namespace != type.namespace:
            runs.append(NamespaceRun(type.namespace))
        runs[-1].types.append(type)
    return runs


def _typeLines(type):
    if type.isEnum:
        return ['enum ' + type.qualified] + ['  %d %s' % (e.value, e.name) for e in
                                             type.enumeratorsByValue]
    if type.isIdentifier:
        return ['identifier %s %s %d %d %s' % (type.qualified, type.base.name, type.min, type.max,
                                               type.null)]
    if type.isValue:
        return ['value ' + type.qualified]
    lines = ['entity %s : %s (%s)' % (
        type.qualified, type.baseQualified,
        ', '.join('%s %s' % (arg.name, arg.type.qualified) for arg in type.constructorArgs))]
    for row in type.descriptors:
        line = '  %d %s %s %s' % (row.id, row.name, row.kindText, row.type.qualified)
        if row.keyType:
            line += ' [%s]' % row.keyType.qualified
        if row.memberKey:
            line += ' by ' + row.memberKey
        lines.append(line)
    return lines
