// Which of a chip's six DRAM interfaces the board uses.
#pragma once

#include "Mox/DynArray.h"
#include "values/RangedId.h"
#include "values/ValueText.h"

namespace MOX_API Hardware {
namespace Sand {

/// The number of a DRAM interface, 0 to 5.
class DramInterfaceId : public Mox::LimitedId<DramInterfaceId, unsigned char, 5> {
 public:
  static constexpr char rangeMessage[] = "DramInterfaceId::value > 5 not allowed";
  using LimitedId::LimitedId;
};

/// A small value; by default no interface is used.
class DramConfig {
 public:
  static constexpr unsigned int interfaces = 6;
  /// Size of the byte form: bit i of one byte stands for interface i, the upper two are 0.
  static constexpr unsigned int byteSize = 1;

  constexpr DramConfig() = default;

  constexpr bool used(DramInterfaceId interface) const { return used_[interface]; }
  constexpr void usedIs(DramInterfaceId interface, bool used) { used_[interface] = used; }

  constexpr unsigned char bits() const {
    unsigned int bits = 0;
    for (unsigned char i = 0; i < interfaces; ++i) bits |= (used_[i] ? 1u : 0u) << i;
    return static_cast<unsigned char>(bits);
  }
  /// A bit of no interface raises RangeException.
  static constexpr DramConfig fromBits(unsigned char bits) {
    if (bits >> interfaces) Mox::throwRangeException("DramConfig::bits > 0x3f not allowed");
    DramConfig config;
    for (unsigned char i = 0; i < interfaces; ++i) config.used_[i] = bits >> i & 1u;
    return config;
  }

  friend constexpr bool operator==(DramConfig const& a, DramConfig const& b) {
    return a.used_ == b.used_;
  }

 private:
  Mox::DynArray<bool, DramInterfaceId, interfaces, 0u> used_;
};

/// The numbers of the used interfaces joined by colons, as in 0:1:4, or the word none.
Mox::String8 valueToStrep(DramConfig const& config);
DramConfig sequenceToValue(Mox::String8::IteratorConst& pos, Mox::String8::IteratorConst const& end,
                           DramConfig*);
constexpr unsigned char valueToWire(DramConfig const& config) { return config.bits(); }
constexpr DramConfig wireToValue(unsigned char bits, DramConfig*) {
  return DramConfig::fromBits(bits);
}

}  // namespace Sand
}  // namespace Hardware
