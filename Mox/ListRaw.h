// The intrusive list with raw links that an entity keeps its notifiees in, and the base of the
// small collections. The list counts nobody: a member takes itself out before it goes away.
// Beside its members it keeps the silent ones: bound to the entity, but not to be notified.
#pragma once

#include <cstdint>
#include <utility>

#include "Mox/Ptr.h"

namespace MOX_API Mox {

/// Base of the collections: the change stamp, which only ever grows, and the number of members.
class BaseCollection {
 public:
  /// A position as an untyped value, for callers that don't know the member class.
  struct StrepIterator {
    void* member = nullptr;
  };

  virtual ~BaseCollection();

  std::uint32_t version() const { return version_; }
  std::uint32_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

 protected:
  BaseCollection() = default;
  BaseCollection(BaseCollection const&) = delete;
  BaseCollection& operator=(BaseCollection const&) = delete;

  std::uint32_t version_ = 0;
  std::uint32_t size_ = 0;
};

template <class T>
class BaseRefCollection : public BaseCollection {
 public:
  ~BaseRefCollection() override = default;
  /// Releases the counted member that the position holds; none is fine.
  virtual void iteratorDelete(StrepIterator& iterator) const {
    T* const member = static_cast<T*>(iterator.member);
    iterator.member = nullptr;
    if (member) ptrDec(member);
  }
  /// Counts the member once more and returns it; null stays null.
  virtual void* iteratorSpaceCopy(StrepIterator const& iterator) const {
    T* const member = static_cast<T*>(iterator.member);
    if (member) ptrInc(member);
    return member;
  }
};

/// The state of a walk over the live list, member and predecessor counted.
/// `isRaw`: the links of the list are raw pointers.
template <class T, bool isRaw>
class BaseIteratorConst {
 public:
  explicit operator bool() const { return static_cast<bool>(member_); }
  T* operator->() const { return member_.get(); }
  T* operator*() const { return member_.get(); }
  Ptr<T> const& ptr() const { return member_; }
  /// True if the member that the last step came from had left the list.
  bool memberWasDeleted() const { return isDeleted_; }

 protected:
  BaseCollection const* list_ = nullptr;
  Ptr<T> member_;
  std::uint32_t version_ = 0;
  Ptr<T> previous_;
  bool isDeleted_ = false;
};

/// `T` has a public raw `T* next`, which the list owns while the member is in it, listed or silent.
template <class T>
class ListRaw : public BaseRefCollection<T> {
 public:
  class LrIteratorConst;
  using LrIterator = LrIteratorConst;

  ListRaw() = default;
  /// Clears the links of all members, each kept alive until it was passed, and calls
  /// `moxNotifierGone()` on them and on the silent ones if the class has it.
  ~ListRaw() override {
    unlinkAll(std::exchange(head_, nullptr));
    unlinkAll(std::exchange(silent_, nullptr));
    tail_ = nullptr;
    ++this->version_;
    this->size_ = 0;
  }

  T* head() const { return head_; }
  T* tail() const { return tail_; }

  void pushFront(T* member) {
    member->next = head_;
    head_ = member;
    if (!tail_) tail_ = member;
    ++this->version_;
    ++this->size_;
  }
  void pushBack(T* member) {
    member->next = nullptr;
    (tail_ ? tail_->next : head_) = member;
    tail_ = member;
    ++this->version_;
    ++this->size_;
  }
  /// An absent member is left alone, and so is the list.
  bool remove(T const* member) {
    T* previous = nullptr;
    if (!unlink(head_, member, previous)) return false;
    if (tail_ == member) tail_ = previous;
    ++this->version_;
    --this->size_;
    return true;
  }

  // The silent ones, which change neither version nor size. Requires: `member` isn't listed.
  void silentPush(T* member) {
    member->next = silent_;
    silent_ = member;
  }
  void silentRemove(T const* member) {
    T* previous = nullptr;
    unlink(silent_, member, previous);
  }

  bool contains(T const* member) const {
    for (T* at = head_; at; at = at->next) {
      if (at == member) return true;
    }
    return false;
  }

 private:
  static bool unlink(T*& head, T const* member, T*& previous) {
    for (T* at = head; at; previous = at, at = at->next) {
      if (at != member) continue;
      (previous ? previous->next : head) = at->next;
      at->next = nullptr;
      return true;
    }
    return false;
  }
  static void unlinkAll(T* head) {
    Ptr<T> member(head);
    while (member) {
      Ptr<T> following(member->next);
      member->next = nullptr;
      if constexpr (requires { member->moxNotifierGone(); }) member->moxNotifierGone();
      member = std::move(following);
    }
  }

  T* head_ = nullptr;
  T* tail_ = nullptr;
  T* silent_ = nullptr;
};

/// Walks the live list. Goes on behind the place of a member that was taken out under it, as long
/// as the one before it is still there; otherwise it is at its end.
template <class T>
class ListRaw<T>::LrIteratorConst : public BaseIteratorConst<T, true> {
 public:
  explicit LrIteratorConst(ListRaw const* list) {
    this->list_ = list;
    this->version_ = list->version();
    this->member_ = list->head();
  }
  LrIteratorConst& operator++() {
    if (!this->member_) return *this;
    auto const* const list = static_cast<ListRaw const*>(this->list_);
    T* next = this->member_->next;
    this->isDeleted_ = false;
    if (this->version_ != list->version()) {
      this->version_ = list->version();
      this->isDeleted_ = !list->contains(this->member_.get());
    }
    if (this->isDeleted_) {
      if (!this->previous_) {
        next = list->head();
      } else {
        next = list->contains(this->previous_.get()) ? this->previous_->next : nullptr;
      }
    } else {
      this->previous_ = this->member_;
    }
    this->member_ = next;
    return *this;
  }
};

}  // namespace Mox
