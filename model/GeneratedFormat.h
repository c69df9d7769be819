// The form of the code that the schema compiler makes over this run-time. Generated headers check
// it, so that files of another version of the compiler don't meet these algorithms by accident.
#pragma once

#include "Mox/Api.h"

namespace MOX_API Mox {

inline constexpr int generatedFormat = 2;

}  // namespace Mox
