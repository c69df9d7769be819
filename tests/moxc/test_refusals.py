"""For faults that the compiler lets through, or reports at another place or in other words: one row a
rule, with every message.
"""

import unittest

from support import compileFiles, compileText

HEAD = 'module T\nnamespace N\n'
ENTITY = HEAD + 'entity E {\nkey id : U16\n%s\n}\n'   # its member stands in line 5


def member(text):
    """A schema with one more attribute in an entity."""
    return ENTITY % text


def below(text):
    """A schema with declarations in a namespace; they begin in line 3."""
    return HEAD + text


SYNTAX = {
    'nothing': ('', ["1:1: found the end of the file, expected 'module' and the module's name"]),
    'no module': ('namespace N', ["1:1: found 'namespace', expected 'module' and the module's "
                                  'name']),
    'number as name': ('module 7', ["1:8: found '7', expected the module's name"]),
    'import without quotes': ('module T\nimport a.mox', [
        "2:8: found 'a', expected the file to import in quotes",
        "2:9: character '.' has no meaning in a schema, expected a name, a number, a text or one of "
        '{ } [ ] : = -']),
    'late import': (below('import "a.mox"'), [
        "3:1: import behind the first declaration, expected it directly behind the line of "
        "'module'",
        "3:1: no file 'a.mox', expected it beside this file or in an import directory"]),
    'stray word': (below('entities X {}'), [
        "3:1: found 'entities', expected a declaration ('namespace', 'enum', 'identifier', 'value' "
        "or 'entity')"]),
    'two stray words, both reported': (below('foo\nenum A { a = 1 }\nbar'), [
        "3:1: found 'foo', expected a declaration ('namespace', 'enum', 'identifier', 'value' or "
        "'entity')",
        "5:1: found 'bar', expected a declaration ('namespace', 'enum', 'identifier', 'value' or "
        "'entity')"]),
    'namespace with an open end': ('module T\nnamespace A::', [
        "2:14: found the end of the file, expected a name behind '::'"]),
    'enumerator without value': (below('enum E { a b = 2 }'), [
        "3:12: found 'b', expected '=' and the enumerator's value"]),
    'enumerator with a text': (below('enum E { a = "1" }'), [
        "3:14: found '1', expected the enumerator's value"]),
    'enumerator with a fraction': (below('enum E { a = 1.5 }'), [
        "3:14: found '1.5', expected the enumerator's value"]),
    'identifier without type': (below('identifier I { null 3 }'), [
        "3:14: found '{', expected ':' and the number type of the identifier"]),
    'identifier with a foreign word': (below('identifier I : U8 { top 3 }'), [
        "3:21: found 'top', expected 'min', 'max', 'null' or '}'"]),
    'value without header': (below('value N::V'), [
        "3:11: found the end of the file, expected 'from' and the header that defines the type"]),
    'entity with a foreign word': (below('entity E sealed {}'), [
        "3:10: found 'sealed', expected ':' and a base type, 'named', 'unlinked' or '{'"]),
    'named twice': (below('entity E named named {}'), [
        "3:16: found 'named', expected ':' and a base type, 'named', 'unlinked' or '{'"]),
    'attribute without type': (member('a'), [
        "6:1: found '}', expected ':' and the type of attribute 'a'"]),
    'attribute with an open index': (member('a[U8 : bool'), ["5:6: found ':', expected ']'"]),
    'two attributes with errors, both reported': (member('a b\nc :\nd : U8 = ='), [
        "5:3: found 'b', expected ':' and the type of attribute 'a'",
        "7:1: found 'd', expected the type of attribute 'c'",
        "7:10: found '=', expected a default: a number, a text, 'true', 'false' or a name"]),
    'key without name': (member('param : '), ["6:1: found '}', expected the type of attribute "
                                              "'param'"]),
    'const without ref': (member('const child x : E'), ["5:7: found 'child', expected 'ref' behind "
                                                        "'const'"]),
    'minus without number': (member('a : int = -x'), ["5:12: found 'x', expected a number behind "
                                                      "'-'"]),
    'block with a name': (member('block b'), ["5:7: found 'b', expected the number of the id "
                                              'block']),
    'two blocks': (member('block 0x100\nblock 0x100'), ["6:1: 'block' is given twice, expected it "
                                                        'once']),
    'unclosed entity': (below('entity E {\nkey id : U8\n'), [
        "3:10: '{' without its end, expected a closing '}'"]),
    'entity unclosed before the next': (below('entity E {\nkey id : U8\nenum F { a = 1 }\n'), [
        "3:10: '{' without its end, expected a closing '}' before line 5"]),
    'doc behind an attribute': (member('a : U8 /// late'), [
        '5:8: doc comment behind a declaration, expected it on a line of its own above what it '
        'describes']),
    'doc with nothing behind it': (member('/// lonely'), [
        '5:1: doc comment with nothing to describe, expected a type, an attribute or an enumerator '
        'behind it']),
    'doc before a block': (member('/// of what?\nblock 0x100'), [
        '5:1: doc comment with nothing to describe, expected a type, an attribute or an enumerator '
        'behind it']),
    'doc at the end of the file': (below('/// lonely'), [
        '3:1: doc comment with nothing to describe, expected a type, an attribute or an enumerator '
        'behind it']),
    'doc inside an attribute': (member('a :\n/// here\nU8'), [
        "6:1: found a doc comment, expected the type of attribute 'a'",
        "8:1: found '}', expected ':' and the type of attribute 'U8'"]),
    'doc with a backslash last': (member('/// over \\\na : U8'), [
        '5:1: doc comment ends with a backslash, expected another last character']),
}

LEXICAL = {
    'strange character': (below('enum E { a = 1; }'), [
        "3:15: character ';' has no meaning in a schema, expected a name, a number, a text or one "
        'of { } [ ] : = -']),
    'control character': (below('\x01'), [
        '3:1: character U+0001 has no meaning in a schema, expected a name, a number, a text or '
        'one of { } [ ] : = -']),
    'open text': (member('a : String8 = "no end'), [
        '5:15: text without an end, expected a closing " on the same line']),
    'unknown escape': (member(r'a : String8 = "x\qy"'), [
        r'5:17: unknown escape \q, expected \n, \t, \r, \" or \\']),
    'malformed number': (member('a : U8 = 12ab'), [
        "5:10: malformed number '12ab', expected decimal or hexadecimal digits"]),
    'octal looks': (member('a : U8 = 012'), ["5:10: number '012' begins with 0, expected it "
                                             'without']),
    'endless number': (member('a : U64 = ' + '9' * 5000), [
        '5:11: number of 5000 characters, expected at most 20 digits']),
    'number beyond all doubles': (member('a : double = 1e999'), [
        "5:14: number '1e999' is too large for a double"]),
}

TYPES = {
    'no namespace': ('module T\nenum E { a = 1 }', [
        "2:6: 'E' stands in no namespace, expected 'namespace' before the first declaration"]),
    'reserved namespaces': ('module T\nnamespace Mox\nnamespace std::x\nnamespace A::class', [
        "2:11: namespace 'Mox' is reserved, expected another one",
        "3:11: namespace 'std' is reserved, expected another one",
        "4:11: name 'class' is a C++ keyword, expected another name"]),
    'module that is a keyword': ('module int', ["1:8: name 'int' is a C++ keyword, expected another "
                                                'name']),
    'type twice': (below('enum A { a = 1 }\nentity A named {}'), [
        "4:8: type 'N::A' is declared already in line 3, expected another name"]),
    'small first letter': (below('enum e { a = 1 }'), [
        "3:6: name 'e' begins with a small letter, expected a capital"]),
    'names of the framework': (below('entity Notifiee named {}\nenum Name { a = 1 }\n'
                                     'entity MoxThing named {}'), [
        "3:8: name 'Notifiee' is reserved, expected another name",
        "4:6: name 'Name' is reserved, expected another name",
        "5:8: name 'MoxThing' begins with 'mox', which is reserved, expected another name"]),
    'type that is a namespace': ('module T\nnamespace A::B\nenum E { a = 1 }\nnamespace A\n'
                                 'entity B named {}\nnamespace C\nentity A named {}', [
        "5:8: type 'A::B' has the name of a namespace, expected another name",
        "7:8: type 'A' hides the namespace 'A', expected another name"]),
    'type that is a function of an enumeration': (below('enum E { a = 1 }\n'
                                                        'entity EInstance named {}'), [
        "4:8: type 'EInstance' has the name of a function of enumeration 'E', expected another "
        'name']),
    'empty enumeration': (below('enum E { }'), [
        "3:6: enumeration 'E' is empty, expected at least one enumerator"]),
    'enumerators': (below('enum E {\na = 1\na = 2\nb = 1\nC = 5\nd = 0x80000000\nstringValue = 7\n'
                          'e = -1\n}'), [
        "5:1: enumerator 'a' stands already in line 4, expected another name",
        "6:5: value 1 belongs to enumerator 'a' already, expected another value",
        "7:1: name 'C' begins with a capital, expected a small first letter",
        "8:5: value 2147483648 of enumerator 'd', expected 0 to 2147483647",
        "9:1: enumerator 'stringValue' has the name of a function of every enumeration, expected "
        'another name',
        "10:5: value -1 of enumerator 'e', expected 0 to 2147483647"]),
    'enumerator of two enumerations': (below('enum E { a = 1 }\nenum F { a = 2 }'), [
        "4:10: enumerator 'a' stands already in enumeration 'E' of this namespace, expected another "
        'name']),
    'enumerator that hides a namespace': ('module T\nnamespace n\nenum E { n = 1 }', [
        "3:10: enumerator 'n' hides the namespace 'n', expected another name"]),
    'identifier over a text': (below('identifier I : String8 { null 3 }'), [
        "3:16: identifier over 'String8', expected U8, U16, U32 or U64"]),
    'identifier out of its field': (below('identifier I : U8 { null 256 }'), [
        "3:26: null of 'I' is 256, expected 0 to 255"]),
    'identifier below its field': (below('identifier I : U8 { null -1 }'), [
        "3:26: null of 'I' is -1, expected 0 to 255"]),
    'identifier with min above max': (below('identifier I : U8 { min 9 max 8 }'), [
        "3:25: min of 'I' is 9, expected at most 8"]),
    'identifier with null and max': (below('identifier I : U8 { null 9 max 8 max 7 }'), [
        "3:32: 'max' beside 'null', expected one of them: 'null' is the largest accepted number",
        "3:34: 'max' is given twice, expected it once"]),
    'header outside of the include root': (below('value A::V from "/x.h"\nvalue A::W from "../x.h"\n'
                                                 'value A::X from ""'), [
        '3:17: header "/x.h", expected a path relative to the include root',
        '4:17: header "../x.h", expected a path relative to the include root',
        '5:17: header "", expected a path relative to the include root']),
    'value without namespace': (below('value V from "v.h"'), [
        "3:7: 'V' stands in no namespace, expected a qualified C++ name"]),
    'value with a name as default': (below('value A::V from "v.h" = zero'), [
        "3:25: default of 'V' is 'zero', expected a number, or C++ text in quotes"]),
}

ENTITIES = {
    'neither key nor name': (below('entity E { a : U8 }'), [
        "3:8: entity type 'E' has neither key nor name, expected a 'key' attribute or 'named'"]),
    'two keys': (member('key other : U8'), ["5:5: second key 'other' beside 'id', expected one "
                                            'key']),
    'second key below a base': (below('base entity B { key id : U8 }\nentity E : B {\nkey k : U8\n}'),
                                ["5:5: second key 'k' beside 'id', expected one key"]),
    'keys of bad types': (below('value A::V from "v.h"\nentity A1 { key k : bool }\n'
                                'entity A2 { key k : double }\nentity A3 { key k : A::V }\n'
                                'entity A4 { key k : A3 }'), [
        "4:21: 'bool' can't be a key, expected an integer, String8, Name, an identifier or an "
        'enumeration',
        "5:21: 'double' can't be a key, expected an integer, String8, Name, an identifier or an "
        'enumeration',
        "6:21: 'A::V' can't be a key, expected an integer, String8, Name, an identifier or an "
        'enumeration',
        "7:21: 'A3' can't be a key, expected an integer, String8, Name, an identifier or an "
        'enumeration']),
    'root without a name, with key and parameter': (below('root entity R {\nkey k : U8\n'
                                                          'param p : U8\n}'), [
        "3:13: root type 'R' without a name, expected 'named'",
        "4:5: key 'k' on a root type, expected none: its name is its identity",
        "5:7: constructor parameter 'p' on a root type, expected none: it is made by its name "
        'alone']),
    'root with a parameter of its base': (below('base entity B named { param p : U8 }\n'
                                                'root entity R : B named {}'), [
        "4:13: constructor parameter 'p' on a root type, expected none: it is made by its name "
        'alone']),
    'named by another attribute': (below('entity E named by a { key id : U8  a : U8 }'), [
        "3:19: 'named by a', expected the key attribute 'id'"]),
    'named by without key': (below('entity E named by a { a : U8 }'), [
        "3:19: 'named by a', expected the key attribute of this type"]),
    'named by on a base': (below('base entity E named by id { key id : U8 }'), [
        "3:24: 'named by' on a base type, expected 'named'"]),
    'named below a nameless base': (below('base entity B { key id : U8 }\nentity E : B named {}'), [
        "4:14: 'named' below base 'B' that isn't, expected it there too"]),
    'base that is not one': (below('entity B named {}\nentity E : B named {}'), [
        "4:12: 'B' can't be derived from, expected a type declared 'base entity'"]),
    'base that is unknown': (below('entity E : B named {}'), [
        "3:12: unknown base type 'B', expected a builtin, a type of namespace 'N' or a qualified "
        'name']),
    'inheritance cycle': (below('base entity A : C named {}\nbase entity B : A named {}\n'
                                'base entity C : B named {}\nentity D : A named {}'), [
        "3:17: type 'A' derives from itself, expected a base without a cycle",
        "4:17: type 'B' derives from itself, expected a base without a cycle",
        "5:17: type 'C' derives from itself, expected a base without a cycle"]),
    'own base': (below('base entity A : A named {}'), [
        "3:17: type 'A' derives from itself, expected a base without a cycle"]),
    'unlinked base': (below('base entity B unlinked named {}'), [
        "3:15: 'unlinked' on a base type, expected it only where a collection could hold the "
        'type']),
    'block below the first': (below('entity E named { block 0x80 }'), [
        '3:24: block 0x80, expected a number from 0x100 to 0x7ffffeff']),
    'block over ids of the base': (below('base entity B named { a : U8 }\n'
                                         'entity E : B named { block 0x102 }'), [
        '4:28: block 0x102, expected a number from 0x103 to 0x7ffffeff']),
    'more attributes than the block holds': (below('entity E named {\nblock 0x2fc\na : U8\nb : U8\n'
                                                   'c : U8\nd : U8\n}'), [
        "7:1: attribute 'c' would have the id 0x300, expected at most 2 attributes in block "
        '0x2fc']),
    'more attributes than dirty bits': (
        below('entity E named {\n' + ''.join('a%d : U8\n' % i for i in range(33)) + '}'), [
            "35:1: attribute 'a31' is the 32. that can change, expected at most 31 in a type "
            'without base']),
    'more attributes than dirty bits, below a base': (
        below('base entity B named {}\nentity E : B named {\n'
              + ''.join('a%d : U8\n' % i for i in range(33)) + '}'), [
            "37:1: attribute 'a32' is the 33. that can change, expected at most 32 in a type with a "
            'base']),
}

ATTRIBUTES = {
    'unknown type': (member('a : Foo'), [
        "5:5: unknown type 'Foo', expected a builtin, a type of namespace 'N' or a qualified "
        'name']),
    'unknown key type': (member('a[Foo] : U8'), [
        "5:3: unknown key type 'Foo', expected a builtin, a type of namespace 'N' or a qualified "
        'name']),
    'key type that is no key': (member('a[double] : U8'), [
        "5:3: 'double' can't be a key, expected an integer, String8, Name, an identifier or an "
        'enumeration']),
    'twice': (member('a : U8\na : U8'), [
        "6:1: attribute 'a' stands already in line 5, expected another name"]),
    'twice along the chain': (below('base entity B named { a : U8 }\nentity E : B named { a : U8 }'),
                              ["4:22: attribute 'a' stands already in base 'N::B', expected another "
                               'name']),
    'names': (member('class : U8\nlinux : U8\nmoxThing : U8\n_a : U8\na_ : U8\na__b : U8\nA : U8'), [
        "5:1: name 'class' is a C++ keyword, expected another name",
        "6:1: name 'linux' is a macro of system headers, expected another name",
        "7:1: name 'moxThing' begins with 'mox', which is reserved, expected another name",
        "8:1: name '_a' is reserved in C++, expected letters, digits and single underscores between "
        'them',
        "9:1: name 'a_' is reserved in C++, expected letters, digits and single underscores between "
        'them',
        "10:1: name 'a__b' is reserved in C++, expected letters, digits and single underscores "
        'between them',
        "11:1: name 'A' begins with a capital, expected a small first letter"]),
    'endless name': (member('a' * 201 + ' : U8'), [
        '5:1: name of 201 characters, expected at most 200']),
    'members of every entity': (
        member('\n'.join(name + ' : U8' for name in (
            'name', 'parent', 'version', 'readCount', 'key', 'next', 'fullName', 'fwkType'))),
        ["%d:1: attribute '%s' has the name of a member of every entity, expected another name"
         % (line, name) for line, name in enumerate((
             'name', 'parent', 'version', 'readCount', 'key', 'next', 'fullName', 'fwkType'), 5)]),
    'handlers of every subscriber': (member('notification : U8\nattribute : U8'), [
        "5:1: handler 'onNotification' of attribute 'notification' is a member of every entity or "
        'subscriber, expected another name',
        "6:1: handler 'onAttribute' of attribute 'attribute' is a member of every entity or "
        'subscriber, expected another name']),
    'setter of another': (member('x : U8\nxIs : U8'), [
        "6:1: attribute 'xIs' has a getter 'xIs', which is the setter of attribute 'x', expected "
        'another name']),
    'deleter of another, that comes later': (member('xDel : U8\nx[U8] : U8'), [
        "6:1: attribute 'x' has a deleter 'xDel', which is the getter of attribute 'xDel', expected "
        'another name']),
    'factory and counter of another': (member('x[U8] : U8\nnewX : U8\nxCount : U8'), [
        "6:1: attribute 'newX' has a getter 'newX', which is the factory of attribute 'x', expected "
        'another name',
        "7:1: attribute 'xCount' has a getter 'xCount', which is the counter of attribute 'x', "
        'expected another name']),
    'handler of another': (member('x[U8] : U8\nxmoxImmediate : U8'), [
        "6:1: attribute 'xmoxImmediate' has a handler 'onXmoxImmediate', which is the handler of "
        "attribute 'x', expected another name"]),
    'setter of an inherited one': (below('base entity B named { x : U8 }\n'
                                         'entity E : B named { xIs : U8 }'), [
        "4:22: attribute 'xIs' has a getter 'xIs', which is the setter of attribute 'x', expected "
        'another name']),
    'wrapper that is plumbing': (member('nboAttrLogSa[U8] : U8'), [
        "5:1: wrapper 'MoxNboAttrLogSa' of attribute 'nboAttrLogSa' is a member of every entity or "
        'subscriber, expected another name']),
    'that hides a namespace': ('module T\nnamespace n\nentity E named { n : U8 }', [
        "3:18: attribute 'n' hides the namespace 'n', expected another name"]),
    'entity as a value': (member('a : E\nb[U8] : E'), [
        "5:5: attribute 'a' of entity type 'E', expected 'ref' or 'child' before it",
        "6:9: attribute 'b' of entity type 'E', expected 'ref' or 'child' before it"]),
    'value as a reference and as a child': (member('ref a : U8\nchild b : U8\nchild c[id] : U8'), [
        "5:9: ref 'a' of type 'U8', expected an entity type",
        "6:11: child 'b' of type 'U8', expected an entity type",
        "7:15: child 'c' of type 'U8', expected an entity type"]),
    'index where none belongs': (member('ref a[id] : E\nparam b[U8] : U8'), [
        "5:7: '[id]' at ref 'a', expected it at a value or a 'child' only",
        "6:9: '[U8]' at param 'b', expected it at a value or a 'child' only"]),
    'child by a foreign key': (member('child a[other] : E'), [
        "5:9: 'other' is not the key of 'E', expected 'id'"]),
    'child by its name that has a key': (member('child a[name] : E'), [
        "5:9: 'name' is not the key of 'E', expected 'id'"]),
    'child of base and root types': (below('base entity B named {}\nroot entity R named {\n'
                                           'child a[name] : B\nchild b : R\n}'), [
        "5:17: child of type 'B', expected a type that is neither base nor root",
        "6:11: child of type 'R', expected a type that is neither base nor root"]),
    'unlinked member without wrapper': (below('entity U unlinked { key id : U8 }\n'
                                              'entity E named { child a[id] : U }'), [
        "4:32: member type 'U' is unlinked, expected 'wrapped' behind it"]),
    'wrapper around a linked member': (member('child a[id] : E wrapped'), [
        "5:17: 'wrapped' around member type 'E' that has a link, expected none"]),
    'wrapped elsewhere': (member('a : U8 wrapped\nchild b : E wrapped'), [
        "5:8: 'wrapped' at 'a', expected it at a child collection only",
        "6:13: 'wrapped' at 'b', expected it at a child collection only"]),
    'reaction that is not there': (member('a : U8 reacts b'), [
        "5:15: 'reacts b', expected a 'notify' of this type with that name"]),
    'reaction that is an attribute': (member('a : U8 reacts b\nb : U8'), [
        "5:15: 'reacts b', expected a 'notify' of this type with that name"]),
    'reaction of a collection': (member('a[U8] : U8 reacts b\nnotify b'), [
        "5:19: 'reacts' at 'a', expected it at a value or a 'ref' only"]),
}


def misfit(type, default, shown, expected):
    return (member('a : %s = %s' % (type, default)), [
        '5:%d: default of \'a\' is %s, expected %s' % (8 + len(type), shown, expected)])


DEFAULTS = {
    'bool': misfit('bool', '1', "'1'", "'true' or 'false'"),
    'U8 too large': misfit('U8', '256', "'256'", 'a number from 0 to 255'),
    'U16 negative': misfit('U16', '-1', "'-1'", 'a number from 0 to 65535'),
    'U32 too large': misfit('U32', '0x100000000', "'0x100000000'", 'a number from 0 to 4294967295'),
    'U64 too large': misfit('U64', '18446744073709551616', "'18446744073709551616'",
                            'a number from 0 to 18446744073709551615'),
    'int too small': misfit('int', '-2147483649', "'-2147483649'",
                            'a number from -2147483648 to 2147483647'),
    'fraction': misfit('U8', '1.5', "'1.5'", 'a number from 0 to 255'),
    'double': misfit('double', '"1"', '"1"', 'a number'),
    'text': misfit('String8', '5', "'5'", 'a text in quotes'),
    'name that is nothing': misfit('U8', 'nothing', "'nothing'", 'a number from 0 to 255'),
    'enumerator': (below('enum F { a = 1 }\nentity E named { x : F = b  y : F = 2 }'), [
        "4:26: default of 'x' is 'b', expected an enumerator of 'N::F'",
        "4:37: default of 'y' is '2', expected an enumerator of 'N::F'"]),
    'identifier': (below('identifier I : U8 { min 2 null 9 }\nidentifier J : U8 { max 9 }\n'
                         'entity E named { x : I = 1  y : J = null }'), [
        "5:26: default of 'x' is '1', expected a number from 2 to 9 or 'null'",
        "5:37: default of 'y' is 'null', expected a number from 0 to 9"]),
    'later parameter': (member('a : U8 = p\nparam p : U8'), [
        "5:10: default 'p' stands behind 'a', expected an earlier key or parameter"]),
    'parameter of another type': (member('a : U8 = id'), [
        "5:10: default 'id' has the type 'U16', expected 'U8'"]),
    'where none belongs': (member('param a : U8 = 1\nref b : E = null\nc[U8] : U8 = 1'), [
        "5:16: default at 'a', expected it at a value only",
        "6:13: default at 'b', expected it at a value only",
        "7:14: default at 'c', expected it at a value only"]),
    'first value of what can not have one': (member('init id = 1\ninit none = 1'), [
        "5:6: 'init id', expected an own or inherited value",
        "6:6: 'init none', expected an own or inherited value"]),
    'first value twice, and one that does not fit': (member('a : bool\ninit a = true\ninit a = 7'), [
        "7:6: 'init a' stands twice, expected it once",
        "7:10: first value of 'a' is '7', expected 'true' or 'false'"]),
}

IMPORTS = {
    'missing file': ({'t.mox': 'module T\nimport "none.mox"'}, [
        "t.mox:2:1: no file 'none.mox', expected it beside this file or in an import directory"]),
    'cycle': ({'t.mox': 'module T\nimport "a.mox"', 'a.mox': 'module A\nimport "t.mox"'}, [
        "a.mox:2:1: import of 't.mox' closes a cycle, expected imports without one"]),
    'itself': ({'t.mox': 'module T\nimport "t.mox"'}, [
        "t.mox:2:1: import of 't.mox' closes a cycle, expected imports without one"]),
    'twice': ({'t.mox': 'module T\nimport "a.mox"\nimport "./a.mox"', 'a.mox': 'module A'}, [
        "t.mox:3:1: './a.mox' is imported twice, expected it once"]),
    'same module name': ({'t.mox': 'module T\nimport "a.mox"', 'a.mox': 'module T'}, [
        "t.mox:1:8: module 'T' has the name of a module that it imports, expected another name"]),
    'type of an import of an import': ({
        't.mox': 'module T\nimport "a.mox"\nnamespace N\nentity E named {\na : B::F\n}',
        'a.mox': 'module A\nimport "b.mox"', 'b.mox': 'module B\nnamespace B\nenum F { a = 1 }'}, [
        "t.mox:5:5: type 'B::F' is declared in 'b.mox', expected an import of that file"]),
    'type declared in the import too': ({
        't.mox': 'module T\nimport "a.mox"\nnamespace A\nentity E named {}',
        'a.mox': 'module A\nnamespace A\nentity E named {}'}, [
        "t.mox:4:8: type 'A::E' is declared already in module 'A', expected another name"]),
    'two imports with one type': ({
        't.mox': 'module T\nimport "a.mox"\nimport "b.mox"',
        'a.mox': 'module A\nnamespace N\nentity E named {}',
        'b.mox': 'module B\nnamespace N\nentity E named {}'}, [
        "t.mox:1:8: modules 'A' and 'B' both declare 'N::E', expected one of them to be "
        'imported']),
    'errors of imports come with their file, and nothing that follows from them': ({
        't.mox': 'module T\nimport "a.mox"\nnamespace N\nentity E named { a : A::F }',
        'a.mox': 'module A\nnamespace A\nenum F {}'}, [
        "a.mox:3:6: enumeration 'F' is empty, expected at least one enumerator"]),
}


class Refusals(unittest.TestCase):
    maxDiff = None

    def check(self, table):
        for name, (text, messages) in table.items():
            with self.subTest(name):
                module, lines = compileText(text)
                self.assertEqual(lines, ['t.mox:' + message for message in messages])
                self.assertIsNone(module)

    def testSyntax(self):
        self.check(SYNTAX)

    def testLexical(self):
        self.check(LEXICAL)

    def testTypes(self):
        self.check(TYPES)

    def testEntities(self):
        self.check(ENTITIES)

    def testAttributes(self):
        self.check(ATTRIBUTES)

    def testDefaults(self):
        self.check(DEFAULTS)

    def testImports(self):
        for name, (files, messages) in IMPORTS.items():
            with self.subTest(name):
                module, lines = compileFiles(files)
                self.assertEqual(lines, messages)
                self.assertIsNone(module)

    def testOneFaultHidesNoOther(self):
        module, lines = compileText(below(
            'entity E {\nkey id U16\na : Foo\n}\nenum F {}\nentity G { b : U8 = 300 }\n'))
        self.assertIsNone(module)
        self.assertEqual(lines, [
            "t.mox:4:8: found 'U16', expected ':' and the type of attribute 'id'",
            "t.mox:5:5: unknown type 'Foo', expected a builtin, a type of namespace 'N' or a "
            'qualified name',
            "t.mox:7:6: enumeration 'F' is empty, expected at least one enumerator",
            "t.mox:8:8: entity type 'G' has neither key nor name, expected a 'key' attribute or "
            "'named'",
            "t.mox:8:21: default of 'b' is '300', expected a number from 0 to 255"])


if __name__ == '__main__':
    unittest.main()
