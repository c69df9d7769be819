// Composing, committing and dropping frames.
#include "attrlog/wire/Out.h"

#include <algorithm>
#include <bit>

#include "Mox/Assertion.h"
#include "Mox/Exception.h"
#include "attrlog/wire/Exchange.h"
#include "attrlog/wire/In.h"
#include "attrlog/wire/Waker.h"

namespace Mox {

void Connection::Out::sent(std::size_t count) {
  buffer_.take(count);
  committedSize_ -= count;
}

namespace NboAttrLog {

MessageTooLong::MessageTooLong() : RangeException("message too long for the log") {}
MessageTooLong::~MessageTooLong() = default;

Out::Out(ConnectionOwner owner, Exchange* exchange, In* reverse, std::size_t capacity)
    : Connection::Out(std::max(capacity, leastCapacity)),
      owner_(owner),
      exchange_(exchange),
      reverse_(reverse) {}

Out::~Out() = default;

Ptr<In> Out::reverseLog() const { return Ptr<In>(reverse_); }

void Out::close() {
  buffer_.release();
  committedSize_ = 0;
  open_ = false;
  owner_ = {};
  exchange_ = nullptr;
  reverse_ = nullptr;
}

void Out::rawIs(void const* bytes, std::size_t count) {
  buffer_.append(bytes, count);
  committedSize_ = buffer_.size();
  bytesWritten_ += count;
}

void Out::commit() {
  if (sectionStart_ != 0) sectionEnd();
  std::size_t const payload = payloadSize();
  if (!header_.isVariableLength && payload != header_.fixedLength) {
    buffer_.truncate(committedSize_);
    throwInternalException("message of another length than its header says");
  }
  if (payload > peerMaxPayload_) {
    buffer_.truncate(committedSize_);
    throw MessageTooLong();
  }
  numberIs(static_cast<std::uint8_t>(TransactToken::tokenEnd), 1);
  unsigned char* const bytes = buffer_.data() + committedSize_;
  putBytes(bytes + 2, payload, 4);
  bytesWritten_ += payload + frameOverhead;
  committedSize_ = buffer_.size();
  lastPayloadSize_ = payload;
  if (exchange_ != nullptr) {
    putBytes(bytes + 18, exchange_->ack(), 4);
    exchange_->committed(kind_);
    if (owner_.waker != nullptr) owner_.waker->wake();
  }
}

std::string Out::takenBack() {
  auto const* const frame = reinterpret_cast<char const*>(buffer_.data()) + committedSize_;
  std::string payload(frame + headerSize + 1, frame + frameSize());
  buffer_.truncate(committedSize_);
  return payload;
}

void Out::currentPayloadSectionIs(PayloadSection section) {
  if (sectionStart_ != 0) sectionEnd();
  numberIs(static_cast<std::uint8_t>(section), 1);
  numberIs(0, 4);
  sectionStart_ = frameSize();
}

void Out::sectionEnd() {
  putBytes(buffer_.data() + committedSize_ + sectionStart_ - 4, frameSize() - sectionStart_, 4);
  sectionStart_ = 0;
}

void Out::stringIs(String8 const& text) {
  numberIs(text.length(), 4);
  bytesIs(text.charPtr(), text.length());
}

void Out::pieceIs(String8::IteratorConst& position) {
  std::size_t const at = static_cast<std::size_t>(position.pos());
  std::size_t const length = position.length();
  if (length == 0) return;
  std::size_t limit = sizeLimit_;
  if (limit == 0) {
    std::size_t const spent = frameSize() + 1;
    limit = maxMessageSize() > spent ? maxMessageSize() - spent : 0;
  }
  std::size_t const rest = length - at;
  std::size_t const count = std::min(rest, limit > 4 ? limit - 4 : 1);
  std::uint32_t const more = count < rest ? 0x80000000u : 0;
  numberIs(more | static_cast<std::uint32_t>(count), 4);
  bytesIs(position.bytes() + at, count);
  position.posIs(static_cast<int>(at + count));
}

Ptr<Out> const& operator<<(Ptr<Out> const& out, double value) {
  out->numberIs(std::bit_cast<std::uint64_t>(value), 8);
  return out;
}

}  // namespace NboAttrLog
}  // namespace Mox
