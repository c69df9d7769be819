"""The model as plain data, for --dump-model: nested dictionaries and lists in stable order."""


def dump(module):
    """The model as nested dictionaries and lists, in stable order, ready for JSON."""
    return {
        'module': module.name,
        'imports': [imported.name for imported in module.imports],
        'schemaHash': module.schemaHash,
        'types': [_dumpType(type) for type in module.types],
    }


def _dumpArgs(args):
    return [{'name': arg.name, 'type': arg.typeText} for arg in args]


def _dumpType(type):
    out = {'kind': type.kind, 'name': type.qualified}
    if type.doc:
        out['doc'] = type.doc
    if type.isEnum:
        out['enumerators'] = {e.name: e.value for e in type.enumerators}
    elif type.isIdentifier:
        out.update(base=type.base.name, min=type.min, max=type.max, null=type.null,
                   message=type.message)
    elif type.isValue:
        out.update(header=type.header, default=type.defaultText)
    else:
        out.update(
            base=type.baseQualified, level=type.level, block=type.block, isBase=type.isBase,
            isRoot=type.isRoot, hasNext=type.hasNext, isNamed=type.isNamed,
            namedBy=type.namedBy.name if type.namedBy else None,
            key=type.key.name if type.key else None,
            constructorArgs=_dumpArgs(type.constructorArgs),
            cppParams=['%s %s' % (arg.paramCpp, arg.name) for arg in type.cppParams],
            attributes=[_dumpAttr(attr) for attr in type.attrs],
            handlers=[handler.name + ('(key)' if handler.form == 'key' else '()')
                      for handler in type.handlers],
            inits={init.attr.name: init.expression for init in type.inits},
            deletes=[attr.name for attr in type.children])
    return out


def _dumpAttr(attr):
    out = {'id': attr.id, 'name': attr.name, 'kind': attr.kind, 'type': attr.typeText,
           'cpp': attr.storedCpp}
    if attr.doc:
        out['doc'] = attr.doc
    if attr.keyType:
        out['keyType'] = attr.keyTypeText
    if attr.memberKey:
        out['memberKey'] = attr.memberKey
    if attr.isInstantiating:
        out['memberArgs'] = _dumpArgs(attr.memberArgs)
        out['namesMemberByKey'] = attr.namesMemberByKey
        out['wrapped'] = attr.wrapped
    if attr.default is not None:
        out['default'] = attr.default
    if attr.reacts:
        out['reacts'] = attr.reacts.name
    if attr.family:
        out['family'] = attr.family
    if attr.dirtyBit is not None:
        out['dirtyBit'] = attr.dirtyBit
    return out
