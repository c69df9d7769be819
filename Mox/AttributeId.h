// The number of an attribute within its type. Wire value and key of every table of attributes.
#pragma once

#include <cstdint>

#include "Mox/Api.h"

namespace MOX_API Mox {

/// Means something only together with a type. Signed: the log negates it for deletions.
using AttributeId = std::int32_t;

}  // namespace Mox
