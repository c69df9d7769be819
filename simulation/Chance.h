// The random source of one history: every draw follows from the history's seed and from the step in
// hand, so that a history replays with any of its steps left out. It remembers which texts it made.
#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_set>

#include "Mox/String8.h"

namespace Mox::Simulation {

class Chance {
 public:
  /// The first number of `fresh()`; larger than the defaults that models usually declare.
  static constexpr unsigned int firstFresh = 1000;

  explicit Chance(std::uint64_t seed) : seed_(seed) { streamIs(0); }

  /// Draws come from the stream with this number from here on, from its beginning.
  void streamIs(std::uint64_t number) { state_ = mixed(seed_ ^ mixed(number + 1)); }
  /// The place in the stream, to be restored after draws that must not shift the others.
  std::uint64_t state() const { return state_; }
  void stateIs(std::uint64_t state) { state_ = state; }

  unsigned int below(unsigned int limit) {
    state_ += increment;
    return static_cast<unsigned int>(mixed(state_) % limit);
  }
  bool oneIn(unsigned int count) { return below(count) == 0; }

  /// A number larger than all earlier ones of the history.
  unsigned int fresh() { return ++fresh_; }
  /// True for a number that `fresh()` has given.
  bool wasFresh(double number) const { return number > firstFresh && number <= fresh_; }

  /// A text whose every part shows which draw made it: two joined halves never equal a third text.
  String8 text(unsigned int most = ~0u);
  /// Bytes of the longest text, about.
  void longestTextIs(unsigned int bytes) { longestText_ = bytes; }

  /// Texts that a change wrote, by their text form.
  void written(std::string_view textForm) { written_.insert(hash(textForm)); }
  bool wasWritten(std::string_view textForm) const { return written_.contains(hash(textForm)); }

 private:
  static constexpr std::uint64_t increment = 0x9e3779b97f4a7c15;
  static std::uint64_t mixed(std::uint64_t bits) {
    bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9;
    bits = (bits ^ (bits >> 27)) * 0x94d049bb133111eb;
    return bits ^ (bits >> 31);
  }
  static std::size_t hash(std::string_view text) { return std::hash<std::string_view>()(text); }

  std::uint64_t seed_;
  std::uint64_t state_ = 0;
  unsigned int fresh_ = firstFresh;
  unsigned int longestText_ = 3000;
  std::unordered_set<std::size_t> written_;
};

}  // namespace Mox::Simulation
