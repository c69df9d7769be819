// The writing end of a connection: messages are composed in place at the end of one buffer and
// count only when their end token commits them. Writers of the attribute log call it; the
// connection takes the committed bytes away.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "Mox/Exception.h"
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
  /// Writes a piece of a string: see `operator<<` below.
  virtual void pieceIs(String8::IteratorConst& position) = 0;

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

class Exchange;
class In;

/// A message whose payload exceeds what the peer accepts; nothing of it is in the buffer.
class MessageTooLong : public RangeException {
 public:
  MessageTooLong();
  ~MessageTooLong() override;
};

/// The `Out` of an attribute log. Held by its connection and, counted, by each stream adapter;
/// after the connection has closed it has no buffer, no owner and no reverse log.
class Out : public Connection::Out {
 public:
  enum class PayloadSection : std::uint8_t {
    none = 0,
    typeSection = 1,
    constructorSection = 3,
    identitySection = 4,
  };

  /// `exchange` counts the frames and gives their acks; it and `reverse` live until `close`. All of
  /// them may be null: bytes without a connection.
  Out(ConnectionOwner owner, Exchange* exchange, In* reverse, std::size_t capacity);
  ~Out() override;

  /// Begins a message. What was begun before and not ended is dropped.
  void nextHeaderIs(MsgHeader const& header) { frameIs(FrameKind::message, header); }
  /// Begins a frame of another kind; written like a message otherwise.
  void frameIs(FrameKind kind, MsgHeader const& header);
  /// The message that was just begun creates an entity whose whole state follows.
  void fullTransferFollowsIs() { flagIs(frameFullTransferFollows); }
  /// See `Frame::claim`. Requires: an orphan message or a withdrawal was just begun.
  void claimIs(Claim claim) {
    flagIs(static_cast<std::uint8_t>(static_cast<unsigned int>(claim) << frameClaimShift));
  }
  /// Begins a section of an orphan's payload and ends the one before.
  void currentPayloadSectionIs(PayloadSection section);
  /// The begin token opens the payload; the end token commits the frame.
  /// Throws an internal exception when a fixed message's payload has another length,
  /// `MessageTooLong` when the peer would not take it.
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

  Demuxer* demuxer() const { return owner_.demuxer; }
  AdapterHost* host() const { return owner_.host; }
  Ptr<In> reverseLog() const;
  /// Bytes of the payload that is being written.
  std::size_t payloadSize() const { return frameSize() - headerSize - 1; }
  /// The payload of the frame committed last; valid until the next call that writes or sends.
  unsigned char const* lastPayload() const {
    return buffer_.data() + committedSize_ - 1 - lastPayloadSize_;
  }

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
  void pieceIs(String8::IteratorConst& position) override;

 private:
  void flagIs(std::uint8_t flag) { buffer_.data()[committedSize_ + 1] |= flag; }
  std::size_t frameSize() const { return buffer_.size() - committedSize_; }
  void commit();
  void sectionEnd();

  ConnectionOwner owner_;
  Exchange* exchange_;
  In* reverse_;
  std::size_t peerMaxPayload_ = maxPayload;
  std::size_t lastPayloadSize_ = 0;
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

/// A piece of a string: a length word whose highest bit announces more, and as many bytes from
/// `position` on as the size limit allows. Moves `position` behind them; writes nothing for an
/// empty string.
inline void operator<<(Ptr<Connection::Out> const& out, String8::IteratorConst& position) {
  out->pieceIs(position);
}
inline void operator<<(Ptr<NboAttrLog::Out> const& out, String8::IteratorConst& position) {
  out->pieceIs(position);
}

/// A type as messages name it.
struct TypeId {
  String8 fullName;
};
inline Ptr<NboAttrLog::Out> const& operator<<(Ptr<NboAttrLog::Out> const& out, TypeId const& type) {
  out->stringIs(type.fullName);
  return out;
}

}  // namespace Mox
