// A connection whose peer sends any bytes: streams of honest peers, recorded, and what must hold of
// this end whatever is made of them. The worlds named hostile and the fuzzers feed it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Mox/Dir.h"
#include "attrlog/link/Session.h"
#include "registry/MoxType.h"
#include "transport/MemoryLink.h"

namespace Mox::Simulation {

/// What this end is: bits of the first byte of an input.
enum Role : unsigned char {
  exports = 1,     ///< it exports a small tree; else it imports
  isWritable = 2,  ///< the importing end may write
};

/// The root of every tree in these streams.
inline constexpr char hostileRoot[] = "slice";

/// A tree after some changes, the same for the same seed.
Ptr<Entity> preparedTree(MoxType const& rootType, std::uint64_t seed, unsigned int changes);

/// One end of a connection: bytes in, bytes out.
class LoneEnd {
 public:
  /// `tree` null: it imports.
  LoneEnd(bool isWritable, Ptr<Entity> const& tree);
  LoneEnd(LoneEnd const&) = delete;
  LoneEnd& operator=(LoneEnd const&) = delete;

  void feed(void const* bytes, std::size_t size);
  void run();
  /// What this end has sent since the last call.
  std::string taken();

  NboAttrLog::Link const& link() const { return **link_; }
  /// Its tree, or what it has imported; null for nothing yet.
  Entity* tree() const;
  std::uint32_t roots() const { return dir_->entryCount(); }

 private:
  Ptr<Dir> dir_;
  Ptr<Entity> tree_;
  NboAttrLog::Session session_;
  std::shared_ptr<NboAttrLog::MemoryPipe> in_;
  std::shared_ptr<NboAttrLog::MemoryPipe> out_;
  Ptr<NboAttrLog::Link> link_;
};

/// What an honest peer of an end with this role sends: the role, then greeting and frames.
std::string recording(MoxType const& rootType, unsigned char role, std::uint64_t seed,
                      unsigned int changes, unsigned int longestText = 90000);

/// Feeds one input (role, bytes) to a fresh end and checks what must hold after it. Throws
/// `Failure`. True if the stream was accepted, false if it was refused; then `why` says how.
bool feedHostile(MoxType const& rootType, unsigned char const* input, std::size_t size,
                 std::string* why = nullptr);

}  // namespace Mox::Simulation
