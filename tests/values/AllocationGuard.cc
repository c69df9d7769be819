// The substrate tests' allocation functions, for this program too.
#include "tests/Mox/AllocationGuard.cc"
