// Physical quantities of the schema.
#pragma once

#include "values/ValueText.h"

namespace MOX_API Units {

/// A frequency. A plain number with a type; compared as a floating value.
class Megahertz {
 public:
  constexpr Megahertz(double value = 0) : value_(value) {}
  constexpr double value() const { return value_; }

  friend constexpr bool operator==(Megahertz a, Megahertz b) { return a.value_ == b.value_; }
  friend constexpr bool operator!=(Megahertz a, Megahertz b) { return a.value_ != b.value_; }
  friend constexpr bool operator<(Megahertz a, Megahertz b) { return a.value_ < b.value_; }

 private:
  double value_;
};

/// The bare number, as a double has it.
inline Mox::String8 valueToStrep(Megahertz frequency) {
  return Mox::valueToStrep(frequency.value());
}
inline Megahertz sequenceToValue(Mox::String8::IteratorConst& pos,
                                 Mox::String8::IteratorConst const& end, Megahertz*) {
  return Mox::sequenceToValue(pos, end, static_cast<double*>(nullptr));
}
constexpr double valueToWire(Megahertz frequency) { return frequency.value(); }
constexpr Megahertz wireToValue(double number, Megahertz*) { return Megahertz(number); }

}  // namespace Units
