// Plays one history in a process of its own, so that an assertion, a crash or a loop is a result
// like any other.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace Mox::Simulation {

/// Runs `play` in a child process. Its text, empty for success; how the child ended if it gave
/// none. `isSilent`: what the child writes to standard error is dropped. After `seconds` it is
/// killed.
std::string trial(std::function<std::string()> const& play, bool isSilent, unsigned int seconds);

/// A number that a process and the children which it makes later see alike.
class SharedNumber {
 public:
  explicit SharedNumber(std::uint64_t value);
  ~SharedNumber();
  SharedNumber(SharedNumber const&) = delete;
  SharedNumber& operator=(SharedNumber const&) = delete;

  std::uint64_t value() const { return *place_; }
  void valueIs(std::uint64_t value) { *place_ = value; }

 private:
  std::uint64_t volatile* place_;
};

}  // namespace Mox::Simulation
