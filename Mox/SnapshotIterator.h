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
        members_(many_ ? many_ : room) {
    for (T* member = list.head(); member; member = member->next) {
      ptrInc(member);
      members_[count_++] = member;
    }
  }
  ~Snapshot() {
    while (*this) release();
    delete[] many_;
  }
  Snapshot(Snapshot const&) = delete;
  Snapshot& operator=(Snapshot const&) = delete;

  explicit operator bool() const { return index_ < count_; }
  /// The member in turn; null at the end.
  T* member() const { return *this ? members_[index_] : nullptr; }

  /// Lets the member in turn go, then steps to the next one that somebody else holds too. Those
  /// that the snapshot alone holds died during the walk: they are released and passed over.
  void advance() {
    if (!*this) return;
    release();
    while (*this && (members_[index_]->references() & VFPtrInterface::countMask) == 1)
      [[unlikely]] release();
  }

 private:
  /// The step comes before the release, which may run a destructor.
  void release() { ptrDec(members_[index_++]); }

  T** const many_;
  T** const members_;
  std::int32_t index_ = 0;
  std::int32_t count_ = 0;
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
