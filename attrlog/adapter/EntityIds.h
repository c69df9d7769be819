// Where entity ids come from: one allocator for the process, and the mark that lets a child take
// the id which its creation message brought. Also the message channels that follow what is read.
#pragma once

#include <unordered_map>

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

/// The channel that a group of adapters belongs to, and what their connection is reading.
class MsgChannel {
 public:
  enum class Mode : std::uint8_t { none = 0, payloadRead = 1, synced = 3 };

  class Constrainer {
   public:
    /// What the reader has reached on one channel.
    class MoxEntry {
     public:
      Mode mode() const { return mode_; }
      void modeIs(Mode mode) { mode_ = mode; }

     private:
      Mode mode_ = Mode::none;
    };

    /// What a new child's id must be while its creation message is applied, and under which parent.
    EntityId deserializingEid() const { return deserializingEid_; }
    void deserializingEidIs(EntityId id) { deserializingEid_ = id; }
    Entity const* deserializingInParent() const { return deserializingInParent_; }
    void deserializingInParentIs(Entity const* parent) { deserializingInParent_ = parent; }

    /// The entry of a channel, made by `entryIs`; null for none.
    MoxEntry* entry(PtrInterface const* channel) {
      auto const at = entries_.find(channel);
      return at == entries_.end() ? nullptr : &at->second;
    }
    MoxEntry& entryIs(PtrInterface const* channel) { return entries_[channel]; }
    void entryDel(PtrInterface const* channel) { entries_.erase(channel); }

   private:
    EntityId deserializingEid_;
    Entity const* deserializingInParent_ = nullptr;
    std::unordered_map<PtrInterface const*, MoxEntry> entries_;
  };
  static Constrainer& constrainer();

  /// For its lifetime a child that appears under `parent` takes `id` on every connection.
  class DeserializingEidAnchor {
   public:
    DeserializingEidAnchor(EntityId const& id, Entity const* parent)
        : id_(constrainer().deserializingEid()), parent_(constrainer().deserializingInParent()) {
      constrainer().deserializingEidIs(id);
      constrainer().deserializingInParentIs(parent);
    }
    ~DeserializingEidAnchor() {
      constrainer().deserializingEidIs(id_);
      constrainer().deserializingInParentIs(parent_);
    }
    DeserializingEidAnchor(DeserializingEidAnchor const&) = delete;
    DeserializingEidAnchor& operator=(DeserializingEidAnchor const&) = delete;

   private:
    EntityId id_;
    Entity const* parent_;
  };
};

}  // namespace Mox
