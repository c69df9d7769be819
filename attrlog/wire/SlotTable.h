// Which frame last said something about a slot, for as long as the peer has not acknowledged it.
// A slot is an attribute of an entity, of a collection one key. The demuxer of the end that owns a
// tree asks it whether a frame of the peer was written before that end's own last word.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Mox/AttributeId.h"
#include "attrlog/wire/Wire.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// An open-addressing table. Acknowledged entries are dead: they are passed over, and their places
/// taken by new ones, so that a connection whose peer keeps up allocates nothing.
class SlotTable {
 public:
  /// The key is the key's bytes as they stand in the frame; empty for an attribute without keys.
  void sent(EntityId entity, AttributeId attribute, std::string_view key, std::uint64_t frame) {
    if (places_.empty() || taken_ * 2 >= places_.size()) rehash();
    place(entity, attribute, key, frame);
    if (frame > newest_) newest_ = frame;
  }
  /// All frames up to this one have been seen by the peer.
  void acknowledgedIs(std::uint64_t frame) { acknowledged_ = frame; }
  /// The number of the last frame about the slot that isn't acknowledged; 0 for none.
  std::uint64_t lastSent(EntityId entity, AttributeId attribute, std::string_view key) const {
    if (newest_ <= acknowledged_) return 0;
    for (std::size_t i = hash(entity, attribute, key);; ++i) {
      Place const& at = places_[i & (places_.size() - 1)];
      if (at.frame == 0) return 0;
      if (isSlot(at, entity, attribute, key)) return at.frame > acknowledged_ ? at.frame : 0;
    }
  }
  /// Slots whose last frame isn't acknowledged.
  std::size_t liveCount() const {
    std::size_t count = 0;
    for (Place const& at : places_) count += at.frame > acknowledged_;
    return count;
  }

 private:
  struct Place {
    EntityId entity;
    AttributeId attribute = 0;
    std::uint64_t frame = 0;  ///< 0: never taken
    std::string key;
  };

  static std::size_t hash(EntityId entity, AttributeId attribute, std::string_view key) {
    std::uint64_t mixed = entity.value() * 0x9e3779b97f4a7c15;
    mixed ^= static_cast<std::uint32_t>(attribute) + (mixed >> 29);
    if (!key.empty()) mixed ^= std::hash<std::string_view>()(key);
    return static_cast<std::size_t>(mixed * 0xbf58476d1ce4e5b9 >> 24);
  }
  static bool isSlot(Place const& at, EntityId entity, AttributeId attribute,
                     std::string_view key) {
    return at.entity == entity && at.attribute == attribute && at.key == key;
  }
  void place(EntityId entity, AttributeId attribute, std::string_view key, std::uint64_t frame) {
    Place* dead = nullptr;
    for (std::size_t i = hash(entity, attribute, key);; ++i) {
      Place& at = places_[i & (places_.size() - 1)];
      if (at.frame != 0 && isSlot(at, entity, attribute, key)) {
        at.frame = frame;
        return;
      }
      if (at.frame != 0) {
        if (dead == nullptr && at.frame <= acknowledged_) dead = &at;
        continue;
      }
      if (dead == nullptr) ++taken_;
      Place& to = dead != nullptr ? *dead : at;
      to.entity = entity;
      to.attribute = attribute;
      to.frame = frame;
      to.key.assign(key);
      return;
    }
  }
  /// Drops the dead and makes the table fit the rest.
  void rehash() {
    std::size_t size = 64;
    while (size < liveCount() * 4) size *= 2;
    std::vector<Place> old = std::exchange(places_, std::vector<Place>(size));
    taken_ = 0;
    for (Place& at : old) {
      if (at.frame > acknowledged_) place(at.entity, at.attribute, at.key, at.frame);
    }
  }

  std::vector<Place> places_;
  std::size_t taken_ = 0;  ///< places that were ever taken
  std::uint64_t newest_ = 0;
  std::uint64_t acknowledged_ = 0;
};

}  // namespace NboAttrLog
}  // namespace Mox
