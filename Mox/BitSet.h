// A set of a few positions in one word. A position outside of it is a fault of the program.
#pragma once

#include "Mox/Assertion.h"

namespace MOX_API Mox {

template <int bits, class Word>
class BitSet {
 public:
  constexpr BitSet() = default;
  constexpr explicit BitSet(int pos) { set(pos); }

  // The lines are those that the messages of these two checks have always named.
  constexpr void set(int pos) {
    if (!(pos >= 0 && pos < bits)) {
      assertionFailed("pos>=0 && pos<bits", "Mox/BitSet", 37, __PRETTY_FUNCTION__);
    }
    word_ |= Word{1} << pos;
  }
  constexpr void reset(int pos) {
    if (!(pos >= 0 && pos < bits)) {
      assertionFailed("pos>=0 && pos<bits", "Mox/BitSet", 43, __PRETTY_FUNCTION__);
    }
    word_ &= ~(Word{1} << pos);
  }
  constexpr bool contains(int pos) const {
    return pos >= 0 && pos < bits && (word_ >> pos & 1) != 0;
  }
  constexpr Word word() const { return word_; }
  friend constexpr bool operator==(BitSet const&, BitSet const&) = default;

 private:
  static_assert(bits > 0 && bits <= static_cast<int>(sizeof(Word) * 8));
  Word word_ = 0;
};

}  // namespace Mox
