// Repeat frames: an importer whose change of a read-only copy was refused asks the owner to send
// the slot again. The gate reports refused changes; the reader hands in the peer's requests.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <tuple>

#include "Mox/AttributeId.h"
#include "attrlog/adapter/Rows.h"
#include "attrlog/wire/FrameParser.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class AdapterHost;

class Repeats {
 public:
  explicit Repeats(AdapterHost& host) : host_(host) {}

  /// A change made here was refused. `key`: that of a collection's change, or null.
  void refusedHere(Sa& adapter, AttrRow const& row, void const* key);
  /// Asks for the slot whose key has these bytes in a message. Requires: room.
  void request(EntityId entity, AttributeId attribute, std::string_view key);
  /// Sends the requests for which there was no room.
  void sendOwed();
  bool isAnyOwed() const { return !owed_.empty(); }
  void clear() { owed_.clear(); }

  /// Answers the peer's request with this end's state of the slot. Throws StreamException.
  void answer(Sa& adapter, AttrRow const& row, Frame const& frame);

 private:
  void begin(EntityId entity, AttributeId attribute);

  AdapterHost& host_;
  /// Entity, attribute and key.
  std::set<std::tuple<std::uint64_t, AttributeId, std::string>> owed_;
};

}  // namespace NboAttrLog
}  // namespace Mox
