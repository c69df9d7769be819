// The forms that messages about an attribute take. The rows of adapters and the tables of the
// stream decoder have one each.
#pragma once

#include <cstdint>

#include "Mox/Api.h"

namespace MOX_API Mox {
namespace NboAttrLog {

enum class AttrForm : std::uint8_t {
  plain,           ///< a value in one message
  reference,       ///< the id of an entity owned elsewhere
  pieces,          ///< a string, in as many messages as it takes
  singleton,       ///< an owned child
  entities,        ///< a collection of owned children
  valuesById,      ///< a collection of values under numbers
  valuesByString,  ///< a collection of strings under strings, each in as many messages as it takes
};

}  // namespace NboAttrLog
}  // namespace Mox
