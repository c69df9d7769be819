// Replaces the global allocation functions of one test program: counts what lives, checks the size
// that a sized delete gives back, and fails the allocation that a test asks for. Include it in
// exactly one source of a program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace allocationGuard {

struct alignas(16) Header {
  std::size_t size;
  std::uint64_t mark;
};
inline constexpr std::uint64_t liveMark = 0x11fe11fe11fe11fe;

inline long live = 0;        ///< blocks allocated and not freed
inline long sizedFrees = 0;  ///< frees that told the size
inline long failIn = 0;      ///< 1: the next allocation fails; 0: none does

[[gnu::noinline]] inline void* allocate(std::size_t size) {
  if (failIn > 0 && --failIn == 0) return nullptr;
  auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + size));
  if (!header) return nullptr;
  *header = {size, liveMark};
  ++live;
  return header + 1;
}

[[gnu::noinline]] inline void release(void* memory, std::size_t size, bool isSized) {
  if (!memory) return;
  auto* const header = static_cast<Header*>(memory) - 1;
  if (header->mark != liveMark || (isSized && header->size != size)) {
    std::fprintf(stderr, "block of %zu bytes freed as %zu\n", header->size, size);
    std::abort();
  }
  header->mark = 0;
  --live;
  if (isSized) ++sizedFrees;
  std::free(header);
}

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

void* operator new(std::size_t size) {
  if (void* const memory = allocationGuard::allocate(size)) return memory;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
  return allocationGuard::allocate(size);
}
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
  return allocationGuard::allocate(size);
}
void operator delete(void* memory) noexcept { allocationGuard::release(memory, 0, false); }
void operator delete[](void* memory) noexcept { allocationGuard::release(memory, 0, false); }
void operator delete(void* memory, std::nothrow_t const&) noexcept {
  allocationGuard::release(memory, 0, false);
}
void operator delete[](void* memory, std::nothrow_t const&) noexcept {
  allocationGuard::release(memory, 0, false);
}
void operator delete(void* memory, std::size_t size) noexcept {
  allocationGuard::release(memory, size, true);
}
void operator delete[](void* memory, std::size_t size) noexcept {
  allocationGuard::release(memory, size, true);
}
