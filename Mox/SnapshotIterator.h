// The frozen list that one notification walks: members may leave, join and die meanwhile.
#pragma once

#include <cstdint>
#include <vector>

#include "Mox/ListRaw.h"
#include "Mox/Ptr.h"

namespace Mox {

template <class List>
class SnapshotIterator;

template <class T>
class SnapshotIterator<ListRaw<T>> {
 public:
  /// Holds every member, head to tail. One allocation.
  explicit SnapshotIterator(ListRaw<T> const& list) {
    members_.reserve(list.size());
    for (T* member = list.head(); member; member = member->next) members_.emplace_back(member);
  }
  SnapshotIterator(SnapshotIterator const&) = delete;
  SnapshotIterator& operator=(SnapshotIterator const&) = delete;

  explicit operator bool() const { return index_ < static_cast<std::int64_t>(members_.size()); }
  /// The member in turn; null at the end.
  T* member() const { return *this ? members_[static_cast<std::size_t>(index_)].get() : nullptr; }

  /// Lets the member in turn go, then steps to the next one that somebody else holds too. Those
  /// that the snapshot alone holds died during the walk: they are released and passed over.
  void advance() {
    if (!*this) return;
    release();
    while (*this && (member()->references() & VFPtrInterface::countMask) == 1) release();
  }

 private:
  void release() {
    // The slot is empty before the release, which may run a destructor.
    Ptr<T> const last(std::move(members_[static_cast<std::size_t>(index_)]));
    ++index_;
  }

  std::vector<Ptr<T>> members_;
  std::int32_t index_ = 0;
};

}  // namespace Mox
