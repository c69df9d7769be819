// The reading end of a connection: a cursor over the payload of the frame in hand. The demuxer
// opens it for each frame; readers of the attribute log take values from it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "Mox/Exception.h"
#include "Mox/Name.h"
#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"
#include "Mox/String8.h"
#include "attrlog/wire/ByteQueue.h"
#include "attrlog/wire/Connection.h"
#include "attrlog/wire/Wire.h"

namespace MOX_API Mox {

/// A position in received bytes. No read passes the end mark: a value that would is an internal
/// exception, and the message that holds it is refused.
class Connection::In : public PtrInterface {
 public:
  std::size_t bytesAvailable() const { return static_cast<std::size_t>(end_ - at_); }
  /// A place that may be gone back to while the same payload is in hand.
  unsigned char const* position() const { return at_; }
  void positionIs(unsigned char const* position) { at_ = position; }
  /// Moves `count` bytes on.
  void nextBytes(std::size_t count) { take(count); }

  unsigned char const* endMark() const { return end_; }
  void endMarkIs(unsigned char const* end) { end_ = end; }

  /// Takes `count` bytes.
  unsigned char const* take(std::size_t count) {
    if (bytesAvailable() < count) throwShort();
    unsigned char const* from = at_;
    at_ += count;
    return from;
  }

 protected:
  [[noreturn]] static void throwShort();

  unsigned char const* at_ = nullptr;
  unsigned char const* end_ = nullptr;
};

/// For its lifetime no read of the In passes `size` bytes from where it stands.
class ConnectionInSizeAnchor {
 public:
  ConnectionInSizeAnchor(Ptr<Connection::In> const& in, std::size_t size)
      : in_(**in), end_(in_.endMark()) {
    if (in_.bytesAvailable() > size) in_.endMarkIs(in_.position() + size);
  }
  ~ConnectionInSizeAnchor() { in_.endMarkIs(end_); }
  ConnectionInSizeAnchor(ConnectionInSizeAnchor const&) = delete;
  ConnectionInSizeAnchor& operator=(ConnectionInSizeAnchor const&) = delete;

 private:
  Connection::In& in_;
  unsigned char const* end_;
};

/// A string in pieces: appends what the frame holds to the string behind `iterator`. Leaves
/// `iterator.pos()` 0 when the string is complete, else the number of bytes so far.
Ptr<Connection::In> const& operator>>(Ptr<Connection::In> const& in, String8::Iterator& iterator);

class ByteConnection::In : public Connection::In {
 public:
  unsigned char nextU8() { return static_cast<unsigned char>(number(1)); }
  unsigned short nextU16() { return static_cast<unsigned short>(number(2)); }
  unsigned int nextU32() { return static_cast<unsigned int>(number(4)); }
  unsigned long long nextU64() { return number(8); }
  int nextint() { return static_cast<int>(nextU32()); }
  /// Any number but 0 is true.
  bool nextbool() { return nextU8() != 0; }
  double nextdouble();
  String8 nextString();

 private:
  std::uint64_t number(std::size_t width) { return NboAttrLog::getBytes(take(width), width); }
};

class Entity;

namespace NboAttrLog {

/// The `In` of an attribute log. It holds the received bytes that no frame was made of yet, and
/// is the cursor over the payload that the demuxer has in hand.
class In : public ByteConnection::In {
 public:
  explicit In(ConnectionOwner owner) : owner_(owner) {}
  ~In() override;

  EntityId nextEntityId() { return EntityId(nextU64()); }
  /// Replaces the id that was read at `position` of the payload in hand.
  void entityIdIs(unsigned char const* position, EntityId id);
  // Defined where adapters are known (adapter/AdapterHost.cc).

  /// The entity that an id names on this connection; null for 0, and for one that this end has
  /// refused or given up.
  Ptr<Entity> nextEntity();
  /// Counts an enumerator that this end doesn't know.
  void unknownEnumsInc();
  /// The same, cast to `T`. Throws `AttrLogEntityException` "Entity is the wrong type".
  template <class T>
  Ptr<T> nextEntity() {
    Ptr<Entity> entity = nextEntity();
    Ptr<T> target = ptrCast<T>(entity);
    if (entity && !target) throwWrongType();
    return target;
  }

  /// Null after close.
  Demuxer* demuxer() const { return owner_.demuxer; }
  AdapterHost* host() const { return owner_.host; }
  ByteQueue& received() { return received_; }
  /// Opens a payload of `size` bytes for reading.
  void payloadIs(unsigned char const* bytes, std::size_t size) {
    at_ = bytes;
    end_ = bytes + size;
  }
  void close() {
    owner_ = {};
    received_.release();
    payloadIs(nullptr, 0);
  }

  [[noreturn]] static void throwWrongType();

 private:
  ConnectionOwner owner_;
  ByteQueue received_;
};

}  // namespace NboAttrLog

/// The demuxer that serves an In; null for none.
inline NboAttrLog::Demuxer* demuxFor(Ptr<NboAttrLog::In> const& in) {
  return in ? in->demuxer() : nullptr;
}

}  // namespace Mox
