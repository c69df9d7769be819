"""Names that a schema may not use, and why. Called by checker.py."""

import re

CPP_KEYWORDS = frozenset('''
    alignas alignof and and_eq asm auto bitand bitor bool break case catch char char8_t char16_t
    char32_t class compl concept const consteval constexpr constinit const_cast continue co_await
    co_return co_yield decltype default delete do double dynamic_cast else enum explicit export
    extern false float for friend goto if inline int long mutable namespace new noexcept not not_eq
    nullptr operator or or_eq private protected public register reinterpret_cast requires return
    short signed sizeof static static_assert static_cast struct switch template this thread_local
    throw true try typedef typeid typename union unsigned using virtual void volatile wchar_t while
    xor xor_eq final override import module
'''.split())

# Names that system headers may define as macros.
MACROS = frozenset('''
    NULL EOF BUFSIZ assert errno linux unix i386 major minor makedev stdin stdout stderr offsetof
    setjmp va_start va_arg va_end va_copy
'''.split())

# Members of Mox::Entity and its bases, and of every generated class.
ENTITY_MEMBERS = frozenset('''
    name parent parentIs parentAttr parentAttrId parentAttrIdIs uriPath fullName attributeString
    handleParent version readCount entityFlags entityId references referencesInc referencesDec
    referencesLeak handleZeroRef hasNotificationActive hasNotificationActiveIs auditErrors
    zeroReferencesIs fwkType fwkKey key next notifieeList enableThreadSafePointers newEntity
    childAttrLogIs genericIf
'''.split())

# Virtual operations of the subscriber classes' bases.
NOTIFIEE_HANDLERS = frozenset('''
    onParent onVersion onAttribute onNotification onCollectionNotification onNotificationException
    onZeroReferences
'''.split())

# Nested classes of every generated class, and names of the framework.
TYPE_NAMES = frozenset('''
    Notifiee NotifieeConst Ids GenericIf Entity Ptr ValidPtr PtrInterface String8 Name Mox
'''.split())

# Nested classes of every entity class that have the form of a collection's wrapper.
WRAPPER_NAMES = frozenset('''
    MoxNboAttrLogSa MoxNboAttrLogSaAdapter MoxType MoxAttr MoxBitSet MoxPendingAbort
'''.split())

# Functions that each enumeration has beside it.
ENUM_FUNCTIONS = frozenset('stringValue valueToStrep sequenceToValue strepToValue'.split())

RESERVED_NAMESPACES = frozenset(('Mox', 'std', 'mox'))

_PATTERN = re.compile(r'[A-Za-z][A-Za-z0-9]*(_[A-Za-z0-9]+)*\Z')
MAX_LENGTH = 200


def fault(name, first):
    """What is wrong with `name` anywhere, or None. `first`: 'lower', 'upper' or 'any' letter."""
    if name in CPP_KEYWORDS:
        return "name '%s' is a C++ keyword, expected another name" % name
    if name in MACROS:
        return "name '%s' is a macro of system headers, expected another name" % name
    if name.lower().startswith('mox'):
        return "name '%s' begins with 'mox', which is reserved, expected another name" % name
    if len(name) > MAX_LENGTH:
        return 'name of %d characters, expected at most %d' % (len(name), MAX_LENGTH)
    if not _PATTERN.match(name):
        return ("name '%s' is reserved in C++, expected letters, digits and single underscores "
                'between them' % name)
    if first == 'lower' and not name[0].islower():
        return "name '%s' begins with a capital, expected a small first letter" % name
    if first == 'upper' and not name[0].isupper():
        return "name '%s' begins with a small letter, expected a capital" % name
    return None
