#include "Mox/Assertion.h"

#include <cstdio>
#include <cstdlib>

namespace Mox {

void assertionFailed(char const* expression, char const* source, int line, char const* function) {
  std::fprintf(stderr, "%s:%d: %s: Assertion '%s' failed.\n", source, line, function, expression);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Mox
