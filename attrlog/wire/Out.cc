// Composing, committing and dropping frames.
#include "attrlog/wire/Out.h"

#include <algorithm>
#include <bit>

#include "Mox/Assertion.h"
#include "Mox/Exception.h"
#include "attrlog/link/Demuxer.h"
#include "attrlog/wire/In.h"

namespace Mox {

void Connection::Out::sent(std::size_t count) {
  buffer_.take(count);
  committedSize_ -= count;
}

namespace NboAttrLog {

Out::Out(Demuxer* demuxer, std::size_t capacity)
    : Connection::Out(std::max(capacity, leastCapacity)), demuxer_(demuxer) {}

Out::~Out() = default;

Ptr<In> Out::reverseLog() const { return demuxer_ ? demuxer_->in() : Ptr<In>(); }

void Out::close() {
  buffer_.release();
  committedSize_ = 0;
  open_ = false;
  demuxer_ = nullptr;
}

void Out::rawIs(void const* bytes, std::size_t count) {
  buffer_.append(bytes, count);
  committedSize_ = buffer_.size();
  bytesWritten_ += count;
}

void Out::commit() {
  if (sectionStart_ != 0) sectionEnd();
  std::size_t const payload = frameSize() - headerSize - 1;
  if (!header_.isVariableLength && payload != header_.fixedLength) {
    buffer_.truncate(committedSize_);
    throwInternalException("message of another length than its header says");
  }
  if (payload > peerMaxPayload_) {
    buffer_.truncate(committedSize_);
    throwRangeException("message too long for the log");
  }
  numberIs(static_cast<std::uint8_t>(TransactToken::tokenEnd), 1);
  unsigned char* const bytes = buffer_.data() + committedSize_;
  putBytes(bytes + 2, payload, 4);
  bytesWritten_ += payload + frameOverhead;
  committedSize_ = buffer_.size();
  if (demuxer_ != nullptr) {
    putBytes(bytes + 18, demuxer_->framesBegun(), 4);
    demuxer_->handleCommitted(kind_, header_, bytes + headerSize + 1, payload);
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
