// What is common to owned children in collections and singletons: how a child joins and leaves its
// parent, and the refusal to make it again with other parameters.
#pragma once

#include <typeinfo>

#include "Mox/AttributeId.h"
#include "Mox/Entity.h"
#include "Mox/Exception.h"
#include "Mox/Ptr.h"
#include "Mox/String8.h"
#include "values/ValueText.h"

namespace MOX_API Mox {

/// Throws the NameInUseException of a child that exists with another value of a constructor
/// parameter; the new value comes first in its text.
[[noreturn]] void throwReinstantiation(Name const& childName, char const* parameter,
                                       String8 const& newValue, String8 const& oldValue);

/// One constructor parameter of a child that is to exist: `Getter` reads it.
template <auto Getter, class T>
struct ChildParam {
  char const* name;
  T const& value;

  /// Throws when the child has another value.
  template <class Child>
  void check(Child const& child) const {
    T const stored = (child.*Getter)();
    if (stored != value) {
      throwReinstantiation(child.name(), name, valueToStrep(value), valueToStrep(stored));
    }
  }
  template <class Child>
  bool matches(Child const& child) const {
    return (child.*Getter)() == value;
  }
};

template <auto Getter, class T>
ChildParam<Getter, T> childParam(char const* name, T const& value) {
  return {name, value};
}

}  // namespace Mox
