// Recorded streams, damaged at random in bytes, in whole frames or in the fields of a frame.
#pragma once

#include <string>
#include <vector>

#include "registry/MoxType.h"
#include "simulation/Chance.h"

namespace Mox::Simulation {

/// Honest streams of every role that a hostile peer can have.
class DamagedStreams {
 public:
  /// Throws `Failure` if an honest stream is refused.
  explicit DamagedStreams(MoxType const& rootType);

  /// One of them with something wrong in it, by the seed: an input of `feedHostile`.
  std::string damaged(std::uint64_t seed) const;

 private:
  struct Stream {
    std::string bytes;
    std::vector<std::size_t> frames;  ///< where each begins, and where the last ends
  };
  static void damageFrame(Stream& stream, Chance& chance);

  std::vector<Stream> streams_;
};

}  // namespace Mox::Simulation
