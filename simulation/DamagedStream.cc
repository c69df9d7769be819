#include "simulation/DamagedStream.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "attrlog/wire/FrameParser.h"
#include "simulation/HostilePeer.h"
#include "simulation/Plan.h"

namespace Mox::Simulation {

using namespace NboAttrLog;

namespace {

std::vector<std::size_t> frameStarts(std::string const& stream) {
  std::vector<std::size_t> starts;
  Greeting greeting;
  auto const* const bytes = reinterpret_cast<unsigned char const*>(stream.data());
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

unsigned int any(Chance& chance, std::size_t size) {
  return chance.below(static_cast<unsigned int>(size));
}

}  // namespace

DamagedStreams::DamagedStreams(MoxType const& rootType) {
  for (unsigned char role : {0, int{isWritable}, exports | isWritable}) {
    for (std::uint64_t seed = 1; seed <= 3; ++seed) {
      std::string const stream = recording(rootType, role, seed, 60);
      std::string why;
      if (!feedHostile(rootType, reinterpret_cast<unsigned char const*>(stream.data()),
                       stream.size(), &why)) {
        throw Failure("an honest stream of role " + std::to_string(int{role}) + ": " + why);
      }
      streams_.push_back({stream, frameStarts(stream)});
      if (streams_.back().frames.back() != stream.size()) {
        throw Failure("an honest stream ends within a frame");
      }
    }
  }
}

std::string DamagedStreams::damaged(std::uint64_t seed) const {
  Chance chance(seed);
  Stream stream = streams_[any(chance, streams_.size())];
  std::string& bytes = stream.bytes;
  std::vector<std::size_t> const& frames = stream.frames;
  if (chance.oneIn(20)) bytes[0] = static_cast<char>(bytes[0] ^ isWritable);
  bytes[0] = static_cast<char>((bytes[0] & 15) | chance.below(16) << 4);
  switch (chance.below(9)) {
    case 0:  // bits
      for (unsigned int count = 1 + chance.below(4); count != 0; --count) {
        char& byte = bytes[any(chance, bytes.size())];
        byte = static_cast<char>(byte ^ 1 << chance.below(8));
      }
      break;
    case 1:
      bytes.resize(any(chance, bytes.size()));
      break;
    case 2:  // bytes missing or too many
      bytes.erase(any(chance, bytes.size()), 1 + chance.below(8));
      break;
    case 3: {  // one frame left out, or several
      unsigned int const first = any(chance, frames.size() - 1);
      std::size_t const last =
          std::min<std::size_t>(first + 1 + chance.below(3), frames.size() - 1);
      bytes.erase(frames[first], frames[last] - frames[first]);
      break;
    }
    case 4: {  // a frame once more, at another place
      unsigned int const from = any(chance, frames.size() - 1);
      std::string const frame = bytes.substr(frames[from], frames[from + 1] - frames[from]);
      bytes.insert(frames[any(chance, frames.size() - 1)], frame);
      break;
    }
    default:
      damageFrame(stream, chance);
  }
  return bytes;
}

/// A field of a frame that stays well formed.
void DamagedStreams::damageFrame(Stream& stream, Chance& chance) {
  std::vector<std::size_t> const& frames = stream.frames;
  unsigned int const at = any(chance, frames.size() - 1);
  auto* const bytes = reinterpret_cast<unsigned char*>(stream.bytes.data());
  unsigned char* const frame = bytes + frames[at];
  unsigned char const* const other = bytes + frames[any(chance, frames.size() - 1)];
  std::size_t const payload = frames[at + 1] - frames[at] - frameOverhead;
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
      if (payload == 0) break;
      frame[headerSize + 1 + any(chance, payload)] = static_cast<unsigned char>(
          chance.oneIn(2) ? chance.below(256) : std::array{0u, 1u, 255u, 128u}[chance.below(4)]);
  }
}

}  // namespace Mox::Simulation
