// A keyed queue in insertion order whose members stand in link objects of their own, so that one
// member can be in several queues. Keeps the attributes of a type.
#pragma once

#include <cstdint>
#include <optional>

#include "Mox/ListRaw.h"
#include "Mox/Ptr.h"

namespace MOX_API Mox {

/// Picks the counted form of `IteratorConst::ptr`.
enum False { False_ };

/// Base of a link class: `class MoxAttributeQ : public LinkQueueLink<MoxAttributeQ, unsigned int,
/// MoxAttr>`.
template <class Q, class K, class V>
class LinkQueueLink : public PtrInterface {
 public:
  LinkQueueLink(K const& key, Ptr<V> const& member) : key_(key), member_(member) {}

  K const& key() const { return key_; }
  Ptr<V> const& member() const { return member_; }

 private:
  K key_;
  Ptr<V> member_;

 public:
  Ptr<Q> next;
};

template <class Q, class K, class V>
class LinkQueue : public BaseCollection {
 public:
  class IteratorConst;

  LinkQueue() = default;
  ~LinkQueue() override { deleteAll(); }

  /// Appends; keys may repeat.
  void enq(K const& key, Ptr<V> const& member) {
    Ptr<Q> const link(new Q(key, member));
    (tail_ ? tail_->next : head_) = link;
    tail_ = link.get();
    ++version_;
    ++size_;
  }
  /// Takes the first member out; null when there is none.
  Ptr<V> deq() {
    Ptr<Q> const link(head_);
    if (!link) return nullptr;
    head_ = link->next;
    if (!head_) tail_ = nullptr;
    link->next = nullptr;
    ++version_;
    --size_;
    return link->member();
  }
  /// The first member with this key, not counted; null when there is none.
  V* operator[](K const& key) const {
    Q* const link = find(key);
    return link ? link->member().get() : nullptr;
  }
  /// Takes the first member with this key out and returns it; null when there is none.
  Ptr<V> del(K const& key) {
    Q* previous = nullptr;
    for (Q* at = head_.get(); at; previous = at, at = at->next.get()) {
      if (!(at->key() == key)) continue;
      Ptr<Q> const link(at);
      (previous ? previous->next : head_) = link->next;
      if (tail_ == at) tail_ = previous;
      link->next = nullptr;
      ++version_;
      --size_;
      return link->member();
    }
    return nullptr;
  }
  void deleteAll() {
    Ptr<Q> link(std::move(head_));
    tail_ = nullptr;
    ++version_;
    size_ = 0;
    while (link) link = Ptr<Q>(std::move(link->next));
  }

  Q* head() const { return head_.get(); }
  Q* find(K const& key) const {
    for (Q* at = head_.get(); at; at = at->next.get()) {
      if (at->key() == key) return at;
    }
    return nullptr;
  }

 private:
  Ptr<Q> head_;
  Q* tail_ = nullptr;
};

/// Holds its link, and can give it up for a bookmark: the key to come back to.
template <class Q, class K, class V>
class LinkQueue<Q, K, V>::IteratorConst {
 public:
  IteratorConst() = default;
  explicit IteratorConst(LinkQueue const* queue) : queue_(queue), link_(queue->head()) {}

  explicit operator bool() const { return static_cast<bool>(link_); }
  K const& key() const { return link_->key(); }
  V* operator->() const { return link_->member().get(); }
  V* operator*() const { return link_ ? link_->member().get() : nullptr; }
  /// A counted pointer of the caller's own.
  Ptr<V> ptr(False = False_) const { return link_ ? link_->member() : Ptr<V>(); }

  void advance() {
    if (link_) link_ = Ptr<Q>(link_->next);
  }
  IteratorConst& operator++() {
    advance();
    return *this;
  }

  /// True while the iterator has given its link up and remembers the key instead.
  bool hasBookmark() const { return bookmark_.has_value(); }
  /// True: gives the link up. False: finds the key again; the end if it is gone.
  void bookmarkIs(bool kept) {
    if (kept && link_) {
      bookmark_ = link_->key();
      link_ = nullptr;
    } else if (!kept && bookmark_) {
      link_ = queue_->find(*bookmark_);
      bookmark_.reset();
    }
  }

 private:
  LinkQueue const* queue_ = nullptr;
  Ptr<Q> link_;
  std::optional<K> bookmark_;
};

}  // namespace Mox
