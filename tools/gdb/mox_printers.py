"""How GDB shows the model: pointers as what they point to, strings as text, maps as their members,
entities as a tree of attributes. GDB loads this by itself beside an installed libMox.so; elsewhere:
`source mox_printers.py`. Nothing in the process is called, so core files are shown too.
"""

import re

import gdb
import gdb.printing

HEADER_SIZE = 12  # reference word, length, hash: in front of a string's bytes


def stringText(value):
    data = value['data_']
    if int(data) == 0:
        return ''
    memory = gdb.selected_inferior().read_memory(int(data) + HEADER_SIZE, int(data['length_']))
    return bytes(memory).decode('utf-8', 'replace')


def hasBase(type, name):
    type = type.strip_typedefs()
    if type.code != gdb.TYPE_CODE_STRUCT:
        return False
    return type.name == name or any(hasBase(field.type, name) for field in type.fields()
                                    if field.is_base_class)


def baseOf(value, name):
    """The part of an object that is its base of that name."""
    if value.type.strip_typedefs().name == name:
        return value
    for field in value.type.fields():
        if field.is_base_class and hasBase(field.type, name):
            return baseOf(value[field], name)
    return None


def dynamic(pointer):
    """What a pointer points to, by its dynamic type."""
    if pointer.dynamic_type.code == gdb.TYPE_CODE_PTR:
        return pointer.cast(pointer.dynamic_type).dereference()
    return pointer.dereference()


class StringPrinter:
    def __init__(self, value):
        self._value = value

    def to_string(self):
        return stringText(self._value)

    def display_hint(self):
        return 'string'


class PointerPrinter:
    """Ptr<T> and ValidPtr<T>: the address and the count, and behind it the object."""

    def __init__(self, value):
        self._value = value

    def to_string(self):
        object = self._object()
        if object is None:
            return 'null'
        word = int(dynamic(object)['references_'])
        return '(%s) %#x, %d reference%s' % (object.dynamic_type, int(object), word & 0x1fffffff,
                                              '' if word & 0x1fffffff == 1 else 's')

    def children(self):
        object = self._object()
        if object is not None:
            yield '*', dynamic(object)

    def _object(self):
        value = self._value['object_']
        while value.type.strip_typedefs().code != gdb.TYPE_CODE_PTR:  # ValidPtr holds a Ptr.
            value = value['object_']
        return value if int(value) != 0 else None


class HashMapPrinter:
    """The members in their order, each under its key where the member holds one."""

    def __init__(self, value):
        self._value = value
        self._map = baseOf(value, 'Mox::HashMapGeneric')
        self._member = value.type.strip_typedefs().template_argument(0)

    def to_string(self):
        return '%d member%s' % (int(self._map['size_']), '' if int(self._map['size_']) == 1 else 's')

    def children(self):
        for index, member in enumerate(self._members()):
            value = member.dereference()
            wrapper = self._wrapper(value)
            if wrapper is None:
                yield '[%d]' % index, dynamic(member)
            else:
                yield '[%s]' % self._keyText(wrapper['key_']), wrapper['value_']

    def _members(self):
        if int(self._map['size_']) == 0:
            return
        buckets = self._map['buckets_']
        for bucket in range(1 << int(self._map['bits_'])):
            member = buckets[bucket]
            if int(member) == 0:
                continue
            member = member.cast(self._member.pointer())
            while int(member) != 0:
                yield member
                member = member['next']['object_']

    @staticmethod
    def _wrapper(value):
        for field in value.type.strip_typedefs().fields():
            if field.is_base_class and field.type.name.startswith('Mox::ValueMember<'):
                return value[field]
        return None

    @staticmethod
    def _keyText(key):
        if hasBase(key.type, 'Mox::StringN<unsigned char>'):
            return stringText(baseOf(key, 'Mox::StringN<unsigned char>'))
        for field in key.type.strip_typedefs().fields() if isStruct(key.type) else ():
            if field.is_base_class and field.type.name.startswith('Mox::R'):
                return identifierText(key)
        return str(key)


def isStruct(type):
    return type.strip_typedefs().code == gdb.TYPE_CODE_STRUCT


def identifierText(value):
    """The number of a hardware identifier."""
    while True:
        fields = value.type.strip_typedefs().fields()
        if any(field.name == 'value_' for field in fields):
            return str(int(value['value_']))
        value = value[next(field for field in fields if field.is_base_class)]


class IdentifierPrinter:
    def __init__(self, value):
        self._value = value

    def to_string(self):
        return identifierText(self._value)


class EntityPrinter:
    """An entity: name, counters, and each attribute by its name. Links to other entities that it
    doesn't own through an attribute are left out, so that a tree is shown once."""

    PLUMBING = {'next', 'notifieeList_'}

    def __init__(self, value):
        self._value = value

    def to_string(self):
        entity = baseOf(self._value, 'Mox::Entity')
        return '%s "%s" version %d' % (self._value.type.strip_typedefs().name,
                                       stringText(baseOf(entity['name_'],
                                                         'Mox::StringN<unsigned char>')),
                                       int(entity['version_']))

    def children(self):
        return self._attributes(self._value)

    def _attributes(self, value):
        if value.type.strip_typedefs().name == 'Mox::Entity':
            return
        for field in value.type.strip_typedefs().fields():
            if field.is_base_class:
                yield from self._attributes(value[field])
            elif hasattr(field, 'bitpos') and field.name and field.name not in self.PLUMBING \
                    and not field.name.startswith('_vptr'):
                yield field.name.rstrip('_'), value[field]


def lookup(value):
    type = value.type.strip_typedefs()
    if type.code != gdb.TYPE_CODE_STRUCT or not type.name:
        return None
    if hasBase(type, 'Mox::StringN<unsigned char>'):
        return StringPrinter(baseOf(value, 'Mox::StringN<unsigned char>'))
    if re.match(r'Mox::(Valid)?Ptr<', type.name):
        return PointerPrinter(value)
    if type.name.startswith('Mox::HashMap<'):
        return HashMapPrinter(value)
    if hasBase(type, 'Mox::Entity') and type.name != 'Mox::Entity':
        return EntityPrinter(value)
    if any(field.is_base_class and re.match(r'Mox::(RangedId|LimitedId|RangedNumber)<',
                                            field.type.name or '') for field in type.fields()):
        return IdentifierPrinter(value)
    return None


lookup.__name__ = 'mox'
gdb.printing.register_pretty_printer(gdb.current_objfile(), lookup, replace=True)
