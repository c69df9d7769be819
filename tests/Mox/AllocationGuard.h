// The allocation functions of this test program: they count what lives, check the size that a sized
// delete gives back, and fail the allocation that a test asks for.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <new>

namespace allocationGuard {

extern long live;        ///< blocks allocated and not freed
extern long sizedFrees;  ///< frees that told the size
extern long failIn;      ///< 1: the next allocation fails; 0: none does

/// Runs `operation` again and again, failing its first allocation, then its second, and so on until
/// it succeeds. `prepare` makes what it works on, `check(failed)` looks at it afterwards. Returns
/// how many allocations were failed; nothing may have leaked after any of them.
template <class Prepare, class Operation, class Check>
int failEach(Prepare prepare, Operation operation, Check check) {
  for (int nth = 1;; ++nth) {
    long const before = live;
    bool failed = false;
    {
      auto subject = prepare();
      failIn = nth;
      try {
        operation(subject);
      } catch (std::bad_alloc const&) {
        failed = true;
      }
      bool const wasReached = failIn == 0;
      failIn = 0;
      check(subject, failed);
      if (!wasReached) {
        if (failed) std::abort();
        return nth - 1;
      }
    }
    if (live != before) {
      std::fprintf(stderr, "allocation %d failed: %ld blocks leaked\n", nth, live - before);
      std::abort();
    }
  }
}

}  // namespace allocationGuard
