// What stands in the messages about each entity type, as data: for reading a stream without making
// its entities. Generated code fills the tables in; StreamText asks.
#pragma once

#include <concepts>
#include <cstddef>
#include <string_view>

#include "Mox/AttributeRow.h"
#include "attrlog/wire/In.h"
#include "attrlog/wire/WireValue.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// Reads one value and gives its text. Throws what the value's reader throws. Null: the value is a
/// reference, an entity's id.
using NextText = String8 (*)(In& in);

struct WireArg {
  char const* name;
  NextText next;
};

struct WireArgs {
  WireArg const* args;
  std::size_t count;

  WireArg const* begin() const { return args; }
  WireArg const* end() const { return args + count; }
};

struct WireAttr {
  AttributeRow const& row;
  NextText key;           ///< of a collection: the key as paths show it
  NextText value;         ///< null for a reference, and where there is none
  WireArgs args;          ///< of what owns children: the constructor arguments in a creation
  char const* childType;  ///< qualified name; null unless it owns children
};

struct WireType {
  char const* qualifiedName;
  char const* base;  ///< qualified name; null for none
  NextText name;     ///< reads the name in front of a root's arguments; null without a name
  WireArgs args;     ///< constructor arguments of a root
  WireAttr const* attrs;
  std::size_t count;

  /// Null for an id that neither the type nor its bases have.
  WireAttr const* attr(AttributeId id) const;
};

/// The types of one model, known to `wireType` from their construction on. Static.
class WireTypes {
 public:
  WireTypes(WireType const* types, std::size_t count);
  WireTypes(WireTypes const&) = delete;
  WireTypes& operator=(WireTypes const&) = delete;

 private:
  friend WireType const* wireType(std::string_view qualifiedName);
  WireType const* types_;
  std::size_t count_;
  WireTypes const* next_;
};

/// Null for a type that no model of the process has.
WireType const* wireType(std::string_view qualifiedName);

// For generated tables.

template <class T>
String8 nextTextOf(In& in) {
  return textOf(WireValue<T>::read(in));
}
template <class T>
inline constexpr NextText nextText = &nextTextOf<T>;
template <class T>
inline constexpr NextText nextText<Ptr<T>> = nullptr;

/// Keys stand in paths in their text form, names bare.
template <class T>
String8 nextPathText(In& in) {
  if constexpr (std::same_as<T, Name>) {
    return in.nextString();
  } else {
    return nextTextOf<T>(in);
  }
}

}  // namespace NboAttrLog
}  // namespace Mox
