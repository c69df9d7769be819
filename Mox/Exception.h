// The failure family, its ids, and the scope that announces a planned failure.
// Contract failures only: our own bugs are assertions, and normal absence is a null or a default.
#pragma once

#include <cstdint>
#include <exception>

#include "Mox/String8.h"

namespace MOX_API Mox {

class Exception : public std::exception {
 public:
  /// The kind of a failure, a small number. An exception carries a set of them.
  using Id = unsigned int;
  enum : Id {
    anyId = 0,  ///< no particular kind: any exception of a notifiee
    internalId = 2,
    rangeId = 12,
    nameInUseId = 16,
    typeId = 20,
    constId = 21,
    unknownArgId = 22,
    unknownAttrId = 23,
    badIndexAttrId = 24,
    opNotSupportedId = 25,
    attrLogEntityId = 42,
    attrLogRecordId = 48,
    entityIdUnavailableId = 49,
  };

  class IdBitArray {
   public:
    constexpr IdBitArray() = default;
    /// Returns the set. An id from 64 on is left out: the failure that is being reported shall not
    /// become another one.
    constexpr IdBitArray& add(Id id) {
      if (id < 64) words_[id / 32] |= 1u << id % 32;
      return *this;
    }
    constexpr bool contains(Id id) const {
      return id < 64 && (words_[id / 32] >> id % 32 & 1u) != 0;
    }
    constexpr bool empty() const { return (words_[0] | words_[1]) == 0; }
    friend constexpr bool operator==(IdBitArray const&, IdBitArray const&) = default;

   private:
    std::uint32_t words_[2] = {0, 0};
  };

  /// `flag`: raised by a rule of the model or the library; all subclasses pass true.
  Exception(String8 message, IdBitArray ids, bool flag);
  ~Exception() override;

  char const* what() const noexcept override { return message_.charPtr(); }
  String8 const& message() const { return message_; }
  IdBitArray const& ids() const { return ids_; }
  bool flag() const { return flag_; }
  /// True if an Expect scope for one of its ids was open when it was made.
  bool isPlanned() const { return isPlanned_; }

 private:
  String8 message_;
  IdBitArray ids_;
  bool flag_;
  bool isPlanned_;
};

/// A value out of range, or text that can't be read.
class RangeException : public Exception {
 public:
  explicit RangeException(String8 message, IdBitArray ids = {});
  ~RangeException() override;
};

/// A fault of the system itself.
class InternalException : public Exception {
 public:
  explicit InternalException(String8 message, IdBitArray ids = {});
  ~InternalException() override;
};

/// Reinstantiation with other arguments.
class NameInUseException : public Exception {
 public:
  explicit NameInUseException(String8 message, IdBitArray ids = {});
  ~NameInUseException() override;
};

/// A message in the log names an entity of the wrong kind.
class AttrLogEntityException : public Exception {
 public:
  explicit AttrLogEntityException(String8 message, IdBitArray ids = {});
  ~AttrLogEntityException() override;
};

/// A log record that has to be started again while it is being written.
class AttrLogRecordException : public Exception {
 public:
  explicit AttrLogRecordException(String8 message, IdBitArray ids = {});
  ~AttrLogRecordException() override;
};

/// An entity has no id on this connection yet.
class EntityIdUnavailableException : public Exception {
 public:
  explicit EntityIdUnavailableException(String8 message, IdBitArray ids = {});
  ~EntityIdUnavailableException() override;
};

// The failures of the generic interface.

class TypeException : public Exception {
 public:
  explicit TypeException(String8 message, IdBitArray ids = {});
  ~TypeException() override;
};

class ConstException : public Exception {
 public:
  explicit ConstException(String8 message, IdBitArray ids = {});
  ~ConstException() override;
};

class UnknownArgException : public Exception {
 public:
  explicit UnknownArgException(String8 message, IdBitArray ids = {});
  ~UnknownArgException() override;
};

class UnknownAttrException : public Exception {
 public:
  explicit UnknownAttrException(String8 message, IdBitArray ids = {});
  ~UnknownAttrException() override;
};

class BadIndexAttrException : public Exception {
 public:
  explicit BadIndexAttrException(String8 message, IdBitArray ids = {});
  ~BadIndexAttrException() override;
};

class OpNotSupportedException : public Exception {
 public:
  explicit OpNotSupportedException(String8 message, IdBitArray ids = {});
  ~OpNotSupportedException() override;
};

[[noreturn]] void throwRangeException(char const* message);
[[noreturn]] void throwInternalException(char const* message);
[[noreturn]] void throwInternalException(String8 const& message);
[[noreturn]] void throwNameInUseException(String8 const& message);

/// Open around a call whose failure of this kind the caller has a planned reaction to: an exception
/// made meanwhile on this thread says so by `isPlanned()`. Scopes nest; build them on the stack.
/// Requires: closed before the reaction begins.
class Expect {
 public:
  explicit Expect(Exception::Id id) : previous_(innermost_), id_(id) { innermost_ = this; }
  ~Expect() { innermost_ = previous_; }
  Expect(Expect const&) = delete;
  Expect& operator=(Expect const&) = delete;

  /// Closes the scope and opens it again at the same place, for a loop of many short scopes.
  void openIs(bool open) { innermost_ = open ? this : previous_; }

  /// True if a scope is open on this thread for one of `ids`, or for any kind.
  static bool expects(Exception::IdBitArray const& ids);

 private:
  // Opened once for every notifiee called, so it has to cost two moves: initialised at compile time
  // and at a fixed place of the thread's memory.
  [[gnu::tls_model("initial-exec")]] static thread_local constinit Expect* innermost_;

  Expect* previous_;
  Exception::Id id_;
};

}  // namespace Mox
