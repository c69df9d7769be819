// The account of the frames of one connection, both ways: sent, begun, acknowledged; and the last
// frame about each slot. `Out` enters own frames, the demuxer those of the peer; the reader asks
// whether a write of the peer crossed one of this end.
//
// X1  acknowledged own frames never exceed the committed ones
// X2  frames acknowledged to the peer never exceed those that it has begun
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Mox/AttributeId.h"
#include "attrlog/wire/FrameParser.h"
#include "attrlog/wire/SlotTable.h"
#include "attrlog/wire/Wire.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class Exchange {
 public:
  // Own frames.

  /// The ack that the next frame carries.
  std::uint32_t ack() const { return static_cast<std::uint32_t>(received_); }
  /// A frame has been committed, with that ack.
  void committed(FrameKind kind) {
    ++framesSent_;
    acked_ = received_;
    if (isCounted(kind)) ++committed_;
  }
  /// The frame committed last is this end's last word about a slot. The key is the key's bytes as
  /// they are in the frame; empty for an attribute without keys.
  void slotSent(EntityId entity, AttributeId attribute, std::string_view key) {
    slots_.sent(entity, attribute, key, committed_);
  }
  /// True when the peer has not acknowledged this end's last frame about the slot: what the peer
  /// writes about it crossed that frame.
  bool isSlotInFlight(EntityId entity, AttributeId attribute, std::string_view key) const {
    return slots_.lastSent(entity, attribute, key) != 0;
  }

  // The peer's frames.

  void received(FrameKind kind) {
    ++framesReceived_;
    if (isCounted(kind)) ++received_;
  }
  /// The ack of a received frame: counts upward modulo 2^32. True when it moved; throws BadAck for
  /// one beyond what was sent.
  bool acknowledge(std::uint32_t ack) {
    std::uint32_t const more = ack - static_cast<std::uint32_t>(acknowledged_);
    if (more == 0) return false;
    if (more > committed_ - acknowledged_) throw StreamException(StreamError::badAck);
    acknowledged_ += more;
    slots_.acknowledgedIs(acknowledged_);
    return true;
  }

  // Acks of this end's own.

  /// Frames of the peer that no frame of this end has acknowledged.
  std::uint64_t unacked() const { return received_ - acked_; }
  /// When an ack frame must go out, unless another frame carries the ack before.
  std::optional<std::uint64_t> const& ackDueMs() const { return ackDueMs_; }
  /// Starts or stops the ack's clock; true when the ack is due now: the caller sends it when it has
  /// room. A peer that receives no write from here keeps nothing but retired ids until it has the
  /// ack, so `onlyListens` may take its time.
  bool isAckDue(std::uint64_t nowMs, bool onlyListens, std::uint64_t delayMs) {
    if (unacked() == 0) {
      ackDueMs_.reset();
      return false;
    }
    if (!ackDueMs_) ackDueMs_ = nowMs + (onlyListens ? listenerAckDelayMs : delayMs);
    return nowMs >= *ackDueMs_ ||
           unacked() >= (onlyListens ? mostUnacknowledgedByListener : mostUnacknowledged);
  }
  void ackSent() { ackDueMs_.reset(); }

  // Counts.

  std::uint64_t framesSent() const { return framesSent_; }
  std::uint64_t framesReceived() const { return framesReceived_; }
  /// Counted frames: committed by this end, acknowledged by the peer.
  std::uint64_t framesCommitted() const { return committed_; }
  std::uint64_t framesAcknowledged() const { return acknowledged_; }
  /// The peer's counted frames.
  std::uint64_t framesBegun() const { return received_; }
  std::size_t slotsInFlight() const { return slots_.liveCount(); }
  void clearSlots() { slots_ = SlotTable(); }

  /// The first broken invariant; null when all hold.
  char const* brokenInvariant() const {
    if (acknowledged_ > committed_) return "X1: more frames acknowledged than committed";
    if (acked_ > received_) return "X2: more frames of the peer acknowledged than received";
    return nullptr;
  }

 private:
  std::uint64_t framesSent_ = 0;
  std::uint64_t framesReceived_ = 0;
  std::uint64_t committed_ = 0;
  std::uint64_t acknowledged_ = 0;
  std::uint64_t received_ = 0;
  std::uint64_t acked_ = 0;
  std::optional<std::uint64_t> ackDueMs_;  ///< of the first frame that isn't acknowledged
  SlotTable slots_;
};

}  // namespace NboAttrLog
}  // namespace Mox
