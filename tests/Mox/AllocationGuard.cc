#include "AllocationGuard.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace allocationGuard {

long live = 0;
long sizedFrees = 0;
long failIn = 0;

namespace {

struct alignas(16) Header {
  std::size_t size;
  std::uint64_t mark;
};
constexpr std::uint64_t liveMark = 0x11fe11fe11fe11fe;

void count(long& counter, long by) {
  std::atomic_ref<long>(counter).fetch_add(by, std::memory_order_relaxed);
}

[[gnu::noinline]] void* allocate(std::size_t size) {
  if (failIn > 0 && --failIn == 0) return nullptr;
  auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + size));
  if (!header) return nullptr;
  *header = {size, liveMark};
  count(live, 1);
  return header + 1;
}

[[gnu::noinline]] void release(void* memory, std::size_t size, bool isSized) {
  if (!memory) return;
  auto* const header = static_cast<Header*>(memory) - 1;
  if (header->mark != liveMark || (isSized && header->size != size)) {
    std::fprintf(stderr, "block of %zu bytes freed as %zu\n", header->size, size);
    std::abort();
  }
  header->mark = 0;
  count(live, -1);
  if (isSized) count(sizedFrees, 1);
  std::free(header);
}

}  // namespace
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
