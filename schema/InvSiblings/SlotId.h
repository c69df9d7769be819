// The number of a slot of the chassis.
#pragma once

#include "values/ValueText.h"

namespace MOX_API Fru {

/// Any 32-bit number; 0 where nobody has set it.
class SlotId {
 public:
  constexpr SlotId(unsigned int value = 0) : value_(value) {}
  constexpr unsigned int value() const { return value_; }

  friend constexpr bool operator==(SlotId a, SlotId b) { return a.value_ == b.value_; }
  friend constexpr bool operator!=(SlotId a, SlotId b) { return a.value_ != b.value_; }
  friend constexpr bool operator<(SlotId a, SlotId b) { return a.value_ < b.value_; }

 private:
  unsigned int value_;
};

inline Mox::String8 valueToStrep(SlotId slot) { return Mox::valueToStrep(slot.value()); }
inline SlotId sequenceToValue(Mox::String8::IteratorConst& pos,
                              Mox::String8::IteratorConst const& end, SlotId*) {
  return Mox::sequenceToValue(pos, end, static_cast<unsigned int*>(nullptr));
}
constexpr unsigned int valueToWire(SlotId slot) { return slot.value(); }
constexpr SlotId wireToValue(unsigned int number, SlotId*) { return SlotId(number); }

}  // namespace Fru
