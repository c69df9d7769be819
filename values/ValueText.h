// Values as text and back: `valueToStrep` shows a value, `sequenceToValue` reads one at a position,
// `strepToValue` reads a whole text. Called by error messages, the generic interface, the tools.
// The syntax: docs/value-text.md.
#pragma once

#include <concepts>
#include <typeinfo>

#include "Mox/Entity.h"
#include "Mox/Exception.h"
#include "Mox/Name.h"
#include "Mox/Ptr.h"
#include "Mox/String8.h"
#include "values/RangedId.h"

namespace MOX_API Mox {

/// "true" or "false".
String8 valueToStrep(bool value);
/// Decimal digits, with a minus sign where negative.
String8 valueToStrep(unsigned long long value);
String8 valueToStrep(long long value);
inline String8 valueToStrep(unsigned char value) { return valueToStrep(0ull + value); }
inline String8 valueToStrep(unsigned short value) { return valueToStrep(0ull + value); }
inline String8 valueToStrep(unsigned int value) { return valueToStrep(0ull + value); }
inline String8 valueToStrep(unsigned long value) { return valueToStrep(0ull + value); }
inline String8 valueToStrep(int value) { return valueToStrep(0ll + value); }
inline String8 valueToStrep(long value) { return valueToStrep(0ll + value); }
/// The shortest decimal text that reads back as the same number; "inf", "-inf", "nan".
String8 valueToStrep(double value);
/// The text in apostrophes, with escapes.
String8 valueToStrep(String8 const& value);
String8 valueToStrep(Name const& value);
/// Would otherwise be taken for a bool.
inline String8 valueToStrep(char const* value) { return valueToStrep(String8(value)); }

/// The text of a reference: the entity's `fullName()` in apostrophes, `''` for null. The static
/// type of the reference doesn't show in it.
String8 valueToStrepOfRawPtr(Entity const* entity, std::type_info const& type);
template <class T>
String8 valueToStrep(Ptr<T> const& reference) {
  return valueToStrepOfRawPtr(reference.get(), typeid(T));
}

/// The text of a value of any type, by the form of its own namespace.
template <class T>
String8 textOf(T const& value) {
  return valueToStrep(value);
}

/// Reports that the text from `pos` to `end` can't be read as `type`: RangeException
/// "cannot convert <text> to <type name>".
[[noreturn]] void cannotConvert(String8::IteratorConst const& pos,
                                String8::IteratorConst const& end, std::type_info const& type);

/// One string token: a bare word of letters, digits and the characters _.-:/ or any bytes in
/// apostrophes with backslash escapes. No blanks are skipped, here or in any other form.
///
/// Every form reads one value at `pos`, leaves `pos` behind it and returns it; the last argument
/// only picks the overload. A text that can't be read leaves `pos` alone and goes to
/// `cannotConvert`.
String8 sequenceToValue(String8::IteratorConst& pos, String8::IteratorConst const& end, String8*);
Name sequenceToValue(String8::IteratorConst& pos, String8::IteratorConst const& end, Name*);
/// true, false, 1 or 0.
bool sequenceToValue(String8::IteratorConst& pos, String8::IteratorConst const& end, bool*);
/// Decimal digits, or hex digits behind 0x; a minus sign for the signed types alone. A number that
/// doesn't fit its type can't be read.
unsigned char sequenceToValue(String8::IteratorConst& pos, String8::IteratorConst const& end,
                              unsigned char*);
unsigned short sequenceToValue(String8::IteratorConst& pos, String8::IteratorConst const& end,
                               unsigned short*);
unsigned int sequenceToValue(String8::IteratorConst& pos, String8::IteratorConst const& end,
                             unsigned int*);
unsigned long long sequenceToValue(String8::IteratorConst& pos, String8::IteratorConst const& end,
                                   unsigned long long*);
int sequenceToValue(String8::IteratorConst& pos, String8::IteratorConst const& end, int*);
double sequenceToValue(String8::IteratorConst& pos, String8::IteratorConst const& end, double*);

/// Unsigned digits as above, read for `type`; the largest number stands for those above it.
unsigned long long sequenceToLargeNumber(String8::IteratorConst& pos,
                                         String8::IteratorConst const& end,
                                         std::type_info const& type);

/// An identifier is read as a number and passes its own test with its own message, however large
/// the number is.
template <class Id>
requires(Id::isMoxIdentifier) Id
    sequenceToValue(String8::IteratorConst& pos, String8::IteratorConst const& end, Id*) {
  String8::IteratorConst next(pos);
  auto const number = sequenceToLargeNumber(next, end, typeid(Id));
  if (!Id::accepts(number)) throwRangeException(Id::rangeMessage);
  pos = next;
  return Id(static_cast<typename Id::NumberType>(number));
}

/// Reads the text of a reference and finds the entity (`EntityPath`); null for a text that names
/// nothing.
Ptr<Entity> sequenceToValueOfPtr(String8::IteratorConst& pos, String8::IteratorConst const& end,
                                 Entity*);

/// The same for a reference to `T`; an entity of another type can't be converted.
template <class T>
Ptr<T> sequenceToValue(String8::IteratorConst& pos, String8::IteratorConst const& end, Ptr<T>*) {
  String8::IteratorConst next(pos);
  Ptr<Entity> const entity = sequenceToValueOfPtr(next, end, nullptr);
  Ptr<T> result = ptrCast<T>(entity);
  if (entity && !result) cannotConvert(pos, next, typeid(T));
  pos = next;
  return result;
}

/// Raises the RangeException "junk at column %lld deserializing %s" with the position of `pos`.
[[noreturn]] void throwJunk(String8::IteratorConst const& pos, String8 const& text);

/// Reads the whole of `text` as one `T`; text left behind the value raises RangeException
/// "junk at column %lld deserializing %s", with the column counted in bytes from 0.
template <class T>
T strepToValue(String8 const& text, T* = nullptr) {
  String8::IteratorConst pos(text, 0);
  String8::IteratorConst const end(text, static_cast<int>(text.length()));
  {
    T value = sequenceToValue(pos, end, static_cast<T*>(nullptr));
    if (pos == end) return value;
  }
  throwJunk(pos, text);
}

}  // namespace Mox
