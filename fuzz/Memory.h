// What an input may cost: the bytes allocated while it is worked on are measured against its size.
// Included by the one source of a fuzzer, since it installs the sanitizer's hooks.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>

extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(void const volatile*, std::size_t),
                                              void (*onFree)(void const volatile*));
std::size_t __sanitizer_get_allocated_size(void const volatile*);
}

namespace Fuzz {

// The fuzzer has threads of its own, and frees what it took before the hooks stood: so the count is
// each thread's, and may fall below zero.
inline thread_local std::ptrdiff_t live = 0;
inline thread_local std::ptrdiff_t most = 0;

inline void hooksInstalled() {
  static int const installed = __sanitizer_install_malloc_and_free_hooks(
      [](void const volatile*, std::size_t size) {
        live += static_cast<std::ptrdiff_t>(size);
        if (live > most) most = live;
      },
      [](void const volatile* at) {
        if (at != nullptr) live -= static_cast<std::ptrdiff_t>(__sanitizer_get_allocated_size(at));
      });
  if (installed == 0) std::abort();
}

/// Aborts if more than `fixed` + `factor` * `size` bytes were held at once during its life.
class MemoryBound {
 public:
  MemoryBound(std::size_t size, std::size_t fixed, std::size_t factor)
      : size_(size), allowed_(static_cast<std::ptrdiff_t>(fixed + factor * size)) {
    hooksInstalled();
    before_ = most = live;
  }
  ~MemoryBound() {
    if (most - before_ <= allowed_) return;
    std::fprintf(stderr, "%zu bytes of input held %td bytes, %td are allowed\n", size_,
                 most - before_, allowed_);
    std::abort();
  }
  MemoryBound(MemoryBound const&) = delete;
  MemoryBound& operator=(MemoryBound const&) = delete;

 private:
  std::size_t size_;
  std::ptrdiff_t allowed_;
  std::ptrdiff_t before_;
};

}  // namespace Fuzz
