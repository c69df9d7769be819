#include "Mox/String8.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>
#include <ostream>
#include <stdexcept>

namespace Mox {

constinit StringN<unsigned char>::Data StringN<unsigned char>::nullStringData_{1, 0};

namespace {

// The key is a constant of the build (CMake's INVARAD_STRING_HASH_KEY), so that all its processes
// have string-keyed collections in one order.
constexpr std::uint64_t hashKeyLow = MOX_STRING_HASH_KEY_LOW;
constexpr std::uint64_t hashKeyHigh = MOX_STRING_HASH_KEY_HIGH;

constexpr std::uint64_t rotated(std::uint64_t word, int by) {
  return word << by | word >> (64 - by);
}

struct HashState {
  std::uint64_t v0, v1, v2, v3;

  void round() {
    v0 += v1;
    v1 = rotated(v1, 13) ^ v0;
    v0 = rotated(v0, 32);
    v2 += v3;
    v3 = rotated(v3, 16) ^ v2;
    v0 += v3;
    v3 = rotated(v3, 21) ^ v0;
    v2 += v1;
    v1 = rotated(v1, 17) ^ v2;
    v2 = rotated(v2, 32);
  }
  void block(std::uint64_t word) {
    v3 ^= word;
    round();
    v0 ^= word;
  }
};

/// The keyed short-input hash of Aumasson and Bernstein with one round a block and three at the
/// end: without the key nobody can tell which strings collide.
std::uint64_t keyedHash(char const* bytes, std::size_t length) {
  HashState state{hashKeyLow ^ 0x736f6d6570736575, hashKeyHigh ^ 0x646f72616e646f6d,
                  hashKeyLow ^ 0x6c7967656e657261, hashKeyHigh ^ 0x7465646279746573};
  std::size_t at = 0;
  for (; at + 8 <= length; at += 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes + at, 8);
    state.block(word);
  }
  std::uint64_t last = std::uint64_t{length} << 56;
  for (std::size_t index = 0; at + index < length; ++index) {
    last |= std::uint64_t{static_cast<unsigned char>(bytes[at + index])} << 8 * index;
  }
  state.block(last);
  state.v2 ^= 0xff;
  state.round();
  state.round();
  state.round();
  return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

}  // namespace

bool StringN<unsigned char>::Data::operator<(Data const& other) const {
  int const order = std::memcmp(bytes(), other.bytes(), std::min(length_, other.length_));
  return order != 0 ? order < 0 : length_ < other.length_;
}

std::uint32_t StringN<unsigned char>::Data::hashFirst() const {
  std::uint64_t const wide = keyedHash(bytes(), length_);
  auto hash = static_cast<std::uint32_t>(wide ^ wide >> 32);
  if (hash == 0) hash = 1;  // 0 says that nobody asked yet
  std::atomic_ref<std::uint32_t>(hash_).store(hash, std::memory_order_relaxed);
  return hash;
}

StringN<unsigned char>::Data* StringN<unsigned char>::Data::make(std::size_t length,
                                                                 std::size_t room) {
  static_assert(sizeof(Data) == headerSize + sizeof(Data::bytes_));
  std::size_t const size = headerSize + room + 1;
  void* const memory = ::operator new(std::max(size, sizeof(Data)));
  auto* const data = ::new (memory) Data(0, static_cast<unsigned int>(length));
  data->mutableBytes()[length] = '\0';
  return data;
}

unsigned int StringN<unsigned char>::checkedLength(std::size_t length) {
  // Positions are signed 32-bit numbers.
  if (length > 0x7fffffff - 64) throw std::length_error("Mox::String8");
  return static_cast<unsigned int>(length);
}

void StringN<unsigned char>::init(char const* chars, unsigned int start, unsigned int length) {
  if (!chars || length == 0) {
    dataIs(&nullStringData_);
    return;
  }
  Data* const data = Data::make(checkedLength(length), length);
  std::memcpy(data->mutableBytes(), chars + start, length);
  dataIs(data);
}

StringN<unsigned char> StringN<unsigned char>::concatenation(std::string_view a,
                                                             std::string_view b) {
  StringN result;
  unsigned int const length = checkedLength(a.size() + b.size());
  if (length == 0) return result;
  Data* const data = Data::make(length, length);
  std::copy(a.begin(), a.end(), data->mutableBytes());
  std::copy(b.begin(), b.end(), data->mutableBytes() + a.size());
  result.dataIs(data);
  return result;
}

StringN<unsigned char> StringN<unsigned char>::substr(long long pos, unsigned int length) const {
  long long const size = data_->length_;
  if (pos >= size) return StringN();
  long long const from = std::max(pos, 0ll);
  long long const to = std::clamp(pos + static_cast<long long>(length), from, size);
  if (from == 0 && to == size) return *this;
  return StringN(charPtr() + from, static_cast<std::size_t>(to - from));
}

StringN<unsigned char>::Data* StringN<unsigned char>::sharedOrRest(IteratorBase const& from) {
  Data* const data = from.data_.get();
  if (from.eot()) return &nullStringData_;
  if (from.pos_ <= 0) {
    // From here on the body is a string's: the iterator makes itself another one if it goes on.
    if (data->isGrowing()) {
      data->references_ &= ~VFPtrInterface::notificationActiveMask;
      data->hash_ = 0;
    }
    return data;
  }
  std::size_t const length = data->length_ - static_cast<unsigned int>(from.pos_);
  Data* const rest = Data::make(length, length);
  std::memcpy(rest->mutableBytes(), from.charPtr(), length);
  return rest;
}

StringN<unsigned char>::StringN(IteratorConst const& from) : data_(sharedOrRest(from)) {
  data_->referencesInc();
}

StringN<unsigned char>::StringN(Iterator const& from) : data_(sharedOrRest(from)) {
  data_->referencesInc();
}

void StringN<unsigned char>::Iterator::append(char const* bytes, std::size_t length) {
  if (length == 0) return;
  Data* data = data_.get();
  std::size_t const old = data->length_;
  std::size_t const total = checkedLength(old + length);
  bool const isOwn = data->isGrowing() && (data->references() & VFPtrInterface::countMask) == 1;
  if (!isOwn || data->hash_ < total) {
    std::size_t const room =
        std::min<std::size_t>(std::max<std::size_t>(52, total * 2), 0x7fffffff);
    Ptr<Data> const fresh(Data::make(total, room));
    std::memcpy(fresh->mutableBytes(), data->bytes(), old);
    fresh->references_ |= VFPtrInterface::notificationActiveMask;
    fresh->hash_ = static_cast<std::uint32_t>(room);
    // `bytes` may lie in the body that goes now.
    std::memcpy(fresh->mutableBytes() + old, bytes, length);
    data_ = fresh;
    return;
  }
  std::memcpy(data->mutableBytes() + old, bytes, length);
  data->length_ = static_cast<unsigned int>(total);
  data->mutableBytes()[total] = '\0';
}

std::ostream& operator<<(std::ostream& out, String8 const& text) { return out << text.view(); }

String8 format(char const* fmt, ...) {
  char local[256];
  std::va_list arguments;
  va_start(arguments, fmt);
  int const length = std::vsnprintf(local, sizeof local, fmt, arguments);
  va_end(arguments);
  if (length < 0) return String8();
  auto const size = static_cast<std::size_t>(length);
  if (size < sizeof local) return String8(local, size);
  std::unique_ptr<char[]> const large(new char[size + 1]);
  va_start(arguments, fmt);
  std::vsnprintf(large.get(), size + 1, fmt, arguments);
  va_end(arguments);
  return String8(large.get(), size);
}

String8::IteratorConst::IteratorConst(Iterator const& other) : IteratorBase(other) {}

}  // namespace Mox
