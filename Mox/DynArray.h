// An array of `N` values indexed by a typed number, with room for up to `M` more behind it.
#pragma once

#include <cstddef>
#include <type_traits>

#include "Mox/Assertion.h"

namespace MOX_API Mox {

template <class V, class I, unsigned N, unsigned M>
class DynArray {
 public:
  constexpr DynArray() = default;
  constexpr DynArray(DynArray const&) = default;
  constexpr DynArray& operator=(DynArray const&) = default;
  /// The dynamic part must have been given back by now.
  constexpr ~DynArray() {
    if (used_ != 0) assertionFailed("N == 0", "Mox/DynArray", 69, __PRETTY_FUNCTION__);
  }

  constexpr V& operator[](I const& index) { return values_[numberOf(index)]; }
  constexpr V const& operator[](I const& index) const { return values_[numberOf(index)]; }
  /// The fixed part and the used entries of the dynamic part.
  constexpr unsigned size() const { return N + used_; }

  /// Takes one more entry into use; false when all are.
  constexpr bool dynamicEnq(V const& value) {
    if (used_ == M) return false;
    values_[N + used_++] = value;
    return true;
  }
  /// Gives the last dynamic entry back; false when none is used.
  constexpr bool dynamicDeq() {
    if (used_ == 0) return false;
    values_[N + --used_] = V();
    return true;
  }

  friend constexpr bool operator==(DynArray const& a, DynArray const& b) {
    if (a.used_ != b.used_) return false;
    for (unsigned at = 0; at < a.size(); ++at) {
      if (!(a.values_[at] == b.values_[at])) return false;
    }
    return true;
  }

 private:
  static constexpr std::size_t numberOf(I const& index) {
    if constexpr (requires { index.value(); }) {
      return static_cast<std::size_t>(index.value());
    } else {
      return static_cast<std::size_t>(index);
    }
  }

  V values_[N + M] = {};
  unsigned used_ = 0;
};

}  // namespace Mox
