// Moving bytes between two ends in memory.
#include "transport/MemoryLink.h"

#include <algorithm>
#include <cstring>

namespace Mox::NboAttrLog {

MemoryLink::Pair MemoryLink::pair(std::size_t capacity, std::size_t piece) {
  auto const makePipe = [capacity, piece] {
    auto pipe = std::make_shared<MemoryPipe>();
    pipe->capacity = capacity;
    pipe->writePiece = pipe->readPiece = piece;
    return pipe;
  };
  auto const there = makePipe();
  auto const back = makePipe();
  return {std::make_unique<MemoryLink>(back, there), std::make_unique<MemoryLink>(there, back)};
}

ByteResult MemoryLink::fail(char const* why) {
  error_ = why;
  return {0, ByteResult::State::failed};
}

ByteResult MemoryLink::read(void* to, std::size_t size) {
  if (isClosed_) return fail("read behind close");
  if (in_->isCut) return fail("connection cut");
  std::size_t const count = std::min({size, in_->bytes.size(), in_->readPiece});
  if (count == 0 && size != 0 && in_->bytes.empty() && in_->isEnded) {
    return {0, ByteResult::State::end};
  }
  if (count != 0) std::memcpy(to, in_->bytes.data(), count);
  in_->bytes.take(count);
  return {count, ByteResult::State::open};
}

ByteResult MemoryLink::write(void const* from, std::size_t size) {
  if (isClosed_) return fail("write behind close");
  if (out_->isCut) return fail("connection cut");
  // The reader is gone: what a socket tells with a broken pipe.
  if (in_->isEnded) return fail("the peer has closed");
  std::size_t const used = out_->bytes.size();
  std::size_t const room = used < out_->capacity ? out_->capacity - used : 0;
  std::size_t const count = std::min({size, room, out_->writePiece});
  out_->bytes.append(from, count);
  return {count, ByteResult::State::open};
}

void MemoryLink::close() {
  isClosed_ = true;
  out_->isEnded = true;
}

}  // namespace Mox::NboAttrLog
