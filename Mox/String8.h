// Immutable counted byte strings that share one body between copies, and the positions in them.
// A copy is one increment, so strings go by value. Bodies may be read by any number of threads.
#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string_view>

#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"

namespace MOX_API Mox {

template <class Char>
class StringN;

/// The handle. Never null, except between the start of a constructor and `init`.
template <>
class StringN<unsigned char> {
 public:
  class IteratorBase;
  class IteratorConst;
  class Iterator;

  /// The body: `reference word | length | hash, 0 until asked for | bytes | NUL`.
  /// In a body that an Iterator is still appending to (bit 29 of the word), the third word is the
  /// room behind the header instead.
  class Data : public VFPtrInterface {
   public:
    unsigned int length() const { return length_; }
    char const* bytes() const { return reinterpret_cast<char const*>(this) + headerSize; }

    /// Equality of length and bytes: the one equality that all comparisons go through.
    bool operator==(Data const& other) const {
      if (this == &other) return true;
      if (length_ != other.length_) return false;
      // Strings with a common beginning are the rule; two known hashes tell them apart at once.
      std::uint32_t const mine = hashWord();
      std::uint32_t const others = other.hashWord();
      if (mine != others && mine != 0 && others != 0 && !isGrowing() && !other.isGrowing()) {
        return false;
      }
      return std::memcmp(bytes(), other.bytes(), length_) == 0;
    }
    /// Unsigned bytes, a prefix first.
    bool operator<(Data const& other) const;

    std::uint32_t hash() const {
      std::uint32_t const known = hashWord();
      return known != 0 ? known : hashFirst();
    }

   private:
    friend class StringN;
    static constexpr std::size_t headerSize = 12;

    constexpr Data(std::uint32_t references, unsigned int length)
        : VFPtrInterface(references), length_(length) {}
    /// A body with room for `room` bytes and the NUL, count 0.
    static Data* make(std::size_t length, std::size_t room);
    char* mutableBytes() { return reinterpret_cast<char*>(this) + headerSize; }
    bool isGrowing() const { return (references() & notificationActiveMask) != 0; }
    std::uint32_t hashWord() const {
      return std::atomic_ref<std::uint32_t>(hash_).load(std::memory_order_relaxed);
    }
    std::uint32_t hashFirst() const;

    unsigned int length_;
    mutable std::uint32_t hash_ = 0;
    [[maybe_unused]] unsigned char bytes_[4] = {};
  };

  /// The body of all empty strings; never freed.
  static Data nullStringData_;

  StringN() : data_(&nullStringData_) { data_->referencesInc(); }
  /// A null `text` is the empty string.
  StringN(char const* text) : data_(nullptr) {
    init(text, 0, text ? checkedLength(std::strlen(text)) : 0);
  }
  /// Any bytes, zero bytes included.
  StringN(char const* bytes, std::size_t length) : data_(nullptr) {
    init(bytes, 0, checkedLength(length));
  }
  explicit StringN(std::string_view bytes) : StringN(bytes.data(), bytes.size()) {}
  /// The rest of the text, from the iterator's position to the end.
  StringN(IteratorConst const& from);
  StringN(Iterator const& from);
  StringN(StringN const& other) : data_(other.data_) { data_->referencesInc(); }
  ~StringN() {
    Data* const data = data_;
    data_ = nullptr;
    if (data) ptrDec(data);
  }
  StringN& operator=(StringN const& other) {
    dataIs(other.data_);
    return *this;
  }
  StringN& operator=(char const* text) {
    StringN const fresh(text);
    return *this = fresh;
  }

  /// Sets the handle to a new body of the `length` bytes at `chars + start`.
  void init(char const* chars, unsigned int start, unsigned int length);

  unsigned int length() const { return data_->length_; }
  bool empty() const { return data_->length_ == 0; }
  /// The bytes, followed by a NUL. Lives as long as the string.
  char const* charPtr() const { return data_->bytes(); }
  std::string_view view() const { return {data_->bytes(), data_->length_}; }
  unsigned char operator[](unsigned int index) const {
    return static_cast<unsigned char>(data_->bytes()[index]);
  }
  /// At most `length` bytes from `pos` on; what lies outside of the text is left out.
  StringN substr(long long pos, unsigned int length = 0xffffffff) const;
  /// Equal strings have equal hashes, in all processes of one build; nothing else is promised.
  std::uint32_t hash() const { return data_->hash(); }
  Data const* data() const { return data_; }

  friend bool operator==(StringN const& a, StringN const& b) { return *a.data_ == *b.data_; }
  friend bool operator==(StringN const& a, char const* b) {
    return a.view() == (b ? std::string_view(b) : std::string_view());
  }
  friend bool operator<(StringN const& a, StringN const& b) { return *a.data_ < *b.data_; }
  friend bool operator>(StringN const& a, StringN const& b) { return b < a; }
  friend bool operator<=(StringN const& a, StringN const& b) { return !(b < a); }
  friend bool operator>=(StringN const& a, StringN const& b) { return !(a < b); }

  friend StringN operator+(StringN const& a, StringN const& b) {
    return concatenation(a.view(), b.view());
  }
  /// A null `char const*` counts as empty.
  friend StringN operator+(StringN const& a, char const* b) {
    return concatenation(a.view(), b ? std::string_view(b) : std::string_view());
  }
  friend StringN operator+(char const* a, StringN const& b) {
    return concatenation(a ? std::string_view(a) : std::string_view(), b.view());
  }
  StringN& operator+=(StringN const& other) { return *this = *this + other; }

 private:
  static StringN concatenation(std::string_view a, std::string_view b);
  static unsigned int checkedLength(std::size_t length);
  static Data* sharedOrRest(IteratorBase const& from);
  void dataIs(Data* data) {
    Data* const old = data_;
    if (old == data) return;
    data->referencesInc();
    data_ = data;
    if (old) ptrDec(old);
  }

  Data* data_;
};

using String8 = StringN<unsigned char>;

/// A body, counted, and a byte position in it. The text lives for as long as the iterator.
class StringN<unsigned char>::IteratorBase {
 public:
  int pos() const { return pos_; }
  void posIs(int pos) { pos_ = pos; }
  /// End of text: false for a negative position.
  bool eot() const { return pos_ >= 0 && static_cast<unsigned int>(pos_) >= data_->length(); }
  /// The length of the whole text, wherever the iterator stands.
  unsigned int length() const { return data_->length(); }
  /// The whole text.
  char const* bytes() const { return data_->bytes(); }
  /// The text from the position on. Requires: 0 <= pos() <= length().
  char const* charPtr() const { return data_->bytes() + pos_; }
  /// The byte at the position. Requires: pos() >= 0 and not eot().
  unsigned char operator*() const { return static_cast<unsigned char>(*charPtr()); }

  friend bool operator==(IteratorBase const& a, IteratorBase const& b) {
    return a.pos_ == b.pos_ && a.data_ == b.data_;
  }

 protected:
  friend class StringN;
  explicit IteratorBase(Data* data, int pos = 0) : data_(data), pos_(pos) {}

  Ptr<Data> data_;
  std::int32_t pos_;
};

class StringN<unsigned char>::IteratorConst : public IteratorBase {
 public:
  IteratorConst() : IteratorBase(&nullStringData_) {}
  explicit IteratorConst(StringN const& text, int pos = 0) : IteratorBase(text.data_, pos) {}
  IteratorConst(Iterator const& other);
  IteratorConst& operator++() {
    ++pos_;
    return *this;
  }
};

/// The same, and bytes can be put behind its text; only whoever holds this iterator sees them.
class StringN<unsigned char>::Iterator : public IteratorBase {
 public:
  Iterator() : IteratorBase(&nullStringData_) {}
  explicit Iterator(StringN const& text, int pos = 0) : IteratorBase(text.data_, pos) {}
  Iterator& operator++() {
    ++pos_;
    return *this;
  }
  /// Puts bytes behind the text, the position stays. Amortised: the room doubles.
  void append(char const* bytes, std::size_t length);
};

std::ostream& operator<<(std::ostream& out, String8 const& text);

/// printf into a string.
[[gnu::format(printf, 1, 2)]] String8 format(char const* fmt, ...);

}  // namespace Mox

namespace std {
template <>
struct hash<Mox::String8> {
  std::size_t operator()(Mox::String8 const& text) const noexcept { return text.hash(); }
};
}  // namespace std
