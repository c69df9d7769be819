"""Compares two versions of a schema: which edits leave processes built from the one and the other able
to keep common trees in step. Called by moxc.py --compare; the verdicts are explained in
docs/upgrades.md.

What counts is the stream: ids of attributes, forms of values, constructor arguments, names of root
types. Names of attributes are not on it.
"""

SAFE = 'safe'
UNSAFE = 'unsafe'


class Edit:
    """One difference: its verdict, and what it is."""

    def __init__(self, verdict, text):
        self.verdict = verdict
        self.text = text

    def __str__(self):
        return '%s: %s' % (self.verdict, self.text)


def compare(old, new):
    """The Edits that lead from one Module to the other, imported modules included."""
    edits = []
    oldTypes, newTypes = _types(old), _types(new)
    for name, type in oldTypes.items():
        if name not in newTypes:
            # A peer that still shows such a tree is told that it is refused; nothing else names types.
            edits.append(Edit(SAFE, '%s %s is gone' % (type.kind, name)))
        elif newTypes[name].kind != type.kind:
            edits.append(Edit(UNSAFE, '%s is %s, was %s' % (name, _a(newTypes[name].kind),
                                                            _a(type.kind))))
        else:
            edits += _COMPARE[type.kind](type, newTypes[name])
    for name, type in newTypes.items():
        if name not in oldTypes:
            edits.append(Edit(SAFE, '%s %s is new' % (type.kind, name)))
    return edits


def _types(module):
    return {type.qualified: type for part in module.allImports + [module] for type in part.types}


def _a(kind):
    return ('an ' if kind[0] in 'aeiou' else 'a ') + kind


def _enums(old, new):
    """Numbers are on the stream, and unknown ones are kept."""
    before = {e.value: e.name for e in old.enumerators}
    after = {e.value: e.name for e in new.enumerators}
    for name in before.values():
        moved = [value for value, other in after.items() if other == name]
        value = next(value for value, other in before.items() if other == name)
        if moved and moved[0] != value:
            yield Edit(UNSAFE, '%s::%s is %d, was %d' % (old.qualified, name, moved[0], value))
        elif not moved and value in after and after[value] not in before.values():
            yield Edit(SAFE, '%s::%s is now called %s' % (old.qualified, name, after[value]))
        elif not moved:
            yield Edit(SAFE if value not in after else UNSAFE,
                       '%s::%s (%d) is gone' % (old.qualified, name, value))
    for value, name in after.items():
        if name not in before.values() and value not in before:
            yield Edit(SAFE, '%s::%s (%d) is new' % (old.qualified, name, value))


def _identifiers(old, new):
    """A number that the other end doesn't accept ends the connection."""
    if old.base is not new.base:
        yield Edit(UNSAFE, '%s is stored as %s, was %s' % (old.qualified, new.base.name,
                                                           old.base.name))
    elif (old.min, old.max) != (new.min, new.max):
        yield Edit(UNSAFE, '%s accepts %d to %d, was %d to %d' % (old.qualified, new.min, new.max,
                                                                  old.min, old.max))
    elif old.null != new.null:
        yield Edit(UNSAFE, 'the null of %s is %s, was %s' % (old.qualified, new.null, old.null))


def _values(old, new):
    """Hand-written: what its bytes are is not in the schema."""
    if old.header != new.header:
        yield Edit(UNSAFE, 'value %s comes from %s, was %s' % (old.qualified, new.header, old.header))


def _entities(old, new):
    if old.baseQualified != new.baseQualified:
        yield Edit(UNSAFE, '%s derives from %s, was %s' % (old.qualified, new.baseQualified,
                                                           old.baseQualified))
    if _arguments(old.constructorArgs) != _arguments(new.constructorArgs):
        yield Edit(UNSAFE, '%s is made of (%s), was (%s)' % (
            old.qualified, _arguments(new.constructorArgs), _arguments(old.constructorArgs)))
    before = {attr.id: attr for attr in old.attrs}
    after = {attr.id: attr for attr in new.attrs}
    oldIds = {attr.name: attr.id for attr in old.attrs}
    newIds = {attr.name: attr.id for attr in new.attrs}
    for id, attr in before.items():
        place = '%s.%s' % (old.qualified, attr.name)
        if newIds.get(attr.name, id) != id:
            yield Edit(UNSAFE, '%s has id %#x, was %#x' % (place, newIds[attr.name], id))
        elif id not in after:
            yield Edit(SAFE, '%s (%#x) is gone' % (place, id))
        else:
            yield from _attribute(place, attr, after[id], after[id].name not in oldIds)
    for id, attr in after.items():
        if id not in before and attr.name not in oldIds:
            yield Edit(SAFE, '%s.%s (%#x) is new' % (old.qualified, attr.name, id))


def _attribute(place, old, new, isNewName):
    if _form(old) != _form(new):
        yield Edit(UNSAFE, '%s is %s, was %s' % (place, _form(new), _form(old)))
    elif old.name != new.name and isNewName:
        yield Edit(SAFE, '%s is now called %s' % (place, new.name))


def _form(attr):
    """What an attribute's messages look like."""
    text = attr.kindText
    if attr.type is not None:
        text += ' of ' + attr.type.qualified
    if attr.keyType is not None:
        text += ' by ' + attr.keyType.qualified
    if attr.memberArgs:
        text += ' (%s)' % _arguments(attr.memberArgs)
    return text


def _arguments(args):
    return ', '.join('%s %s' % (arg.name, arg.type.qualified) for arg in args)


_COMPARE = {'enum': _enums, 'identifier': _identifiers, 'value': _values, 'entity': _entities}
