// The byte layout of greetings and frames, read.
#include "attrlog/wire/FrameParser.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace Mox::NboAttrLog {
namespace {

constexpr char magic[8] = {'M', 'O', 'X', 'L', 'O', 'G', '1', '\n'};
constexpr std::size_t nameOffset = greetingFixedSize;

[[noreturn]] void refuse(StreamError code) { throw StreamException(code); }

/// What a frame's fields must be, whatever the entity is.
[[gnu::noinline]] void checkFields(Frame const& frame) {
  if (frame.kind == FrameKind::ack) {
    if (frame.entityId || frame.attributeId != 0 || frame.isVariableLength) {
      refuse(StreamError::badHeader);
    }
    if (frame.payloadSize != 0) refuse(StreamError::badLength);
  }
  bool const creates = frame.instantiateTag == creationTag;
  bool const isOrphan = frame.kind == FrameKind::message && frame.entityId == orphanTarget &&
                        frame.attributeId == orphanAttribute;
  bool const isWithdrawal = frame.kind == FrameKind::message && frame.entityId == orphanTarget &&
                            frame.attributeId == -orphanAttribute;
  bool const mayClaim =
      isOrphan ? frame.claim <= Claim::chosen : isWithdrawal && frame.claim == Claim::chosen;
  if (frame.claim != Claim::none && !mayClaim) refuse(StreamError::badHeader);
  if (frame.kind != FrameKind::message) {
    if (frame.fullTransferFollows || creates) refuse(StreamError::badHeader);
  } else if (frame.fullTransferFollows && !creates && !isOrphan) {
    refuse(StreamError::badHeader);
  }
  // The one number without a counterpart of the other sign.
  if (frame.attributeId == std::numeric_limits<AttributeId>::min()) refuse(StreamError::badHeader);
  bool const namesEntity = frame.kind != FrameKind::ack && frame.kind != FrameKind::error;
  if (namesEntity && !frame.entityId.isUnified()) refuse(StreamError::badId);
}

}  // namespace

char const* streamErrorName(StreamError code) {
  switch (code) {
    case StreamError::none:
      return "none";
    case StreamError::badGreeting:
      return "BadGreeting";
    case StreamError::badVersion:
      return "BadVersion";
    case StreamError::badSchema:
      return "BadSchema";
    case StreamError::badHeader:
      return "BadHeader";
    case StreamError::tooLong:
      return "TooLong";
    case StreamError::badToken:
      return "BadToken";
    case StreamError::badLength:
      return "BadLength";
    case StreamError::badAck:
      return "BadAck";
    case StreamError::badId:
      return "BadId";
    case StreamError::badOrphan:
      return "BadOrphan";
    case StreamError::badPiece:
      return "BadPiece";
    case StreamError::badMarker:
      return "BadMarker";
    case StreamError::notPermitted:
      return "NotPermitted";
    case StreamError::badValue:
      return "BadValue";
  }
  return "unknown";
}

std::string Greeting::bytes() const {
  std::string const name = peerName.substr(0, 255);
  std::string result(greetingFixedSize, '\0');
  auto* to = reinterpret_cast<unsigned char*>(result.data());
  std::memcpy(to, magic, sizeof magic);
  putBytes(to + 8, greetingFixedSize + name.size(), 2);
  putBytes(to + 10, major, 2);
  putBytes(to + 12, minor, 2);
  putBytes(to + 14, bits, 2);
  putBytes(to + 16, schemaHash, 8);
  putBytes(to + 24, nonce, 8);
  putBytes(to + 32, maxPayload, 4);
  putBytes(to + 40, name.size(), 2);
  return result + name;
}

std::size_t FrameParser::greeting(unsigned char const* bytes, std::size_t size, Greeting& result) {
  if (std::memcmp(bytes, magic, std::min(size, sizeof magic)) != 0) {
    refuse(StreamError::badGreeting);
  }
  if (size < 10) return 0;
  std::size_t const length = getBytes(bytes + 8, 2);
  if (length < greetingFixedSize || length > greetingMaxSize) refuse(StreamError::badGreeting);
  // The version stands in front of all that another version may have laid out differently.
  if (size < 12) return 0;
  if (getBytes(bytes + 10, 2) != Greeting::major) refuse(StreamError::badVersion);
  if (size < length) return 0;
  result.bits = static_cast<std::uint16_t>(getBytes(bytes + 14, 2));
  result.schemaHash = getBytes(bytes + 16, 8);
  result.nonce = getBytes(bytes + 24, 8);
  result.maxPayload = static_cast<std::uint32_t>(getBytes(bytes + 32, 4));
  std::size_t const nameLength = getBytes(bytes + 40, 2);
  if (nameLength > 255 || nameOffset + nameLength > length ||
      (result.bits & Greeting::unifiedIds) == 0 || result.maxPayload < leastMaxPayload) {
    refuse(StreamError::badGreeting);
  }
  result.peerName.assign(reinterpret_cast<char const*>(bytes + nameOffset), nameLength);
  return length;
}

std::size_t FrameParser::frame(unsigned char const* bytes, std::size_t size, Frame& result) {
  if (size < headerSize + 1) return 0;
  auto const kind = static_cast<std::uint8_t>(bytes[0]);
  auto const flags = static_cast<std::uint8_t>(bytes[1]);
  std::size_t const length = getBytes(bytes + 2, 4);
  if (kind < static_cast<std::uint8_t>(FrameKind::message) ||
      kind > static_cast<std::uint8_t>(FrameKind::repeat) ||
      (flags &
       ~(frameVariableLength | frameFullTransferFollows | frameCreatesChild | frameClaim)) != 0) {
    refuse(StreamError::badHeader);
  }
  if (length > maxPayload) refuse(StreamError::tooLong);
  if (bytes[headerSize] != 1) refuse(StreamError::badToken);
  if (size < length + frameOverhead) return 0;
  if (bytes[headerSize + 1 + length] != 3) refuse(StreamError::badToken);
  result.kind = static_cast<FrameKind>(kind);
  result.isVariableLength = (flags & frameVariableLength) != 0;
  result.fullTransferFollows = (flags & frameFullTransferFollows) != 0;
  result.claim = static_cast<Claim>((flags & frameClaim) >> frameClaimShift);
  result.entityId = EntityId(getBytes(bytes + 6, 8));
  result.attributeId = static_cast<AttributeId>(getBytes(bytes + 14, 4));
  result.instantiateTag = (flags & frameCreatesChild) != 0 ? creationTag : 0;
  result.ack = static_cast<std::uint32_t>(getBytes(bytes + 18, 4));
  result.payload = bytes + headerSize + 1;
  result.payloadSize = length;
  bool const isPlain = kind == static_cast<std::uint8_t>(FrameKind::message) &&
                       (flags & ~frameVariableLength) == 0 && result.entityId.isUnified() &&
                       result.attributeId > 0;
  if (!isPlain) checkFields(result);
  return length + frameOverhead;
}

}  // namespace Mox::NboAttrLog
