#include "Mox/Exception.h"

namespace Mox {

thread_local constinit Expect* Expect::innermost_ = nullptr;

bool Expect::expects(Exception::IdBitArray const& ids) {
  for (Expect const* scope = innermost_; scope; scope = scope->previous_) {
    if (scope->id_ == Exception::anyId || ids.contains(scope->id_)) return true;
  }
  return false;
}

Exception::Exception(String8 message, IdBitArray ids, bool flag)
    : message_(message), ids_(ids), flag_(flag), isPlanned_(Expect::expects(ids)) {}
Exception::~Exception() = default;

RangeException::RangeException(String8 message, IdBitArray ids)
    : Exception(message, ids.add(rangeId), true) {}
RangeException::~RangeException() = default;

InternalException::InternalException(String8 message, IdBitArray ids)
    : Exception(message, ids.add(internalId), true) {}
InternalException::~InternalException() = default;

NameInUseException::NameInUseException(String8 message, IdBitArray ids)
    : Exception(message, ids.add(nameInUseId), true) {}
NameInUseException::~NameInUseException() = default;

AttrLogEntityException::AttrLogEntityException(String8 message, IdBitArray ids)
    : Exception(message, ids.add(attrLogEntityId), true) {}
AttrLogEntityException::~AttrLogEntityException() = default;

AttrLogRecordException::AttrLogRecordException(String8 message, IdBitArray ids)
    : Exception(message, ids.add(attrLogRecordId), true) {}
AttrLogRecordException::~AttrLogRecordException() = default;

EntityIdUnavailableException::EntityIdUnavailableException(String8 message, IdBitArray ids)
    : Exception(message, ids.add(entityIdUnavailableId), true) {}
EntityIdUnavailableException::~EntityIdUnavailableException() = default;

TypeException::TypeException(String8 message, IdBitArray ids)
    : Exception(message, ids.add(typeId), true) {}
TypeException::~TypeException() = default;

ConstException::ConstException(String8 message, IdBitArray ids)
    : Exception(message, ids.add(constId), true) {}
ConstException::~ConstException() = default;

UnknownArgException::UnknownArgException(String8 message, IdBitArray ids)
    : Exception(message, ids.add(unknownArgId), true) {}
UnknownArgException::~UnknownArgException() = default;

UnknownAttrException::UnknownAttrException(String8 message, IdBitArray ids)
    : Exception(message, ids.add(unknownAttrId), true) {}
UnknownAttrException::~UnknownAttrException() = default;

BadIndexAttrException::BadIndexAttrException(String8 message, IdBitArray ids)
    : Exception(message, ids.add(badIndexAttrId), true) {}
BadIndexAttrException::~BadIndexAttrException() = default;

OpNotSupportedException::OpNotSupportedException(String8 message, IdBitArray ids)
    : Exception(message, ids.add(opNotSupportedId), true) {}
OpNotSupportedException::~OpNotSupportedException() = default;

void throwRangeException(char const* message) {
  throw RangeException(message, Exception::IdBitArray());
}
void throwInternalException(char const* message) { throw InternalException(message); }
void throwInternalException(String8 const& message) { throw InternalException(message); }
void throwNameInUseException(String8 const& message) { throw NameInUseException(message); }

}  // namespace Mox
