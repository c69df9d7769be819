// The frozen list that one notification walks: members may leave, join and die meanwhile.
#pragma once

#include <cstdint>

#include "Mox/ListRaw.h"
#include "Mox/Ptr.h"

namespace MOX_API Mox {

/// The frozen list in an array that the caller has: the walk's own fields then stay in registers.
template <class T>
class Snapshot {
 public:
  /// Lists of up to this length are usual: they fit into a room.
  static constexpr std::uint32_t usual = 16;
  using Room = T* [usual];

  /// Holds every member, head to tail. Allocates once for a long list, not at all for a usual one.
  Snapshot(ListRaw<T> const& list, Room& room)
      : many_(list.size() <= usual ? nullptr : new T*[list.size()]),
        at_(many_ ? many_ : room),
        end_(at_) {
    for (T* member = list.head(); member; member = member->next) {
      ptrInc(member);
      *end_++ = member;
    }
  }
  // In line even where exceptions pass, which GCC takes for cold: a call would want the fields in
  // memory, on the way that is taken too.
  [[gnu::always_inline]] ~Snapshot() {
    while (*this) release(handled);
    delete[] many_;
  }
  Snapshot(Snapshot const&) = delete;
  Snapshot& operator=(Snapshot const&) = delete;

  explicit operator bool() const { return at_ != end_; }
  /// The member in turn; null at the end.
  T* member() const { return *this ? *at_ : nullptr; }

  /// Lets the member in turn go, then steps to the next one that somebody else holds too. Those
  /// that the snapshot alone holds died during the walk: they are released and passed over. False
  /// at the end.
  bool advance() { return *this && step(handled); }
  /// The same with a member in turn. `lastReference` handles one whose last reference goes.
  template <class LastReference>
  bool step(LastReference const& lastReference) {
    release(lastReference);
    while (*this) {
      if (((*at_)->references() & VFPtrInterface::countMask) != 1) [[likely]]
        return true;
      release(lastReference);
    }
    return false;
  }
  /// The member in turn, of which there is one.
  T* operator*() const { return *at_; }

 private:
  static void handled(T* member) { member->handleZeroRef(); }
  /// The step comes before the release, which may run a destructor.
  template <class LastReference>
  [[gnu::always_inline]] void release(LastReference const& lastReference) {
    T* const member = *at_++;
    if (member->moxReferenceIsLast()) [[unlikely]]
      lastReference(member);
  }

  T** const many_;
  T** at_;
  T** end_;
};

template <class List>
class SnapshotIterator;

/// The same with a room of its own.
template <class T>
class SnapshotIterator<ListRaw<T>> {
 public:
  explicit SnapshotIterator(ListRaw<T> const& list) : snapshot_(list, room_) {}
  explicit operator bool() const { return static_cast<bool>(snapshot_); }
  T* member() const { return snapshot_.member(); }
  void advance() { snapshot_.advance(); }

 private:
  typename Snapshot<T>::Room room_;
  Snapshot<T> snapshot_;
};

}  // namespace Mox
