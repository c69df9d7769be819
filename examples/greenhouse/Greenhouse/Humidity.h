// A value class of the greenhouse: see values/ValueClass.h for what the schema asks of it.
#pragma once

#include <Mox/Exception.h>
#include <values/ValueText.h>

#include <typeinfo>

namespace Greenhouse {

/// Moisture of the air in tenths of a percent, 0 to 100 %. Its text is the percentage: 61.5.
class Humidity {
 public:
  static constexpr unsigned short largest = 1000;

  constexpr Humidity() = default;
  explicit constexpr Humidity(unsigned int tenths) : tenths_(static_cast<unsigned short>(tenths)) {
    if (tenths > largest) Mox::throwRangeException("Humidity: more than 100 %");
  }
  constexpr unsigned short tenths() const { return tenths_; }
  friend constexpr bool operator==(Humidity, Humidity) = default;

 private:
  unsigned short tenths_ = 0;
};

inline Mox::String8 valueToStrep(Humidity humidity) {
  return Mox::format("%d.%d", humidity.tenths() / 10, humidity.tenths() % 10);
}
inline Humidity sequenceToValue(Mox::String8::IteratorConst& pos,
                                Mox::String8::IteratorConst const& end, Humidity*) {
  Mox::String8::IteratorConst next(pos);
  double const percent = Mox::sequenceToValue(next, end, static_cast<double*>(nullptr));
  if (!(percent >= 0 && percent <= 100)) Mox::cannotConvert(pos, next, typeid(Humidity));
  pos = next;
  return Humidity(static_cast<unsigned int>(percent * 10 + 0.5));
}

constexpr unsigned short valueToWire(Humidity humidity) { return humidity.tenths(); }
constexpr Humidity wireToValue(unsigned short tenths, Humidity*) { return Humidity(tenths); }

}  // namespace Greenhouse
