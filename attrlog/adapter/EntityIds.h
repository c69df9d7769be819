// Where entity ids come from: one allocator for the process, and the mark that lets a child take
// the id which its creation message brought. The demuxer asks both.
#pragma once

#include "Mox/Entity.h"
#include "attrlog/wire/Wire.h"

namespace MOX_API Mox {

namespace NboAttrLog {

/// A new id: odd, never given before in this process, and never 1. The high word is random, so
/// ids of two processes or of two runs do not meet.
EntityId newEntityId();
/// For tests: all ids from here on follow from `seed`.
void entityIdsSeed(std::uint32_t seed);

}  // namespace NboAttrLog

class MsgChannel {
 public:
  enum class Mode : std::uint8_t { none = 0, payloadRead = 1, synced = 3 };

  /// What a new child's id must be while its creation message is applied.
  struct Constrainer {
    EntityId deserializingEid;
    Entity const* deserializingInParent = nullptr;
  };
  static Constrainer& constrainer();

  /// For its lifetime a child that appears under `parent` takes `id` on every connection.
  class DeserializingEidAnchor {
   public:
    DeserializingEidAnchor(EntityId const& id, Entity const* parent) : saved_(constrainer()) {
      constrainer() = {id, parent};
    }
    ~DeserializingEidAnchor() { constrainer() = saved_; }
    DeserializingEidAnchor(DeserializingEidAnchor const&) = delete;
    DeserializingEidAnchor& operator=(DeserializingEidAnchor const&) = delete;

   private:
    Constrainer saved_;
  };
};

}  // namespace Mox
