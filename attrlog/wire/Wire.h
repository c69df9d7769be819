// The attribute log on the wire: ids, headers, frame layout and limits, told once.
// Included by everything in attrlog/; bytes are explained in docs/wire-format.md.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>

#include "Mox/AttributeId.h"
#include "Mox/HashMap.h"
#include "Mox/String8.h"

namespace MOX_API Mox {

/// Names one entity on a connection: two 32-bit words. An odd low word marks a unified id, the
/// same on every connection; 0 names nothing.
class EntityId {
 public:
  constexpr EntityId() = default;
  constexpr explicit EntityId(std::uint64_t value) : value_(value) {}
  constexpr EntityId(std::uint32_t high, std::uint32_t low)
      : value_(std::uint64_t{high} << 32 | low) {}

  constexpr std::uint64_t value() const { return value_; }
  constexpr std::uint32_t low() const { return static_cast<std::uint32_t>(value_); }
  constexpr std::uint32_t high() const { return static_cast<std::uint32_t>(value_ >> 32); }
  constexpr bool isUnified() const { return (value_ & 1) != 0; }
  constexpr explicit operator bool() const { return value_ != 0; }
  friend constexpr bool operator==(EntityId, EntityId) = default;
  friend constexpr bool operator<(EntityId a, EntityId b) { return a.value_ < b.value_; }

 private:
  std::uint64_t value_ = 0;
};

/// Ids count upward in steps of two, so the lowest bit spreads nothing.
template <>
struct KeyHash<EntityId> {
  static std::uint32_t hash(EntityId id) { return static_cast<std::uint32_t>(id.value() >> 1); }
};

namespace NboAttrLog {

/// The well-known target of orphan messages; never in a table of reactors.
inline constexpr EntityId orphanTarget{1};
inline constexpr AttributeId orphanAttribute = 136;
inline constexpr AttributeId syncAttribute = 135;
inline constexpr AttributeId compoundAttribute = 144;
/// `instantiateTag` of a message that creates a child.
inline constexpr std::uint32_t creationTag = 151;

/// What a frame on the stream is.
enum class FrameKind : std::uint8_t {
  message = 1,
  marker = 2,
  ack = 3,
  complete = 4,
  error = 5,
  repeat = 6,  ///< the peer is asked to say a slot again
};

/// The frames that acks count: those that can change what the other end holds or says.
constexpr bool isCounted(FrameKind kind) {
  return kind != FrameKind::ack && kind != FrameKind::error;
}

/// Bits of a frame's flag byte.
inline constexpr std::uint8_t frameVariableLength = 0x1;
inline constexpr std::uint8_t frameTrailing = 0x2;
inline constexpr std::uint8_t frameFullTransferFollows = 0x4;
inline constexpr std::uint8_t frameCreatesChild = 0x8;  ///< `instantiateTag` is `creationTag`
inline constexpr std::uint8_t frameClaim = 0x30;        ///< a `Claim`, shifted
inline constexpr unsigned int frameClaimShift = 4;

/// What makes a process the authority for an entity without a parent. Where both ends of a
/// connection announce one, the greater claim holds.
enum class Claim : std::uint8_t {
  none = 0,
  elsewhere = 1,  ///< another live connection has brought it
  chosen = 2,     ///< the process chose its id
};

/// Sizes in bytes. A frame is header, begin token, payload, end token.
inline constexpr std::size_t headerSize = 22;
inline constexpr std::size_t frameOverhead = headerSize + 2;
inline constexpr std::size_t greetingFixedSize = 42;
inline constexpr std::size_t greetingMaxSize = 1024;
inline constexpr std::size_t maxPayload = 16u << 20;
inline constexpr std::size_t leastMaxPayload = 65536;
inline constexpr std::size_t maxJoinedString = 256u << 20;
inline constexpr std::size_t maxErrorText = 1024;
inline constexpr std::size_t blockSize = 49152;
inline constexpr std::size_t defaultMaxMessageSize = 32768;
inline constexpr std::size_t defaultCapacity = 131072;
/// A message about the longest key starts with two blocks free.
inline constexpr std::size_t leastCapacity = 131072;
/// Room kept for markers and complete frames, so that no writer inside a run is ever short.
inline constexpr std::size_t runReserve = 4096;
inline constexpr std::size_t runRoom = blockSize + runReserve;
/// Bytes that one scheduled run may write.
inline constexpr std::size_t runBudget = 65536;
/// Frames of the peer after which an ack waits no longer.
inline constexpr std::uint64_t mostUnacknowledged = 64;
/// The same, and the longest wait, for an end that only listens.
inline constexpr std::uint64_t mostUnacknowledgedByListener = 4096;
inline constexpr std::uint64_t listenerAckDelayMs = 1000;
/// Withheld from writers outside of runs while a flow-out waits for room.
inline constexpr std::size_t queueReserve = 16384;

/// What a message about a string key, without and with a value, is reckoned to take beside them.
inline constexpr std::size_t keyedOverhead = 33;
inline constexpr std::size_t keyedValueOverhead = 37;
static_assert(frameOverhead + 4 <= keyedOverhead && frameOverhead + 8 <= keyedValueOverhead);

/// The largest size that a message about a string key (and value) of these lengths can have.
constexpr std::size_t pessimisticMessageSizeEstimate(std::size_t keyLength) {
  return keyLength + keyedOverhead;
}
constexpr std::size_t pessimisticMessageSizeEstimate(std::size_t keyLength,
                                                     std::size_t valueLength) {
  return keyLength + valueLength + keyedValueOverhead;
}

/// What a writer says of the message that it begins.
struct MsgHeader {
  EntityId entityId;
  AttributeId attributeId = 0;
  bool isVariableLength = true;
  std::uint32_t fixedLength = 0;
  std::uint32_t instantiateTag = 0;
  bool trailingFlag = false;
};

/// Why a stream was refused. The names stand in the error text that both ends report.
enum class StreamError : std::uint8_t {
  none,
  badGreeting,
  badVersion,
  badSchema,
  badHeader,
  tooLong,
  badToken,
  badLength,
  badAck,
  badId,
  badOrphan,
  badPiece,
  badMarker,
  notPermitted,
  badValue,
};

/// "BadGreeting" and its like.
char const* streamErrorName(StreamError code);

/// A number of network byte order in this machine's, and the other way round.
template <class Number>
constexpr Number networkOrder(Number value) {
  if constexpr (std::endian::native == std::endian::big || sizeof value == 1) {
    return value;
  } else if constexpr (sizeof value == 2) {
    return __builtin_bswap16(value);
  } else if constexpr (sizeof value == 4) {
    return __builtin_bswap32(value);
  } else {
    return __builtin_bswap64(value);
  }
}

template <class Number>
inline void putNumber(unsigned char* to, Number value) {
  value = networkOrder(value);
  std::memcpy(to, &value, sizeof value);
}
template <class Number>
inline Number getNumber(unsigned char const* from) {
  Number value;
  std::memcpy(&value, from, sizeof value);
  return networkOrder(value);
}

/// Width 1, 2, 4 or 8: where it is known, one move.
inline void putBytes(unsigned char* to, std::uint64_t value, std::size_t width) {
  switch (width) {
    case 1:
      return putNumber(to, static_cast<std::uint8_t>(value));
    case 2:
      return putNumber(to, static_cast<std::uint16_t>(value));
    case 4:
      return putNumber(to, static_cast<std::uint32_t>(value));
    default:
      return putNumber(to, value);
  }
}

inline std::uint64_t getBytes(unsigned char const* from, std::size_t width) {
  switch (width) {
    case 1:
      return *from;
    case 2:
      return getNumber<std::uint16_t>(from);
    case 4:
      return getNumber<std::uint32_t>(from);
    default:
      return getNumber<std::uint64_t>(from);
  }
}

}  // namespace NboAttrLog
}  // namespace Mox
