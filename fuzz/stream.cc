// A whole stream, greeting and frames, fed to one end of a connection with a small tree. The first
// byte says what this end is. Besides bytes, whole frames are changed, so that most inputs get
// behind the checks of their form.
#include <InvArad.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "fuzz/Memory.h"
#include "simulation/HostilePeer.h"

namespace Log = Mox::NboAttrLog;

extern "C" std::size_t LLVMFuzzerMutate(unsigned char* bytes, std::size_t size, std::size_t most);

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* bytes, std::size_t size) {
  // Two ends and their trees; then what each message of thirty bytes or more may make: an entity
  // with its collections and its adapter, at both of them.
  Fuzz::MemoryBound const bound(size, 8u << 20, 1024);
  try {
    Mox::Simulation::feedHostile(*Inventory::Arad::AradSlice::_fwkType(), bytes, size);
  } catch (std::exception const& wrong) {
    std::fprintf(stderr, "%s\n", wrong.what());
    std::abort();
  }
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(unsigned char* bytes, std::size_t size,
                                               std::size_t most, unsigned int seed) {
  std::minstd_rand random(seed);
  auto const below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
  if (size < 12 || below(4) == 0) return LLVMFuzzerMutate(bytes, size, most);
  std::size_t const greeting = 1 + Log::getBytes(bytes + 9, 2);
  std::vector<std::string> frames;
  std::size_t at = greeting;
  try {
    while (at < size) {
      Log::Frame frame;
      std::size_t const taken = Log::FrameParser::frame(bytes + at, size - at, frame);
      if (taken == 0) break;
      frames.emplace_back(reinterpret_cast<char const*>(bytes + at), taken);
      at += taken;
    }
  } catch (Log::StreamException const&) {
  }
  if (frames.empty()) return LLVMFuzzerMutate(bytes, size, most);
  std::string const rest(reinterpret_cast<char const*>(bytes + at), at < size ? size - at : 0);

  std::size_t const chosen = below(frames.size());
  std::string& frame = frames[chosen];
  auto* const header = reinterpret_cast<unsigned char*>(frame.data());
  std::string const& other = frames[below(frames.size())];
  switch (below(7)) {
    case 0:
      frames.erase(frames.begin() + static_cast<std::ptrdiff_t>(chosen));
      break;
    case 1: {
      std::string const again = frame;
      frames.insert(frames.begin() + static_cast<std::ptrdiff_t>(below(frames.size() + 1)), again);
      break;
    }
    case 2:
      std::memcpy(header + 6, other.data() + 6, 8);
      break;
    case 3:
      std::memcpy(header + 14, other.data() + 14, 4);
      header[1] = static_cast<unsigned char>(other[1]);
      break;
    case 4:
      Log::putBytes(header + 14, 0 - Log::getBytes(header + 14, 4), 4);
      break;
    default: {
      std::string payload = frame.substr(Log::headerSize + 1, frame.size() - Log::frameOverhead);
      std::size_t const old = payload.size();
      payload.resize(old + 32);
      payload.resize(
          LLVMFuzzerMutate(reinterpret_cast<unsigned char*>(payload.data()), old, payload.size()));
      frame = frame.substr(0, Log::headerSize + 1) + payload + '\3';
      Log::putBytes(reinterpret_cast<unsigned char*>(frame.data()) + 2, payload.size(), 4);
    }
  }
  std::string made(reinterpret_cast<char const*>(bytes), greeting);
  for (std::string const& each : frames) made += each;
  made += rest;
  std::size_t const count = std::min(made.size(), most);
  std::memcpy(bytes, made.data(), count);
  return count;
}
