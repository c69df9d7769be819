// What a hardware identifier is: a number with a type and a tested range. The generated identifier
// classes derive from one of the two templates here; nobody else needs this header by itself.
// A value class: copied and compared by value, no reference count, any thread.
#pragma once

#include <type_traits>

#include "Mox/Exception.h"
#include "Mox/String8.h"

namespace MOX_API Mox {

/// The part common to all identifiers: `Number` is the width of the stored number and of its wire
/// form, `Least` to `Largest` are accepted, `Default` is what the default constructor gives.
/// `Self` is the deriving class, which owns the text `Self::rangeMessage` of the refusal.
template <class Self, class Number, Number Least, Number Largest, Number Default>
class RangedNumber {
 public:
  /// Tells the hash map, the log and the generic carriers that this is an identifier.
  static constexpr bool isMoxIdentifier = true;
  using NumberType = Number;
  static constexpr Number least = Least;
  static constexpr Number largest = Largest;

  constexpr RangedNumber() = default;
  /// Any integer, tested as it was given, before it was narrowed: a refused one raises
  /// RangeException(Self::rangeMessage).
  template <class Integer>
  requires(std::is_integral_v<Integer> ||
           (std::is_enum_v<Integer> && std::is_convertible_v<Integer, unsigned long long>))  //
      constexpr RangedNumber(Integer value)
      : value_(static_cast<Number>(value)) {
    if (!accepts(static_cast<unsigned long long>(value))) throwRangeException(Self::rangeMessage);
  }

  constexpr Number value() const { return value_; }

  /// The test of the constructor. A negative number is passed as it converts, as a very large one.
  static constexpr bool accepts(unsigned long long number) {
    return number - Least <= static_cast<unsigned long long>(Largest) - Least;
  }

  friend constexpr bool operator==(Self const& a, Self const& b) { return a.value_ == b.value_; }
  friend constexpr bool operator!=(Self const& a, Self const& b) { return a.value_ != b.value_; }
  friend constexpr bool operator<(Self const& a, Self const& b) { return a.value_ < b.value_; }

 private:
  Number value_ = Default;
};

/// An identifier whose upper end is `null`, an accepted value that means "no such object" and is
/// the default. A generated class is no more than
///
///   class XlgeId : public Mox::RangedId<XlgeId, unsigned short, 0, 18> {
///    public:
///     static constexpr char rangeMessage[] = "XlgeId::value < XlgeId::min or > …";
///     using RangedId::RangedId;
///   };
template <class Self, class Number, Number Min, Number Null>
class RangedId : public RangedNumber<Self, Number, Min, Null, Null> {
 public:
  static constexpr Number min = Min;
  static constexpr Number null = Null;
  using RangedNumber<Self, Number, Min, Null, Null>::RangedNumber;
};

/// An identifier without a `null`: 0 to `Limit`, and 0 is the default.
template <class Self, class Number, Number Limit>
class LimitedId : public RangedNumber<Self, Number, 0, Limit, 0> {
 public:
  static constexpr Number min = 0;
  using RangedNumber<Self, Number, 0, Limit, 0>::RangedNumber;
};

/// The text form of every identifier: its number. Found by argument lookup through the base; a
/// generated namespace says `using Mox::valueToStrep;` to have it under its own name too.
template <class Self, class Number, Number Least, Number Largest, Number Default>
String8 valueToStrep(RangedNumber<Self, Number, Least, Largest, Default> const& id) {
  return format("%llu", static_cast<unsigned long long>(id.value()));
}

}  // namespace Mox
