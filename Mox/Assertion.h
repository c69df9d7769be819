// The end of a process that met something that may never be. Called by the model's own checks of
// its code; never for damaged input or a caller's ordinary mistake.
#pragma once

#include "Mox/Api.h"

namespace MOX_API Mox {

/// Prints `source:line: function: Assertion 'expression' failed.` to standard error and aborts.
[[noreturn]] void assertionFailed(char const* expression, char const* source, int line,
                                  char const* function);

}  // namespace Mox
