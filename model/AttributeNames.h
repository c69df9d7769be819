// Attribute names by id, as generated entity classes list their own.
#pragma once

#include <cstddef>

#include "Mox/AttributeId.h"

namespace MOX_API Mox {

struct AttributeName {
  AttributeId id;
  char const* name;
};

/// The name of an id that stands in the table; null for any other.
template <std::size_t count>
constexpr char const* attributeName(AttributeName const (&table)[count], AttributeId id) {
  for (AttributeName const& entry : table) {
    if (entry.id == id) return entry.name;
  }
  return nullptr;
}

}  // namespace Mox
