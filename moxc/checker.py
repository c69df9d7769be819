"""Turns a syntax tree into the checked model; every rule of the language is tested here.

Called by loader.py. The stages: declare types, resolve bases, make attributes, resolve keys, members,
defaults, names. A stage reports and goes on; what hangs on something already reported (a `damaged`
entity or module) is not reported again.
"""

import cpp
import model
import names
import parser


def check(tree, imports, loaded, errors):
    """The Module of a syntax tree; None if the tree has errors. `imports`: Modules of its imports;
    `loaded`: all Modules that exist, for messages about missing imports."""
    return _Checker(tree, imports, loaded, errors).check()


class _Checker:
    """Builds the Module of one tree whose imports are complete."""

    def __init__(self, tree, imports, loaded, errors):
        self._tree = tree
        self._errors = errors
        self._module = model.Module(tree.name.text, tree.path)
        self._module.imports = imports
        self._loaded = loaded
        self._types = {}             # qualified name -> Type: own and directly imported
        self._entities = []          # (Entity, EntityNode) in declaration order
        self._nodes = {}             # Attr -> AttributeNode
        self._namespaces = set()     # all namespaces in sight, with those that enclose them

    def check(self):
        """The Module; None if anything was reported."""
        self._checkName(self._tree.name, 'any')
        self._importTypes()
        self._checkNamespaces()
        self._declareTypes()
        self._checkEnumeratorScopes()
        self._checkTypesAgainstNamespaces()
        self._resolveBases()
        ordered = self._basesFirst()
        for entity, node in ordered:
            self._checkHeader(entity, node)
            self._makeAttributes(entity, node)
        for entity, node in ordered:
            self._findKey(entity, node)
        for entity, node in ordered:
            for attr in entity.attrs:
                self._checkKindRules(attr, self._nodes[attr])
        for entity, node in ordered:
            self._checkDirtyBits(entity)
            self._checkDefaults(entity)
            self._checkInits(entity, node)
            self._checkNames(entity)
        return None if self._errors else self._module

    # -- reporting

    def _report(self, position, message, *values):
        self._errors.add(position, message % values if values else message)

    def _checkName(self, node, first):
        fault = names.fault(node.text, first)
        if fault:
            self._report(node.position, fault)

    # -- types

    def _importTypes(self):
        for module in self._module.imports:
            for type in module.types:
                other = self._types.get(type.qualified)
                if other:
                    self._report(self._tree.name.position,
                                 "modules '%s' and '%s' both declare '%s', expected one of them "
                                 'to be imported', other.module.name, module.name, type.qualified)
                self._types[type.qualified] = type
            if module.name == self._module.name:
                self._report(self._tree.name.position, "module '%s' has the name of a module that "
                             'it imports, expected another name', module.name)

    def _checkNamespaces(self):
        for node in self._tree.namespaces:
            segments = node.text.split('::')
            if segments[0] in names.RESERVED_NAMESPACES:
                self._report(node.position, "namespace '%s' is reserved, expected another one",
                             segments[0])
                continue
            for segment in segments:
                fault = names.fault(segment, 'any')
                if fault:
                    self._report(node.position, fault)
                    break

    def _declareTypes(self):
        stems = {}
        for node in self._tree.declarations:
            type = self._declareType(node)
            if type is None:
                continue
            self._module.types.append(type)
            key = type.stem.lower()
            if key in stems:         # file systems may ignore case
                type.stem = type.qualified.replace('::', '_')
            stems[key] = type

    def _declareType(self, node):
        isValue = isinstance(node, parser.ValueNode)
        segments = node.name.text.split('::')
        namespace = '::'.join(segments[:-1]) if isValue else node.namespace
        if isValue:
            for segment in segments:
                fault = names.fault(segment, 'any')
                if fault and segment != 'Mox':
                    self._report(node.name.position, fault)
                    break
        else:
            self._checkName(node.name, 'upper')
        if not namespace:
            self._report(node.name.position, "'%s' stands in no namespace, expected %s",
                         node.name.text, 'a qualified C++ name' if isValue
                         else "'namespace' before the first declaration")
        if segments[-1] in names.TYPE_NAMES or segments[-1] in model.BUILTINS:
            self._report(node.name.position, "name '%s' is reserved, expected another name",
                         segments[-1])
        make = {parser.EnumNode: model.Enum, parser.IdentifierNode: model.Identifier,
                parser.ValueNode: model.Value, parser.EntityNode: model.Entity}[type(node)]
        made = make(segments[-1], namespace, node.doc, self._module, node.name.position)
        other = self._types.get(made.qualified)
        if other:
            self._report(node.name.position, "type '%s' is declared already in %s, expected "
                         'another name', made.qualified, self._place(other))
            return None
        self._types[made.qualified] = made
        if isinstance(node, parser.EnumNode):
            self._fillEnum(made, node)
        elif isinstance(node, parser.IdentifierNode):
            self._fillIdentifier(made, node)
        elif isValue:
            self._fillValue(made, node)
        else:
            made.damaged = node.damaged
            self._entities.append((made, node))
        return made

    def _place(self, type):
        if type.module is self._module:
            return 'line %d' % type.position.line
        return "module '%s'" % type.module.name

    def _fillEnum(self, enum, node):
        byName = {}
        byValue = {}
        for one in node.enumerators:
            self._checkName(one.name, 'lower')
            if one.name.text in names.ENUM_FUNCTIONS:
                self._report(one.name.position, "enumerator '%s' has the name of a function of "
                             'every enumeration, expected another name', one.name.text)
            if not 0 <= one.value <= 0x7fffffff:
                self._report(one.valuePosition, 'value %d of enumerator \'%s\', expected 0 to '
                             '2147483647', one.value, one.name.text)
            if one.name.text in byName:
                self._report(one.name.position, "enumerator '%s' stands already in line %d, "
                             'expected another name', one.name.text,
                             byName[one.name.text].position.line)
            elif one.value in byValue:
                self._report(one.valuePosition, "value %d belongs to enumerator '%s' already, "
                             'expected another value', one.value, byValue[one.value].name)
            made = model.Enumerator(one.name.text, one.value, one.doc, enum, one.name.position)
            byName.setdefault(made.name, made)
            byValue.setdefault(made.value, made)
            enum.enumerators.append(made)
        if not node.enumerators and not node.damaged:
            self._report(node.name.position, "enumeration '%s' is empty, expected at least one "
                         'enumerator', enum.name)

    def _checkEnumeratorScopes(self):
        """Enumerators live in the namespace of their enumeration."""
        scopes = {}
        for type in self._types.values():
            for one in type.enumerators if type.isEnum else ():
                other = scopes.setdefault((type.namespace, one.name), type)
                if other is not type:
                    later, earlier = (type, other) if type.module is self._module \
                        else (other, type)
                    at = next(e for e in later.enumerators if e.name == one.name)
                    self._report(at.position, "enumerator '%s' stands already in enumeration '%s' "
                                 'of this namespace, expected another name', one.name,
                                 earlier.name)

    def _fillIdentifier(self, identifier, node):
        if node.base is None or node.base.text not in ('U8', 'U16', 'U32', 'U64'):
            if node.base is not None:
                self._report(node.base.position, "identifier over '%s', expected U8, U16, U32 or "
                             'U64', node.base.text)
            return
        identifier.base = model.BUILTINS[node.base.text]
        limit = model.INTEGER_RANGES[node.base.text][1]
        numbers = {}
        for word, literal in node.limits.items():
            numbers[word] = literal.value
            if not 0 <= literal.value <= limit:
                self._report(literal.position, "%s of '%s' is %s, expected 0 to %d", word,
                             identifier.name, literal.text, limit)
        if 'max' in numbers and 'null' in numbers:
            self._report(node.limits['max'].position, "'max' beside 'null', expected one of them: "
                         "'null' is the largest accepted number")
        identifier.null = numbers.get('null')
        identifier.min = numbers.get('min', 0)
        identifier.max = numbers.get('null', numbers.get('max', limit))
        if 'min' in numbers and identifier.min > identifier.max:
            self._report(node.limits['min'].position, "min of '%s' is %d, expected at most %d",
                         identifier.name, identifier.min, identifier.max)
        top = node.limits.get('max')
        identifier.maxText = top.text if top else str(identifier.max)
        name = identifier.name
        if identifier.null is not None:
            identifier.message = '%s::value < %s::min or > %s::null not allowed' % ((name,) * 3)
        elif identifier.min > 0:
            identifier.message = '%s::value < %s::min or > %s not allowed' % (
                name, name, identifier.maxText)
        else:
            identifier.message = '%s::value > %s not allowed' % (name, identifier.maxText)

    def _fillValue(self, value, node):
        value.header = node.header
        header = node.header
        if not header or header.startswith('/') or '..' in header.split('/') \
                or any(c in header for c in '\\"<>\n\r\t\0'):
            self._report(node.headerPosition, 'header "%s", expected a path relative to the '
                         'include root', header)
        if node.default is not None:
            value.defaultIs(self._expression(value, node.default, "default of '%s'" % value.name),
                            node.default.text)

    def _checkTypesAgainstNamespaces(self):
        """A type may not hide a namespace that generated code names."""
        inSight = list(self._module.types)
        for module in self._loaded:
            inSight += module.types
        for type in inSight:
            for length in range(1, len(type.segments) + 1):
                self._namespaces.add('::'.join(type.segments[:length]))
        outermost = {namespace.split('::')[0] for namespace in self._namespaces}
        functions = {enum.qualified + 'Instance': enum for enum in inSight if enum.isEnum}
        for type in self._module.types:
            if type.isValue:
                continue
            if type.qualified in self._namespaces:
                self._report(type.position, "type '%s' has the name of a namespace, expected "
                             'another name', type.qualified)
            elif type.name in outermost:
                self._report(type.position, "type '%s' hides the namespace '%s', expected another "
                             'name', type.name, type.name)
            elif type.qualified in functions:
                self._report(type.position, "type '%s' has the name of a function of enumeration "
                             "'%s', expected another name", type.name,
                             functions[type.qualified].name)
            for one in type.enumerators if type.isEnum else ():
                if one.name in outermost:
                    self._report(one.position, "enumerator '%s' hides the namespace '%s', expected "
                                 'another name', one.name, one.name)

    def _resolve(self, node, namespace, what):
        """The Type of a name used in `namespace`; None after a report."""
        found = None
        if namespace:
            found = self._types.get(namespace + '::' + node.text)
        found = found or self._types.get(node.text) or model.BUILTINS.get(node.text)
        if found:
            return found
        for module in self._loaded:
            for type in module.types:
                if type.qualified in (node.text, namespace + '::' + node.text):
                    self._report(node.position, "%s '%s' is declared in '%s', expected an import "
                                 'of that file', what, node.text, module.fileName)
                    return None
        if not self._tree.damaged:
            self._report(node.position, "unknown %s '%s', expected a builtin, a type of namespace "
                         "'%s' or a qualified name", what, node.text, namespace)
        return None

    # -- the inheritance chain

    def _resolveBases(self):
        for entity, node in self._entities:
            entity.isBase = node.role == 'base'
            entity.isRoot = node.role == 'root'
        for entity, node in self._entities:
            if node.base is None:
                continue
            base = self._resolve(node.base, entity.namespace, 'base type')
            if base is None:
                entity.damaged = True
            elif not base.isEntity or not base.isBase:
                self._report(node.base.position, "'%s' can't be derived from, expected a type "
                             "declared 'base entity'", node.base.text)
                entity.damaged = True
            else:
                entity.base = base
        for entity, node in self._entities:
            seen = {entity}
            base = entity.base
            while base is not None and base not in seen:
                seen.add(base)
                base = base.base
            if base is entity:
                self._report(node.base.position, "type '%s' derives from itself, expected a base "
                             'without a cycle', entity.name)
        for entity, node in self._entities:      # cut all cycles that were found
            seen = set()
            base = entity
            while base is not None:
                if base in seen:
                    base.base = None
                    base.damaged = True
                    break
                seen.add(base)
                base = base.base

    def _basesFirst(self):
        """The own entities, bases before derived ones, otherwise in declaration order."""
        nodes = dict(self._entities)
        done = {}
        for entity, _ in self._entities:
            for one in reversed([entity] + entity.bases):
                if one in nodes:
                    done.setdefault(one, nodes[one])
        return list(done.items())

    def _checkHeader(self, entity, node):
        base = entity.base
        entity.damaged = entity.damaged or bool(base and base.damaged)
        entity.isUnlinked = node.unlinked is not None
        entity.isNamed = (node.named is not None and node.namedBy is None) or \
            bool(base and base.isNamed and node.namedBy is None)
        if node.unlinked and (entity.isBase or entity.isRoot):
            self._report(node.unlinked, "'unlinked' on a %s type, expected it only where a "
                         'collection could hold the type', node.role)
        if node.namedBy and (entity.isBase or entity.isRoot):
            self._report(node.namedBy.position, "'named by' on a %s type, expected 'named'",
                         node.role)
        if base and node.named and not base.takesName and not base.damaged:
            self._report(node.named, "'named' below base '%s' that isn't, expected it there too",
                         base.name)
        if entity.isRoot and not entity.isNamed and not entity.damaged:
            self._report(node.name.position, "root type '%s' without a name, expected 'named'",
                         entity.name)
        if node.block is None:
            return
        if node.block.value in entity.blocks:
            entity.ownBlock = node.block.value
        else:
            self._report(node.block.position, 'block %s, expected a number from 0x%x to 0x%x',
                         node.block.text, entity.blocks[0], entity.blocks[-1])

    # -- attributes

    def _makeAttributes(self, entity, node):
        taken = {attr.name: attr for base in entity.bases for attr in base.attrs}
        for one in node.attributes:
            attr = self._makeAttribute(entity, one)
            entity.addAttr(attr)
            if attr.index == entity.capacity:
                self._report(one.name.position, "attribute '%s' would have the id 0x%x, expected "
                             "at most %d attributes in block 0x%x", attr.name, attr.id,
                             entity.capacity, entity.block)
            other = taken.setdefault(attr.name, attr)
            if other is not attr:
                where = 'line %d' % other.position.line if other.entity is entity \
                    else "base '%s'" % other.entity.qualified
                self._report(one.name.position, "attribute '%s' stands already in %s, expected "
                             'another name', attr.name, where)
            self._nodes[attr] = one

    def _makeAttribute(self, entity, node):
        """The Attr of a node with its kind and types; unknown types leave `type` None and mark the
        entity damaged."""
        type = model.VOID_POINTER
        if node.keyword != 'notify':
            type = self._resolve(node.type, entity.namespace, 'type')
        attr = model.Attr(node.name.text, self._attributeKind(node, type), entity, node.doc,
                          node.name.position)
        self._checkAttributeName(node.name)
        attr.type = type
        attr.isConstTarget = node.isConst
        if attr.type is None:
            entity.damaged = True
        else:
            attr.typeText = attr.type.textIn(entity.namespace)
        if attr.kind == 'valueCollection':
            attr.keyType = self._resolve(node.index, entity.namespace, 'key type')
            if attr.keyType is None:
                entity.damaged = True
            else:
                self._checkKeyType(attr.keyType, node.index.position, node.index.text)
                attr.keyTypeText = attr.keyType.textIn(entity.namespace)
        return attr

    @staticmethod
    def _attributeKind(node, type):
        if node.keyword == '':
            return 'valueCollection' if node.index else 'value'
        if node.keyword == 'child':
            return 'childCollection' if node.index else 'child'
        if node.keyword == 'param' and type is not None and type.isEntity:
            return 'paramRef'
        return {'notify': 'handler'}.get(node.keyword, node.keyword)

    def _checkAttributeName(self, node):
        if node.text in names.ENTITY_MEMBERS:
            self._report(node.position, "attribute '%s' has the name of a member of every entity, "
                         'expected another name', node.text)
        elif node.text in self._namespaces:
            self._report(node.position, "attribute '%s' hides the namespace '%s', expected another "
                         'name', node.text, node.text)
        else:
            self._checkName(node, 'lower')

    def _checkKeyType(self, type, position, text):
        if type.isEntity or type.isValue or type.name in ('bool', 'double'):
            self._report(position, "'%s' can't be a key, expected an integer, String8, Name, an "
                         'identifier or an enumeration', text)

    def _findKey(self, entity, node):
        keys = [attr for attr in entity.attrs if attr.kind == 'key']
        inherited = entity.base.key if entity.base else None
        for extra in keys[0 if inherited else 1:]:
            first = inherited or keys[0]
            self._report(extra.position, "second key '%s' beside '%s', expected one key",
                         extra.name, first.name)
        entity.key = inherited or (keys[0] if keys else None)
        if keys:
            if entity.isRoot:
                self._report(keys[0].position, "key '%s' on a root type, expected none: its name "
                             'is its identity', keys[0].name)
            if keys[0].type is not None:
                self._checkKeyType(keys[0].type, self._nodes[keys[0]].type.position,
                                   self._nodes[keys[0]].type.text)
        if node.namedBy is not None:
            if entity.key is not None and node.namedBy.text == entity.key.name:
                entity.namedBy = entity.key
            elif not entity.damaged:
                self._report(node.namedBy.position, "'named by %s', expected the key attribute%s",
                             node.namedBy.text,
                             " '%s'" % entity.key.name if entity.key else ' of this type')
        if entity.key is None and not entity.isNamed and not entity.isBase \
                and node.namedBy is None and not entity.damaged and not entity.isRoot:
            self._report(node.name.position, "entity type '%s' has neither key nor name, expected "
                         "a 'key' attribute or 'named'", entity.name)
        if entity.isRoot:
            for attr in entity.allAttrs:
                if attr.kind in ('param', 'paramRef'):
                    at = attr.position if attr.entity is entity else node.name.position
                    self._report(at, "constructor parameter '%s' on a root type, expected none: it "
                                 'is made by its name alone', attr.name)

    def _checkKindRules(self, attr, node):
        """What may stand at an attribute of its kind; fills the member fields of children."""
        if attr.type is None:
            return
        if node.index is not None and node.keyword not in ('', 'child'):
            self._report(node.index.position, "'[%s]' at %s '%s', expected it at a value or a "
                         "'child' only", node.index.text, node.keyword, attr.name)
        if attr.kind in ('value', 'valueCollection') and attr.type.isEntity:
            self._report(node.type.position, "attribute '%s' of entity type '%s', expected 'ref' "
                         "or 'child' before it", attr.name, node.type.text)
        elif attr.kind == 'key' and attr.type.isEntity:
            pass                                  # reported as a key type
        elif attr.kind in ('ref', 'child', 'childCollection') and not attr.type.isEntity:
            self._report(node.type.position, "%s '%s' of type '%s', expected an entity type",
                         node.keyword, attr.name, node.type.text)
            return
        if node.wrapped and attr.kind != 'childCollection':
            self._report(node.wrapped, "'wrapped' at '%s', expected it at a child collection only",
                         attr.name)
        if node.reacts:
            self._resolveReaction(attr, node)
        if attr.isInstantiating:
            self._resolveMember(attr, node)

    def _resolveReaction(self, attr, node):
        if attr.kind not in ('value', 'ref'):
            self._report(node.reacts.position, "'reacts' at '%s', expected it at a value or a "
                         "'ref' only", attr.name)
            return
        for other in attr.entity.attrs:
            if other.name == node.reacts.text and other.kind == 'handler':
                attr.reacts = other
                return
        if not attr.entity.damaged:
            self._report(node.reacts.position, "'reacts %s', expected a 'notify' of this type with "
                         'that name', node.reacts.text)

    def _resolveMember(self, attr, node):
        member = attr.type
        if member.isBase or member.isRoot:
            self._report(node.type.position, "child of type '%s', expected a type that is neither "
                         'base nor root', node.type.text)
            return
        args = member.constructorArgs
        if attr.kind == 'childCollection':
            if not self._resolveMemberKey(attr, node):
                return
            attr.namesMemberByKey = member.takesName and not attr.keyIsName
            if attr.namesMemberByKey:
                args = [arg for arg in args if not arg.isName]
            attr.wrapped = node.wrapped is not None
            if member.isUnlinked and not attr.wrapped:
                self._report(node.type.position, "member type '%s' is unlinked, expected 'wrapped' "
                             'behind it', node.type.text)
            if attr.wrapped and not member.isUnlinked:
                self._report(node.wrapped, "'wrapped' around member type '%s' that has a link, "
                             'expected none', node.type.text)
        else:
            attr.namesMemberByKey = member.namedBy is not None
        namespace = attr.entity.namespace
        attr.memberArgs = [model.Arg(arg.name, arg.type, arg.attr, namespace) for arg in args]
        attr.memberParams = [arg for arg in attr.memberArgs if arg.name != attr.memberKey]

    def _resolveMemberKey(self, attr, node):
        """Fills the key fields of a child collection; False after a report."""
        member = attr.type
        attr.keyIsName = member.keyIsName
        attr.keyAttr = member.key
        attr.keyType = member.keyType
        attr.memberKey = member.key.name if member.key else 'name'
        if member.damaged:
            return member.key is not None or member.keyIsName
        if attr.keyType is None:
            return False
        attr.keyTypeText = attr.keyType.textIn(attr.entity.namespace)
        if node.index.text != attr.memberKey:
            self._report(node.index.position, "'%s' is not the key of '%s', expected '%s'",
                         node.index.text, node.type.text, attr.memberKey)
            return False
        return True

    # -- defaults and first values

    def _checkDefaults(self, entity):
        earlier = [attr for base in reversed(entity.bases) for attr in base.attrs
                   if attr.isConstructorArg]
        constructorAttrs = earlier + [a for a in entity.attrs if a.isConstructorArg]
        for attr in entity.attrs:
            node = self._nodes[attr]
            if attr.type is None:
                continue
            if attr.kind == 'value':
                self._default(attr, node, constructorAttrs)
            else:
                if attr.kind in ('ref', 'child'):
                    attr.default = 'nullptr'
                if node.default:
                    self._report(node.default.position, "default at '%s', expected it at a value "
                                 'only', attr.name)

    def _default(self, attr, node, constructorAttrs):
        attr.default = attr.type.defaultText
        attr.defaultShown = attr.type.defaultShown
        literal = node.default
        if literal is None or attr.type.isEntity:
            return
        attr.defaultShown = '"%s"' % literal.text if literal.kind == 'string' else literal.text
        if literal.kind == 'name':
            for source in constructorAttrs:
                if source.name != literal.text or source.type is None:
                    continue
                before = source.entity is not attr.entity or source.id < attr.id
                if not before:
                    self._report(literal.position, "default '%s' stands behind '%s', expected an "
                                 'earlier key or parameter', literal.text, attr.name)
                elif source.type is not attr.type:
                    self._report(literal.position, "default '%s' has the type '%s', expected '%s'",
                                 literal.text, source.type.qualified, attr.type.qualified)
                else:
                    attr.default = literal.text
                    attr.defaultFrom = source
                return
        attr.default = self._expression(attr.type, literal, "default of '%s'" % attr.name)

    def _expression(self, type, literal, what):
        """C++ expression of a literal of `type`; what doesn't fit is reported."""
        try:
            return cpp.expression(type, literal)
        except cpp.Misfit as misfit:
            shown = '"%s"' % literal.text if literal.kind == 'string' else "'%s'" % literal.text
            self._report(literal.position, '%s is %s, expected %s', what, shown, misfit)
            return type.defaultText

    def _checkInits(self, entity, node):
        seen = set()
        for one in node.inits:
            attr = next((a for a in entity.allAttrs if a.name == one.name.text), None)
            if attr is None or attr.kind != 'value':
                if attr is not None or not entity.damaged:
                    self._report(one.name.position, "'init %s', expected an own or inherited value",
                                 one.name.text)
                continue
            if attr in seen:
                self._report(one.name.position, "'init %s' stands twice, expected it once",
                             attr.name)
            seen.add(attr)
            if attr.type is not None and not attr.type.isEntity:
                text = self._expression(attr.type, one.value, "first value of '%s'" % attr.name)
                entity.inits.append(model.Init(attr, text))

    # -- dirty bits and generated names

    def _checkDirtyBits(self, entity):
        for attr in entity.mutableAttrs:
            if attr.dirtyBit == model.DIRTY_WORD_BITS:
                room = model.DIRTY_WORD_BITS - entity.firstDirtyBit
                self._report(attr.position, "attribute '%s' is the %d. that can change, expected "
                             'at most %d in a type %s', attr.name, room + 1, room,
                             'with a base' if entity.base else 'without base')

    def _checkNames(self, entity):
        """Names that generated code derives from attributes must not meet."""
        owners = {}
        for base in reversed(entity.bases):
            for attr in base.attrs:
                for name, role in cpp.generatedNames(attr):
                    owners.setdefault(name, (attr, role))
        for attr in entity.attrs:
            for name, role in cpp.generatedNames(attr):
                if name in names.NOTIFIEE_HANDLERS and role == 'handler' or \
                        name in names.ENTITY_MEMBERS or name in names.WRAPPER_NAMES:
                    if attr.name in names.ENTITY_MEMBERS:
                        continue                  # reported for the name itself
                    self._report(attr.position, "%s '%s' of attribute '%s' is a member of every "
                                 'entity or subscriber, expected another name', role, name,
                                 attr.name)
                    continue
                other, otherRole = owners.setdefault(name, (attr, role))
                if other is attr or other.name == attr.name:
                    continue
                mine, theirs = _withArticle(role), otherRole
                self._report(attr.position, "attribute '%s' has %s '%s', which is the %s of "
                             "attribute '%s', expected another name", attr.name, mine, name, theirs,
                             other.name)


def _withArticle(role):
    return ('an ' if role[0] in 'aeiou' else 'a ') + role
