// The frozen list that one notification walks: members may leave, join and die meanwhile.
#pragma once

#include <cstdint>

#include "Mox/ListRaw.h"
#include "Mox/Ptr.h"

namespace MOX_API Mox {

template <class List>
class SnapshotIterator;

/// Steps through the members that a list had at the start, head to tail, each of them counted.
template <class T>
class SnapshotIterator<ListRaw<T>> {
 public:
  /// Lists of up to this length are usual: they fit into a room.
  static constexpr std::uint32_t usual = 16;
  using Room = T* [usual];

  explicit SnapshotIterator(ListRaw<T> const& list)
      : SnapshotIterator(list, new T*[list.size()], nullptr) {}
  /// The same in an array that the caller has, if the list fits into it: nothing is allocated, and
  /// the fields stay in registers.
  SnapshotIterator(ListRaw<T> const& list, Room& room)
      : SnapshotIterator(list, list.size() <= usual ? nullptr : new T*[list.size()], room) {}
  // In line even where exceptions pass, which GCC takes for cold: a call would want the fields in
  // memory, on the way that is taken too.
  [[gnu::always_inline]] ~SnapshotIterator() {
    while (*this) release(handled);
    delete[] heap_;
  }
  SnapshotIterator(SnapshotIterator const&) = delete;
  SnapshotIterator& operator=(SnapshotIterator const&) = delete;

  explicit operator bool() const { return index < size_; }
  /// The member in turn; null at the end.
  T* member() const { return *this ? members_[index] : nullptr; }

  /// Releases the member in turn, then steps to the next one that somebody else holds too. Those
  /// that the snapshot alone holds died during the walk: they are released and passed over. False
  /// at the end.
  bool advance() { return *this && step(handled); }
  /// The same with a member in turn. `lastReference` handles one whose last reference goes.
  template <class LastReference>
  bool step(LastReference const& lastReference) {
    release(lastReference);
    while (*this) {
      if ((members_[index]->references() & VFPtrInterface::countMask) != 1) [[likely]]
        return true;
      release(lastReference);
    }
    return false;
  }
  /// The member in turn, of which there is one.
  T* operator*() const { return members_[index]; }

  /// The position in the snapshot.
  std::int32_t index = 0;

 private:
  SnapshotIterator(ListRaw<T> const& list, T** heap, T** room)
      : heap_(heap), members_(heap ? heap : room) {
    for (T* member = list.head(); member; member = member->next) {
      member->moxRequireHeld();
      ptrInc(member);
      members_[size_++] = member;
    }
  }
  static void handled(T* member) { member->handleZeroRef(); }
  /// The step comes before the release, which may run a destructor.
  template <class LastReference>
  [[gnu::always_inline]] void release(LastReference const& lastReference) {
    T* const member = members_[index++];
    if (member->moxReferenceIsLast()) [[unlikely]]
      lastReference(member);
  }

  T** const heap_;
  T** const members_;
  std::int32_t size_ = 0;
};

}  // namespace Mox
