// What becomes of a received frame about one entity: it is checked as a whole before anything is
// changed, then dropped, answered with this end's state, or applied. The demuxer hands in frames;
// every refusal is a StreamException, and has changed nothing.
#pragma once

#include <set>
#include <utility>

#include "Mox/AttributeId.h"
#include "attrlog/adapter/AdapterHost.h"
#include "attrlog/adapter/Rows.h"
#include "attrlog/wire/FrameParser.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class Reader {
 public:
  explicit Reader(AdapterHost& host) : host_(host) {}

  void message(Frame const& frame);
  void marker(Frame const& frame);
  /// The peer asks for a slot.
  void repeat(Frame const& frame);
  /// The end of an entity's full transfer.
  void complete(Frame const& frame);
  /// A frame that is not applied. The peer may refer to a child that it creates.
  void passOver(Frame const& frame);

 private:
  void number(Sa& adapter, AttrRow const& row, Frame const& frame);
  void scanned(Sa& adapter, Frame const& frame);
  void scanAndApply(Sa& adapter, Frame const& frame, Frame const& about, Compound const& compound);
  void unknown(Sa& adapter, Frame const& frame, AttributeId attribute);
  [[gnu::always_inline]] void apply(Sa& adapter, Frame const& frame, AttributeId attribute);
  template <class Apply>
  [[gnu::always_inline]] void applying(Sa& adapter, AttributeId attribute, Apply const& apply);
  void reflect(Sa& adapter, AttrRow const& row, Frame const& frame, MessageScan const& scan);
  bool isConflict(Sa& adapter, AttrRow const& row, Frame const& frame, MessageScan const& scan);
  bool isReadOnlyElsewhere(Entity const& entity) const;
  void dropOpenValue(Sa& adapter, AttrRow const& row, MessageScan const& scan);
  void checkMarker(Sa& adapter, AttrRow const* row, AttributeId attribute, unsigned int type) const;
  Sa* adapterOf(Frame const& frame);
  void reportUnknown(Sa const& adapter, AttributeId attribute);

  AdapterHost& host_;
  std::set<std::pair<void const*, AttributeId>> unknownReported_;
};

}  // namespace NboAttrLog
}  // namespace Mox
