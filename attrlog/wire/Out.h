// The writing end of a connection: messages are composed in place at the end of one buffer and
// count only when their end token commits them. Writers of the attribute log call it; the
// connection takes the committed bytes away.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "Mox/Name.h"
#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"
#include "Mox/String8.h"
#include "attrlog/wire/ByteQueue.h"
#include "attrlog/wire/Connection.h"
#include "attrlog/wire/Wire.h"

namespace MOX_API Mox {

/// The part of an Out that knows bytes and sizes but no messages.
class Connection::Out : public PtrInterface {
 public:
  enum class TransactToken : std::uint8_t { tokenBegin = 1, tokenEnd = 3 };

  /// The bytes that may go out, in order. Empty after `close`.
  unsigned char const* committed() const { return buffer_.data(); }
  std::size_t committedSize() const { return committedSize_; }
  /// Tells that the first `count` committed bytes have left.
  void sent(std::size_t count);

  bool hasBuffer() const { return open_; }
  /// Bytes that may still be written before the soft capacity is reached; 0 when closed.
  std::size_t freeSpace() const {
    std::size_t const taken = buffer_.size() + withheld_;
    return !open_ || taken >= capacity_ ? 0 : capacity_ - taken;
  }
  std::size_t capacity() const { return capacity_; }
  /// Committed bytes since the connection began: a clock of what was written.
  std::uint64_t bytesWritten() const { return bytesWritten_; }

  /// The size in bytes up to which a piece may be written by `operator<<` of a string iterator:
  /// length word included. 0: what keeps the frame within `maxMessageSize()`.
  std::size_t sizeLimit() const { return sizeLimit_; }
  void sizeLimitIs(std::size_t limit) { sizeLimit_ = limit; }

 protected:
  explicit Out(std::size_t capacity) : capacity_(capacity) {}

  NboAttrLog::ByteQueue buffer_;
  std::size_t committedSize_ = 0;
  std::size_t capacity_;
  std::size_t withheld_ = 0;
  std::size_t sizeLimit_ = 0;
  std::uint64_t bytesWritten_ = 0;
  bool open_ = true;
};

/// Puts back, at the end of its scope, the size limit that an Out had.
class ConnectionOutSizeAnchor {
 public:
  explicit ConnectionOutSizeAnchor(Ptr<Connection::Out> const& out)
      : out_(**out), limit_(out_.sizeLimit()) {}
  ~ConnectionOutSizeAnchor() { out_.sizeLimitIs(limit_); }
  ConnectionOutSizeAnchor(ConnectionOutSizeAnchor const&) = delete;
  ConnectionOutSizeAnchor& operator=(ConnectionOutSizeAnchor const&) = delete;

 private:
  Connection::Out& out_;
  std::size_t limit_;
};

namespace NboAttrLog {

class Demuxer;
class In;

/// The `Out` of an attribute log. Held by its connection and, counted, by each stream adapter;
/// after the connection has closed it has no buffer, no demuxer and no reverse log.
class Out : public Connection::Out {
 public:
  enum class PayloadSection : std::uint8_t {
    none = 0,
    typeSection = 1,
    constructorSection = 3,
    identitySection = 4,
  };

  Out(Demuxer* demuxer, std::size_t capacity);
  ~Out() override;

  /// Begins a message. What was begun before and not ended is dropped.
  void nextHeaderIs(MsgHeader const& header) { frameIs(FrameKind::message, header); }
  /// Begins a frame of another kind; written like a message otherwise.
  void frameIs(FrameKind kind, MsgHeader const& header);
  /// Begins a section of an orphan's payload and ends the one before.
  void currentPayloadSectionIs(PayloadSection section);
  /// The begin token opens the payload; the end token commits the frame.
  /// Throws an internal exception when a fixed message's payload has another length, a range
  /// exception "message too long for the log" when the peer would not take it.
  void tokenIs(TransactToken token) {
    if (token == TransactToken::tokenEnd) return commit();
    numberIs(static_cast<std::uint8_t>(token), 1);
  }
  /// Drops the frame that was begun; gives back its payload.
  std::string takenBack();

  /// The most bytes that a message of several pieces has.
  virtual std::size_t maxMessageSize() const { return defaultMaxMessageSize; }
  std::size_t bufferBlockSize() const { return blockSize; }
  /// True when a message may be started without further test.
  bool hasSufficientBuffer() const { return open_ && freeSpace() >= blockSize; }

  /// Null after close.
  Demuxer* demuxer() const { return demuxer_; }
  Ptr<In> reverseLog() const;

  /// The largest payload that the peer accepts, in bytes.
  void peerMaxPayloadIs(std::size_t size) { peerMaxPayload_ = size; }
  /// Bytes withheld from `freeSpace()` for a waiting flow-out.
  void withheldIs(std::size_t count) { withheld_ = count; }
  /// Appends bytes that are no frame (the greeting).
  void rawIs(void const* bytes, std::size_t count);
  /// Drops all bytes and the links to the rest of the connection.
  void close();

  /// Writes the low `width` bytes of a number in network byte order.
  void numberIs(std::uint64_t value, std::size_t width) {
    putBytes(buffer_.room(width), value, width);
    buffer_.grow(width);
  }
  void bytesIs(void const* bytes, std::size_t count) { buffer_.append(bytes, count); }
  /// A length word and the bytes.
  void stringIs(String8 const& text);
  /// As much of the text behind `position` as the size limit lets it, moving `position` behind it.
  void pieceIs(String8::IteratorConst& position);

 private:
  std::size_t frameSize() const { return buffer_.size() - committedSize_; }
  void commit();
  void sectionEnd();

  Demuxer* demuxer_;
  std::size_t peerMaxPayload_ = maxPayload;
  std::size_t sectionStart_ = 0;
  FrameKind kind_ = FrameKind::message;
  MsgHeader header_;
};

inline void Out::frameIs(FrameKind kind, MsgHeader const& header) {
  buffer_.truncate(committedSize_);
  kind_ = kind;
  header_ = header;
  sectionStart_ = 0;
  unsigned char* bytes = buffer_.room(headerSize);
  bool const creates = header.instantiateTag == creationTag;
  std::uint8_t flags = header.isVariableLength ? frameVariableLength : 0;
  if (header.trailingFlag) flags |= frameTrailing;
  if (creates) flags |= frameCreatesChild;
  if (kind == FrameKind::message && (creates || header.attributeId == orphanAttribute)) {
    flags |= frameFullTransferFollows;
  }
  bytes[0] = static_cast<std::uint8_t>(kind);
  bytes[1] = flags;
  putBytes(bytes + 2, 0, 4);
  putBytes(bytes + 6, header.entityId.value(), 8);
  putBytes(bytes + 14, static_cast<std::uint32_t>(header.attributeId), 4);
  putBytes(bytes + 18, 0, 4);
  buffer_.grow(headerSize);
}

// Value kinds. One overload for each kind, so that a value never changes its width silently.

template <class T>
concept WireUnsigned = std::is_same_v<T, unsigned char> || std::is_same_v<T, unsigned short> ||
    std::is_same_v<T, unsigned int> || std::is_same_v<T, unsigned long long>;

template <class T>
requires WireUnsigned<T> Ptr<Out>
const& operator<<(Ptr<Out> const& out, T value) {
  out->numberIs(value, sizeof(T));
  return out;
}
inline Ptr<Out> const& operator<<(Ptr<Out> const& out, bool value) {
  out->numberIs(value ? 1 : 0, 1);
  return out;
}
inline Ptr<Out> const& operator<<(Ptr<Out> const& out, int value) {
  out->numberIs(static_cast<std::uint32_t>(value), 4);
  return out;
}
/// A double as its 64 IEEE 754 bits.
Ptr<Out> const& operator<<(Ptr<Out> const& out, double value);
inline Ptr<Out> const& operator<<(Ptr<Out> const& out, String8 const& value) {
  out->stringIs(value);
  return out;
}
inline Ptr<Out> const& operator<<(Ptr<Out> const& out, EntityId const& value) {
  out->numberIs(value.value(), 8);
  return out;
}
inline Ptr<Out> const& operator<<(Ptr<Out> const& out, Connection::Out::TransactToken token) {
  out->tokenIs(token);
  return out;
}

}  // namespace NboAttrLog

/// A piece of a string: see `NboAttrLog::Out::pieceIs`.
inline void operator<<(Ptr<NboAttrLog::Out> const& out, String8::IteratorConst& position) {
  out->pieceIs(position);
}

}  // namespace Mox
