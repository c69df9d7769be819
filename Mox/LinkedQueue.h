// The queue of counted link objects behind the generic list value. Members need no key and may
// stand in it more than once.
#pragma once

#include "Mox/ListRaw.h"
#include "Mox/Ptr.h"

namespace MOX_API Mox {

/// Base of a link class: what is carried, and the link.
template <class L, class V>
class LinkedQueueLink : public PtrInterface {
 public:
  explicit LinkedQueueLink(Ptr<V> const& member) : member_(member) {}
  Ptr<V> const& member() const { return member_; }

 private:
  Ptr<V> member_;

 public:
  Ptr<L> next;
};

/// `P` is the pointer that is handed in and out, as a rule `Ptr<V>`.
template <class L, class V, class P>
class LinkedQueue : public BaseCollection {
 public:
  class Iterator;

  LinkedQueue() = default;
  ~LinkedQueue() override { unlinkAll(); }

  void enq(P const& member) {
    Ptr<L> const link(new L(member));
    (tail_ ? tail_->next : head_) = link;
    tail_ = link.get();
    ++version_;
    ++size_;
  }
  /// Takes the first out; null when there is none.
  P deq() {
    Ptr<L> const link(head_);
    if (!link) return P();
    unlink(nullptr, link.get());
    return link->member();
  }
  /// Takes the first link that carries `member` out. Tells `onDeleteMemberNotFound` if none does.
  bool del(V const* member) {
    L* previous = nullptr;
    for (L* at = head_.get(); at; previous = at, at = at->next.get()) {
      if (at->member().get() != member) continue;
      Ptr<L> const held(at);
      unlink(previous, at);
      return true;
    }
    onDeleteMemberNotFound();
    return false;
  }
  void deleteAll() {
    ++version_;
    size_ = 0;
    unlinkAll();
  }

  L* head() const { return head_.get(); }

 protected:
  /// A member to be deleted isn't here.
  virtual void onDeleteMemberNotFound() {}

 private:
  void unlink(L* previous, L* link) {
    (previous ? previous->next : head_) = link->next;
    if (tail_ == link) tail_ = previous;
    link->next = nullptr;
    ++version_;
    --size_;
  }
  void unlinkAll() {
    Ptr<L> link(std::move(head_));
    tail_ = nullptr;
    while (link) link = Ptr<L>(std::move(link->next));
  }

  Ptr<L> head_;
  L* tail_ = nullptr;
};

template <class L, class V, class P>
class LinkedQueue<L, V, P>::Iterator {
 public:
  Iterator() = default;
  explicit Iterator(LinkedQueue const* queue) : link_(queue->head()) {}

  explicit operator bool() const { return static_cast<bool>(link_); }
  V* operator->() const { return link_->member().get(); }
  V* operator*() const { return link_ ? link_->member().get() : nullptr; }
  P ptr() const { return link_ ? P(link_->member()) : P(); }

  Iterator& operator++() {
    if (!link_) return *this;
    previous_ = link_;
    Ptr<L> const old(std::move(link_));
    link_ = old->next;
    return *this;
  }

 private:
  Ptr<L> link_;
  Ptr<L> previous_;
};

}  // namespace Mox
