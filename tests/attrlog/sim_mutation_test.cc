// Recorded streams, damaged at random: nothing that a peer can send hurts this end, and a message
// that is refused has changed nothing. SIMULATION_SEEDS as in sim_test.cc.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/attrlog/HostilePeer.h"

namespace Mox::NboAttrLog::test {
namespace {

std::vector<std::size_t> frameStarts(std::string const& stream) {
  std::vector<std::size_t> starts;
  Greeting greeting;
  auto const* bytes = reinterpret_cast<unsigned char const*>(stream.data());
  std::size_t at = 1 + FrameParser::greeting(bytes + 1, stream.size() - 1, greeting);
  while (at < stream.size()) {
    Frame frame;
    std::size_t const size = FrameParser::frame(bytes + at, stream.size() - at, frame);
    if (size == 0) break;
    starts.push_back(at);
    at += size;
  }
  starts.push_back(at);
  return starts;
}

/// One or two of the things that go wrong with bytes, whole frames or the fields of a frame.
std::string damaged(std::string stream, std::vector<std::size_t> const& starts, Chance& chance) {
  auto const anyFrame = [&] { return chance.below(static_cast<unsigned int>(starts.size() - 1)); };
  auto const any = [&](std::size_t size) { return chance.below(static_cast<unsigned int>(size)); };
  if (chance.oneIn(20)) stream[0] ^= isWritable;
  stream[0] = static_cast<char>((stream[0] & 15) | chance.below(16) << 4);
  switch (chance.below(9)) {
    case 0:  // bits
      for (unsigned int count = 1 + chance.below(4); count != 0; --count) {
        stream[any(stream.size())] ^= static_cast<char>(1 << chance.below(8));
      }
      break;
    case 1:
      stream.resize(any(stream.size()));
      break;
    case 2:  // bytes missing or too many
      stream.erase(any(stream.size()), 1 + chance.below(8));
      break;
    case 3: {  // a frame left out, or several
      unsigned int const first = anyFrame();
      stream.erase(starts[first],
                   starts[std::min<std::size_t>(first + 1 + chance.below(3), starts.size() - 1)] -
                       starts[first]);
      break;
    }
    case 4: {  // a frame once more, at another place
      unsigned int const from = anyFrame();
      std::string const frame = stream.substr(starts[from], starts[from + 1] - starts[from]);
      stream.insert(starts[anyFrame()], frame);
      break;
    }
    default: {  // a field of a frame that stays well formed
      unsigned int const at = anyFrame();
      auto* const frame = reinterpret_cast<unsigned char*>(stream.data() + starts[at]);
      auto* const other = reinterpret_cast<unsigned char*>(stream.data() + starts[anyFrame()]);
      std::size_t const payload = starts[at + 1] - starts[at] - frameOverhead;
      switch (chance.below(8)) {
        case 0:
          frame[0] = static_cast<unsigned char>(1 + chance.below(5));
          break;
        case 1:
          frame[1] ^= static_cast<unsigned char>(chance.below(16));
          break;
        case 2:  // another entity
          std::memcpy(frame + 6, other + 6, 8);
          break;
        case 3:  // another attribute
          if (chance.oneIn(3)) {
            putBytes(frame + 14, 250 + chance.below(300), 4);
          } else {
            std::memcpy(frame + 14, other + 14, 4);
          }
          break;
        case 4:
          putBytes(frame + 14, 0 - getBytes(frame + 14, 4), 4);
          break;
        case 5:
          frame[1] ^= frameCreatesChild;
          break;
        case 6:
          putBytes(frame + 18, chance.below(200), 4);
          break;
        default:
          if (payload != 0) {
            frame[headerSize + 1 + any(payload)] = static_cast<unsigned char>(
                chance.oneIn(2) ? chance.below(256) : std::array{0u, 1u, 255u, 128u}[any(4)]);
          }
      }
    }
  }
  return stream;
}

TEST(HostilePeer, ADamagedStreamIsTakenOrRefusedAndNothingBetween) {
  unsigned long first = 1;
  unsigned long last = 1500;
  if (char const* const wanted = std::getenv("SIMULATION_SEEDS")) {
    ASSERT_EQ(std::sscanf(wanted, "%lu-%lu", &first, &last), 2) << wanted;
  }
  std::vector<std::pair<std::string, std::vector<std::size_t>>> streams;
  for (unsigned char role : {0, int{isWritable}, exports | isWritable}) {
    for (std::uint64_t seed = 1; seed <= 3; ++seed) {
      std::string const stream = recording(role, seed, 60);
      auto const* const bytes = reinterpret_cast<unsigned char const*>(stream.data());
      std::string why;
      ASSERT_TRUE(feedHostile(bytes, stream.size(), &why))
          << why << "an honest stream, role " << int{role};
      streams.emplace_back(stream, frameStarts(stream));
      ASSERT_EQ(streams.back().second.back(), stream.size());
    }
  }
  unsigned int taken = 0;
  unsigned int failures = 0;
  for (unsigned long seed = first; seed <= last && failures < 5; ++seed) {
    Chance chance(seed);
    auto const& [stream, starts] = streams[chance.below(static_cast<unsigned int>(streams.size()))];
    std::string const input = damaged(stream, starts, chance);
    try {
      taken += feedHostile(reinterpret_cast<unsigned char const*>(input.data()), input.size());
    } catch (std::exception const& failure) {
      ++failures;
      ADD_FAILURE() << "seed " << seed << ": " << failure.what();
    }
  }
  RecordProperty("taken", static_cast<int>(taken));
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
