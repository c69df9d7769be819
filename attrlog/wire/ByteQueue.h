// A contiguous first-in first-out queue of bytes: the buffer beneath Out and In.
// Bytes are appended at the end and taken at the front; what is inside lies in one piece. Memory
// that one large message took is given back when the message has left.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>

#include "Mox/Api.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class ByteQueue {
 public:
  unsigned char const* data() const { return bytes_.get() + begin_; }
  unsigned char* data() { return bytes_.get() + begin_; }
  std::size_t size() const { return end_ - begin_; }
  bool empty() const { return begin_ == end_; }

  /// Room for `count` more bytes behind the end, valid until the next call that is not `grow`.
  unsigned char* room(std::size_t count) {
    if (capacity_ - end_ < count) makeRoom(count);
    return bytes_.get() + end_;
  }
  /// Makes `count` bytes, already written to `room`, part of the queue.
  void grow(std::size_t count) { end_ += count; }

  void append(void const* from, std::size_t count) {
    if (count == 0) return;
    std::memcpy(room(count), from, count);
    end_ += count;
  }
  void take(std::size_t count) {
    begin_ += count;
    if (begin_ != end_) return;
    begin_ = end_ = 0;
    if (capacity_ > keptCapacity) release();
  }
  /// Cuts the queue to `size` bytes, at its end.
  void truncate(std::size_t size) { end_ = begin_ + size; }
  /// Gives the memory back.
  void release() {
    bytes_.reset();
    capacity_ = begin_ = end_ = 0;
  }
  std::size_t capacity() const { return capacity_; }

  /// Bytes of memory that an empty queue may keep.
  static constexpr std::size_t keptCapacity = 262144;

 private:
  void makeRoom(std::size_t count) {
    std::size_t const used = size();
    bool const isFarTooLarge = capacity_ > keptCapacity && used + count < capacity_ / 8;
    // Half of the buffer free in front: moving is amortised by the bytes already taken.
    if (capacity_ - used >= count && begin_ >= capacity_ / 2 && !isFarTooLarge) {
      std::memmove(bytes_.get(), data(), used);
    } else {
      std::size_t capacity = capacity_ && !isFarTooLarge ? capacity_ * 2 : 4096;
      while (capacity < used + count) capacity *= 2;
      std::unique_ptr<unsigned char[]> bytes(new unsigned char[capacity]);
      if (used != 0) std::memcpy(bytes.get(), data(), used);
      bytes_ = std::move(bytes);
      capacity_ = capacity;
    }
    begin_ = 0;
    end_ = used;
  }

  std::unique_ptr<unsigned char[]> bytes_;
  std::size_t capacity_ = 0;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace NboAttrLog
}  // namespace Mox
