// Cuts received bytes into a greeting and frames. Pure: no socket, no clock, no entity.
// The demuxer feeds it; the stream decoder and the fuzzers use it alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "attrlog/wire/Wire.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// A stream that this end refuses; caught by the demuxer, which closes the connection.
class StreamException : public std::exception {
 public:
  explicit StreamException(StreamError code) : code_(code) {}
  StreamError code() const { return code_; }
  char const* what() const noexcept override { return streamErrorName(code_); }

 private:
  StreamError code_;
};

/// What each end says before anything else.
struct Greeting {
  static constexpr std::uint16_t major = 1;
  static constexpr std::uint16_t minor = 0;
  enum Bits : std::uint16_t {
    exports = 0x1,
    imports = 0x2,
    grantsWrite = 0x4,
    wantsWrite = 0x8,
    unifiedIds = 0x10,
  };
  std::uint16_t bits = unifiedIds;
  std::uint64_t schemaHash = 0;
  std::uint64_t nonce = 0;
  std::uint32_t maxPayload = NboAttrLog::maxPayload;
  std::string peerName;

  /// The bytes of the greeting. A name of more than 255 bytes is cut.
  std::string bytes() const;
};

/// One frame. `payload` points into the parsed bytes.
struct Frame {
  FrameKind kind = FrameKind::message;
  bool isVariableLength = false;
  bool fullTransferFollows = false;
  /// Of an announcement: the sender's. Of a withdrawal, `chosen`: the receiver's own announcement
  /// of the id stands.
  Claim claim = Claim::none;
  EntityId entityId;
  AttributeId attributeId = 0;
  std::uint32_t instantiateTag = 0;
  std::uint32_t ack = 0;
  unsigned char const* payload = nullptr;
  std::size_t payloadSize = 0;

  std::size_t size() const { return payloadSize + frameOverhead; }
};

namespace FrameParser {

/// Each of these reads at the front of `bytes`: the number of bytes that belong to the thing, or
/// 0 when more are needed. Throws `StreamException`.
std::size_t greeting(unsigned char const* bytes, std::size_t size, Greeting& result);
std::size_t frame(unsigned char const* bytes, std::size_t size, Frame& result);

}  // namespace FrameParser
}  // namespace NboAttrLog
}  // namespace Mox
